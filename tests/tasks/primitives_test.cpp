// Atomics, mutexes, semaphores, events and thread starts.
#include "qx/base/windows.h"
#include "qx/qx.h"
#include "tests/harness/stand_in.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

// Both widths answer with the value from before each step.
template <typename Atomic, typename Word>
void walk_through_the_operations() {
    Word const wide = static_cast<Word>(1) << (sizeof(Word) * 8 - 2);
    Atomic n(0);
    EXPECT_EQ(n.inc(), 0);
    EXPECT_EQ(n.add(wide), 1);
    EXPECT_EQ(n.sub(2), wide + 1);
    EXPECT_EQ(n.dec(), wide - 1);
    EXPECT_EQ(n.set(12), wide - 2);
    EXPECT_EQ(n.set_if_equal(5, 11), 12);
    EXPECT_EQ(n.set_if_equal(5, 12), 12);
    EXPECT_EQ(n.logical_or(wide | 8), 5);
    EXPECT_EQ(n.logical_and(wide | 12), wide + 13);
    EXPECT_EQ(n.logical_xor(4), wide + 12);
    EXPECT_EQ(Atomic(n).get(), wide + 8);
}

TEST(Atomic, operations_return_the_value_before) {
    walk_through_the_operations<QX::AtomicInt32Platform, int>();
    walk_through_the_operations<QX::AtomicInt64Platform, long long>();
    EXPECT_EQ(QX::AtomicInt32Platform().get(), 0);
}

bool is_free(QX::MutexPlatform& mutex) {
    bool taken = false;
    std::thread([&] {
        taken = mutex.try_acquire();
        if (taken) mutex.release();
    }).join();
    return taken;
}

TEST(Mutex, is_held_and_given_up_and_taken_back_at_any_depth) {
    QX::MutexPlatform mutex(100);
    for (unsigned int depth = 0; depth < 4; ++depth) {
        EXPECT_EQ(mutex.lock_count(), depth);
        EXPECT_EQ(is_free(mutex), depth == 0);
        QX::SafetyCatch caught = mutex.suspend();
        EXPECT_EQ(caught.depth(), depth);
        EXPECT_TRUE(is_free(mutex));
        mutex.resume(caught);
        EXPECT_EQ(mutex.lock_count(), depth);
        mutex.acquire();
    }
    for (unsigned int left = 4; left-- > 0;) EXPECT_EQ(mutex.release(), left);
    EXPECT_TRUE(is_free(mutex));
}

TEST(Mutex, is_copied_bit_for_bit) {
    alignas(8) unsigned char first[sizeof(QX::MutexPlatform)];
    alignas(8) unsigned char second[sizeof first] = {1, 2, 3};
    auto& mutex = *new (first) QX::MutexPlatform(7);
    reinterpret_cast<QX::MutexPlatform&>(second) = mutex;
    EXPECT_EQ(std::memcmp(first + 8, second + 8, 40), 0);
    EXPECT_EQ(reinterpret_cast<QX::MutexPlatform&>(second).lock_count(), 0u);
    mutex.~MutexPlatform();
}

TEST(OptionalCriticalSection, touches_nothing_when_off) {
    std::string bytes(sizeof(QX::OptionalCriticalSection), 'Z');
    for (bool const enabled : {false, true}) {
        auto* section = new (bytes.data()) QX::OptionalCriticalSection(QX::heap_cs(), enabled);
        EXPECT_EQ(QX::heap_cs().lock_count(), enabled);
        EXPECT_EQ(bytes[0], enabled);
        EXPECT_EQ(bytes.substr(1) == "ZZZZZZZZ", !enabled);
        section->~OptionalCriticalSection();
        EXPECT_EQ(QX::heap_cs().lock_count(), 0u);
    }
}

