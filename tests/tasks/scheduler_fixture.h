// scheduler_fixture.h - the scheduler on as many processors as a case wants.
#pragma once

#include "qx/base/windows.h"
#include "qx/qx.h"
#include "tests/harness/stand_in.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

namespace test {

using task::FiberMode;
using task::Priority;
using task::ThreadMask;

using enum FiberMode;
using enum ThreadMask;
using enum Priority;

inline ThreadMask pinned_to(unsigned int worker) {
    return static_cast<ThreadMask>(3 + worker);
}

// The processor seen as having `count` logical processors, each a core.
class Processors {
public:
    explicit Processors(unsigned int count)
        : query_("GetProcessAffinityMask", answer), binding_("SetThreadAffinityMask", refuse) {
        mask_ = (1ull << count) - 1;
        EXPECT_TRUE(query_.found() && binding_.found());
    }

private:
    static BOOL WINAPI answer(HANDLE, DWORD_PTR* process, DWORD_PTR* system) {
        *process = *system = mask_;
        return TRUE;
    }
    // Those that can't be bound to count as cores, whatever the machine has.
    static DWORD_PTR WINAPI refuse(HANDLE, DWORD_PTR) { return 0; }

    static inline DWORD_PTR mask_ = 0;
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
    for (int i = 0; i < 12000 && !condition(); ++i) i < 2000 ? Sleep(0) : Sleep(1);
    EXPECT_TRUE(condition());
}

}  // namespace test
