// lua_alloc.h - the allocator function of an embedded Lua state.
//
// Blocks of up to 80 bytes come from four pools without heads and without a lock; larger ones from
// the arena. The class of a size is the first whose limit it does not exceed:
//
//     class   sizes      stride   blocks a slab
//     1        0 .. 16    24      12800
//     2       17 .. 24    32       8533
//     3       25 .. 32    40       6400
//     4       33 .. 80    88       2560
//
// Slabs come from the C run-time's malloc and are never given back.
//
// Threads: one at a time, as suits a single Lua state.
#pragma once

#include "qx/base/export.h"

namespace QX {

// As Lua's manual tells of lua_Alloc; `ud` is unused.
//
//     lua_alloc(ud, null, 0, 20)  =>  a block of class 2
//     lua_alloc(ud, p, 20, 24)    =>  p, untouched
//     lua_alloc(ud, p, 20, 16)    =>  another block: 16 is of another class
//     lua_alloc(ud, p, 100, 200)  =>  the arena's realloc
//     lua_alloc(ud, p, 20, 0)     =>  null; the block is the next one its pool hands out
//
// allocation_hook sees a block above 80 bytes made and released, but not resized. Null where no
// slab is to be had, with the old block still valid; custom_malloc's exception where the arena is
// exhausted.
QX_API void* lua_alloc(void* ud, void* ptr, unsigned long long osize, unsigned long long nsize);

// False if a pool's list of released blocks holds anything but blocks of that pool, each once. The
// library built with QX_CHECKS fills them with 0xDD, and tells here if one was written to since.
QX_API bool validate_lua_pools();

// A callback for the host of the Lua state, stored and invoked (if there is one) on its behalf. The
// library itself never invokes it.
QX_API void set_gc_finaliser_callback(void (*callback)());
QX_API void invoke_gc_finaliser_callback();

}  // namespace QX
