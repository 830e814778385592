#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <utility>
#include <vector>

#include "qx/base/windows.h"
#include "qx/memory/arena.h"
#include "qx/memory/arena_bins_impl.h"
#include "qx/memory/heap.h"
#include "tests/memory/arena_model.h"

namespace {

using QX::arena::statistics;
using QX::arena::validate;

void* take(unsigned long long size) {
    return QX::custom_malloc(size, QX::HEAP_GENERAL);
}

unsigned long long& head_of(void* block) {
    return static_cast<unsigned long long*>(block)[-1];
}

// The chunk's size: what the arena padded the request to.
unsigned long long chunk_size(void* block) {
    return head_of(block) & ~7ull;
}

bool is_mapped(void* place) {
    MEMORY_BASIC_INFORMATION region;
    return VirtualQuery(place, &region, sizeof region) && region.State == MEM_COMMIT;
}

// Blocks given back at the end, whatever the case did with some of them.
class Blocks {
public:
    Blocks() { blocks_.reserve(4096); }
    ~Blocks() {
        for (void* block : blocks_) QX::custom_free(block);
    }

    void* add(unsigned long long size) {
        blocks_.push_back(take(size));
        return blocks_.back();
    }

    // The index of the first of `count` blocks that lie one behind the other.
    unsigned int add_run(unsigned long long size, unsigned int count) {
        unsigned int length = 0;
        while (length < count) {
            void* const last = blocks_.empty() ? nullptr : blocks_.back();
            bool const follows = last && add(size) == static_cast<char*>(last) + chunk_size(last);
            if (!last) add(size);
            length = follows && length ? length + 1 : 1;
        }
        return static_cast<unsigned int>(blocks_.size()) - count;
    }

    void drop(unsigned int index) { QX::custom_free(std::exchange(blocks_[index], nullptr)); }
    void forget(unsigned int index) { blocks_[index] = nullptr; }
    void* operator[](unsigned int index) const { return blocks_[index]; }

private:
    std::vector<void*> blocks_;
};

}  // namespace

TEST(Arena, pads_requests_to_chunks_of_sixteen) {
    struct Row {
        unsigned long long request, chunk;
    };
    Row const rows[] = {{0, 32},    {1, 32},    {22, 32},     {23, 32},      {24, 32},
                        {25, 48},   {40, 48},   {41, 64},     {232, 240},    {233, 256},
                        {248, 256}, {249, 272}, {1000, 1008}, {70000, 70016}};
    QX::HeapPlatform heap(QX::HEAP_SECOND, 0, 0);
    for (Row const& row : rows) {
        void* const block = take(row.request);
        // A rest below 32 bytes stays with its chunk, so a recycled one may be 16 larger.
        EXPECT_TRUE(chunk_size(block) == row.chunk || chunk_size(block) == row.chunk + 16)
            << row.request;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 16, 0u);
        QX::custom_free(block);
    }
}

TEST(Arena, maps_a_request_of_256_KiB_by_itself_and_unmaps_it) {
    auto const before = statistics();
    void* const below = take(262144 - 64);
    void* const direct = take(262144);
    EXPECT_EQ(head_of(below) & 2, 2u);
    EXPECT_EQ(head_of(direct) & 3, 0u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(direct) % 65536, 16u);
    EXPECT_GE(chunk_size(direct) - 16, 262144u);
    auto const during = statistics();
    EXPECT_EQ(during.blocks_in_use, before.blocks_in_use + 2);
    QX::custom_free(direct);
    EXPECT_FALSE(is_mapped(direct));
    EXPECT_EQ(statistics().footprint, during.footprint - (262144 + 65536));
    QX::custom_free(below);
    EXPECT_EQ(statistics().blocks_in_use, before.blocks_in_use);
    EXPECT_GE(statistics().peak_footprint, during.footprint);
    EXPECT_TRUE(validate());
}

TEST(Arena, joins_free_neighbours_on_both_sides) {
    Blocks blocks;
    unsigned int const first = blocks.add_run(1000, 4);
    void* const base = blocks[first];
    blocks.drop(first);
    blocks.drop(first + 2);
    EXPECT_EQ(chunk_size(base), 1008u);
    blocks.drop(first + 1);
    EXPECT_EQ(chunk_size(base), 3 * 1008u);
    EXPECT_EQ(head_of(blocks[first + 3]) & 1, 0u);
    EXPECT_TRUE(validate());
}

