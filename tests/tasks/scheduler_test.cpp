// Routing, order, waiting and waking, one rule a case.
#include "qx/tasks/scheduler_impl.h"
#include "tests/tasks/scheduler_fixture.h"

#include <set>
#include <vector>

using namespace test;

namespace {

TEST(Scheduler, takes_as_many_workers_as_the_processors_bear) {
    struct {
        unsigned int processors, asked, given;
    } const rows[] = {{1, 0, 1},   {2, 0, 1},    {3, 0, 1},    {4, 0, 2}, {5, 0, 2}, {8, 0, 5},
                      {17, 0, 11}, {8, 1000, 7}, {17, 16, 16}, {8, 3, 3}, {1, 5, 1}};
    for (auto const& row : rows) {
        Processors const processors(row.processors);
        EXPECT_EQ(task::query::number_of_worker_threads(), 0u);
        EXPECT_EQ(task::initialize(nullptr, row.asked, 0), row.given) << row.processors;
        EXPECT_EQ(task::initialize(nullptr, row.asked, 0), 0u);
        EXPECT_EQ(task::query::number_of_worker_threads(), row.given);
        task::terminate();
        EXPECT_FALSE(task::query::is_initialized());
    }
    task::terminate();
}

// Without hyper-threading three quarters of the processors less 1; with it the cores less 1.
TEST(Scheduler, leaves_processors_to_others_by_their_cores) {
    struct {
        unsigned int logical, cores, asked, given;
    } const rows[] = {{1, 1, 0, 1}, {4, 4, 0, 2},  {8, 8, 0, 5}, {8, 4, 0, 3},
                      {2, 1, 0, 1}, {12, 8, 0, 7}, {6, 5, 0, 4}, {16, 4, 0, 3},
                      {8, 4, 7, 7}, {8, 4, 99, 7}, {1, 1, 9, 1}};
    for (auto const& row : rows) {
        EXPECT_EQ(task::detail::choose_worker_count(row.asked, {row.logical, row.cores}), row.given)
            << row.logical << " on " << row.cores;
    }
}

// A case spawns while all workers stand at gates; then the log tells who was popped when.
TEST(Scheduler, worker_pops_urgent_then_own_then_shared) {
    Library const library(1);
    Log log;
    Gate gate(0);
    auto const add = [&](ThreadMask mask, Priority priority, char name) {
        task::spawn(fiberless, mask, priority, [&log, name] { log.add(name); });
    };
    add(any_thread, normal, 'e');
    add(static_cast<ThreadMask>(4), normal, 'f');  // past the last worker: shared
    add(static_cast<ThreadMask>(-5), high, 'g');
    add(pinned_to(0), high, 'c');
    add(worker_threads, normal, 'd');
    add(any_thread, high, 'a');
    add(any_thread, high, 'b');
    gate.open();
    await([&] { return log.size() == 7; });
    EXPECT_EQ(log.text(), "abcdefg");
}

// The wait goes on after the last task that it may run: the callback ends it, at its third call.
TEST(Scheduler, waiting_main_thread_pops_urgent_then_own_then_shared_and_never_steals) {
    Library const library(1);
    Log log;
    Gate gate(0);
    task::Counter left(3);
    auto const add = [&](ThreadMask mask, Priority priority, char name) {
        task::spawn(fiberless, mask, priority, [&log, name] { log.add(name); });
    };
    add(worker_threads, normal, 'w');
    add(any_thread, normal, 'd');
    add(main_thread, high, 'b');
    add(main_thread, normal, 'c');
    add(any_thread, high, 'a');
    task::interop::set_thread_wait_callback(
        [](void* argument) { static_cast<task::Counter*>(argument)->internal_decrement(); }, &left);
    left.wait();
    task::interop::set_thread_wait_callback(nullptr, nullptr);
    EXPECT_EQ(log.text(), "abcd");
    gate.open();
    await([&] { return log.text() == "abcdw"; });
}

TEST(Scheduler, thief_starts_at_the_next_worker) {
    Library const library(3);
    for (unsigned int thief = 0; thief < 3; ++thief) {
        Log log;
        std::atomic<int> busy = 0;
        std::atomic<int> filled = 0;
        std::atomic<bool> go[3] = {};
        std::atomic<int> ended = 0;
        for (unsigned int worker = 0; worker < 3; ++worker) {
            task::spawn(fiberless, pinned_to(worker), normal, [&, worker] {
                for (++busy; busy < 3;) Sleep(0);
                task::spawn(fiberless, worker_threads, normal, [&log, worker] {
                    log.add(static_cast<char>('0' + worker));
                });
                for (++filled; !go[worker];) Sleep(0);
                ++ended;
            });
        }
        await([&] { return filled == 3; });
        go[thief] = true;
        await([&] { return log.size() == 3; });
        EXPECT_EQ(log.text(), std::string("01201").substr(thief, 3));
        for (auto& flag : go) flag = true;
        await([&] { return ended == 3; });
    }
}

TEST(Scheduler, pinned_first_task_keeps_thieves_from_a_queue) {
    Library const library(2);
    Log log;
    Gate thief(1);
    std::atomic<bool> filled = false;
    std::atomic<bool> go = false;
    task::spawn(fiberless, pinned_to(0), normal, [&] {
        for (char name : {'a', 'b'})
            task::spawn(fiberless, worker_threads, normal, [&log, name] { log.add(name); });
        task::spawn(fiberless, pinned_to(0), normal, [&log] { log.add('P'); });
        task::spawn(fiberless, worker_threads, normal, [&log] { log.add('c'); });
        for (filled = true; !go;) Sleep(0);
        log.add('.');
    });
    await([&] { return filled.load(); });  // a thief that sleeps is not woken by these pushes
    thief.open();
    await([&] { return log.size() == 2; });
    Sleep(30);
    EXPECT_EQ(log.text(), "ab");
    go = true;
    await([&] { return log.size() == 5; });
    EXPECT_EQ(log.text().substr(2, 1), ".");
}

TEST(Scheduler, runs_what_unknown_threads_spawn_for_workers_on_the_main_thread_too) {
    Library const library(1);
    Gate gate(0);
    DWORD runner = 0;
    task::Counter left(1);
    std::thread([&] {
        task::spawn(fiberless, worker_threads, normal, [&] {
            runner = GetCurrentThreadId();
            left.internal_decrement();
        });
    }).join();
    left.wait();
    EXPECT_EQ(runner, GetCurrentThreadId());
}

// What an unknown thread steals from one queue after the other tells what each had been given.
TEST(Scheduler, deals_what_the_main_thread_spawns_for_workers_out_by_turns) {
    Library const library(3);
    Log log;
    Gate first(0);
    Gate second(1);
    Gate third(2);
    task::Counter left(6);
    for (char name = 'a'; name <= 'f'; ++name) {
        task::spawn(fiberless, worker_threads, normal, [&log, &left, name] {
            log.add(name);
            left.internal_decrement();
        });
    }
    std::thread([&] { left.wait(); }).join();
    std::string const order = log.text();
    for (int i = 0; i < 6; i += 2) EXPECT_EQ(order[i + 1], order[i] + 3) << order;
}

// An unknown thread that waits helps with shared work, and steals from every worker's queue.
TEST(Scheduler, lets_unknown_threads_help_from_every_workers_queue) {
    Library const library(3);
    std::atomic<int> busy = 0;
    std::atomic<bool> go = false;
    std::atomic<int> ended = 0;
    task::Counter left(3);
    for (unsigned int worker = 0; worker < 3; ++worker) {
        task::spawn(fiberless, pinned_to(worker), normal, [&] {
            task::spawn(fiberful, worker_threads, normal, [&] {
                EXPECT_NE(task::this_task::id(), 0u);
                left.internal_decrement();
            });
            for (++busy; !go;) Sleep(0);
            ++ended;
        });
    }
    std::thread([&] { left.wait(); }).join();
    EXPECT_FALSE(go);
    go = true;
    await([&] { return ended == 3; });
}

TEST(Counter, at_0_lets_everybody_through) {
    Library const library(1);
    task::Counter zero(0);
    zero.wait();
    std::thread([&] { zero.wait(); }).join();
    std::atomic<int> done = 0;
    for (FiberMode mode : {fiberless, fiberful}) {
        task::spawn(mode, worker_threads, normal, [&] {
            zero.wait();
            ++done;
        });
    }
    await([&] { return done == 2; });
    EXPECT_EQ(zero.value(), 0u);
}

TEST(CounterDeathTest, that_a_fibreless_task_of_a_worker_has_to_wait_for_ends_the_process) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
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

TEST(Counter, lets_all_waiters_go_on_whoever_they_are) {
    Library const library(2);
    task::Counter gate(2);
    task::Counter left(20);
    for (int i = 0; i < 20; ++i) {
        task::spawn(fiberful, i % 2 ? any_thread : worker_threads, normal, [&] {
            gate.wait();
            left.internal_decrement();
        });
    }
    std::thread unknown([&] { gate.wait(); });
    EXPECT_EQ(gate.internal_increment(0), gate.value());
    Sleep(10);
    EXPECT_EQ(left.value(), 20u);
    gate.internal_decrement();
    gate.internal_decrement();
    gate.wait();
    left.wait();
    unknown.join();
    EXPECT_EQ(gate.value(), 0u);
}

TEST(Counter, puts_the_task_that_waited_before_fresh_work) {
    Library const library(1);
    Log log;
    task::Counter gate(1);
    std::atomic<bool> waits = false;
    task::spawn(fiberful, pinned_to(0), normal, [&] {
        waits = true;
        gate.wait();
        log.add('w');
    });
    await([&] { return waits.load(); });
    task::spawn(fiberless, pinned_to(0), normal, [&] {
        for (char name : {'a', 'b'})
            task::spawn(fiberless, pinned_to(0), normal, [&log, name] { log.add(name); });
        gate.internal_decrement();
        log.add('.');
    });
    await([&] { return log.size() == 4; });
    EXPECT_EQ(log.text(), ".wab");
}

// The last that came is put at the head first; and fibres serve again from the last that was freed.
TEST(Counter, lets_tasks_go_on_in_the_order_in_which_they_came) {
    Library const library(1);
    std::vector<unsigned int> ids;
    for (int round = 0; round < 2; ++round) {
        task::Counter gate(1);
        for (int i = 0; i < 3; ++i) {
            task::spawn(fiberful, main_thread, normal, [&] {
                ids.push_back(task::this_task::id() & 0xFF);
                gate.wait();
                ids.push_back(task::this_task::id() & 0xFF);
            });
        }
        task::run_main_thread_tasks();
        gate.internal_decrement();
        task::run_main_thread_tasks();
    }
    EXPECT_EQ(ids, (std::vector<unsigned int>{0, 1, 2, 0, 1, 2, 2, 1, 0, 2, 1, 0}));
}

TEST(ThisTask, keeps_its_id_and_yields_to_the_tail) {
    Library const library(1);
    Log log;
    std::vector<unsigned int> ids;
    EXPECT_EQ(task::this_task::id(), 0u);
    task::this_task::yield();
    task::spawn(fiberful, pinned_to(0), normal, [&] {
        ids.push_back(task::this_task::id());
        task::spawn(fiberless, pinned_to(0), normal, [&] {
            ids.push_back(task::this_task::id());
            task::this_task::yield();
            log.add('a');
        });
        task::spawn(fiberful, pinned_to(0), normal, [&] {
            ids.push_back(task::this_task::id());
            log.add('b');
        });
        task::this_task::yield();
        ids.push_back(task::this_task::id());
        log.add('y');
    });
    await([&] { return log.size() == 3; });
    EXPECT_EQ(log.text(), "aby");
    EXPECT_EQ(ids, (std::vector<unsigned int>{0x80000000, 0, 0x80000001, 0x80000000}));
}

// Seen by where the children are queued: urgent tasks run before those of the worker's own queue.
TEST(Priority, is_inherited_from_fibreful_tasks_only) {
    for (FiberMode mode : {fiberful, fiberless}) {
        Library const library(1);
        Log log;
        task::spawn(mode, pinned_to(0), high, [&] {
            task::spawn(fiberless, pinned_to(0), normal, [&] { log.add('o'); });
            task::spawn(fiberless, any_thread, normal, [&] { log.add('i'); });
            task::Batch batch(any_thread, normal);
            batch.spawn(fiberless, [&] { log.add('b'); });
            batch.submit();
        });
        await([&] { return log.size() == 3; });
        EXPECT_EQ(log.text(), mode == fiberful ? "ibo" : "oib");
    }
}

TEST(ThreadContext, is_the_native_stack_with_no_task_current) {
    Library const library(1);
    std::atomic<bool> done = false;
    task::spawn(fiberful, pinned_to(0), high, [&] {
        auto const bounds = [] {
            auto const* const block = reinterpret_cast<NT_TIB*>(NtCurrentTeb());
            return block->StackBase;
        };
        void* const own = bounds();
        void* native = nullptr;
        bool outside = false;
        task::execute_in_thread_context([&] {
            native = bounds();
            outside = task::this_task::id() == 0 && !task::detail::in_fiberful_task();
        });
        EXPECT_NE(own, native);
        EXPECT_EQ(own, bounds());
        EXPECT_TRUE(outside);
        EXPECT_TRUE(task::detail::in_fiberful_task());
        done = true;
    });
    await([&] { return done.load(); });
    bool direct = false;
    task::execute_in_thread_context([&] { direct = true; });
    EXPECT_TRUE(direct);
}

TEST(Batch, starts_its_tasks_together_and_in_order) {
    Library const library(1);
    Log log;
    Gate gate(0);
    task::Batch batch(worker_threads, normal);
    for (char name = 'a'; name < 'f'; ++name)
        batch.spawn(name % 2 ? fiberless : fiberful, [&log, name] { log.add(name); });
    gate.open();
    Sleep(20);
    EXPECT_EQ(log.text(), "");
    batch.submit();
    batch.submit();
    await([&] { return log.size() == 5; });
    EXPECT_EQ(log.text(), "abcde");
    EXPECT_EQ(batch.count(), 5u);
}

TEST(Batch, used_twice_still_runs_each_task_once) {
    Library const library(2);
    std::atomic<int> runs = 0;
    task::Batch batch(any_thread, high);
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 4; ++i) batch.spawn(fiberless, [&] { ++runs; });
        batch.submit();
    }
    await([&] { return runs == 12; });
    EXPECT_EQ(batch.count(), 12u);
}

