// What the tasks make of memory that is not to be had.
#include "tests/harness/failing_allocation.h"
#include "tests/tasks/scheduler_fixture.h"

using namespace test;

namespace {

std::atomic<int> ran;

unsigned int count_run(void*) {
    ++ran;
    return 0;
}

void start_and_end(Attempt const& attempt) {
    Processors const processors(4);
    bool const started = attempt([] { task::initialize(nullptr, 3, 2); });
    EXPECT_EQ(task::query::number_of_worker_threads(), started ? 3u : 0u);
    task::terminate();
}

void spawn(Attempt const& attempt) {
    Library const library(1);
    int spawned = 0;
    attempt([&] {
        for (; spawned < 3; ++spawned) {
            task::Batch batch(main_thread, normal);
            batch.spawn(spawned == 1 ? fiberless : fiberful, [] { ++ran; });
            batch.submit();
        }
    });
    task::run_main_thread_tasks();
    EXPECT_EQ(ran, spawned);
}

// Three tasks that wait for each other, so that all have fibres at once.
class Meeting {
public:
    explicit Meeting(ThreadMask mask) {
        for (int i = 0; i < 3; ++i) {
            task::spawn(fiberful, mask, normal, [this] {
                all.internal_decrement();
                all.wait();
                ++ran;
            });
        }
    }
    ~Meeting() {
        while (ran != 3) task::run_main_thread_tasks();
    }

    task::Counter all{3};
};

void make_fibres(Attempt const& attempt) {
    Library const library(1);
    Meeting const meeting(main_thread);
    attempt([] { task::run_main_thread_tasks(); });
}

void wait_for_a_counter(Attempt const& attempt) {
    Library const library(1);
    Meeting meeting(main_thread);
    attempt([&] { meeting.all.wait(); });
    meeting.all.wait();
}

// A worker has nobody to tell: it goes on until there is memory.
void make_fibres_of_a_worker(Attempt const& attempt) {
    Library const library(1);
    std::atomic<bool> held = true;
    task::spawn(fiberless, worker_threads, normal, [&] { await([&] { return !held; }); });
    Meeting const meeting(worker_threads);
    EXPECT_TRUE(attempt([&] {
        held = false;
        await([] { return ran == 3; });
    }));
}

// The name is free again for the next pool.
void make_a_pool(Attempt const& attempt) {
    bool const made = attempt([] {
        QX::ThreadPool pool(2, 4, 0, "short pool", nullptr, QX::ThreadPriority::normal);
        EXPECT_NE(pool.work_to_do().handle(), nullptr);
        pool.queue_job(count_run, nullptr);
    });
    EXPECT_EQ(ran, made);
}

TEST(Exhaustion, leaves_nothing_half_made_by_scheduler_counters_and_pool) {
    walk_allocations(
        {{"start and end", start_and_end},
         {"spawn", spawn},
         {"fibres", make_fibres},
         {"fibres of a worker", make_fibres_of_a_worker},
         {"wait", wait_for_a_counter},
         {"pool", make_a_pool}},
        [] { ran = 0; });
}

}  // namespace
