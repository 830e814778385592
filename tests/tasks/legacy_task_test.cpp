// The older interface, on the scheduler.
#include "tests/tasks/scheduler_fixture.h"

using namespace test;

namespace {

class Ring {
public:
    Ring() { QX::create_global_transient_allocator(4096); }
    ~Ring() { QX::destroy_global_transient_allocator(); }
};

class Noted : public deprecated_tbb::threadtask {
public:
    using threadtask::threadtask;

    void execute() override {
        thread = GetCurrentThreadId();
        on_fibre = ::task::detail::in_fiberful_task();
        log += 'e';
    }
    void executed(bool flag) override { log += flag ? '!' : 'd'; }

    DWORD thread = 0;
    bool on_fibre = false;
    std::string log;
};

class WorkerThreads : public QX::THREAD_MANAGER_INTERFACE {
public:
    unsigned int on_worker_start(unsigned int worker) override {
        threads[worker] = GetCurrentThreadId();
        ++started;
        return 0;
    }
    void on_worker_end(unsigned int) override {}
    DWORD threads[3] = {};
    std::atomic<unsigned int> started = 0;
};

TEST(LegacyTask, runs_on_the_thread_of_its_highest_bit) {
    WorkerThreads workers;
    Library const library(3, &workers);
    Ring const ring;
    await([&] { return workers.started == 3; });
    struct {
        unsigned int mask;
        int worker;
    } const rows[] = {{2, 0}, {4, 1}, {6, 1}, {8, 2}, {13, 2}, {1, -1}};
    for (auto const& row : rows) {
        Noted noted(row.mask);
        deprecated_tbb::execute_threadtask(&noted, deprecated_tbb::TASK_PRIORITY_NORMAL);
        if (row.worker < 0) {
            Sleep(5);
            EXPECT_FALSE(noted.has_completed());
            task::run_main_thread_tasks();
        }
        await([&] { return noted.has_completed(); });
        noted.wait_for_all();
        EXPECT_EQ(noted.log, "ed");
        EXPECT_TRUE(noted.on_fibre);
        EXPECT_EQ(
            noted.thread, row.worker < 0 ? GetCurrentThreadId() : workers.threads[row.worker]);
    }
}

// Urgent tasks run before what is in the worker's own queue, which runs before what is shared.
TEST(LegacyTask, goes_where_whole_masks_and_priority_say) {
    auto const any = 0xFFFFFFFFu;
    auto const workers = 0xFFFFFFFEu;
    struct {
        unsigned int mask;
        deprecated_tbb::TaskPriority priority;
        char const* order;  // e and d: the task; o: one of the own queue; s: a shared one
    } const rows[] = {
        {0, deprecated_tbb::TASK_PRIORITY_HIGH, "edos"},
        {any, deprecated_tbb::TASK_PRIORITY_HIGH, "edos"},
        {workers, deprecated_tbb::TASK_PRIORITY_HIGH, "oeds"},
        {any, deprecated_tbb::TASK_PRIORITY_NORMAL, "osed"},
    };
    Library const library(1);
    Ring const ring;
    for (auto const& row : rows) {
        Noted noted(row.mask);
        std::atomic<int> others = 0;
        Gate gate(0);
        for (bool own : {true, false}) {
            task::spawn(fiberless, own ? pinned_to(0) : any_thread, normal, [&, own] {
                noted.log += own ? 'o' : 's';
                ++others;
            });
        }
        deprecated_tbb::execute_threadtask(&noted, row.priority);
        gate.open();
        await([&] { return noted.has_completed() && others == 2; });
        EXPECT_EQ(noted.log, row.order);
    }
}

TEST(LegacyTask, is_waited_for_from_fibres_and_swaps_its_future) {
    Library const library(2);
    Ring const ring;
    task::Counter left(1);
    task::spawn(fiberful, any_thread, normal, [&] {
        Noted inner;
        EXPECT_EQ(inner.thread_mask(), 0xFFFFFFFF);
        EXPECT_EQ(inner.parent(), nullptr);
        EXPECT_EQ(inner._future().counter(), nullptr);
        deprecated_tbb::execute_threadtask(&inner, deprecated_tbb::TASK_PRIORITY_NORMAL);
        inner.wait_for_all_while_executing_tbb_tasks();
        EXPECT_EQ(inner.log, "ed");
        task::Counter own(0);
        task::Future<void> other(&own);
        task::Counter* const first = inner._future().counter();
        inner.set_future(std::move(other));
        EXPECT_EQ(inner._future().counter(), &own);
        EXPECT_EQ(other.counter(), first);
        left.internal_decrement();
    });
    left.wait();
    EXPECT_EQ(deprecated_tbb::s_thread_task_manager, nullptr);
}

}  // namespace