TEST(MainThread, runs_what_was_queued_when_the_call_began) {
    Library const library(1);
    Log log;
    for (char name : {'a', 'b'}) {
        task::spawn(name == 'a' ? fiberless : fiberful, main_thread, normal, [&log, name] {
            log.add(name);
            task::spawn(fiberless, main_thread, normal, [&log] { log.add('c'); });
        });
    }
    task::spawn(fiberless, any_thread, high, [&log] { log.add('u'); });
    await([&] { return log.size() == 1; });  // the worker's
    std::thread([] { task::run_main_thread_tasks(); }).join();
    EXPECT_EQ(log.text(), "u");
    task::run_main_thread_tasks();
    EXPECT_EQ(log.text(), "uab");
    task::run_main_thread_tasks();
    EXPECT_EQ(log.text(), "uabcc");
}

struct Counted {
    explicit Counted(int& counter) : alive(&counter) { ++*alive; }
    Counted(Counted&& other) noexcept : alive(other.alive) { ++*alive; }
    ~Counted() { --*alive; }
    int* alive;
};

TEST(Scheduler, ends_with_tasks_queued_which_it_neither_runs_nor_destroys) {
    int alive = 0;
    bool ran = false;
    {
        Library const library(1);
        task::spawn(fiberful, main_thread, normal, [&ran, held = Counted(alive)] { ran = true; });
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 1);
    EXPECT_FALSE(ran);
    task::run_main_thread_tasks();
    EXPECT_FALSE(ran);
}