TEST(Arena, gives_the_top_back_above_two_megabytes) {
    Blocks blocks;
    unsigned long long const before = statistics().footprint;
    for (int i = 0; i < 400; ++i) blocks.add(16000);
    unsigned long long const most = statistics().footprint;
    EXPECT_GE(most, before + 5500000);
    unsigned long long largest_cut = 0;
    for (unsigned int i = 400; i-- > 0;) {
        unsigned long long const held = statistics().footprint;
        blocks.drop(i);
        largest_cut = std::max(largest_cut, held - statistics().footprint);
    }
    EXPECT_LT(statistics().footprint, most - 4000000);
    EXPECT_GE(largest_cut, 2097152 - 65536u);  // all granules of the free top but one
    EXPECT_GE(statistics().peak_footprint, most);
    EXPECT_TRUE(validate());
}

TEST(Arena, resizes_in_place_where_the_neighbour_is_free) {
    QX::HeapPlatform heap(QX::HEAP_SECOND, 0, 0);
    Blocks blocks;
    unsigned int const first = blocks.add_run(40000, 4);
    blocks.drop(first + 1);
    void* const block = blocks[first];
    std::memset(block, 7, 40000);
    for (unsigned long long size : {60000, 79000, 80000, 100, 40000, 40016, 50}) {
        EXPECT_EQ(heap.realloc(block, size).first, block);
        EXPECT_GE(chunk_size(block), size + 8);
        EXPECT_TRUE(validate());
    }
    EXPECT_EQ(static_cast<char*>(block)[49], 7);
    void* const moved = heap.realloc(block, 81000).first;
    EXPECT_NE(moved, block);
    EXPECT_EQ(static_cast<char*>(moved)[49], 7);
    blocks.forget(first);
    heap.free(moved);
}

// Passes every possible distance to the end of the top.
TEST(Arena, grows_a_block_by_16_over_segment_ends) {
    QX::HeapPlatform heap(QX::HEAP_SECOND, nullptr);
    char* block = static_cast<char*>(heap.malloc(16).first);
    block[0] = 'x';
    for (unsigned int size = 32; size < 250000; size += 16) {
        block = static_cast<char*>(heap.realloc(block, size).first);
        block[size - 1] = 'y';
        ASSERT_TRUE(validate()) << size;
    }
    EXPECT_EQ(block[0], 'x');
    heap.free(block);
}

TEST(Arena, moves_the_content_of_a_direct_block) {
    QX::HeapPlatform heap(QX::HEAP_SECOND, 0, 0);
    char* block = static_cast<char*>(heap.malloc(300000).first);
    for (unsigned int i = 0; i < 300000; ++i) block[i] = static_cast<char>(i % 251);
    EXPECT_EQ(heap.realloc(block, 300100).first, block);
    EXPECT_EQ(heap.realloc(block, 200000).first, block);
    char* const grown = static_cast<char*>(heap.realloc(block, 900000).first);
    char* const shrunk = static_cast<char*>(heap.realloc(grown, 200).first);
    for (unsigned int i = 0; i < 200; ++i) ASSERT_EQ(shrunk[i], static_cast<char>(i % 251));
    heap.free(shrunk);
    EXPECT_TRUE(validate());
}

TEST(Arena, refuses_what_no_heap_can_serve_and_keeps_the_old_block) {
    QX::HeapPlatform heap(QX::HEAP_SECOND, 0, 0);
    void* const block = heap.malloc(50).first;
    for (unsigned long long size : {1ull << 62, ~0ull - 128, ~0ull - 127, ~0ull}) {
        EXPECT_EQ(heap.malloc(size), (std::pair<void*, QX::HeapPlatform*>{}));
        EXPECT_EQ(heap.realloc(block, size), (std::pair<void*, QX::HeapPlatform*>{}));
        EXPECT_THROW(take(size), std::bad_alloc);
    }
    heap.free(block);
    EXPECT_TRUE(validate());
}

TEST(Arena, ignores_pointers_that_are_not_its_blocks) {
    Blocks blocks;
    unsigned int const first = blocks.add_run(64, 3);
    void* const middle = blocks[first + 1];
    blocks.drop(first + 1);
    auto const before = statistics();
    QX::custom_free(middle);
    QX::custom_free(reinterpret_cast<void*>(0x20));
    EXPECT_EQ(statistics().blocks_in_use, before.blocks_in_use);
    EXPECT_TRUE(validate());
    EXPECT_EQ(QX::HeapPlatform(QX::HEAP_SECOND, 0, 0).realloc(middle, 100).first, nullptr);
}

