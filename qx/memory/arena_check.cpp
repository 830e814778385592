// arena_check.cpp - the walks over the whole arena: statistics, validation, and the heap check's.
#include "qx/memory/arena.h"

#include "qx/memory/arena_impl.h"

namespace QX::arena {

namespace {

// The chunks of a segment up to the top or the fences.
template <typename Visit>
bool each_chunk(State& s, Visit visit) {
    for (Segment const* segment = &s.first; s.top && segment; segment = segment->next) {
        Chunk* chunk = chunk_at(segment->base);
        char const* const end = segment->base + segment->size;
        while (chunk != s.top && chunk->head != fence_head) {
            if (!visit(chunk)) return false;
            chunk = behind(chunk);
            if (address(chunk) >= end) return false;
        }
    }
    return true;
}

bool is_record(State const& s, Chunk* chunk) {
    for (Segment const* segment = &s.first; segment; segment = segment->next) {
        if (segment->next == payload(chunk)) return true;
    }
    return false;
}

// Every chunk takes at least this much, so no walk of a sound arena is longer.
Size step_limit(State const& s) {
    return s.footprint / smallest_chunk + bin_count;
}

// --- Validation ----------------------------------------------------------------------------------

struct Census {
    Size free_chunks = 0;  // found by walking the segments
    Size filed = 0;        // found in bins, as victim or as top
    Size steps_left = 0;
};

bool is_sound_free(State const& s, Chunk const* chunk) {
    Chunk const* const next = behind(chunk);
    return has(chunk, previous_in_use) && next->foot == size_of(chunk) && next != s.top &&
           has(next, in_use) && !has(next, previous_in_use);
}

bool is_sound_chunk(State const& s, Chunk const* chunk) {
    Size const size = size_of(chunk);
    if (!is_plausible(s, chunk) || size < smallest_chunk || size % alignment != 0) return false;
    if (!has(chunk, in_use)) return is_sound_free(s, chunk);
    return has(behind(chunk), previous_in_use);
}

bool segments_are_sound(State& s, Census& census) {
    return each_chunk(s, [&](Chunk* chunk) {
        if (!has(chunk, in_use)) ++census.free_chunks;
        return is_sound_chunk(s, chunk);
    });
}

bool footprint_adds_up(State const& s) {
    Size total = s.direct_bytes;
    for (Segment const* segment = &s.first; segment; segment = segment->next) {
        if (segment->size % parameters.granularity != 0) return false;
        total += segment->size;
    }
    return total == s.footprint && s.footprint <= s.peak_footprint;
}

bool top_is_sound(State const& s) {
    if (!s.top) return s.top_size == 0;
    return address(s.top) + s.top_size + foot_room == s.first.base + s.first.size &&
           s.top->head == (s.top_size | previous_in_use) && s.top_size >= alignment &&
           chunk_at(s.top, s.top_size)->head == foot_room;
}

bool victim_is_sound(State const& s, Census& census) {
    if (!s.victim) return s.victim_size == 0;
    ++census.filed;
    return s.victim->head == (s.victim_size | previous_in_use) && is_sound_chunk(s, s.victim);
}

bool is_sound_link(Link const* link) {
    return link->next->previous == link && link->previous->next == link;
}

bool small_bin_is_sound(State& s, unsigned int bin, Census& census) {
    Link const* const head = &s.small_bins[bin];
    if (!(s.small_map >> bin & 1)) return true;
    if (head->next == head) return false;
    for (Link const* link = head->next; link != head; link = link->next) {
        Chunk const* const chunk = chunk_of(link);
        if (census.steps_left-- == 0 || !is_sound_link(link)) return false;
        if (chunk->head != (small_bin_size(bin) | previous_in_use)) return false;
        if (!is_sound_chunk(s, chunk)) return false;
        ++census.filed;
    }
    return is_sound_link(head);
}

bool ring_is_sound(State& s, TreeChunk const* in_tree, Census& census) {
    for (Link const* link = &in_tree->link;;) {
        TreeChunk const* const chunk = static_cast<TreeChunk const*>(chunk_of(link));
        if (census.steps_left-- == 0 || !is_sound_link(link)) return false;
        if (chunk->head != in_tree->head || chunk->bin != in_tree->bin) return false;
        if (chunk != in_tree && chunk->parent) return false;
        if (!is_sound_chunk(s, chunk)) return false;
        ++census.filed;
        link = link->next;
        if (link == &in_tree->link) return true;
    }
}

// `bits` are those of the subtree's sizes that the way to it has fixed, `level` how many.
struct Subtree {
    TreeChunk* root;
    TreeChunk* parent;
    Size bits;
    unsigned int level;
};

bool subtree_is_sound(State& s, unsigned int bin, Subtree const& tree, Census& census) {
    TreeChunk* const root = tree.root;
    if (!root) return true;
    if (tree.level > 64 || !is_plausible(s, root)) return false;
    Size const size = size_of(root);
    Size const way = tree.level ? branch_bits(size, bin) >> (64 - tree.level) : 0;
    if (root->bin != bin || tree_bin_of(size) != bin || way != tree.bits) return false;
    if (root->parent != (tree.parent ? tree.parent : root)) return false;
    if (!ring_is_sound(s, root, census)) return false;
    for (unsigned int side = 0; side < 2; ++side) {
        Subtree const child = {root->child[side], root, 2 * tree.bits + side, tree.level + 1};
        if (!subtree_is_sound(s, bin, child, census)) return false;
    }
    return true;
}

bool bins_are_sound(State& s, Census& census) {
    for (unsigned int bin = 0; bin < bin_count; ++bin) {
        if (!small_bin_is_sound(s, bin, census)) return false;
        bool const marked = s.tree_map >> bin & 1;
        if (marked != (s.tree_bins[bin] != nullptr)) return false;
        if (!subtree_is_sound(s, bin, {s.tree_bins[bin], nullptr, 0, 0}, census)) return false;
    }
    return true;
}

// --- The heap check's walk -----------------------------------------------------------------------

void touch(Chunk const* chunk) {
    static_cast<void>(*static_cast<Size const volatile*>(&chunk->head));
}

void touch_ring(Link const* head, Size& steps_left) {
    for (Link const* link = head->next; link != head && steps_left != 0; link = link->next) {
        touch(chunk_of(link));
        --steps_left;
    }
}

void touch_tree(TreeChunk const* root, unsigned int level, Size& steps_left) {
    constexpr unsigned int level_limit = 64;  // a size has no more bits
    if (!root || level == level_limit || steps_left == 0) return;
    --steps_left;
    touch(root);
    touch_ring(&root->link, steps_left);
    touch_tree(root->child[0], level + 1, steps_left);
    touch_tree(root->child[1], level + 1, steps_left);
}

}  // namespace

bool is_valid(State& s) {
    Census census;
    census.steps_left = step_limit(s);
    return footprint_adds_up(s) && top_is_sound(s) && segments_are_sound(s, census) &&
           victim_is_sound(s, census) && bins_are_sound(s, census) &&
           census.filed == census.free_chunks;
}

bool validate() {
    ensure_parameters();
    LockScope const scope(state.lock);
    return is_valid(state);
}

unsigned long long block_size(void const* block) {
    return usable_size(chunk_of(block));
}

Statistics statistics() {
    State& s = state;
    LockScope const scope(s.lock);
    Statistics result = {s.direct_count, s.direct_bytes, s.footprint, s.peak_footprint};
    each_chunk(s, [&](Chunk* chunk) {
        if (!has(chunk, in_use) || is_record(s, chunk)) return true;
        ++result.blocks_in_use;
        result.bytes_in_use += size_of(chunk);
        return true;
    });
    return result;
}

// The number of steps is bounded, so that a corrupt ring ends too.
void touch_free_chunks() {
    ensure_parameters();
    State& s = state;
    LockScope const scope(s.lock);
    Size steps_left = step_limit(s);
    for (unsigned int bin = 0; bin < bin_count; ++bin) {
        if (s.small_map >> bin & 1) touch_ring(&s.small_bins[bin], steps_left);
        if (s.tree_map >> bin & 1) touch_tree(s.tree_bins[bin], 0, steps_left);
    }
    if (s.victim) touch(s.victim);
    if (s.top) touch(s.top);
}

}  // namespace QX::arena
