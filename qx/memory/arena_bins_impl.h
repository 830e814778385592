// arena_bins_impl.h - the free chunks: filing them, taking them out, finding the best fit.
//
// A link that does not check out is left as it is and the operation does nothing: the allocator
// must never be the thing that ends the process.
#pragma once

#include "qx/memory/arena_state_impl.h"

namespace QX::arena {

void insert_tree_chunk(State& s, TreeChunk* chunk, Size size);
void unlink_tree_chunk(State& s, TreeChunk* chunk);

// Takes the best fitting chunk out of the trees and splits it. Null if the trees have none or the
// victim fits better. `tree_map` is not 0 for the second; its rest becomes the victim.
void* allocate_from_trees(State& s, Size need);
void* allocate_small_from_trees(State& s, Size need);

inline bool is_sound(State const& s, Link const* link, Link const* head) {
    return is_plausible(s, link) || link == head;
}

inline void insert_small_chunk(State& s, Chunk* chunk, Size size) {
    unsigned int const bin = small_bin_of(size);
    Link* const head = &s.small_bins[bin];
    Link* first = head;
    if (!(s.small_map >> bin & 1))
        s.small_map |= 1u << bin;
    else if (QX_LIKELY(is_plausible(s, head->next)))
        first = head->next;
    head->next = &chunk->link;
    first->previous = &chunk->link;
    chunk->link = {first, head};
}

inline void unlink_small_chunk(State& s, Chunk* chunk, Size size) {
    unsigned int const bin = small_bin_of(size);
    Link* const head = &s.small_bins[bin];
    Link* const next = chunk->link.next;
    Link* const previous = chunk->link.previous;
    if (next == previous) {
        s.small_map &= ~(1u << bin);
    } else if (QX_LIKELY(
                   is_sound(s, next, head) && next->previous == &chunk->link &&
                   is_sound(s, previous, head) && previous->next == &chunk->link)) {
        next->previous = previous;
        previous->next = next;
    }
}

// Takes the first chunk out of a small bin that is not empty.
inline Chunk* take_first_small(State& s, unsigned int bin) {
    Link* const head = &s.small_bins[bin];
    Link* const link = head->next;
    Link* const next = link->next;
    if (next == head) {
        s.small_map &= ~(1u << bin);
    } else if (QX_LIKELY(is_plausible(s, next) && next->previous == link)) {
        next->previous = head;
        head->next = next;
    }
    return chunk_of(link);
}

inline void insert_chunk(State& s, Chunk* chunk, Size size) {
    if (is_small(size))
        insert_small_chunk(s, chunk, size);
    else
        insert_tree_chunk(s, static_cast<TreeChunk*>(chunk), size);
}

inline void unlink_chunk(State& s, Chunk* chunk, Size size) {
    if (is_small(size))
        unlink_small_chunk(s, chunk, size);
    else
        unlink_tree_chunk(s, static_cast<TreeChunk*>(chunk));
}

inline void set_victim(State& s, Chunk* chunk, Size size) {
    s.victim = chunk;
    s.victim_size = size;
}

// Makes the rest of a split the victim; the old victim, always small then, goes to its bin.
inline void replace_victim(State& s, Chunk* chunk, Size size) {
    Size const old_size = s.victim_size;
    if (old_size != 0) insert_small_chunk(s, s.victim, old_size);
    set_victim(s, chunk, size);
}

}  // namespace QX::arena