TEST(Scheduler, destroys_each_callable_once_after_its_run) {
    int alive = 0;
    Library const library(1);
    for (FiberMode mode : {fiberful, fiberless}) {
        task::Counter left(1);
        task::spawn(mode, main_thread, normal, [&left, held = Counted(alive)] {
            left.internal_decrement();
        });
        left.wait();
        EXPECT_EQ(alive, 0);
    }
    struct Large {
        char bytes[504];
        std::atomic<int>* sum;
        void operator()() { *sum += bytes[503]; }
    };
    static_assert(sizeof(Large) == 512);
    std::atomic<int> sum = 0;
    Large large = {{}, &sum};
    large.bytes[503] = 7;
    task::spawn(fiberful, any_thread, normal, large);
    await([&] { return sum == 7; });
}

TEST(Scheduler, gives_pre_created_fibres_a_context_before_they_run) {
    Library const library(1, nullptr, 3);
    std::set<unsigned int> ids;
    task::Counter left(5);
    task::Counter gate(1);
    for (int i = 0; i < 5; ++i) {
        task::spawn(fiberful, main_thread, normal, [&] {
            ids.insert(task::this_task::id());
            gate.wait();
            left.internal_decrement();
        });
    }
    task::run_main_thread_tasks();
    gate.internal_decrement();
    left.wait();
    EXPECT_EQ(ids.size(), 4u);  // numbers of pre-made and later fibres overlap
}

