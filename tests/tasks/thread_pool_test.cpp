#include "qx/tasks/thread_pool.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <process.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using QX::ThreadPool;
constexpr auto normal = QX::ThreadPriority::normal;

// Jobs are taken by hand.
class HandPool : public ThreadPool {
public:
    explicit HandPool(unsigned int queue_size, char const* name = nullptr)
        : ThreadPool(0, queue_size, 0, name, nullptr, normal) {}

    // The argument of the next job.
    char const* take() {
        Job job = nullptr;
        void const* argument = nullptr;
        EXPECT_TRUE(dequeue_job(job, argument));
        EXPECT_EQ(job, nothing);
        pending_jobs_.dec();
        return static_cast<char const*>(argument);
    }

    void queue(char const* text) { queue_job(nothing, text); }

    static unsigned int nothing(void*) { return 0; }
};

struct List {
    std::vector<int> values;
    std::mutex lock;
};

struct Entry {
    List* list;
    int value;
};

unsigned int append(void* of) {
    auto const& entry = *static_cast<Entry*>(of);
    std::lock_guard const held(entry.list->lock);
    entry.list->values.push_back(entry.value);
    return 99;  // dropped
}

TEST(ThreadPool, runs_jobs_in_order_round_the_ring_and_all_before_it_ends) {
    for (unsigned int const queue_size : {2u, 3u, 8u}) {
        List list;
        std::vector<Entry> entries;
        for (int i = 0; i < 100; ++i) entries.push_back({&list, i});
        {
            ThreadPool pool(1, queue_size, 0, nullptr, nullptr, normal);
            for (auto& entry : entries) {
                while (pool.pending_jobs() >= static_cast<int>(queue_size) - 1) SwitchToThread();
                pool.queue_job(append, &entry);
            }
        }
        ASSERT_EQ(list.values.size(), entries.size());
        for (int i = 0; i < 100; ++i) EXPECT_EQ(list.values[i], i);
    }
}

