// scheduler_bench.cpp - spawning, joining, waking, with the main thread and one worker, beside the
// system's thread pool, its fibres, events and condition variables.
#include "benchmarks/bench.h"
#include "qx/base/windows.h"
#include "qx/qx.h"

#include <atomic>

namespace {

using task::FiberMode;
using task::Priority;
using task::ThreadMask;

constexpr int spawned = 100000;
constexpr int set_size = 1000;

void spawn_each(FiberMode mode) {
    task::Counter left(spawned);
    for (int i = 0; i < spawned; ++i) {
        task::spawn(
            mode, ThreadMask::any_thread, Priority::normal, [&left] { left.internal_decrement(); });
    }
    left.wait();
}

void spawn_batches() {
    for (int round = 0; round < spawned / set_size; ++round) {
        task::Counter left(set_size);
        task::Batch batch(ThreadMask::any_thread, Priority::normal);
        for (int i = 0; i < set_size; ++i)
            batch.spawn(FiberMode::fiberless, [&left] { left.internal_decrement(); });
        batch.submit();
        left.wait();
    }
}

// The system's pool, its work items made once.
struct SystemPool {
    SystemPool() : work(CreateThreadpoolWork(run, this, nullptr)) {}
    ~SystemPool() { CloseThreadpoolWork(work); }

    static void CALLBACK run(PTP_CALLBACK_INSTANCE, void* self, PTP_WORK) {
        --static_cast<SystemPool*>(self)->left;
    }

    void submit_all(int count) {
        left = count;
        for (int i = 0; i < count; ++i) SubmitThreadpoolWork(work);
        while (left != 0) YieldProcessor();
    }

    PTP_WORK work;
    std::atomic<int> left = 0;
};

unsigned int fib(unsigned int n);

struct Fork {
    unsigned int n;
    unsigned int result = 0;
    task::Counter left{1};
};

unsigned int fib(unsigned int n) {
    if (n < 2) return n;
    Fork fork = {n - 1};
    task::spawn(FiberMode::fiberful, ThreadMask::any_thread, Priority::normal, [&fork] {
        fork.result = fib(fork.n);
        fork.left.internal_decrement();
    });
    unsigned int const other = fib(n - 2);
    fork.left.wait();
    return fork.result + other;
}

constexpr int fib_rounds = 10;
constexpr int fib16_tasks = 1596;

void fork_and_join() {
    for (int i = 0; i < fib_rounds; ++i) {
        task::Counter left(1);
        task::spawn(FiberMode::fiberful, ThreadMask::worker_threads, Priority::normal, [&left] {
            bench::keep(fib(16));
            left.internal_decrement();
        });
        left.wait();
    }
}

void wait_for_child(task::Counter& all) {
    task::Counter child(1);
    task::spawn(FiberMode::fiberful, ThreadMask::any_thread, Priority::normal, [&child] {
        child.internal_decrement();
    });
    child.wait();
    all.internal_decrement();
}

void nested_waits() {
    for (int round = 0; round < 20; ++round) {
        task::Counter all(set_size);
        for (int i = 0; i < set_size; ++i) {
            task::spawn(FiberMode::fiberful, ThreadMask::any_thread, Priority::normal, [&all] {
                wait_for_child(all);
            });
        }
        all.wait();
    }
}

void round_trips() {
    for (int i = 0; i < 10000; ++i) {
        task::Counter left(1);
        task::spawn(FiberMode::fiberless, ThreadMask::any_thread, Priority::normal, [&left] {
            left.internal_decrement();
        });
        left.wait();
    }
}

// To and fro between this thread's fibre and another of the system's: the measure for what a task
// costs in switches.
class SystemFibres {
public:
    SystemFibres()
        : own_(ConvertThreadToFiber(nullptr)), other_(CreateFiberEx(65536, 65536, 0, run, this)) {}
    ~SystemFibres() {
        DeleteFiber(other_);
        ConvertFiberToThread();
    }
    SystemFibres(SystemFibres const&) = delete;
    SystemFibres& operator=(SystemFibres const&) = delete;

    void switches(int count) const {
        for (int i = 0; i < count / 2; ++i) SwitchToFiber(other_);
    }

private:
    static void CALLBACK run(void* self) {
        for (;;) SwitchToFiber(static_cast<SystemFibres*>(self)->own_);
    }

    void* own_;
    void* other_;
};

// The time until a task runs on a worker that sleeps, and until a thread runs that waits for an
// event or on a condition variable. What lies between two settled sleeps is not counted, so these
// are timed by hand, taking turns.
using Wake = std::function<void(std::atomic<bool>& awake)>;

double time_wake(Wake const& wake) {
    Sleep(2);
    std::atomic<bool> awake = false;
    auto const start = std::chrono::steady_clock::now();
    wake(awake);
    while (!awake) YieldProcessor();
    std::chrono::duration<double, std::nano> const took = std::chrono::steady_clock::now() - start;
    return took.count();
}

void wake_a_worker(std::atomic<bool>& awake) {
    task::spawn(FiberMode::fiberless, ThreadMask::worker_threads, Priority::normal, [&awake] {
        awake = true;
    });
}

struct EventWaiter {
    EventWaiter() { QX::run_in_native_thread(run, this, thread); }
    ~EventWaiter() {
        awake = nullptr;
        event.signal();
        QX::wait_for_thread(thread);
    }

