// Start and end, and what tasks are told. Who runs what, and when: see scheduler_model_test.cpp.
#include "qx/tasks/scheduler_impl.h"
#include "tests/tasks/scheduler_fixture.h"

#include <process.h>

#include <array>
#include <memory>
#include <vector>

using namespace test;

namespace {

// Without hyper-threading three quarters of the processors less 1; with it the cores less 1.
TEST(Scheduler, leaves_processors_to_others_by_their_cores) {
    struct {
        unsigned int logical, cores, asked, given;
    } const rows[] = {{1, 1, 0, 1}, {4, 4, 0, 2}, {8, 8, 0, 5}, {8, 4, 0, 3},  {2, 1, 0, 1},
                      {3, 3, 0, 1}, {6, 5, 0, 4}, {8, 4, 7, 7}, {8, 4, 99, 7}, {1, 1, 9, 1}};
    for (auto const& row : rows) {
        EXPECT_EQ(task::detail::choose_worker_count(row.asked, {row.logical, row.cores}), row.given)
            << row.logical << " on " << row.cores;
    }
}

class Manager : public QX::THREAD_MANAGER_INTERFACE {
public:
    unsigned int on_worker_start(unsigned int worker) override {
        threads[worker] = GetCurrentThreadId();
        ++started;
        return worker + 100;
    }
    void on_worker_end(unsigned int token) override {
        ended += threads[token - 100] == GetCurrentThreadId();
    }
    std::atomic<int> started = 0, ended = 0;
    DWORD threads[11] = {};
};

int threads_to_give;

uintptr_t start_thread(
    void* security, unsigned size, unsigned(__stdcall* entry)(void*), void* argument,
    unsigned flags, unsigned* id) {
    if (threads_to_give-- == 0) return 0;
    return _beginthreadex(security, size, entry, argument, flags, id);
}

TEST(Scheduler, starts_once_with_all_workers_or_none_and_tells_the_manager_of_each) {
    Processors const processors(17);
    StandIn const starts("_beginthreadex", start_thread);
    ASSERT_TRUE(starts.found());
    for (int given : {0, 1, 10, 11}) {
        Manager manager;
        threads_to_give = given;
        task::terminate();
        unsigned int const workers = given == 11 ? 11 : 0;
        EXPECT_EQ(task::query::number_of_worker_threads(), 0u);
        EXPECT_EQ(task::initialize(&manager, 0, 0), workers);
        EXPECT_EQ(task::query::number_of_worker_threads(), workers);
        EXPECT_EQ(task::query::is_initialized(), workers != 0);
        if (workers != 0) {
            EXPECT_EQ(task::initialize(nullptr, 3, 0), 0u);
            await([&] { return manager.started == 11; });
            EXPECT_EQ(manager.ended, 0);
            task::terminate();
        }
        EXPECT_EQ(manager.started, given);
        EXPECT_EQ(manager.ended, given);
    }
    EXPECT_FALSE(task::query::is_initialized());
}

TEST(Scheduler, ends_with_tasks_queued_which_it_neither_runs_nor_destroys) {
    auto const counted = std::make_shared<int>(0);
    // A callable of the largest size. There are as many of it as there are owners of the count.
    auto const count = [counted, one = std::array<char, 496>{1}] { *counted += one[0]; };
    {
        Library const library(1);
        for (FiberMode mode : {fiberful, fiberless}) task::spawn(mode, main_thread, normal, count);
        EXPECT_EQ(counted.use_count(), 4);
        task::run_main_thread_tasks();
        EXPECT_EQ(counted.use_count(), 2);  // each was destroyed once, after its run
        task::spawn(fiberful, main_thread, normal, count);
    }
    task::run_main_thread_tasks();
    EXPECT_EQ(counted.use_count(), 3);
    EXPECT_EQ(*counted, 2);
}

TEST(Scheduler, gives_pre_created_fibres_a_context_before_they_run) {
    Library const library(1, nullptr, 3);
    std::vector<unsigned int> ids;
    task::Counter gate(1);
    for (int i = 0; i < 5; ++i) {
        task::spawn(fiberful, main_thread, normal, [&] {
            ids.push_back(task::this_task::id() - 0x80000000);
            gate.wait();
        });
    }
    task::run_main_thread_tasks();
    gate.internal_decrement();
    task::run_main_thread_tasks();
    // Those made before by the task records, those made after by the fibres.
    EXPECT_EQ(ids, (std::vector<unsigned int>{5, 3, 1, 3, 4}));
}

TEST(MainThread, runs_what_was_queued_when_the_call_began) {
    Library const library(1);
    int runs = 0;
    task::spawn(fiberful, main_thread, normal, [&] {
        for (; runs < 3; ++runs) task::this_task::yield();
    });
    std::thread([] { task::run_main_thread_tasks(); }).join();
    task::run_main_thread_tasks();
    for (int expected : {0, 1, 2, 3, 3}) {
        EXPECT_EQ(runs, expected);
        task::run_main_thread_tasks();
    }
}

TEST(ThreadContext, runs_the_callers_own_callable_with_its_state) {
    Library const library(1);
    auto call = [calls = std::make_unique<int>(0)] { return ++*calls; };
    task::execute_in_thread_context(call);
    task::spawn(fiberful, main_thread, normal, [&] { task::execute_in_thread_context(call); });
    task::run_main_thread_tasks();
    EXPECT_EQ(call(), 3);
}

TEST(CounterDeathTest, that_a_fibreless_task_of_a_worker_has_to_wait_for_ends_the_process) {
    EXPECT_DEATH(
        {
            Library const library(1);
            task::Counter one(1);
            task::spawn(fiberless, worker_threads, normal, [&] { one.wait(); });
            Sleep(5000);
            _exit(0);
        },
        "");
}

// --- The older interface -------------------------------------------------------------------------

class Noted : public deprecated_tbb::threadtask {
public:
    void execute() override { log += 'e'; }
    void executed(bool flag) override { log += flag ? '!' : 'd'; }
    std::string log;
};

TEST(LegacyTask, is_waited_for_both_ways_and_swaps_its_future) {
    Library const library(2);
    QX::create_global_transient_allocator(16);
    Noted noted;
    EXPECT_EQ(noted.thread_mask(), 0xFFFFFFFF);
    EXPECT_EQ(noted._future().counter(), nullptr);
    execute_threadtask(&noted, deprecated_tbb::TASK_PRIORITY_NORMAL);
    noted.wait_for_all_while_executing_tbb_tasks();
    noted.wait_for_all();
    EXPECT_TRUE(noted.has_completed());
    EXPECT_EQ(noted.log, "ed");
    task::Counter own(1);
    task::Future<void> other(&own);
    noted.set_future(std::move(other));
    EXPECT_FALSE(noted.has_completed());
    EXPECT_EQ(other.counter()->value(), 0u);
    EXPECT_EQ(deprecated_tbb::s_thread_task_manager, nullptr);
    QX::destroy_global_transient_allocator();
}

}  // namespace