// Queues below the ring's size are a plain queue, whatever the order of steps.
TEST(ThreadPool, ring_agrees_with_a_plain_queue) {
    test::Random random;
    static char const texts[] = "abcdefghijklmnopqrstuvwxyz";
    for (unsigned int const queue_size : {2u, 3u, 5u, 9u}) {
        HandPool pool(queue_size);
        std::vector<char const*> model;
        for (int step = 0; step < 300; ++step) {
            if (model.size() < queue_size - 1 && (model.empty() || random.below(2) == 0)) {
                model.push_back(texts + random.below(26));
                pool.queue(model.back());
            } else {
                ASSERT_EQ(pool.take(), model.front()) << queue_size << ' ' << step;
                model.erase(model.begin());
            }
            ASSERT_EQ(pool.pending_jobs(), static_cast<int>(model.size()));
        }
        while (!model.empty()) {
            EXPECT_EQ(pool.take(), model.front());
            model.erase(model.begin());
        }
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

TEST(ThreadPool, queueing_blocks_while_the_ring_is_full) {
    HandPool pool(2);
    pool.queue("a");
    pool.queue("b");
    std::atomic<bool> queued = false;
    std::thread other([&] {
        pool.queue("c");
        queued = true;
    });
    Sleep(50);
    EXPECT_FALSE(queued);
    EXPECT_EQ(pool.pending_jobs(), 3);
    pool.take();
    other.join();
    EXPECT_TRUE(queued);
    pool.take();
    pool.take();
}

// --- Threads -------------------------------------------------------------------------------------

// The compiler's counting semaphore can lose a waiter here, so room is asked for again and again.
struct Load {
    void take_room() {
        while (room.fetch_sub(1) <= 0) {
            ++room;
            Sleep(0);
        }
    }

    std::atomic<int> room = 15;  // one below the ring's size
    std::atomic<long long> sum = 0;
};

struct Share {
    Load* load;
    long long value;
};

unsigned int add_share(void* of) {
    auto const& share = *static_cast<Share*>(of);
    ++share.load->room;
    share.load->sum += share.value;
    return 0;
}

TEST(ThreadPool, loses_no_job_of_several_threads) {
    constexpr int producers = 4;
    constexpr int jobs = 600;
    Load load;
    std::vector<Share> shares;
    for (long long i = 0; i < producers * jobs; ++i) shares.push_back({&load, i * i});
    {
        ThreadPool pool(3, 16, 65536, nullptr, nullptr, normal);
        std::vector<std::thread> threads;
        for (int p = 0; p < producers; ++p) {
            threads.emplace_back([&, p] {
                for (int i = 0; i < jobs; ++i) {
                    load.take_room();
                    pool.queue_job(add_share, &shares[p * jobs + i]);
                }
            });
        }
        for (auto& thread : threads) thread.join();
    }
    long long expected = 0;
    for (auto const& share : shares) expected += share.value;
    EXPECT_EQ(load.sum, expected);
}

struct Chain {
    ThreadPool* pool;
    std::atomic<int> left;
};

unsigned int queue_next(void* of) {
    auto& chain = *static_cast<Chain*>(of);
    Sleep(2);
    if (--chain.left > 0) chain.pool->queue_job(queue_next, &chain);
    return 0;
}

TEST(ThreadPool, ends_only_after_the_jobs_that_jobs_have_queued) {
    Chain chain = {nullptr, 20};
    {
        ThreadPool pool(1, 3, 0, nullptr, nullptr, normal);
        chain.pool = &pool;
        pool.queue_job(queue_next, &chain);
    }
    EXPECT_EQ(chain.left, 0);
}

std::atomic<int> begun = 0;
std::atomic<int> ended = 0;

TEST(ThreadPool, callbacks_run_once_on_each_thread) {
    begun = ended = 0;
    ThreadPool::s_thread_begin_callback = [] { ++begun; };
    ThreadPool::s_thread_end_callback = [] { ++ended; };
    {
        ThreadPool pool(3, 8, 0, nullptr, nullptr, normal);
        while (begun < 3) Sleep(1);
        EXPECT_EQ(ended, 0);
    }
    ThreadPool::s_thread_begin_callback = nullptr;
    ThreadPool::s_thread_end_callback = nullptr;
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

uintptr_t refuse_thread(void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned, unsigned*) {
    return 0;
}

TEST(ThreadPool, without_any_thread_ends_at_once) {
    test::StandIn const refused("_beginthreadex", refuse_thread);
    ASSERT_TRUE(refused.found());
    ThreadPool const pool(2, 4, 0, nullptr, nullptr, normal);
    EXPECT_EQ(pool.threads()[0].handle(), nullptr);
    EXPECT_EQ(pool.thread_count(), 2u);
}

// --- Semaphores ----------------------------------------------------------------------------------

bool is_taken(char const* sub_name) {
    return QX::Semaphore(0, 1, "test pool", sub_name).handle() == nullptr;
}

long count_of(QX::Semaphore const& semaphore) {
    long count = 0;
    while (WaitForSingleObject(semaphore.handle(), 0) == WAIT_OBJECT_0) ++count;
    for (long i = 0; i < count; ++i) ReleaseSemaphore(semaphore.handle(), 1, nullptr);
    return count;
}

TEST(ThreadPool, semaphores_carry_its_name_and_count_jobs_and_room) {
    HandPool pool(5, "test pool");
    EXPECT_TRUE(is_taken("WorkToDo"));
    EXPECT_TRUE(is_taken("EmptySlots"));
    EXPECT_EQ(count_of(pool.work_to_do()), 0);
    EXPECT_EQ(count_of(pool.empty_slots()), 5);
    EXPECT_FALSE(ReleaseSemaphore(pool.work_to_do().handle(), 6, nullptr));
    pool.queue("a");
    pool.queue("b");
    EXPECT_EQ(count_of(pool.work_to_do()), 2);
    EXPECT_EQ(count_of(pool.empty_slots()), 3);
    pool.take();
    EXPECT_EQ(count_of(pool.work_to_do()), 1);
    EXPECT_EQ(count_of(pool.empty_slots()), 4);
    pool.take();

    HandPool const second(5, "test pool");
    EXPECT_EQ(second.work_to_do().handle(), nullptr);
    HandPool const nameless(5);
    EXPECT_NE(nameless.work_to_do().handle(), nullptr);
}

TEST(ThreadPool, that_comes_and_goes_leaves_no_handle) {
    DWORD before = 0;
    DWORD after = 0;
    for (int i = 0; i < 20; ++i) {
        if (i == 2) GetProcessHandleCount(GetCurrentProcess(), &before);
        ThreadPool pool(2, 4, 0, "test pool", nullptr, normal);
        pool.queue_job(HandPool::nothing, nullptr);
    }
    GetProcessHandleCount(GetCurrentProcess(), &after);
    EXPECT_EQ(after, before);
}

}  // namespace
