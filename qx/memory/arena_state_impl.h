// arena_state_impl.h - the arena's one state, its segments, bins and settings.
//
// Segments are ranges obtained from the system, in a list whose first record stands in the state
// itself; each other record lies in the last bytes of its own segment:
//
//   base                                                           base + size
//   | chunk | chunk | ... | record of this segment (48) | fences (32) |      not the first
//   | chunk | chunk | ... | top                         | foot room (80) |   the first
//
//   the top lies in the first segment:   top + top_size + foot_room == first.base + first.size
//   head(top + top_size) == foot_room, with no flags
//
// Bins
//   small bin i, 4 <= i <= 30, i even   chunks of exactly 8 * i bytes
//   tree bin i, 0 <= i <= 30            256 << i/2, and half of that more if i is odd, up to where
//                                       the next bin begins; bin 31 takes all from 0xC00000 on
//
//   bit i of a map is set  <=>  bin i is not empty
//   every free chunk is in exactly one bin, or the victim, or the top
//   victim == null  <=>  victim_size == 0
//   footprint == sum of the segments' sizes + direct_bytes
#pragma once

#include <bit>

#include "qx/memory/arena_chunk_impl.h"
#include "qx/memory/arena_lock_impl.h"

namespace QX::arena {

constexpr unsigned int bin_count = 32;
constexpr unsigned int small_bin_shift = 3;
constexpr unsigned int tree_bin_shift = 8;
constexpr Size smallest_tree_chunk = 1u << tree_bin_shift;

struct Segment {
    char* base;
    Size size;
    Segment* next;
    Size reserved;  // keeps the record's chunk at 48 bytes
};

// Room kept behind the top for the record and the fences that it will need as an older segment.
constexpr Size foot_room = padded(sizeof(Segment)) + smallest_chunk;
static_assert(foot_room == 80);

enum ArenaFlags : unsigned int {
    flag_direct_mapping = 1,
    flag_locking = 2,
    flag_non_contiguous = 4,
};

// Set once, on first use, under a lock of its own. `magic` is written last: not 0 says "ready".
// Its value, the page size and the flags but that for direct mappings decide nothing: the arena
// always locks and takes its segments to be apart. They are kept because the settings are fixed as
// a whole.
struct Parameters {
    std::atomic<Size> magic;
    Size page_size;
    Size granularity;
    Size direct_threshold;
    Size trim_threshold;
    unsigned int flags;
    SpinLock lock;
};

struct State {
    SpinLock lock;
    unsigned int small_map;
    unsigned int tree_map;
    Size victim_size;
    Size top_size;
    std::uintptr_t least_address = UINTPTR_MAX;  // of all mappings ever made; none yet
    Chunk* victim;
    Chunk* top;  // null until the first segment is there
    Size trim_check;
    Size release_checks;  // large chunks to be freed before the next look for empty segments
    Size footprint;
    Size peak_footprint;
    Size direct_count;
    Size direct_bytes;
    Segment first;
    Link small_bins[bin_count];
    TreeChunk* tree_bins[bin_count];
};

extern State state;
extern Parameters parameters;

// A pointer below every segment and mapping is none of ours.
inline bool is_plausible(State const& s, void const* place) {
    return reinterpret_cast<std::uintptr_t>(place) >= s.least_address;
}

inline bool is_small(Size size) {
    return size < smallest_tree_chunk;
}

inline unsigned int small_bin_of(Size size) {
    return static_cast<unsigned int>(size >> small_bin_shift);
}

inline Size small_bin_size(unsigned int bin) {
    return static_cast<Size>(bin) << small_bin_shift;
}

// Two bins a power of two: 256 => 0, 384 => 1, 512 => 2, 0xC00000 => 31.
inline unsigned int tree_bin_of(Size size) {
    Size const units = size >> tree_bin_shift;
    if (units > 0xFFFF) return bin_count - 1;
    unsigned int const power = static_cast<unsigned int>(std::bit_width(units)) - 1;
    return 2 * power + ((size >> (power + tree_bin_shift - 1)) & 1);
}

// Moves the highest size bit that a bin's chunks may differ in to the top of the word.
inline Size branch_bits(Size size, unsigned int bin) {
    return bin == bin_count - 1 ? size : size << (65 - tree_bin_shift - bin / 2);
}

inline unsigned int top_bit(Size bits) {
    return static_cast<unsigned int>(bits >> 63);
}

}  // namespace QX::arena
