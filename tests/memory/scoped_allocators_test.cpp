#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "qx/memory/allocators.h"
#include "qx/memory/arena.h"
#include "qx/memory/pools.h"
#include "qx/memory/stack_allocator.h"
#include "qx/memory/transient_allocator.h"
#include "tests/harness/failing_allocation.h"

namespace {

using Stack = QX::MemoryStackAllocator;

unsigned long long blocks_in_use() {
    return QX::arena::statistics().blocks_in_use;
}

// Fills a whole chunk and one block more, and takes them again in the opposite order.
template <unsigned int N>
void exercise_pool() {
    auto& pool = QX::ExtendingPool<N>::pool();
    EXPECT_EQ(&pool, &QX::ExtendingPool<N>::pool());
    EXPECT_EQ(pool.chunk_size(), 4192u);
    auto const before = blocks_in_use();
    std::vector<char*> blocks(4192 / N);
    for (char*& block : blocks) block = static_cast<char*>(pool.allocate());
    EXPECT_EQ(blocks_in_use(), before + 2 + 1);
    for (char* block : blocks) std::memset(block, 1, N);
    EXPECT_EQ(blocks[1] - blocks[0], static_cast<std::ptrdiff_t>(N));
    char* const more = static_cast<char*>(pool.allocate());
    EXPECT_EQ(blocks_in_use(), before + 4 + 1);
    pool.release(more);
    pool.release(blocks[3]);
    EXPECT_EQ(pool.allocate(), blocks[3]);
    EXPECT_EQ(pool.allocate(), more);
    pool.release(nullptr);

    QX::ExtendingPool<N>::tear_down();
    EXPECT_EQ(blocks_in_use(), before + 1);
    EXPECT_EQ(pool.free_, nullptr);
}

}  // namespace

template <unsigned int... N>
void exercise_pools(std::integer_sequence<unsigned int, N...>) {
    (exercise_pool<N>(), ...);
}

TEST(ExtendingPool, extends_by_chunks_and_goes_at_exit) {
    exercise_pools(
        std::integer_sequence<unsigned int, 8, 16, 20, 24, 28, 32, 36, 40, 48, 56, 64, 208>());
}

TEST(ExtendingPool, survives_exhaustion_at_either_allocation) {
    auto& pool = QX::ExtendingPool<40>::pool();
    for (unsigned int nth : {1u, 2u}) {
        test::FailingAllocation const failing(nth);
        EXPECT_THROW(pool.allocate(), std::bad_alloc);
    }
    EXPECT_NE(pool.allocate(), nullptr);
    QX::ExtendingPool<40>::tear_down();
}

TEST(MemoryStackAllocator, pops_to_marks_in_older_blocks_and_to_nothing) {
    unsigned int const& size = Stack::ALLOC_SIZE;
    auto const before = blocks_in_use();
    char* const none = Stack::push_watermark();
    Stack::pop(none);
    Stack::alloc();
    char* const first = Stack::mem_base;
    EXPECT_EQ(Stack::mem_last, first + size);
    char* const top = Stack::push_watermark();
    void* const last = Stack::allocate(1000);
    EXPECT_EQ(last, Stack::mem_last);
    for (char* mark : {Stack::push_watermark(), top}) {
        for (int i = 0; i < 5; ++i) std::memset(Stack::allocate(size), i, size);
        EXPECT_NE(Stack::mem_base, first);
        Stack::pop(mark);
        EXPECT_EQ(Stack::mem_base, first);
        EXPECT_EQ(Stack::mem_last, mark);
    }
    Stack::pop(none);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(blocks_in_use(), before);
    EXPECT_EQ(Stack::mem_base, nullptr);
    EXPECT_EQ(Stack::mem_last, nullptr);
}

TEST(MemoryStackAllocator, aligns_and_refuses_what_no_block_can_hold) {
    for (unsigned int alignment : {1u, 4u, 16u, 256u}) {
        auto const place = reinterpret_cast<std::uintptr_t>(Stack::allocate(33, alignment));
        EXPECT_EQ(place % alignment, 0u);
    }
    EXPECT_EQ(Stack::allocate(Stack::ALLOC_SIZE + 1), nullptr);
    char* const base = Stack::mem_base;
    Stack::allocate(static_cast<unsigned int>(Stack::mem_last - base), 1);
    EXPECT_EQ(Stack::mem_last, base);
    EXPECT_NE(Stack::allocate(1, 1), nullptr);
    EXPECT_NE(Stack::mem_base, base);
    Stack::pop(nullptr);
}

TEST(TransientAllocator, wraps_only_where_the_end_would_be_passed) {
    QX::TransientAllocator ring(1000);
    char* const base = static_cast<char*>(ring.allocate(600, 16));
    EXPECT_EQ(ring.allocate(399, 1), base + 600);
    EXPECT_EQ(ring.allocate(1, 1), base + 999);
    EXPECT_EQ(ring.allocate(0, 1), base + 1000);
    EXPECT_EQ(ring.allocate(1, 1), base);
    EXPECT_EQ(ring.allocate(30, 16), base + 16);
    std::uintptr_t const next = (reinterpret_cast<std::uintptr_t>(base) + 46 + 63) / 64 * 64;
    EXPECT_EQ(ring.allocate(1, 64), reinterpret_cast<void*>(next));
    EXPECT_EQ(ring.allocate(1000, 16), base);
}

TEST(TransientAllocator, gives_threads_pieces_that_do_not_overlap) {
    constexpr unsigned int pieces = 20000;
    QX::TransientAllocator ring(4 * pieces * 16 + 64);
    std::vector<void*> taken(4 * pieces);
    std::vector<std::thread> threads;
    for (unsigned int n = 0; n < 4; ++n) {
        threads.emplace_back([&, n] {
            for (unsigned int i = 0; i < pieces; ++i) taken[n * pieces + i] = ring.allocate(16, 16);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(std::set<void*>(taken.begin(), taken.end()).size(), 4 * pieces);
}

TEST(TransientAllocator, has_a_global_one_which_another_creation_loses) {
    EXPECT_EQ(QX::global_transient_allocator(), nullptr);
    QX::destroy_global_transient_allocator();
    for (unsigned int nth : {1u, 2u}) {
        test::FailingAllocation const failing(nth);
        EXPECT_THROW(QX::create_global_transient_allocator(100), std::bad_alloc);
    }
    EXPECT_EQ(QX::global_transient_allocator(), nullptr);
    QX::create_global_transient_allocator(5000);
    QX::TransientAllocator* const lost = QX::global_transient_allocator();
    QX::create_global_transient_allocator(100);
    EXPECT_NE(QX::global_transient_allocator(), lost);
    QX::destroy_global_transient_allocator();
    EXPECT_EQ(QX::global_transient_allocator(), nullptr);
    EXPECT_NE(lost->allocate(5000, 1), nullptr);
    lost->~TransientAllocator();
    QX::custom_free(lost);
}

TEST(Allocators, refuse_more_elements_than_bytes_can_count) {
    EXPECT_THROW(QX::Allocator<double>().allocate(~0ull / 4), std::bad_alloc);
    EXPECT_TRUE(QX::InternalAllocator() == QX::InternalAllocator());
}