class Manager : public QX::THREAD_MANAGER_INTERFACE {
public:
    unsigned int on_worker_start(unsigned int worker) override {
        ++started;
        threads[worker] = GetCurrentThreadId();
        return worker + 100;
    }
    void on_worker_end(unsigned int token) override {
        if (threads[token - 100] == GetCurrentThreadId()) ++ended;
    }
    std::atomic<int> started = 0;
    std::atomic<int> ended = 0;
    DWORD threads[4] = {};
};

TEST(Scheduler, tells_the_manager_of_each_workers_start_and_end) {
    Manager manager;
    {
        Library const library(4, &manager);
        await([&] { return manager.started == 4; });
        EXPECT_EQ(manager.ended, 0);
    }
    EXPECT_EQ(manager.ended, 4);
}

TEST(WaitCallback, is_called_while_a_thread_waits_with_nothing_to_run) {
    Library const library(1);
    task::Counter left(3);
    task::interop::set_thread_wait_callback(
        [](void* argument) { static_cast<task::Counter*>(argument)->internal_decrement(); }, &left);
    left.wait();
    EXPECT_EQ(left.value(), 0u);
    task::Counter other(1);
    std::thread unknown([&] { other.wait(); });  // has no callback
    Sleep(20);
    EXPECT_EQ(left.value(), 0u);
    other.internal_decrement();
    unknown.join();
    task::interop::set_thread_wait_callback(nullptr, nullptr);
}

