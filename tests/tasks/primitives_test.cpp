// Atomics, mutexes, semaphores, events and thread starts.
#include "qx/qx.h"
#include "qx/base/windows.h"
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
    EXPECT_EQ(n.get(), 12);
    EXPECT_EQ(n.set_if_equal(5, 12), 12);
    EXPECT_EQ(n.logical_or(wide | 8), 5);
    EXPECT_EQ(n.logical_and(wide | 12), wide + 13);
    EXPECT_EQ(n.logical_xor(4), wide + 12);
    Atomic copy(1);
    copy = n;
    EXPECT_EQ(copy.get(), wide + 8);
}

TEST(Atomic, operations_return_the_value_before) {
    walk_through_the_operations<QX::AtomicInt32Platform, int>();
    walk_through_the_operations<QX::AtomicInt64Platform, long long>();
    EXPECT_EQ(QX::AtomicInt32Platform().get(), 0);
}

TEST(Atomic, loses_no_step_between_threads) {
    QX::AtomicInt32Platform sum;
    QX::AtomicInt64Platform bits(0);
    auto const work = [&] {
        for (int i = 0; i < 50000; ++i) {
            sum.inc();
            bits.logical_xor(1ll << (i % 40));
        }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(sum.get(), 100000);
    EXPECT_EQ(bits.get(), 0);
}

TEST(Mutex, counts_how_often_its_owner_holds_it) {
    QX::MutexPlatform mutex(100);
    mutex.acquire();
    EXPECT_TRUE(mutex.try_acquire());
    EXPECT_EQ(mutex.lock_count(), 2u);
    std::thread([&] { EXPECT_FALSE(mutex.try_acquire()); }).join();
    EXPECT_EQ(mutex.release(), 1u);
    EXPECT_EQ(mutex.release(), 0u);
    std::thread([&] {
        EXPECT_TRUE(mutex.try_acquire());
        mutex.release();
    }).join();
}

TEST(Mutex, is_given_up_at_any_depth_and_taken_back) {
    QX::MutexPlatform mutex;
    for (unsigned int depth = 0; depth < 4; ++depth) {
        QX::SafetyCatch caught = mutex.suspend();
        EXPECT_EQ(caught.depth(), depth);
        EXPECT_EQ(mutex.lock_count(), 0u);
        std::thread([&] {
            EXPECT_TRUE(mutex.try_acquire());
            mutex.release();
        }).join();
        mutex.resume(caught);
        EXPECT_EQ(mutex.lock_count(), depth);
        EXPECT_EQ(caught.depth(), depth);
        mutex.acquire();
    }
    while (mutex.release() != 0) {}
}

unsigned int spin_count_asked = 0;
BOOL WINAPI note_spin_count(CRITICAL_SECTION* section, DWORD spins) {
    spin_count_asked = spins;
    InitializeCriticalSection(section);
    return TRUE;
}

TEST(Mutex, heap_lock_is_one_object_that_spins_ten_thousand_times) {
    test::StandIn const noted("InitializeCriticalSectionAndSpinCount", note_spin_count);
    ASSERT_TRUE(noted.found());
    QX::CriticalSectionDeclaration& lock = QX::heap_cs();
    EXPECT_EQ(spin_count_asked, 10000u);
    EXPECT_EQ(&lock, &QX::heap_cs());
    EXPECT_EQ(lock.lock_count(), 0u);
}

TEST(Mutex, is_copied_bit_for_bit) {
    alignas(8) unsigned char first[sizeof(QX::MutexPlatform)];
    alignas(8) unsigned char second[sizeof first];
    auto& mutex = *new (first) QX::MutexPlatform(7);
    std::memset(second, 0x5A, sizeof second);
    reinterpret_cast<QX::MutexPlatform&>(second) = mutex;
    EXPECT_EQ(std::memcmp(first + 8, second + 8, 40), 0);
    EXPECT_EQ(reinterpret_cast<QX::MutexPlatform&>(second).lock_count(), 0u);
    mutex.~MutexPlatform();
}

TEST(OptionalCriticalSection, touches_nothing_when_off) {
    QX::CriticalSectionDeclaration section(0);
    alignas(8) unsigned char bytes[sizeof(QX::OptionalCriticalSection)];
    ASSERT_EQ(sizeof bytes, 9u);
    std::memset(bytes, 0x5A, sizeof bytes);
    auto* off = new (bytes) QX::OptionalCriticalSection(section, false);
    EXPECT_FALSE(off->enabled());
    EXPECT_EQ(bytes[0], 0);
    for (unsigned int i = 1; i < sizeof bytes; ++i) EXPECT_EQ(bytes[i], 0x5A);
    off->~OptionalCriticalSection();
    {
        QX::OptionalCriticalSection const on(section, true);
        EXPECT_EQ(section.lock_count(), 1u);
    }
    EXPECT_EQ(section.lock_count(), 0u);
}

TEST(Semaphore, refuses_a_name_that_is_taken) {
    QX::Semaphore const first(1, 2, "qx test", "a");
    QX::Semaphore const again(1, 2, "qx test", "a");
    QX::Semaphore const other(1, 2, "qx test", "b");
    EXPECT_NE(QX::Semaphore(1, 2, "qx test", nullptr).handle(), nullptr);
    EXPECT_NE(first.handle(), nullptr);
    EXPECT_EQ(again.handle(), nullptr);
    EXPECT_NE(other.handle(), nullptr);
    std::string const whole = std::to_string(GetCurrentProcessId()) + ":qx test:a";
    EXPECT_EQ(QX::Semaphore(0, 1, whole.c_str()).handle(), nullptr);
    EXPECT_EQ(WaitForSingleObject(first.handle(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(first.handle(), 0), WAIT_TIMEOUT);
    EXPECT_TRUE(ReleaseSemaphore(first.handle(), 2, nullptr));
    EXPECT_FALSE(ReleaseSemaphore(first.handle(), 1, nullptr));
}

TEST(Semaphore, without_a_name_is_never_refused) {
    QX::Semaphore const first(0, 1, nullptr, "a");
    SetLastError(ERROR_ALREADY_EXISTS);
    QX::Semaphore const second(0, 1, nullptr, "a");
    EXPECT_NE(first.handle(), nullptr);
    EXPECT_NE(second.handle(), nullptr);
    EXPECT_EQ(QX::Semaphore(2, 1, nullptr).handle(), nullptr);  // the system refuses this one
}

bool signalled(QX::Event const& event) {
    return WaitForSingleObject(event.handle(), 0) == WAIT_OBJECT_0;
}

TEST(Event, stays_signalled_only_with_manual_reset) {
    QX::Event manual(true, true);
    QX::Event automatic(false, false);
    automatic.wait(1);
    automatic.signal();
    automatic.wait();
    EXPECT_FALSE(signalled(automatic));
    manual.wait();
    EXPECT_TRUE(signalled(manual));
    manual.reset();
    EXPECT_FALSE(signalled(manual));
}

struct Job {
    QX::Event may_end{true, false};
    unsigned int thread_id = 0;
    int priority = 99;
    DWORD_PTR affinity = 0;
};

unsigned int note_thread(void* argument) {
    Job& job = *static_cast<Job*>(argument);
    job.thread_id = GetCurrentThreadId();
    job.priority = GetThreadPriority(GetCurrentThread());
    job.affinity = SetThreadAffinityMask(GetCurrentThread(), 1);
    job.may_end.wait();
    return 77;
}

DWORD exit_code(QX::Thread const& thread) {
    QX::wait_for_thread(thread);
    DWORD code = 0;
    GetExitCodeThread(thread.handle(), &code);
    return code;
}

TEST(Thread, starts_in_full_with_priority_and_exit_code_0) {
    int const priorities[] = {-15, -2, -1, 0, 1, 2, 15};
    for (int i = 0; i < 7; ++i) {
        Job job;
        QX::Thread thread;
        auto const priority = static_cast<QX::ThreadPriority>(i);
        unsigned int const id =
            QX::run_in_native_thread(65536, -1, priority, note_thread, &job, &thread, "noted");
        job.may_end.signal();
        EXPECT_EQ(exit_code(thread), 0u);
        EXPECT_EQ(job.thread_id, id);
        EXPECT_EQ(job.priority, priorities[i]);
    }
}

TEST(Thread, is_bound_to_the_core_modulo_32) {
    struct {
        char core;
        DWORD_PTR mask;
    } const rows[] = {{0, 1}, {1, 2}, {33, 2}};
    for (auto const& row : rows) {
        Job job;
        job.may_end.signal();
        QX::Thread thread;
        QX::run_in_native_thread(
            0, row.core, QX::ThreadPriority::normal, note_thread, &job, &thread, nullptr);
        exit_code(thread);
        EXPECT_EQ(job.affinity, row.mask) << int{row.core};
    }
}

TEST(Thread, starts_plainly_with_the_entrys_exit_code) {
    Job job;
    job.may_end.signal();
    QX::Thread thread;
    unsigned int const id = QX::run_in_native_thread(note_thread, &job, thread);
    EXPECT_EQ(exit_code(thread), 77u);
    EXPECT_EQ(job.thread_id, id);
}

uintptr_t refuse_start(
    void*, unsigned int, unsigned int(__stdcall*)(void*), void*, unsigned int, unsigned int*) {
    return 0;
}

TEST(Thread, that_cannot_be_made_gives_0_and_empties_the_object) {
    test::StandIn const refused("_beginthreadex", refuse_start);
    ASSERT_TRUE(refused.found());
    QX::Thread plain(CreateEventW(nullptr, false, false, nullptr));
    QX::Thread full(CreateEventW(nullptr, false, false, nullptr));
    EXPECT_EQ(QX::run_in_native_thread(note_thread, nullptr, plain), 0u);
    EXPECT_EQ(
        QX::run_in_native_thread(
            0, -1, QX::ThreadPriority::normal, note_thread, nullptr, &full, "none"),
        0u);
    EXPECT_EQ(plain.handle(), nullptr);
    EXPECT_EQ(full.handle(), nullptr);
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

struct NameRecord {
    DWORD type;
    char const* name;
    DWORD thread_id;
    DWORD flags;
};
NameRecord named;
DWORD name_flags = 99;

LONG WINAPI note_name(EXCEPTION_POINTERS* pointers) {
    EXCEPTION_RECORD const& record = *pointers->ExceptionRecord;
    if (record.ExceptionCode != 0x406D1388) return EXCEPTION_CONTINUE_SEARCH;
    name_flags = record.ExceptionFlags;
    if (record.NumberParameters == 3) std::memcpy(&named, record.ExceptionInformation, 24);
    return EXCEPTION_CONTINUE_SEARCH;
}

TEST(Thread, tells_a_debugger_its_name_and_closes_the_handle_of_a_detached_one) {
    void* const listener = AddVectoredExceptionHandler(1, note_name);
    QX::AtomicInt32Platform sum;
    unsigned int const id = QX::run_in_native_thread(
        0, -1, QX::ThreadPriority::normal, count_up, &sum, nullptr, "a name");
    RemoveVectoredExceptionHandler(listener);
    EXPECT_EQ(named.type, 0x1000u);
    EXPECT_STREQ(named.name, "a name");
    EXPECT_EQ(named.thread_id, id);
    EXPECT_EQ(named.flags, 0u);
    EXPECT_EQ(name_flags, 0u);
    while (sum.get() == 0) Sleep(1);
}

TEST(Thread, closes_the_handle_it_held_when_another_is_stored) {
    QX::Thread thread(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    HANDLE const first = thread.handle();
    thread.store(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    DWORD flags = 0;
    EXPECT_TRUE(GetHandleInformation(thread.handle(), &flags));
    EXPECT_TRUE(thread.handle() == first || !GetHandleInformation(first, &flags));
    QX::Thread taken;
    taken = std::move(thread);
    EXPECT_EQ(thread.handle(), nullptr);
    EXPECT_TRUE(GetHandleInformation(taken.handle(), &flags));
}

}  // namespace