TEST(Arena, ignores_strangers_without_touching_what_they_seem_to_name) {
    alignas(16) unsigned char on_stack[256] = {};
    char* const block = static_cast<char*>(take(4096));
    void* const direct = take(300000);
    QX::custom_free(direct);
    auto const before = statistics();
    QX::custom_free(direct);
    QX::custom_free(on_stack + 64);
    for (int const fill : {0x00, 0xCA, 0xFF}) {
        std::memset(block, fill, 4096);
        for (unsigned int at : {16u, 23u, 64u, 1001u, 2048u}) QX::custom_free(block + at);
        EXPECT_EQ(QX::HeapPlatform(QX::HEAP_SECOND, 0, 0).realloc(block + 64, 100).first, nullptr);
    }
    QX::custom_free(block + 1);
    EXPECT_EQ(statistics().blocks_in_use, before.blocks_in_use);
    EXPECT_EQ(statistics().footprint, before.footprint);
    EXPECT_TRUE(validate());
    QX::custom_free(block);
}

// Its own head stays as it was when it joined the free chunk in front.
TEST(Arena, ignores_a_second_release_of_a_chunk_that_was_joined_to_another) {
    for (unsigned long long const size : {64ull, 1000ull}) {
        Blocks blocks;
        unsigned int const first = blocks.add_run(size, 4);
        void* const joined = blocks[first + 1];
        blocks.drop(first);
        blocks.drop(first + 1);
        QX::custom_free(joined);
        EXPECT_TRUE(validate()) << size;
        void* const a = blocks.add(size);
        void* const b = blocks.add(size);
        EXPECT_NE(a, b);
        EXPECT_TRUE(validate()) << size;
    }
}

// A link overwritten with null by a write after release: seen by validate, survived by the rest.
TEST(Arena, shows_a_corrupt_link) {
    Blocks blocks;
    unsigned int const first = blocks.add_run(200, 5);
    void** const links = static_cast<void**>(blocks[first + 1]);
    blocks.drop(first + 1);
    blocks.drop(first + 3);
    void* const saved = std::exchange(links[1], nullptr);
    EXPECT_FALSE(validate());
    EXPECT_TRUE(QX::verify_heaps(QX::VERIFY_HEAP_FULL));
    links[1] = saved;
    EXPECT_TRUE(validate());
}

TEST(Arena, leaves_corrupt_links_as_they_are) {
    using namespace QX::arena;
    alignas(16) Chunk chunks[3] = {};
    State s;
    s.least_address = reinterpret_cast<std::uintptr_t>(chunks);
    s.small_map = 0;
    s.small_bins[4] = {&s.small_bins[4], &s.small_bins[4]};
    for (Chunk& chunk : chunks) insert_small_chunk(s, &chunk, 32);
    chunks[1].link.previous = reinterpret_cast<Link*>(8);
    unlink_small_chunk(s, &chunks[1], 32);
    EXPECT_EQ(s.small_bins[4].next, &chunks[2].link);
    EXPECT_EQ(chunks[2].link.next, &chunks[1].link);
    EXPECT_EQ(chunks[0].link.previous, &chunks[1].link);
    EXPECT_EQ(take_first_small(s, 4), &chunks[2]);
    EXPECT_EQ(s.small_bins[4].next, &chunks[2].link);
}

TEST(Arena, keeps_every_block_whole_through_random_steps) {
    test::ArenaModel model(1);
    for (int round = 0; round < 40; ++round) {
        for (int i = 0; i < 2500; ++i) ASSERT_TRUE(model.step());
        ASSERT_TRUE(validate());
    }
}

TEST(Arena, serves_threads_side_by_side) {
    bool intact[3] = {};
    std::vector<std::thread> threads;
    for (unsigned int n = 0; n < 3; ++n) {
        threads.emplace_back([n, &intact] {
            test::ArenaModel model(100 + n);
            bool fine = true;
            for (int i = 0; i < 40000; ++i) fine = fine && model.step();
            intact[n] = fine;
        });
    }
    for (int i = 0; i < 20; ++i) EXPECT_TRUE(validate());
    for (std::thread& thread : threads) thread.join();
    for (bool fine : intact) EXPECT_TRUE(fine);
    EXPECT_TRUE(validate());
}
