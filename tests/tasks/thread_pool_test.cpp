#include "qx/tasks/thread_pool.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <thread>
#include <vector>

namespace {

using QX::ThreadPool;
constexpr auto normal = QX::ThreadPriority::normal;

unsigned int nothing(void*) {
    return 0;
}

// Jobs are taken by hand.
class HandPool : public ThreadPool {
public:
    explicit HandPool(unsigned int queue_size, char const* name = nullptr)
        : ThreadPool(0, queue_size, 0, name, nullptr, normal) {}

    void queue(char const* text) { queue_job(nothing, text); }

    // The argument of the next job.
    char const* take() {
        Job job = nullptr;
        void const* argument = nullptr;
        EXPECT_TRUE(dequeue_job(job, argument));
        EXPECT_EQ(job, nothing);
        pending_jobs_.dec();
        return static_cast<char const*>(argument);
    }
};

long count_of(QX::Semaphore const& semaphore) {
    long count = 0;
    while (WaitForSingleObject(semaphore.handle(), 0) == WAIT_OBJECT_0) ++count;
    for (long i = 0; i < count; ++i) ReleaseSemaphore(semaphore.handle(), 1, nullptr);
    return count;
}

// Below the ring's size jobs are a plain queue, whatever the order of steps.
TEST(ThreadPool, ring_agrees_with_a_plain_queue) {
    test::Random random;
    static char const texts[] = "abcdefghijklmnopqrstuvwxyz";
    for (int const queue_size : {2, 3, 5, 9}) {
        HandPool pool(queue_size);
        std::deque<char const*> model;
        for (int step = 0; step < 60 || !model.empty(); ++step) {
            int const queued = static_cast<int>(model.size());
            if (step < 60 && queued < queue_size - 1 && (queued == 0 || random.chance(2))) {
                model.push_back(texts + random.below(26));
                pool.queue(model.back());
            } else {
                ASSERT_EQ(pool.take(), model.front()) << queue_size << ' ' << step;
                model.pop_front();
            }
            ASSERT_EQ(pool.pending_jobs(), static_cast<int>(model.size()));
            ASSERT_EQ(count_of(pool.work_to_do()), pool.pending_jobs());
            ASSERT_EQ(count_of(pool.empty_slots()), queue_size - pool.pending_jobs());
        }
        EXPECT_FALSE(ReleaseSemaphore(pool.work_to_do().handle(), queue_size + 1, nullptr));
    }
}

TEST(ThreadPool, of_a_full_ring_the_last_job_takes_the_oldests_place) {
    HandPool pool(4);
    for (char const* const text : {"a", "b", "c", "d"}) pool.queue(text);
    EXPECT_EQ(pool.write_index(), 1u);
    EXPECT_EQ(pool.slots()[3].job, nullptr);
    for (char const* const text : {"d", "b", "c", "d"}) EXPECT_STREQ(pool.take(), text);
    EXPECT_EQ(pool.read_index(), 1u);
    EXPECT_EQ(pool.inside_lock(), 0u);
}

TEST(ThreadPool, gives_a_second_pool_of_one_name_no_semaphores) {
    HandPool const pool(5, "test pool");
    for (char const* const sub_name : {"WorkToDo", "EmptySlots"})
        EXPECT_EQ(QX::Semaphore(0, 1, "test pool", sub_name).handle(), nullptr) << sub_name;
    HandPool const second(5, "test pool");
    EXPECT_EQ(second.work_to_do().handle(), nullptr);
    EXPECT_EQ(second.empty_slots().handle(), nullptr);
    HandPool const nameless(5);
    EXPECT_NE(nameless.work_to_do().handle(), nullptr);
}

// --- Threads -------------------------------------------------------------------------------------

ThreadPool* adders;
std::atomic<long long> sum;
std::atomic<int> begun, ended;

// Each number passes its place on to its half.
unsigned int add(void* of) {
    auto const value = reinterpret_cast<std::uintptr_t>(of);
    sum += value;
    if (value != 0) adders->queue_job(add, reinterpret_cast<void*>(value / 2));
    return 99;  // dropped
}

TEST(ThreadPool, loses_no_job_and_calls_back_once_on_each_thread) {
    ThreadPool::s_thread_begin_callback = [] { ++begun; };
    ThreadPool::s_thread_end_callback = [] { ++ended; };
    {
        ThreadPool pool(3, 16, 65536, nullptr, nullptr, normal);
        adders = &pool;
        auto const produce = [&] {
            for (std::uintptr_t value = 64; value < 128; ++value) {
                while (pool.pending_jobs() > 9) Sleep(0);  // room for what the jobs queue
                pool.queue_job(add, reinterpret_cast<void*>(value));
            }
        };
        std::thread other(produce);
        produce();
        other.join();
        while (begun < 3) Sleep(1);
        EXPECT_EQ(ended, 0);
    }
    ThreadPool::s_thread_begin_callback = nullptr;
    ThreadPool::s_thread_end_callback = nullptr;
    // 64 numbers twice, and each time 2, 4, 8 and so on of those with one bit less.
    long long expected = 0;
    for (long long first = 64, times = 2; first != 0; first /= 2, times *= 2)
        expected += times * first * (3 * first - 1) / 2;
    EXPECT_EQ(sum, expected);
    EXPECT_EQ(begun, 3);
    EXPECT_EQ(ended, 3);
}

std::vector<DWORD_PTR> masks;

DWORD_PTR WINAPI note_mask(HANDLE, DWORD_PTR mask) {
    masks.push_back(mask);
    return 1;
}

TEST(ThreadPool, binds_each_thread_to_its_core) {
    test::StandIn const bound("SetThreadAffinityMask", note_mask);
    ASSERT_TRUE(bound.found());
    char const cores[] = {0, -1, 33, static_cast<char>(254), 31};
    ThreadPool const pool(5, 8, 0, nullptr, cores, QX::ThreadPriority::lowest);
    EXPECT_EQ(masks, (std::vector<DWORD_PTR>{1, 2, 1u << 30, 1u << 31}));
    for (unsigned int i = 0; i < 5; ++i)
        EXPECT_EQ(GetThreadPriority(pool.threads()[i].handle()), -2);
    std::vector<DWORD_PTR>().swap(masks);
    ThreadPool const unbound(2, 8, 0, nullptr, nullptr, normal);
    EXPECT_TRUE(masks.empty());
}

}  // namespace