TEST(Semaphore, refuses_a_name_that_is_taken) {
    QX::Semaphore const first(1, 2, "qx test", "a");
    EXPECT_NE(QX::Semaphore(1, 2, "qx test", nullptr).handle(), nullptr);
    EXPECT_EQ(WaitForSingleObject(first.handle(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(first.handle(), 0), WAIT_TIMEOUT);
    EXPECT_TRUE(ReleaseSemaphore(first.handle(), 2, nullptr));
    EXPECT_FALSE(ReleaseSemaphore(first.handle(), 1, nullptr));
    EXPECT_EQ(QX::Semaphore(1, 2, "qx test", "a").handle(), nullptr);
    EXPECT_NE(QX::Semaphore(1, 2, "qx test", "b").handle(), nullptr);
    std::string const whole = std::to_string(GetCurrentProcessId()) + ":qx test:a";
    EXPECT_EQ(QX::Semaphore(0, 1, whole.c_str()).handle(), nullptr);
    SetLastError(ERROR_ALREADY_EXISTS);
    EXPECT_NE(QX::Semaphore(0, 1, nullptr, "a").handle(), nullptr);
    EXPECT_EQ(QX::Semaphore(2, 1, nullptr).handle(), nullptr);  // the system refuses this one
}

// --- Threads -------------------------------------------------------------------------------------

struct Seen {
    unsigned int thread_id = 0;
    int priority = 99;
    DWORD_PTR affinity = 0;
};

unsigned int note_thread(void* argument) {
    *static_cast<Seen*>(argument) = {
        static_cast<unsigned int>(GetCurrentThreadId()), GetThreadPriority(GetCurrentThread()),
        SetThreadAffinityMask(GetCurrentThread(), 1)};
    return 77;
}

DWORD exit_code(QX::Thread const& thread) {
    QX::wait_for_thread(thread);
    DWORD code = 0;
    GetExitCodeThread(thread.handle(), &code);
    return code;
}

ULONG_PTR named[3];  // type, name, thread id and flags

LONG WINAPI note_name(EXCEPTION_POINTERS* pointers) {
    EXCEPTION_RECORD const& record = *pointers->ExceptionRecord;
    if (record.ExceptionCode == 0x406D1388 && record.NumberParameters == 3)
        std::memcpy(named, record.ExceptionInformation, sizeof named);
    return EXCEPTION_CONTINUE_SEARCH;
}

TEST(Thread, starts_in_full_with_name_priority_core_and_exit_code_0) {
    DWORD_PTR all = 0;
    DWORD_PTR system = 0;
    GetProcessAffinityMask(GetCurrentProcess(), &all, &system);
    struct {
        int priority;
        char core;
        DWORD_PTR mask;
    } const rows[] = {{-15, -1, all}, {-2, 0, 1}, {-1, 1, 2},   {0, 33, 2},
                      {1, 32, 1},     {2, 0, 1},  {15, -1, all}};
    void* const listener = AddVectoredExceptionHandler(1, note_name);
    for (auto const& row : rows) {
        Seen seen;
        QX::Thread thread;
        unsigned int const id = QX::run_in_native_thread(
            65536, row.core, static_cast<QX::ThreadPriority>(&row - rows), note_thread, &seen,
            &thread, "a name");
        EXPECT_EQ(exit_code(thread), 0u);
        EXPECT_EQ(seen.thread_id, id);
        EXPECT_EQ(seen.priority, row.priority);
        EXPECT_EQ(seen.affinity, row.mask) << int{row.core};
        EXPECT_TRUE(named[0] == 0x1000 && named[2] == id);
        EXPECT_STREQ(reinterpret_cast<char*>(named[1]), "a name");
    }
    RemoveVectoredExceptionHandler(listener);
}

TEST(Thread, starts_plainly_with_the_entrys_exit_code_or_gives_0) {
    Seen seen;
    QX::Thread thread;
    unsigned int const id = QX::run_in_native_thread(note_thread, &seen, thread);
    EXPECT_EQ(exit_code(thread), 77u);
    EXPECT_EQ(seen.thread_id, id);
    test::StandIn const refused(
        "_beginthreadex", +[] { return uintptr_t{0}; });
    ASSERT_TRUE(refused.found());
    EXPECT_EQ(QX::run_in_native_thread(note_thread, nullptr, thread), 0u);
    EXPECT_EQ(thread.handle(), nullptr);
    EXPECT_EQ(
        QX::run_in_native_thread(
            0, -1, QX::ThreadPriority::normal, note_thread, nullptr, &thread, nullptr),
        0u);
    // Nor does a pool that gets no thread wait for any.
    QX::ThreadPool const pool(2, 4, 0, nullptr, nullptr, QX::ThreadPriority::normal);
    EXPECT_EQ(pool.threads()[1].handle(), nullptr);
}

unsigned int count_up(void* argument) {
    static_cast<QX::AtomicInt32Platform*>(argument)->inc();
    return 0;
}

// A start record lives on the caller's stack, which the caller overwrites at once.
TEST(Thread, starts_made_at_once_do_not_mix_up_their_records) {
    QX::AtomicInt32Platform sums[4];
    std::vector<std::thread> starters;
    for (auto& sum : sums) {
        starters.emplace_back([&sum] {
            for (int i = 0; i < 25; ++i) {
                QX::Thread thread;
                unsigned int const id = QX::run_in_native_thread(
                    0, -1, QX::ThreadPriority::normal, count_up, &sum, &thread, nullptr);
                EXPECT_EQ(id, GetThreadId(thread.handle()));
                QX::wait_for_thread(thread);
            }
        });
    }
    for (auto& starter : starters) starter.join();
    for (auto& sum : sums) EXPECT_EQ(sum.get(), 25);
}

}  // namespace