    static unsigned int run(void* object) {
        auto& self = *static_cast<EventWaiter*>(object);
        for (;;) {
            self.event.wait();
            if (self.awake == nullptr) return 0;
            *self.awake = true;
        }
    }

    QX::Event event{false, false};
    QX::Thread thread;
    std::atomic<bool>* awake = nullptr;
};

struct ConditionWaiter {
    ConditionWaiter() { QX::run_in_native_thread(run, this, thread); }
    ~ConditionWaiter() {
        tell(nullptr);
        QX::wait_for_thread(thread);
    }

    void tell(std::atomic<bool>* whom) {
        AcquireSRWLockExclusive(&lock);
        awake = whom;
        told = true;
        WakeAllConditionVariable(&condition);
        ReleaseSRWLockExclusive(&lock);
    }

    static unsigned int run(void* object) {
        auto& self = *static_cast<ConditionWaiter*>(object);
        AcquireSRWLockExclusive(&self.lock);
        do {
            while (!self.told) SleepConditionVariableSRW(&self.condition, &self.lock, INFINITE, 0);
            self.told = false;
            if (self.awake != nullptr) *self.awake = true;
        } while (self.awake != nullptr);
        ReleaseSRWLockExclusive(&self.lock);
        return 0;
    }

    SRWLOCK lock = SRWLOCK_INIT;
    CONDITION_VARIABLE condition = CONDITION_VARIABLE_INIT;
    QX::Thread thread;
    std::atomic<bool>* awake = nullptr;
    bool told = false;
};

void print_wakes() {
    EventWaiter event;
    ConditionWaiter condition;
    QX::Event alone(true, false);
    std::pair<char const*, Wake> const ways[] = {
        {"QXLibs", wake_a_worker},
        {"thread on a condition variable",
         [&](std::atomic<bool>& awake) { condition.tell(&awake); }},
        {"thread on an event",
         [&](std::atomic<bool>& awake) {
             event.awake = &awake;
             event.event.signal();
         }},
        {"SetEvent alone", [&](std::atomic<bool>& awake) {
             alone.signal();
             awake = true;
         }}};
    constexpr int count = std::size(ways);
    std::vector<double> times[count];
    for (int round = 0; round < 11; ++round) {
        std::vector<double> wakes[count];
        for (int wake = 0; wake < 20; ++wake) {
            for (int i = 0; i < count; ++i) wakes[i].push_back(time_wake(ways[i].second));
        }
        for (int i = 0; i < count; ++i) times[i].push_back(bench::median(wakes[i]));
    }
    for (int i = 0; i < count; ++i)
        bench::Table::print("wake a sleeping worker", ways[i].first, times[0], times[i], i == 0);
}

void ask_for_id() {
    for (int i = 0; i < 1000000; ++i) bench::keep(task::this_task::id());
}

void ask_whether_initialised() {
    for (int i = 0; i < 1000000; ++i) bench::keep(task::query::is_initialized());
}

void ask_for_slot(DWORD slot) {
    for (int i = 0; i < 1000000; ++i) bench::keep(TlsGetValue(slot));
}

}  // namespace

int main() {
    if (task::initialize(nullptr, 1, 0) != 1) return 1;
    SystemPool pool;
    bench::Table const table("scheduler");
    table.row(
        "spawn one by one, a task", spawned,
        {{"QXLibs, fibreless", [] { spawn_each(FiberMode::fiberless); }},
         {"QXLibs, fibreful", [] { spawn_each(FiberMode::fiberful); }},
         {"system's pool", [&] { pool.submit_all(spawned); }}});
    table.row(
        "batches of 1000, a task", spawned,
        {{"QXLibs", spawn_batches}, {"system's pool", [&] {
                                         for (int i = 0; i < spawned / set_size; ++i)
                                             pool.submit_all(set_size);
                                     }}});
    SystemFibres const fibres;
    auto const with_switches = [&](char const* name, int tasks, void (*work)()) {
        bench::Contender const one_each = {
            "SwitchToFiber, a switch", [&fibres, tasks] { fibres.switches(tasks); }};
        table.row(name, tasks, {{"QXLibs", work}, one_each});
    };
    with_switches("fork and join, fib 16, a task", fib_rounds * fib16_tasks, fork_and_join);
    with_switches("nested waits, a task and its child", 20 * set_size, nested_waits);
    table.row(
        "spawn one and wait for it", 10000, {{"QXLibs", round_trips}, {"system's pool", [&] {
                                                                           for (int i = 0;
                                                                                i < 10000; ++i)
                                                                               pool.submit_all(1);
                                                                       }}});
    DWORD const slot = TlsAlloc();
    table.row(
        "ask who runs, a call", 1000000,
        {{"this_task::id", ask_for_id},
         {"TlsGetValue", [&] { ask_for_slot(slot); }},
         {"query::is_initialized, one read", ask_whether_initialised}});
    print_wakes();
    task::terminate();
}
