#include "qx/memory/lua_alloc.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "qx/base/compiler.h"
#include "qx/memory/arena_impl.h"
#include "qx/memory/free_list_impl.h"
#include "qx/memory/heap.h"

namespace QX {

namespace {

using Bytes = unsigned long long;

constexpr Bytes pooled_limit = 80;
constexpr Bytes class_step = 8;  // all limits are multiples of it
constexpr Bytes word = 4;        // copies are made in whole words

// blocks of a slab   slab, slab + stride ... slab + (count - 1) stride; the word behind them names
//                    the slab before
// of all blocks      each is either handed out or once in the list that begins at `free`
struct LuaPool {
    void* free = nullptr;
    char* slabs = nullptr;  // the newest
    Bytes stride;
    Bytes count;  // blocks a slab
};

constinit LuaPool lua_pools[] = {
    {.stride = 24, .count = 12800},
    {.stride = 32, .count = 8533},
    {.stride = 40, .count = 6400},
    {.stride = 88, .count = 2560},
};

// The pool's index by (size + 7) / 8.
constexpr unsigned char pool_of_step[] = {0, 0, 0, 1, 2, 3, 3, 3, 3, 3, 3};

void (*gc_finaliser_callback)() = nullptr;

bool is_pooled(Bytes size) {
    return size <= pooled_limit;
}

unsigned int pool_index(Bytes size) {
    return pool_of_step[(size + class_step - 1) / class_step];
}

char*& slab_before(LuaPool const& pool, char* slab) {
    return *reinterpret_cast<char**>(slab + pool.stride * pool.count);
}

bool owns(LuaPool const& pool, void const* place) {
    for (char* slab = pool.slabs; slab; slab = slab_before(pool, slab)) {
        if (begins_block(place, slab, pool.stride, pool.count)) return true;
    }
    return false;
}

bool is_sound(LuaPool const& pool) {
    Bytes blocks = 0;
    for (char* slab = pool.slabs; slab; slab = slab_before(pool, slab)) blocks += pool.count;
    return free_list_is_sound(
        pool.free, pool.stride, blocks, [&](void const* block) { return owns(pool, block); });
}

// Links the blocks in ascending order.
void link_blocks(char* slab, Bytes stride, Bytes count) {
    char* const last = slab + (count - 1) * stride;
    for (char* block = slab; block != last; block += stride)
        link_free(block, stride, block + stride);
    link_free(last, stride, nullptr);
}

bool add_slab(LuaPool& pool) {
    Bytes const size = pool.stride * pool.count;
    char* const slab = static_cast<char*>(std::malloc(size + sizeof(void*)));
    if (!slab) return false;
    slab_before(pool, slab) = pool.slabs;
    link_blocks(slab, pool.stride, pool.count);
    pool.free = pool.slabs = slab;
    return true;
}

void* pop(LuaPool& pool) {
    if (!pool.free && !add_slab(pool)) return nullptr;
    void* const block = pool.free;
    QX_CHECK(is_untouched(block, pool.stride));
    pool.free = next_free(block);
    return block;
}

void push(Bytes size, void* block) {
    LuaPool& pool = lua_pools[pool_index(size)];
    QX_CHECK(owns(pool, block));
    link_free(block, pool.stride, pool.free);
    pool.free = block;
}

void* allocate(Bytes size) {
    if (!is_pooled(size)) return custom_malloc(size, HEAP_GENERAL);
    return pop(lua_pools[pool_index(size)]);
}

void release(void* block, Bytes size) {
    if (!block) return;
    if (is_pooled(size))
        push(size, block);
    else
        custom_free(block);
}

void copy_words(void* to, void const* from, Bytes size) {
    std::memcpy(to, from, (size + word - 1) & ~(word - 1));
}

void* move_from_pool(void* block, Bytes old_size, Bytes size) {
    void* const moved = allocate(size);
    if (!moved) return nullptr;
    copy_words(moved, block, old_size < size ? old_size : size);
    push(old_size, block);
    return moved;
}

// The old block goes straight to the arena: the hook does not see it leave.
void* move_into_pool(void* block, Bytes size) {
    void* const moved = allocate(size);
    if (!moved) return nullptr;
    copy_words(moved, block, size);
    arena::release(block);
    return moved;
}

void* resize(void* block, Bytes old_size, Bytes size) {
    if (is_pooled(old_size)) {
        bool const stays = is_pooled(size) && pool_index(size) == pool_index(old_size);
        return stays ? block : move_from_pool(block, old_size, size);
    }
    return is_pooled(size) ? move_into_pool(block, size) : arena::reallocate(block, size);
}

}  // namespace

void* lua_alloc(void*, void* ptr, unsigned long long osize, unsigned long long nsize) {
    if (nsize == 0) {
        release(ptr, osize);
        return nullptr;
    }
    return ptr ? resize(ptr, osize, nsize) : allocate(nsize);
}

bool validate_lua_pools() {
    return std::all_of(std::begin(lua_pools), std::end(lua_pools), is_sound);
}

void set_gc_finaliser_callback(void (*callback)()) {
    gc_finaliser_callback = callback;
}

void invoke_gc_finaliser_callback() {
    if (gc_finaliser_callback) gc_finaliser_callback();
}

}  // namespace QX
