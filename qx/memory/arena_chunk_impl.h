// arena_chunk_impl.h - chunks: the runs of bytes that the arena's segments are divided into.
//
// Glossary
//   block     what a caller holds: the payload of a chunk in use
//   chunk     a run of bytes with a head word; chunks lie one behind the other without gaps
//   need      a request padded to a chunk size
//   foot      the size of a free chunk, repeated in the first word behind it
//   bin       the free chunks of one size (small) or one range of sizes (tree)
//   victim    the designated victim, the rest of the latest split, held in no bin
//   top       the free chunk at the end of the newest segment, held in no bin
//   fence     a head that ends a segment, in use and of size 8
//   direct    a chunk that has a mapping of its own
//
// In use                                  Free
//   +0   foot of the previous, if free      +0   foot of the previous (never: it is in use)
//   +8   size | flags                       +8   size | flags
//   +16  payload, size - 8 bytes            +16  links to the neighbours in the bin
//        ...                                     ...
//        last word: lent by the chunk behind     behind the end: foot = size
//
// so a chunk in use costs 8 bytes: its payload runs into the first word of the chunk behind.
//
// Invariants, with b the chunk behind a, b = a + size(a)
//   size(a) % 16 == 0   and   size(a) >= 32
//   has(b, previous_in_use) == has(a, in_use)
//   a free  =>  b.foot == size(a)   and   b is in use   (neighbours that are free are joined)
//   a direct  <=>  neither flag is set; a.foot is then the distance from the mapping's start
#pragma once

#include <cstddef>
#include <cstdint>

#include "qx/base/compiler.h"

namespace QX::arena {

using Size = std::size_t;

// Links lie in the payload, and bins link payloads: a bin is then a plain ring with a bare head.
struct Link {
    Link* next;
    Link* previous;
};

struct Chunk {
    Size foot;  // of the chunk in front, valid while that is free
    Size head;
    Link link;  // from here on payload, unless the chunk is free
};

// A free chunk in a tree bin. Those of one size form a ring of which one is in the tree.
struct TreeChunk : Chunk {
    TreeChunk* child[2];
    TreeChunk* parent;  // null on a ring beside the tree's own chunk; the root's is the root
    unsigned int bin;
};

constexpr Size alignment = 16;
constexpr Size chunk_overhead = 8;
constexpr Size direct_overhead = 16;
constexpr Size payload_offset = 16;
constexpr Size smallest_chunk = 32;
constexpr Size smallest_padded = 23;  // requests below it take the smallest chunk
constexpr Size largest_small_request = 232;
constexpr Size request_limit = static_cast<Size>(0) - 128;  // requests from here on fail

static_assert(sizeof(Chunk) == smallest_chunk);
static_assert(offsetof(Chunk, link) == payload_offset);

constexpr Size previous_in_use = 1;
constexpr Size in_use = 2;
constexpr Size both_in_use = previous_in_use | in_use;
constexpr Size flag_bits = 7;
constexpr Size fence_head = both_in_use | 8;

constexpr Size round_up(Size size, Size step) {
    return (size + step - 1) & ~(step - 1);
}

// 0 .. 22 => 32,  24 => 32,  25 => 48,  232 => 240
constexpr Size padded(Size request) {
    return request < smallest_padded ? smallest_chunk : (request + 23) & ~(alignment - 1);
}

inline char* address(void const* place) {
    return static_cast<char*>(const_cast<void*>(place));
}

inline Chunk* chunk_at(void const* place, Size offset = 0) {
    return reinterpret_cast<Chunk*>(address(place) + offset);
}

inline Chunk* chunk_before(Chunk const* chunk, Size size) {
    return reinterpret_cast<Chunk*>(address(chunk) - size);
}

inline Chunk* chunk_of(void const* block) {
    return reinterpret_cast<Chunk*>(address(block) - payload_offset);
}

inline void* payload(Chunk* chunk) {
    return &chunk->link;
}

inline Size size_of(Chunk const* chunk) {
    return chunk->head & ~flag_bits;
}

inline bool has(Chunk const* chunk, Size flags) {
    return (chunk->head & flags) == flags;
}

inline bool is_direct(Chunk const* chunk) {
    return (chunk->head & both_in_use) == 0;
}

// True of direct chunks too.
inline bool is_in_use(Chunk const* chunk) {
    return (chunk->head & both_in_use) != previous_in_use;
}

inline bool is_stray(Chunk const* chunk) {
    return reinterpret_cast<std::uintptr_t>(chunk) % alignment != 0;
}

// Mappings begin at multiples of this. A direct chunk begins with its mapping and is gone with it,
// so that only at such a place a chunk of the past may lie in no memory at all.
constexpr Size mapping_step = 65536;

inline bool may_be_unmapped(Chunk const* chunk) {
    return reinterpret_cast<std::uintptr_t>(chunk) % mapping_step == 0;
}

inline Chunk* behind(Chunk const* chunk) {
    return chunk_at(chunk, size_of(chunk));
}

inline Size usable_size(Chunk const* chunk) {
    return size_of(chunk) - (is_direct(chunk) ? direct_overhead : chunk_overhead);
}

// --- Writing heads -------------------------------------------------------------------------------

// The chunk in front is in use, and the chunk behind already knows or is told by the caller.
inline void mark_in_use_alone(Chunk* chunk, Size size) {
    chunk->head = size | both_in_use;
}

// The chunk in front is in use; tells the chunk behind.
inline void mark_in_use(Chunk* chunk, Size size) {
    chunk->head = size | both_in_use;
    chunk_at(chunk, size)->head |= previous_in_use;
}

// Leaves the flag about the chunk in front as it is; tells the chunk behind.
inline void resize_in_use(Chunk* chunk, Size size) {
    chunk->head = (chunk->head & previous_in_use) | size | in_use;
    chunk_at(chunk, size)->head |= previous_in_use;
}

// The chunk behind already knows that this one is free.
inline void mark_free_alone(Chunk* chunk, Size size) {
    chunk->head = size | previous_in_use;
    chunk_at(chunk, size)->foot = size;
}

inline void mark_free(Chunk* chunk, Size size, Chunk* next) {
    next->head &= ~previous_in_use;
    mark_free_alone(chunk, size);
}

}  // namespace QX::arena
