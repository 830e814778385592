#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "qx/memory/heap.h"
#include "qx/memory/lua_alloc.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#if defined(QX_TEST_LUA)
extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
}
#endif

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
    void* const block = lua(nullptr, 0, 10);
    EXPECT_EQ(lua(block, 0, 16), block);  // an old size of 0 counts as the smallest class
    lua(block, 0, 0);
    EXPECT_EQ(lua(nullptr, 0, 3), block);
    lua(block, 3, 0);
}

TEST(LuaAlloc, resizes_by_the_classes_of_both_sizes) {
    char* const block = static_cast<char*>(lua(nullptr, 0, 20));
    EXPECT_EQ(lua(block, 20, 24), block);
    EXPECT_EQ(lua(block, 24, 17), block);
    char* const shrunk = static_cast<char*>(lua(block, 20, 16));
    EXPECT_NE(shrunk, block);
    EXPECT_EQ(lua(nullptr, 0, 20), block);
    lua(block, 20, 0);
    lua(shrunk, 16, 0);
}

TEST(LuaAlloc, shows_the_hook_a_large_block_made_and_freed_but_not_resized) {
    hooked = 0;
    QX::allocation_hook = count;
    void* block = lua(nullptr, 0, 500);
    EXPECT_EQ(hooked, 1u);
    block = lua(block, 500, 90000);
    block = lua(block, 90000, 81);
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
    test::Random random;
    std::vector<std::pair<unsigned char*, unsigned int>> blocks(4000);
    for (int step = 0; step < 200000; ++step) {
        unsigned int const index = random.below(4000);
        auto& [bytes, held] = blocks[index];
        unsigned int const size = random.chance(3) ? 0 : random.below(random.chance(9) ? 600 : 100);
        bytes = static_cast<unsigned char*>(lua(bytes, held, size));
        ASSERT_EQ(bytes == nullptr, size == 0);
        for (unsigned int i = 0; i < std::min(size, held); ++i) ASSERT_EQ(bytes[i], index % 256);
        if (size) std::memset(bytes, static_cast<int>(index % 256), size);
        held = size;
    }
    for (auto const& [bytes, held] : blocks) lua(bytes, held, 0);
}

#if defined(QX_TEST_LUA)

namespace {

// Objects, closures and texts of many sizes, most of them soon dead.
char const script[] = R"(
    local kept, sum = {}, 0
    for i = 1, 30000 do
        local point = {x = i, name = "point " .. i, text = string.rep("ab", i % 90)}
        point.move = function(d) point.x = point.x + d end
        if i % 3 == 0 then for j = 1, i % 40 do point[j] = {j} end end
        kept[i % 700] = point
        point.move(i)
    end
    for i = 0, 699 do
        local point = kept[i]
        sum = sum + point.x + #point.text + #point + tonumber(point.name:sub(7))
    end
    collectgarbage()
    return sum .. ":" .. #table.concat({kept[1].text, kept[2].name}, ",")
)";

std::string answer_of_script(lua_State* state) {
    luaL_openlibs(state);
    luaL_dostring(state, script);
    std::string const answer = lua_tostring(state, -1);
    lua_close(state);
    return answer;
}

}  // namespace

TEST(LuaAlloc, serves_a_real_Lua_as_its_own_allocator_does) {
    std::string const expected = answer_of_script(luaL_newstate());
    EXPECT_EQ(expected.find("point"), std::string::npos) << expected;
    for (int round = 0; round < 3; ++round)
        EXPECT_EQ(answer_of_script(lua_newstate(QX::lua_alloc, nullptr)), expected);
}

#else

TEST(LuaAlloc, serves_a_real_Lua_as_its_own_allocator_does) {
    GTEST_SKIP() << "there is no Lua: `scripts/rivals.sh lua` fetches and builds one";
}

#endif