std::atomic<int> broadcasts;
void WINAPI count_broadcast(CONDITION_VARIABLE* condition) {
    ++broadcasts;
    WakeAllConditionVariable(condition);
}

std::atomic<int> asleep;
BOOL WINAPI
count_sleeper(CONDITION_VARIABLE* condition, SRWLOCK* lock, DWORD timeout, unsigned long flags) {
    ++asleep;
    BOOL const woken = SleepConditionVariableSRW(condition, lock, timeout, flags);
    --asleep;
    return woken;
}

TEST(Waking, spares_a_lone_push_to_the_pushers_own_queue) {
    StandIn const counted("WakeAllConditionVariable", count_broadcast);
    StandIn const sleepers("SleepConditionVariableSRW", count_sleeper);
    ASSERT_TRUE(counted.found() && sleepers.found());
    Library const library(2);
    std::atomic<int> ran = 0;
    auto const broadcasts_of = [&](auto push, int tasks) {
        await([] { return asleep == 2; });
        int const before = broadcasts;
        int const target = ran + tasks;
        push();
        int const made = broadcasts - before;
        task::spawn(fiberless, worker_threads, normal, [&] { ++ran; });
        await([&] { return ran == target + 1; });
        return made;
    };
    auto const one = [&](ThreadMask mask) {
        return [&ran, mask] { task::spawn(fiberless, mask, normal, [&ran] { ++ran; }); };
    };
    EXPECT_EQ(broadcasts_of(one(any_thread), 1), 1);
    EXPECT_EQ(broadcasts_of(one(pinned_to(1)), 1), 1);
    EXPECT_EQ(broadcasts_of(one(main_thread), 0), 0);
    task::run_main_thread_tasks();
    EXPECT_EQ(broadcasts_of([&] { std::thread(one(any_thread)).join(); }, 1), 0);
    EXPECT_EQ(broadcasts_of([&] { std::thread(one(pinned_to(0))).join(); }, 1), 1);
    auto const batch = [&] {
        std::thread([&] {
            task::Batch two(any_thread, normal);
            for (int i = 0; i < 2; ++i) two.spawn(fiberless, [&] { ++ran; });
            two.submit();
        }).join();
    };
    EXPECT_EQ(broadcasts_of(batch, 2), 1);
}

}  // namespace
