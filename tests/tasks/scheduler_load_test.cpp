// The scheduler under load, with 1, 2, 4 and 16 workers.
#include "tests/tasks/random_graph.h"
#include "tests/tasks/scheduler_fixture.h"
#include "tests/tasks/soak.h"

#include "tests/harness/random.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace test;

namespace {

class SchedulerLoad : public testing::TestWithParam<unsigned int> {};
INSTANTIATE_TEST_SUITE_P(, SchedulerLoad, testing::Values(1u, 2u, 4u, 16u));

// Tasks, the main thread and threads of the host all change one counter and wait for it.
TEST_P(SchedulerLoad, loses_no_waiter_of_a_counter) {
    Library const library(GetParam());
    for (int round = 0; round < 60; ++round) {
        task::Counter all(43);
        task::Counter left(43);
        auto const meet = [&] {
            all.internal_decrement();
            all.wait();
            left.internal_decrement();
        };
        std::thread hosts[] = {std::thread(meet), std::thread(meet)};
        for (int i = 0; i < 40; ++i)
            task::spawn(fiberful, i % 3 ? any_thread : worker_threads, normal, meet);
        meet();
        for (auto& host : hosts) host.join();
        left.wait();
    }
}

// A frame's worth of everything that tasks do. All its tasks exist at once.
constexpr int tasks_of_a_frame = 64;

void run_frame() {
    task::Counter gate(1);
    task::Counter left(tasks_of_a_frame);
    task::Batch batch(any_thread, normal);
    for (int i = 0; i < tasks_of_a_frame; ++i) {
        auto const work = [&gate, &left, i] {
            gate.wait();
            if (i % 4 == 0) task::this_task::yield();
            if (i % 8 == 0) task::execute_in_thread_context([] {});
            left.internal_decrement();
        };
        if (i % 2 == 0)
            batch.spawn(fiberful, work);
        else
            task::spawn(fiberful, worker_threads, i % 3 ? normal : high, work);
    }
    batch.submit();
    task::spawn(fiberless, any_thread, normal, [&] { gate.internal_decrement(); });
    left.wait();
}

std::atomic<int> blocks_taken;

TEST_P(SchedulerLoad, takes_no_memory_once_warm) {
    Library const library(GetParam());
    task::Counter all(1);
    // As many records at once as any frame can want: its own, those of the last that still end, and
    // the spares of each thread.
    for (unsigned int i = 0; i < tasks_of_a_frame + 1 + 2 * (GetParam() + 1); ++i)
        task::spawn(fiberful, any_thread, normal, [&] { all.wait(); });
    for (int i = 0; i < 5; ++i) run_frame();
    all.internal_decrement();
    run_frame();
    Sleep(20);
    auto* const previous = QX::allocation_hook;
    blocks_taken = 0;
    QX::allocation_hook = [](void const*, unsigned int size) { blocks_taken += size != 0; };
    for (int i = 0; i < 50; ++i) run_frame();
    EXPECT_EQ(blocks_taken, 0);
    QX::custom_free(QX::custom_malloc(1, QX::HEAP_GENERAL));
    EXPECT_EQ(blocks_taken, 1);  // the hook does see blocks
    QX::allocation_hook = previous;
}

void run_forests(unsigned int count, Random& random, Watchdog& watchdog) {
    unsigned int const workers = 1 + random.below(random.chance(4) ? 16 : 3);
    Library const library(workers);
    RandomGraph graph(workers);
    for (; count > 0; --count, watchdog.step()) {
        std::uint64_t const forest = random.next();
        ASSERT_TRUE(graph.run(forest, 1 + random.below(30), 1 + random.below(6)))
            << "forest " << forest << " on " << workers << " workers, seed " << seed();
        if (random.chance(3)) Sleep(random.below(3));  // let them fall asleep
    }
}

// For as long as QX_SOAK_SECONDS says, one second by itself: the library started anew with other
// numbers of workers, and forest after forest run on it. scripts/soak.sh runs it at length.
TEST(SchedulerSoak, keeps_whole_over_many_starts) {
    char const* const text = std::getenv("QX_SOAK_SECONDS");
    int const seconds = text != nullptr ? std::atoi(text) : 1;
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    Watchdog watchdog;
    SoakLedger holdings(seconds);
    Random random(seed());
    while (std::chrono::steady_clock::now() < end) {
        unsigned int const forests = 1 + random.below(40);
        run_forests(forests, random, watchdog);
        if (HasFatalFailure()) return;
        holdings.look(forests);
    }
    holdings.end_minute();
    EXPECT_EQ(holdings.leaked(), 0u);
    if (seconds >= 120) {
        EXPECT_LE(holdings.last(), holdings.first() + 64 * 1024);
    }
    std::printf(
        "no wake-up lost, %llu blocks leaked, private bytes %llu in the first minute and %llu in "
        "the last\n",
        holdings.leaked(), holdings.first(), holdings.last());
}

}  // namespace
