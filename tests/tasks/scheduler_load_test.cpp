// The scheduler under load, with 1 to 16 workers.
#include "qx/memory/arena.h"
#include "tests/harness/balance.h"
#include "tests/harness/random.h"
#include "tests/tasks/scheduler_fixture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using namespace test;

namespace {

// Random trees of tasks that meet, spawn, wait, yield and change threads. Leaves may be fibreless,
// and any task may be pinned, urgent, or the main thread's.
class Forest {
public:
    explicit Forest(unsigned int workers) : workers_(workers) {}

    // Spawns and waits, helping meanwhile. What the children count with lies on this stack, and is
    // gone when the wait returns.
    void grow(std::uint64_t seed, unsigned int count, unsigned int depth) {
        std::atomic<unsigned int> ended = 0;
        task::Counter left(count), met(count);
        for (unsigned int i = 0; i < count; ++i) {
            Random node(seed + i);
            unsigned int const children = depth != 0 ? node.below(5) : 0;
            auto const mode = children == 0 && node.chance(2) ? fiberless : fiberful;
            auto const priority = node.chance(8) ? high : normal;
            task::spawn(mode, mask_of(node), priority, [=, this, &ended, &left, &met]() mutable {
                met.internal_decrement();
                if (mode == fiberful && depth == 0) met.wait();
                visit(node, children, depth);
                ++ended;
                left.internal_decrement();
            });
        }
        left.wait();
        require(ended == count);
    }

    // True if every task ran once, and none went on before its children had ended.
    bool whole() const { return whole_; }

private:
    void require(bool holds) {
        if (!holds) whole_ = false;
    }

    ThreadMask mask_of(Random& node) const {
        unsigned int const kind = node.below(16);
        if (kind > 12) return pinned_to(node.below(workers_));
        return kind < 8 ? any_thread : kind < 12 ? worker_threads : main_thread;
    }

    void visit(Random& node, unsigned int children, unsigned int depth) {
        unsigned int const id = task::this_task::id();
        if (node.chance(4)) task::this_task::yield();
        if (children != 0) grow(node.next(), children, depth - 1);
        if (node.chance(8))
            task::execute_in_thread_context([this] { require(task::this_task::id() == 0); });
        require(task::this_task::id() == id);
    }

    unsigned int workers_;
    std::atomic<bool> whole_ = true;
};

std::atomic<int> blocks_taken;

class SchedulerLoad : public testing::TestWithParam<unsigned int> {};
INSTANTIATE_TEST_SUITE_P(, SchedulerLoad, testing::Values(1u, 2u, 4u, 16u));

TEST_P(SchedulerLoad, takes_no_memory_once_warm) {
    Library const library(GetParam());
    Forest forest(GetParam());
    task::Counter all(1);
    // As many records at once as a forest can want, those of the last that still end, and the
    // spares of each thread.
    unsigned int const most = 6 + 6 * 4 + 6 * 4 * 4;
    for (unsigned int i = 0; i < most + 1 + 2 * (GetParam() + 1); ++i)
        task::spawn(fiberful, any_thread, normal, [&] { all.wait(); });
    for (int i = 0; i < 5; ++i) forest.grow(i, 6, 2);
    all.internal_decrement();
    forest.grow(5, 6, 2);
    Sleep(20);
    auto* const previous = QX::allocation_hook;
    blocks_taken = 0;
    QX::allocation_hook = [](void const*, unsigned int size) { blocks_taken += size != 0; };
    for (int i = 0; i < 50; ++i) forest.grow(i, 6, 2);
    EXPECT_EQ(blocks_taken, 0);
    QX::custom_free(QX::custom_malloc(1, QX::HEAP_GENERAL));
    EXPECT_EQ(blocks_taken, 1);  // the hook does see blocks
    QX::allocation_hook = previous;
    EXPECT_TRUE(forest.whole());
}

// --- Many starts ---------------------------------------------------------------------------------

// Two at a time, the second from a thread that the library does not know.
void run_forests(unsigned int count, Random& random) {
    unsigned int const workers = 1 + random.below(random.chance(4) ? 16 : 3);
    Library const library(workers);
    Forest forest(workers);
    for (; count > 0; --count) {
        std::uint64_t const number = random.next();
        unsigned int const roots = 1 + random.below(30), depth = random.below(6);
        std::atomic<bool> ended = false;
        std::thread host([&] {
            forest.grow(~number, roots / 4 + 1, depth);
            ended = true;
        });
        forest.grow(number, roots, depth);
        for (; !ended; Sleep(0)) task::run_main_thread_tasks();
        host.join();
        ASSERT_TRUE(forest.whole())
            << "forest " << number << " on " << workers << " workers, seed " << seed();
        if (random.chance(3)) Sleep(random.below(3));  // let them fall asleep
    }
}

// What the process holds, but for what the arena keeps for later: some megabytes, now more, now
// fewer.
unsigned long long private_bytes() {
    auto const arena = QX::arena::statistics();
    return current_holdings().private_bytes - (arena.footprint - arena.bytes_in_use);
}

// For as long as QX_SOAK_SECONDS says, one second by itself: the library started anew with other
// numbers of workers, and forest after forest run on it. Of the private bytes with the library
// ended the least in each minute counts, or in each half of a short run. scripts/soak.sh runs it
// at length.
TEST(SchedulerSoak, keeps_whole_over_many_starts) {
    char const* const text = std::getenv("QX_SOAK_SECONDS");
    int const seconds = text != nullptr ? std::atoi(text) : 1, minutes = std::max(2, seconds / 60);
    ULONGLONG const length = 1000ull * seconds / minutes;
    auto const blocks = QX::arena::statistics().blocks_in_use;
    unsigned long long first = 0, least = 0;
    Random random(seed());
    for (int minute = 1; minute <= minutes; ++minute) {
        ULONGLONG const begin = GetTickCount64();
        unsigned int forests = 0;
        least = ~0ull;
        while (GetTickCount64() - begin < length) {
            unsigned int const count = 1 + random.below(40);
            run_forests(count, random);
            if (HasFatalFailure()) return;
            ASSERT_EQ(QX::arena::statistics().blocks_in_use, blocks) << "blocks leaked";
            forests += count;
            bool const warm = minute > 1 || GetTickCount64() - begin > length / 3;
            if (warm) least = std::min(least, private_bytes());
        }
        if (minute == 1) first = least;
        std::printf("minute %d: %u forests, %llu private bytes\n", minute, forests, least);
        std::fflush(stdout);
    }
    if (seconds >= 120) {
        EXPECT_LE(least, first + 64 * 1024);
    }
    std::printf("no wake-up lost, no block leaked, private bytes %llu, then %llu\n", first, least);
}

}  // namespace
