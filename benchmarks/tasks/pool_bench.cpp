// pool_bench.cpp - plain jobs on a pool of threads, beside the system's own pool.
#include "benchmarks/bench.h"
#include "qx/base/windows.h"
#include "qx/tasks/thread_pool.h"

#include <atomic>

namespace {

constexpr unsigned int threads = 2;
constexpr unsigned int queue_size = 4096;
constexpr int jobs = 2000;  // below the queue's size

std::atomic<int> left = 0;

void work(int steps) {
    unsigned int value = 1;
    for (int i = 0; i < steps; ++i) bench::keep(value = value * 1664525 + 1013904223);
    --left;
}

void wait_until_done() {
    while (left != 0) SwitchToThread();
}

template <int steps>
unsigned int own_job(void*) {
    work(steps);
    return 0;
}

template <int steps>
void CALLBACK system_job(PTP_CALLBACK_INSTANCE, void*) {
    work(steps);
}

// The system's pool with as many threads.
class SystemPool {
public:
    SystemPool() : pool_(CreateThreadpool(nullptr)) {
        SetThreadpoolThreadMaximum(pool_, threads);
        SetThreadpoolThreadMinimum(pool_, threads);
        environment_.Version = 1;
        environment_.Pool = pool_;
    }
    ~SystemPool() { CloseThreadpool(pool_); }

    void submit(PTP_SIMPLE_CALLBACK job) {
        TrySubmitThreadpoolCallback(job, nullptr, &environment_);
    }

private:
    PTP_POOL pool_;
    TP_CALLBACK_ENVIRON environment_ = {};
};

template <int steps>
void rows(bench::Table const& table, QX::ThreadPool& own, SystemPool& system, char const* size) {
    auto const burst = [&](auto const& submit) {
        return [submit] {
            left = jobs;
            for (int i = 0; i < jobs; ++i) submit();
            wait_until_done();
        };
    };
    auto const one_by_one = [&](auto const& submit) {
        return [submit] {
            for (int i = 0; i < jobs / 10; ++i) {
                left = 1;
                submit();
                wait_until_done();
            }
        };
    };
    auto const ours = [&own] { own.queue_job(own_job<steps>, nullptr); };
    auto const theirs = [&system] { system.submit(system_job<steps>); };
    std::string const name = std::string("jobs of ") + size;
    table.row(
        (name + ", a burst").c_str(), jobs, {{"QXLibs", burst(ours)}, {"system", burst(theirs)}});
    table.row(
        (name + ", one by one").c_str(), jobs / 10.0,
        {{"QXLibs", one_by_one(ours)}, {"system", one_by_one(theirs)}});
}

}  // namespace

int main() {
    bench::Table const table("thread pool");
    QX::ThreadPool own(threads, queue_size, 0, nullptr, nullptr, QX::ThreadPriority::normal);
    SystemPool system;
    rows<1>(table, own, system, "1 step");
    rows<20000>(table, own, system, "20000 steps");
}
