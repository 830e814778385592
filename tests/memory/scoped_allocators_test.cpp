#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "qx/memory/allocators.h"
#include "qx/memory/arena.h"
#include "qx/memory/pools.h"
#include "qx/memory/stack_allocator.h"
#include "qx/memory/transient_allocator.h"
#include "tests/harness/failing_allocation.h"
#include "tests/memory/free_list_damage.h"

namespace {

using Stack = QX::MemoryStackAllocator;

unsigned long long blocks_in_use() {
    return QX::arena::statistics().blocks_in_use;
}

// Fails to extend, fills a whole chunk and one block more, and takes them again in the opposite
// order.
template <unsigned int N>
void exercise_pool() {
    auto& pool = QX::ExtendingPool<N>::pool();
    EXPECT_EQ(pool.chunk_size(), 4192u);
    auto const before = blocks_in_use();
    for (unsigned int nth : {1u, 2u}) {
        test::FailingAllocation const failing(nth);
        EXPECT_THROW(pool.allocate(), std::bad_alloc);
    }
    std::vector<char*> blocks(4192 / N);
    for (char*& block : blocks) block = static_cast<char*>(pool.allocate());
    for (char* block : blocks) std::memset(block, 1, N);
    EXPECT_EQ(blocks[1] - blocks[0], static_cast<std::ptrdiff_t>(N));
    void* const more = pool.allocate();
    EXPECT_EQ(blocks_in_use(), before + 4 + 1 + 1);  // and a record of the second failure
    for (void* block : {more, static_cast<void*>(blocks[3])}) pool.release(block);
    test::expect_damage_noticed(blocks[3], N, [&] { return pool.validate(); });
    EXPECT_EQ(pool.allocate(), blocks[3]);
    EXPECT_EQ(pool.allocate(), more);
    pool.release(nullptr);
    QX::ExtendingPool<N>::tear_down();
    EXPECT_EQ(blocks_in_use(), before + 1);
    EXPECT_EQ(pool.free_, nullptr);
}

}  // namespace

TEST(ExtendingPool, extends_by_chunks_and_goes_at_exit) {
    [&]<unsigned int... N>(std::integer_sequence<unsigned int, N...>) {
        (exercise_pool<N>(), ...);
    }
    (std::integer_sequence<unsigned int, 8, 16, 20, 24, 28, 32, 36, 40, 48, 56, 64, 208>());
}

TEST(MemoryStackAllocator, pops_to_marks_in_older_blocks_and_to_nothing) {
    unsigned int const& size = Stack::ALLOC_SIZE;
    auto const before = blocks_in_use();
    char* const none = Stack::push_watermark();
    Stack::alloc();
    char* const first = Stack::mem_base;
    EXPECT_EQ(Stack::mem_last, first + size);
    char* const top = Stack::push_watermark();
    EXPECT_EQ(Stack::allocate(1000), Stack::mem_last);
    for (char* mark : {Stack::push_watermark(), top}) {
        for (int i = 0; i < 5; ++i) std::memset(Stack::allocate(size), i, size);
        EXPECT_NE(Stack::mem_base, first);
        Stack::pop(mark);
        EXPECT_TRUE(Stack::mem_base == first && Stack::mem_last == mark);
    }
    for (unsigned int alignment : {1u, 4u, 16u, 256u})
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(Stack::allocate(33, alignment)) % alignment, 0u);
    EXPECT_EQ(Stack::allocate(size + 1), nullptr);
    Stack::allocate(static_cast<unsigned int>(Stack::mem_last - first), 1);
    EXPECT_EQ(Stack::mem_last, first);
    EXPECT_TRUE(Stack::allocate(1, 1) && Stack::mem_base != first);
    Stack::pop(none);
    EXPECT_EQ(blocks_in_use(), before);
    EXPECT_TRUE(!none && !Stack::mem_base && !Stack::mem_last);
}

TEST(TransientAllocator, wraps_only_where_the_end_would_be_passed) {
    constexpr unsigned int rows[][3] = {// size, alignment, place
                                        {600, 16, 0}, {399, 1, 600}, {1, 1, 999},  {0, 1, 1000},
                                        {1, 1, 0},    {30, 16, 16},  {1000, 16, 0}};
    QX::TransientAllocator ring(1000);
    char const* const base = static_cast<char*>(ring.allocate(1000, 16));
    for (auto const& [size, alignment, place] : rows)
        EXPECT_EQ(ring.allocate(size, alignment), base + place);
    EXPECT_EQ(ring.current(), reinterpret_cast<unsigned long long>(ring.end()));
    std::destroy_at(&ring);  // and once more at the end of the block
    EXPECT_EQ(ring.base(), nullptr);
}

TEST(TransientAllocator, gives_threads_pieces_that_do_not_overlap) {
    constexpr unsigned int pieces = 20000;
    QX::TransientAllocator ring(4 * pieces * 16 + 64);
    std::vector<void*> taken(4 * pieces);
    std::thread threads[4];
    for (int n = 0; n < 4; ++n)
        threads[n] = std::thread([&, own = taken.data() + n * pieces] {
            std::generate(own, own + pieces, [&] { return ring.allocate(16, 16); });
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(std::set<void*>(taken.begin(), taken.end()).size(), 4 * pieces);
}

TEST(TransientAllocator, has_a_global_one_which_another_creation_loses) {
    QX::destroy_global_transient_allocator();
    for (unsigned int nth : {1u, 2u}) {
        test::FailingAllocation const failing(nth);
        EXPECT_THROW(QX::create_global_transient_allocator(100), std::bad_alloc);
        EXPECT_EQ(QX::global_transient_allocator(), nullptr);
    }
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
}
