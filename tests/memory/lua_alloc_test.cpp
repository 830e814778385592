#include <gtest/gtest.h>

#include "qx/memory/heap.h"
#include "qx/memory/lua_alloc.h"
#include "tests/harness/stand_in.h"
#include "tests/memory/block_model.h"
#include "tests/memory/free_list_damage.h"

#if defined(QX_TEST_LUA)
#include <lua.hpp>
#endif

namespace {

void* lua(void* block, unsigned long long old_size, unsigned long long size) {
    return QX::lua_alloc(nullptr, block, old_size, size);
}

}  // namespace

TEST(LuaAlloc, hands_out_blocks_a_stride_apart_and_the_latest_freed_first) {
    unsigned int const rows[][2] = {{1, 24},  {16, 24}, {17, 32}, {24, 32},
                                    {25, 40}, {32, 40}, {33, 88}, {80, 88}};
    for (auto const& [size, stride] : rows) {
        char* const a = static_cast<char*>(lua(nullptr, 5, size));
        char* const b = static_cast<char*>(lua(nullptr, 0, size));
        EXPECT_EQ(b - a, stride);
        EXPECT_TRUE(!lua(b, size, 0) && !lua(a, size, 0));
        EXPECT_EQ(lua(nullptr, 0, size), a);
        lua(a, size, 0);
        test::expect_damage_noticed(a, stride, QX::validate_lua_pools);
    }
    EXPECT_EQ(lua(nullptr, 20, 0), nullptr);
    void* const block = lua(nullptr, 0, 10);
    EXPECT_EQ(lua(block, 0, 16), block);  // an old size of 0 counts as the smallest class
    lua(block, 0, 0);
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
    static unsigned int hooked = 0;
    QX::allocation_hook = [](void const*, unsigned int) { ++hooked; };
    void* block = nullptr;
    constexpr unsigned int steps[][3] = {{0, 500, 1}, {500, 90000, 1}, {90000, 81, 1},
                                         {81, 40, 1}, {40, 81, 2},     {81, 0, 3}};
    for (auto const& [old_size, size, seen] : steps) {
        block = lua(block, old_size, size);
        EXPECT_EQ(hooked, seen) << old_size;
    }
    QX::allocation_hook = nullptr;
}

TEST(LuaAlloc, answers_null_where_no_slab_is_to_be_had) {
    test::StandIn const run_time(
        "malloc", +[](std::size_t) -> void* { return nullptr; });
    for (unsigned int size : {10u, 20u, 30u, 50u}) EXPECT_EQ(lua(nullptr, 0, size), nullptr);
    void* const block = lua(nullptr, 0, 100);
    EXPECT_EQ(lua(block, 100, 50), nullptr);
    lua(block, 100, 0);
}

TEST(LuaAlloc, keeps_contents_through_random_resizing) {
    test::BlockModel<lua, 8> model(3);
    for (int i = 0; i < 200000; ++i) ASSERT_TRUE(model.step());
}

#if defined(QX_TEST_LUA)
TEST(LuaAlloc, serves_a_real_Lua) {
    // Objects, closures and texts of many sizes, most of them soon dead.
    char const script[] = R"(
        local kept, sum = {}, 0
        for i = 1, 30000 do
            local point = {text = string.rep("ab", i % 90), call = function() return i end}
            for j = 1, i % 40 do point[j] = {j} end
            kept[i % 700] = point
        end
        for _, point in pairs(kept) do sum = sum + point.call() + #point.text + #point end
        return sum)";
    lua_State* const state = lua_newstate(QX::lua_alloc, nullptr);
    luaL_openlibs(state);
    EXPECT_EQ(luaL_dostring(state, script), 0);
    EXPECT_STREQ(lua_tostring(state, -1), "20831640");  // the last 700 points, reckoned by hand
    lua_close(state);
}
#endif
