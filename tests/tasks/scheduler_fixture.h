// scheduler_fixture.h - the scheduler on as many processors as a case wants, and gates for its
// tasks.
#pragma once

#include "qx/qx.h"
#include "qx/base/windows.h"
#include "tests/harness/stand_in.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

namespace test {

using task::FiberMode;
using task::Priority;
using task::ThreadMask;

constexpr auto fiberful = FiberMode::fiberful;
constexpr auto fiberless = FiberMode::fiberless;
constexpr auto any_thread = ThreadMask::any_thread;
constexpr auto worker_threads = ThreadMask::worker_threads;
constexpr auto main_thread = ThreadMask::main_thread;
constexpr auto normal = Priority::normal;
constexpr auto high = Priority::high;

inline ThreadMask pinned_to(unsigned int worker) {
    return static_cast<ThreadMask>(3 + worker);
}

// The processor seen as having `count` logical processors, each a core.
class Processors {
public:
    explicit Processors(unsigned int count)
        : query_("GetProcessAffinityMask", answer), binding_("SetThreadAffinityMask", refuse) {
        mask() = count >= 64 ? ~0ull : (1ull << count) - 1;
        EXPECT_TRUE(query_.found() && binding_.found());
    }

private:
    static DWORD_PTR& mask() {
        static DWORD_PTR value;
        return value;
    }
    static BOOL WINAPI answer(HANDLE, DWORD_PTR* process, DWORD_PTR* system) {
        *process = *system = mask();
        return TRUE;
    }
    // Those that can't be bound to count as cores, whatever the machine has.
    static DWORD_PTR WINAPI refuse(HANDLE, DWORD_PTR) { return 0; }

    StandIn query_;
    StandIn binding_;
};

// The library initialised with exactly `workers`, and ended with the case.
class Library {
public:
    explicit Library(
        unsigned int workers, QX::THREAD_MANAGER_INTERFACE* manager = nullptr,
        unsigned int pre_created = 0)
        : processors_(workers + 1) {
        EXPECT_EQ(task::initialize(manager, workers, pre_created), workers);
    }
    ~Library() { task::terminate(); }

private:
    Processors processors_;
};

// Waits for a condition without running tasks. Fails the case after ten seconds.
template <typename Condition>
void await(Condition condition) {
    for (int i = 0; i < 10000 && !condition(); ++i) Sleep(1);
    EXPECT_TRUE(condition());
}

// Holds a worker on its own stack until it is opened.
class Gate {
public:
    explicit Gate(unsigned int worker) {
        task::spawn(fiberless, pinned_to(worker), normal, [this] {
            closed_ = true;
            while (!open_) Sleep(0);
            passed_ = true;
        });
        await([this] { return closed_.load(); });
    }
    ~Gate() { open(); }

    void open() {
        open_ = true;
        await([this] { return passed_.load(); });
    }

private:
    std::atomic<bool> closed_ = false;
    std::atomic<bool> open_ = false;
    std::atomic<bool> passed_ = false;
};

// What tasks did, in order.
class Log {
public:
    void add(char what) {
        std::lock_guard const hold(lock_);
        text_ += what;
    }
    std::string text() const {
        std::lock_guard const hold(lock_);
        return text_;
    }
    std::size_t size() const { return text().size(); }

private:
    mutable std::mutex lock_;
    std::string text_;
};

}  // namespace test
