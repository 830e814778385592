// free_list_impl.h - the list that pools without heads keep in their released blocks.
//
// A released block
//   +0   the next one, or null
//   +8   with QX_CHECKS 0xDD up to its end, otherwise what it held
//
// Invariants, which `free_list_is_sound` walks
//   a block of the list is a block of the pool
//   the list is no longer than the pool has blocks: it ends, and holds none twice
//   with QX_CHECKS nothing was written to a block since its release
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace QX {

#if defined(QX_CHECKS)
inline constexpr bool fills_released = true;
#else
inline constexpr bool fills_released = false;
#endif
inline constexpr unsigned char released_fill = 0xDD;

// Blocks of 20, 28 or 36 bytes are aligned to 4 only, so links are copied in and out.
inline void* next_free(void const* block) {
    void* next;
    std::memcpy(&next, block, sizeof next);
    return next;
}

// Puts a block of `size` bytes before `next`.
inline void link_free(void* block, std::size_t size, void* next) {
    std::memcpy(block, &next, sizeof next);
    if constexpr (fills_released)
        std::memset(static_cast<char*>(block) + sizeof next, released_fill, size - sizeof next);
}

// Whether a released block of `size` bytes still holds what `link_free` put there.
inline bool is_untouched(void const* block, std::size_t size) {
    if (!fills_released) return true;
    auto const bytes = static_cast<unsigned char const*>(block);
    return std::all_of(bytes + sizeof(void*), bytes + size, [](unsigned char byte) {
        return byte == released_fill;
    });
}

// `count` is that of all blocks, `owns` tells whether a block of the pool begins at a place. No
// link that leads elsewhere is followed.
template <typename Owns>
bool free_list_is_sound(void const* first, std::size_t size, std::size_t count, Owns owns) {
    for (void const* block = first; block; block = next_free(block)) {
        if (count-- == 0 || !owns(block) || !is_untouched(block, size)) return false;
    }
    return true;
}

// Whether `place` begins one of `count` blocks of `size` bytes that lie one behind the other.
inline bool
begins_block(void const* place, void const* first, std::size_t size, std::size_t count) {
    std::size_t const offset =
        reinterpret_cast<std::size_t>(place) - reinterpret_cast<std::size_t>(first);
    return offset < size * count && offset % size == 0;
}

}  // namespace QX
