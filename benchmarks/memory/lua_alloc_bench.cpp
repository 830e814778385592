// lua_alloc_bench.cpp - lua_alloc against the allocator that Lua comes with and the arena's own
// realloc: at first by hand, then, where the rivals are there, under a Lua state that makes tables,
// closures and texts and collects them.
#include <cstdlib>

#include "benchmarks/bench.h"
#include "qx/memory/heap.h"
#include "qx/memory/lua_alloc.h"

#if defined(QX_RIVAL_LUA)
extern "C" {
#include <lua/lauxlib.h>
#include <lua/lua.h>
#include <lua/lualib.h>
}
#endif

namespace {

using Allocator =
    void* (*)(void* ud, void* ptr, unsigned long long osize, unsigned long long nsize);

struct Rival {
    char const* name;
    Allocator allocate;
};

void* from_run_time(void*, void* ptr, unsigned long long, unsigned long long nsize) {
    if (nsize) return std::realloc(ptr, nsize);
    std::free(ptr);
    return nullptr;
}

void* from_arena(void*, void* ptr, unsigned long long, unsigned long long nsize) {
    static QX::HeapPlatform heap(QX::HEAP_SECOND, nullptr);
    if (nsize) return heap.realloc(ptr, nsize).first;
    heap.free(ptr);
    return nullptr;
}

Rival const rivals[] = {
    {"lua_alloc", QX::lua_alloc},
    {"C run-time", from_run_time},
    {"arena", from_arena},
};

template <typename Work>
void row(bench::Table const& table, char const* name, double operations, Work work) {
    std::vector<bench::Contender> contenders;
    for (Rival const& rival : rivals) {
        contenders.push_back({rival.name, [&rival, work] { work(rival.allocate); }});
    }
    table.row(name, operations, contenders);
}

// 5,000 blocks of 16 to 80 bytes, given back in another order.
void batch(Allocator allocate) {
    constexpr unsigned int count = 5000;
    static void* blocks[count];
    auto const size = [](unsigned int i) { return 16 + i * 37 % 65; };
    for (unsigned int i = 0; i < count; ++i) blocks[i] = allocate(nullptr, nullptr, 0, size(i));
    for (unsigned int i = 0; i < count; ++i) {
        unsigned int const index = i * 1237 % count;
        allocate(nullptr, blocks[index], size(index), 0);
    }
}

#if defined(QX_RIVAL_LUA)
char const script[] = R"(
    local kept = {}
    for i = 1, 40000 do
        local point = {x = i, y = i + 1, name = "point " .. i}
        point.move = function(d) point.x = point.x + d end
        kept[i % 500] = point
        point.move(i)
    end
    collectgarbage()
    return kept[1].x
)";

void run_script(Allocator allocate) {
    lua_State* const state = lua_newstate(allocate, nullptr);
    luaL_openlibs(state);
    if (luaL_dostring(state, script)) std::abort();
    if (lua_tointeger(state, -1) != 79002) std::abort();
    lua_close(state);
}
#endif

}  // namespace

int main() {
    bench::Table const table("lua_alloc");
    row(table, "batch of 5,000", 5000, [](Allocator allocate) { batch(allocate); });
#if defined(QX_RIVAL_LUA)
    row(table, "script of 40,000 objects", 40000, run_script);
#endif
    return 0;
}
