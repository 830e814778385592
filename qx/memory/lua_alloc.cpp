#include "qx/memory/lua_alloc.h"

#include <cstdlib>
#include <cstring>

#include "qx/memory/arena_impl.h"
#include "qx/memory/heap.h"

namespace QX {

namespace {

using Bytes = unsigned long long;

constexpr Bytes pooled_limit = 80;
constexpr Bytes class_step = 8;  // all limits are multiples of it
constexpr Bytes word = 4;        // copies are made in whole words

struct FreeBlock {
    FreeBlock* next;
};

struct LuaPool {
    FreeBlock* free = nullptr;
    void* slabs = nullptr;  // the newest; the last word of each names the one before
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

// Links the blocks in ascending order and returns the first.
FreeBlock* link_blocks(char* slab, Bytes stride, Bytes count) {
    char* const last = slab + (count - 1) * stride;
    for (char* block = slab; block != last; block += stride) {
        reinterpret_cast<FreeBlock*>(block)->next = reinterpret_cast<FreeBlock*>(block + stride);
    }
    reinterpret_cast<FreeBlock*>(last)->next = nullptr;
    return reinterpret_cast<FreeBlock*>(slab);
}

bool add_slab(LuaPool& pool) {
    Bytes const size = pool.stride * pool.count;
    char* const slab = static_cast<char*>(std::malloc(size + sizeof(void*)));
    if (!slab) return false;
    *reinterpret_cast<void**>(slab + size) = pool.slabs;
    pool.slabs = slab;
    pool.free = link_blocks(slab, pool.stride, pool.count);
    return true;
}

void* pop(LuaPool& pool) {
    if (!pool.free && !add_slab(pool)) return nullptr;
    FreeBlock* const block = pool.free;
    pool.free = block->next;
    return block;
}

void push(Bytes size, void* block) {
    LuaPool& pool = lua_pools[pool_index(size)];
    FreeBlock* const freed = static_cast<FreeBlock*>(block);
    freed->next = pool.free;
    pool.free = freed;
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

void set_gc_finaliser_callback(void (*callback)()) {
    gc_finaliser_callback = callback;
}

void invoke_gc_finaliser_callback() {
    if (gc_finaliser_callback) gc_finaliser_callback();
}

}  // namespace QX
