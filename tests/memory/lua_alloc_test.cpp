#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "qx/memory/arena.h"
#include "qx/memory/heap.h"
#include "qx/memory/lua_alloc.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

namespace {

unsigned int hooked;

void count(void const*, unsigned int) {
    ++hooked;
}

void* lua(void* block, unsigned long long old_size, unsigned long long size) {
    return QX::lua_alloc(nullptr, block, old_size, size);
}

void* no_memory(std::size_t) {
    return nullptr;
}

}  // namespace

TEST(LuaAlloc, hands_out_blocks_a_stride_apart_and_the_latest_freed_first) {
    struct Row {
        unsigned int size, stride;
    };
    Row const rows[] = {{1, 24},  {16, 24}, {17, 32}, {24, 32},
                        {25, 40}, {32, 40}, {33, 88}, {80, 88}};
    for (Row const& row : rows) {
        char* const a = static_cast<char*>(lua(nullptr, 5, row.size));
        char* const b = static_cast<char*>(lua(nullptr, 0, row.size));
        EXPECT_EQ(b - a, row.stride);
        EXPECT_EQ(lua(b, row.size, 0), nullptr);
        EXPECT_EQ(lua(a, row.size, 0), nullptr);
        EXPECT_EQ(lua(nullptr, 0, row.size), a);
        lua(a, row.size, 0);
    }
    EXPECT_EQ(lua(nullptr, 20, 0), nullptr);
}

TEST(LuaAlloc, resizes_by_the_classes_of_both_sizes) {
    char* const block = static_cast<char*>(lua(nullptr, 0, 20));
    std::memcpy(block, "0123456789012345678", 20);
    EXPECT_EQ(lua(block, 20, 24), block);
    EXPECT_EQ(lua(block, 24, 17), block);
    char* const shrunk = static_cast<char*>(lua(block, 20, 16));
    EXPECT_NE(shrunk, block);
    EXPECT_EQ(std::memcmp(shrunk, "0123456789012345", 16), 0);
    char* const large = static_cast<char*>(lua(shrunk, 16, 100));
    EXPECT_EQ(lua(nullptr, 0, 16), shrunk);
    char* const larger = static_cast<char*>(lua(large, 100, 200));
    char* const back = static_cast<char*>(lua(larger, 200, 79));
    EXPECT_EQ(std::memcmp(back, "0123456789012345", 16), 0);
    lua(back, 79, 0);
    lua(shrunk, 16, 0);
}

TEST(LuaAlloc, takes_a_block_of_size_0_as_class_1) {
    void* const block = lua(nullptr, 0, 10);
    EXPECT_EQ(lua(block, 0, 16), block);
    lua(block, 0, 0);
    EXPECT_EQ(lua(nullptr, 0, 3), block);
    lua(block, 3, 0);
}

TEST(LuaAlloc, shows_the_hook_a_large_block_made_and_freed_but_not_resized) {
    hooked = 0;
    QX::allocation_hook = count;
    void* block = lua(nullptr, 0, 500);
    EXPECT_EQ(hooked, 1u);
    block = lua(block, 500, 90000);
    block = lua(block, 90000, 81);
    EXPECT_EQ(hooked, 1u);
    block = lua(block, 81, 40);
    EXPECT_EQ(hooked, 1u);
    block = lua(block, 40, 81);
    EXPECT_EQ(hooked, 2u);
    lua(block, 81, 0);
    QX::allocation_hook = nullptr;
    EXPECT_EQ(hooked, 3u);
}

TEST(LuaAlloc, answers_null_where_no_slab_is_to_be_had) {
    test::StandIn const run_time("malloc", no_memory);
    ASSERT_TRUE(run_time.found());
    for (unsigned int size : {10u, 20u, 30u, 50u}) EXPECT_EQ(lua(nullptr, 0, size), nullptr);
    void* const block = lua(nullptr, 0, 100);
    EXPECT_EQ(lua(block, 100, 50), nullptr);
    lua(block, 100, 0);
}

TEST(LuaAlloc, keeps_contents_through_random_resizing) {
    struct Block {
        unsigned char* bytes;
        unsigned int size;
    };
    test::Random random;
    std::vector<Block> blocks(4000, Block{nullptr, 0});
    for (int step = 0; step < 200000; ++step) {
        unsigned int const index = random.below(4000);
        Block& block = blocks[index];
        unsigned int const size = random.chance(3) ? 0 : random.below(random.chance(9) ? 600 : 100);
        for (unsigned int i = 0; i < block.size; i += 7) ASSERT_EQ(block.bytes[i], index % 256);
        block.bytes = static_cast<unsigned char*>(lua(block.bytes, block.size, size));
        ASSERT_EQ(block.bytes == nullptr, size == 0);
        unsigned int const kept = std::min(size, block.size);
        for (unsigned int i = 0; i < kept; i += 7) ASSERT_EQ(block.bytes[i], index % 256);
        if (size) std::memset(block.bytes, static_cast<int>(index % 256), size);
        block.size = size;
    }
    for (Block const& block : blocks) lua(block.bytes, block.size, 0);
}

TEST(GcFinaliserCallback, is_invoked_where_there_is_one) {
    static unsigned int calls;
    QX::invoke_gc_finaliser_callback();
    QX::set_gc_finaliser_callback([] { ++calls; });
    QX::invoke_gc_finaliser_callback();
    QX::set_gc_finaliser_callback(nullptr);
    QX::invoke_gc_finaliser_callback();
    EXPECT_EQ(calls, 1u);
}
