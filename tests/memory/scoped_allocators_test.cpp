#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include "qx/memory/allocators.h"
#include "qx/memory/arena.h"
#include "qx/memory/pools.h"
#include "qx/memory/stack_allocator.h"
#include "qx/memory/string_pool.h"
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

TEST(ExtendingPool, extends_by_chunks_and_goes_at_exit) {
    exercise_pool<8>();
    exercise_pool<16>();
    exercise_pool<20>();
    exercise_pool<24>();
    exercise_pool<28>();
    exercise_pool<32>();
    exercise_pool<36>();
    exercise_pool<40>();
    exercise_pool<48>();
    exercise_pool<56>();
    exercise_pool<64>();
    exercise_pool<208>();
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

TEST(MemoryStackAllocator, is_empty_before_and_after) {
    EXPECT_EQ(Stack::push_watermark(), nullptr);
    Stack::pop(nullptr);
    auto const before = blocks_in_use();
    char* const mark = Stack::push_watermark();
    Stack::allocate(10);
    Stack::allocate(200000);
    Stack::allocate(200000);
    EXPECT_EQ(blocks_in_use(), before + 2);
    Stack::pop(mark);
    EXPECT_EQ(blocks_in_use(), before);
    EXPECT_EQ(Stack::mem_base, nullptr);
    EXPECT_EQ(Stack::mem_last, nullptr);
}

TEST(MemoryStackAllocator, pops_to_marks_in_older_blocks) {
    unsigned int const& size = Stack::ALLOC_SIZE;
    Stack::alloc();
    char* const first = Stack::mem_base;
    EXPECT_EQ(Stack::mem_last, first + size);
    char* const top = Stack::push_watermark();
    Stack::pop(top);
    EXPECT_EQ(Stack::mem_base, first);
    EXPECT_EQ(Stack::mem_last, top);

    char* const last = static_cast<char*>(Stack::allocate(1000));
    EXPECT_EQ(last, Stack::mem_last);
    char* const mark = Stack::push_watermark();
    for (int i = 0; i < 5; ++i) std::memset(Stack::allocate(size), i, size);
    EXPECT_NE(Stack::mem_base, first);
    Stack::pop(mark);
    EXPECT_EQ(Stack::mem_base, first);
    EXPECT_EQ(Stack::mem_last, mark);
    Stack::pop(nullptr);
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
    std::vector<std::vector<void*>> taken(4, std::vector<void*>(pieces));
    std::vector<std::thread> threads;
    for (auto& own : taken) {
        threads.emplace_back([&] {
            for (void*& piece : own) piece = ring.allocate(16, 16);
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::set<void*> all;
    for (auto const& own : taken) all.insert(own.begin(), own.end());
    EXPECT_EQ(all.size(), 4 * pieces);
}

TEST(TransientAllocator, has_a_global_one_between_creation_and_destruction) {
    EXPECT_EQ(QX::global_transient_allocator(), nullptr);
    QX::destroy_global_transient_allocator();
    QX::create_global_transient_allocator(5000);
    ASSERT_NE(QX::global_transient_allocator(), nullptr);
    EXPECT_NE(QX::global_transient_allocator()->allocate(5000, 1), nullptr);
    QX::destroy_global_transient_allocator();
    EXPECT_EQ(QX::global_transient_allocator(), nullptr);
    for (unsigned int nth : {1u, 2u}) {
        test::FailingAllocation const failing(nth);
        EXPECT_THROW(QX::create_global_transient_allocator(100), std::bad_alloc);
    }
    EXPECT_EQ(QX::global_transient_allocator(), nullptr);
}

TEST(TransientAllocator, is_lost_where_another_global_one_is_created) {
    QX::create_global_transient_allocator(100);
    QX::TransientAllocator* const lost = QX::global_transient_allocator();
    QX::create_global_transient_allocator(100);
    EXPECT_NE(QX::global_transient_allocator(), lost);
    QX::destroy_global_transient_allocator();
    EXPECT_NE(lost->allocate(100, 1), nullptr);
    lost->~TransientAllocator();
    QX::custom_free(lost);
}

TEST(StringPool, reads_its_record) {
    unsigned int const words[12] = {1, 2, 0, 0, 0, 0, 3, 4, 5, 6, 7, 0};
    QX::BASIC_STRING_POOL pool = {};
    std::memcpy(static_cast<void*>(&pool), words, sizeof pool);
    EXPECT_EQ(pool.node_size(), 1u);
    EXPECT_EQ(pool.bucket_size(), 2u);
    EXPECT_EQ(pool.num_buckets(), 3u);
    EXPECT_EQ(pool.current_allocations(), 4u);
    EXPECT_EQ(pool.allocations_hwm(), 5u);
    EXPECT_EQ(pool.total_allocations(), 6u);
    EXPECT_EQ(pool.memory(), 7u);
}

TEST(Allocators, are_interchangeable_and_serve_the_standard_containers) {
    QX::InternalAllocator a, b;
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
    a = b;
    QX::InternalAllocator::deallocate(QX::InternalAllocator::allocate(10));
    std::vector<double, QX::Allocator<double>> numbers(100, 1.5);
    auto other = std::move(numbers);
    EXPECT_EQ(other[99], 1.5);
    EXPECT_THROW(QX::Allocator<double>().allocate(~0ull / 4), std::bad_alloc);
}
