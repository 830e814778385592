// The scheduler under load, with 1, 2, 4 and 16 workers.
#include "tests/tasks/random_graph.h"
#include "tests/tasks/scheduler_fixture.h"

#include "tests/harness/random.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace test;

namespace {

class SchedulerLoad : public testing::TestWithParam<unsigned int> {};
INSTANTIATE_TEST_SUITE_P(, SchedulerLoad, testing::Values(1u, 2u, 4u, 16u));

TEST_P(SchedulerLoad, runs_a_random_graph_whole) {
    Library const library(GetParam());
    RandomGraph graph(GetParam());
    for (std::uint64_t round = 0; round < 12; ++round)
        ASSERT_TRUE(graph.run(seed() + round * 1000, 12, 5)) << "seed " << seed();
}

// Tasks, the main thread and threads of the host wait for counters that all of them change.
TEST_P(SchedulerLoad, loses_no_waiter_of_counters_that_all_change) {
    Library const library(GetParam());
    for (int round = 0; round < 30; ++round) {
        task::Counter first(40);
        task::Counter second(40);
        std::atomic<int> ended = 0;
        std::vector<std::thread> hosts;
        for (int i = 0; i < 2; ++i) {
            hosts.emplace_back([&] {
                first.wait();
                ++ended;
            });
        }
        for (int i = 0; i < 40; ++i) {
            task::spawn(fiberful, i % 3 ? any_thread : worker_threads, normal, [&] {
                first.internal_decrement();
                first.wait();
                second.internal_decrement();
                second.wait();
                ++ended;
            });
        }
        second.wait();
        for (auto& host : hosts) host.join();
        await([&] { return ended == 42; });
        EXPECT_EQ(first.value() + second.value(), 0u);
    }
}

// A counter may go as soon as its wait has returned, whoever brought it to 0.
TEST_P(SchedulerLoad, lets_a_counter_die_when_its_wait_returns) {
    Library const library(GetParam());
    task::Counter left(200);
    for (int i = 0; i < 200; ++i) {
        task::spawn(fiberful, any_thread, normal, [&] {
            for (int k = 0; k < 20; ++k) {
                auto* const counter = new task::Counter(2);
                task::spawn(fiberless, any_thread, normal, [=] { counter->internal_decrement(); });
                task::spawn(fiberful, any_thread, high, [=] { counter->internal_decrement(); });
                counter->wait();
                delete counter;
            }
            left.internal_decrement();
        });
    }
    left.wait();
}

// Sleeping and waking, again and again: a wake-up that is lost hangs the case.
TEST_P(SchedulerLoad, loses_no_wake_up) {
    Library const library(GetParam());
    Random random(GetParam());
    for (int round = 0; round < 150; ++round) {
        std::atomic<int> ran = 0;
        int const count = static_cast<int>(random.below(5)) + 1;
        for (int i = 0; i < count; ++i) {
            ThreadMask const mask =
                random.chance(2) ? pinned_to(random.below(GetParam())) : worker_threads;
            task::spawn(fiberless, mask, normal, [&] { ++ran; });
        }
        while (ran != count) SwitchToThread();
        if (random.chance(3)) Sleep(1);
    }
}

std::atomic<int> blocks_taken;

// Everything a round needs is made in the first one: its tasks all exist at once.
TEST_P(SchedulerLoad, takes_no_memory_once_warm) {
    Library const library(GetParam());
    auto const round = [] {
        task::Counter gate(1);
        task::Counter left(60);
        task::Batch batch(any_thread, normal);
        for (int i = 0; i < 60; ++i) {
            batch.spawn(fiberful, [&] {
                gate.wait();
                left.internal_decrement();
            });
        }
        batch.submit();
        task::spawn(fiberless, any_thread, normal, [&] { gate.internal_decrement(); });
        left.wait();
    };
    task::Counter all(1);
    for (int i = 0; i < 61 + 2 * 17; ++i)  // as many fibres at once as any round can want
        task::spawn(fiberful, any_thread, normal, [&] { all.wait(); });
    for (int i = 0; i < 5; ++i) round();
    all.internal_decrement();
    round();
    Sleep(20);
    auto* const previous = QX::allocation_hook;
    blocks_taken = 0;
    QX::allocation_hook = [](void const*, unsigned int size) { blocks_taken += size != 0; };
    for (int i = 0; i < 50; ++i) round();
    QX::allocation_hook = previous;
    EXPECT_EQ(blocks_taken, 0);
}

TEST_P(SchedulerLoad, starts_and_ends_again_and_again) {
    for (int round = 0; round < 20; ++round) {
        Library const library(GetParam());
        task::Counter left(8);
        for (int i = 0; i < 8; ++i)
            task::spawn(fiberful, any_thread, normal, [&] { left.internal_decrement(); });
        left.wait();
    }
}

// For as long as QX_SOAK_SECONDS says, one second by itself: the library started anew with other
// numbers of workers, and forest after forest run on it. scripts/soak.sh runs it at length.
TEST(SchedulerSoak, keeps_whole_over_many_starts) {
    char const* const text = std::getenv("QX_SOAK_SECONDS");
    auto const length = std::chrono::seconds(text != nullptr ? std::atoi(text) : 1);
    auto const end = std::chrono::steady_clock::now() + length;
    Random random(seed());
    unsigned long long forests = 0;
    while (std::chrono::steady_clock::now() < end) {
        unsigned int const workers = 1 + random.below(random.chance(4) ? 16 : 3);
        Library const library(workers);
        RandomGraph graph(workers);
        for (unsigned int i = 1 + random.below(40); i > 0; --i, ++forests) {
            std::uint64_t const forest = random.next();
            ASSERT_TRUE(graph.run(forest, 1 + random.below(30), 1 + random.below(6)))
                << "forest " << forest << " on " << workers << " workers, seed " << seed();
            if (random.chance(3)) Sleep(random.below(3));  // let them fall asleep
        }
    }
    std::printf("%llu forests\n", forests);
}

}  // namespace
