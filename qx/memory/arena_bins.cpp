// arena_bins.cpp - the tree bins: bitwise tries of free chunks by size.
//
// A chunk's place below the root follows the bits of its size from the highest that may differ
// within the bin; every chunk of a subtree shares the bits on the way to it. One chunk of each size
// is in the tree and the others hang on its ring.
#include "qx/memory/arena_bins_impl.h"

namespace QX::arena {

namespace {

TreeChunk* tree_chunk_of(Link* link) {
    return static_cast<TreeChunk*>(chunk_of(link));
}

void join_ring(State& s, TreeChunk* chunk, TreeChunk* in_tree) {
    Link* const next = in_tree->link.next;
    if (!is_plausible(s, next)) return;
    in_tree->link.next = &chunk->link;
    next->previous = &chunk->link;
    chunk->link = {next, &in_tree->link};
    chunk->parent = nullptr;
}

void make_leaf(TreeChunk* chunk, TreeChunk* parent) {
    chunk->link = {&chunk->link, &chunk->link};
    chunk->parent = parent;
}

void descend_and_insert(State& s, TreeChunk* chunk, Size size, TreeChunk* root) {
    Size bits = branch_bits(size, chunk->bin);
    for (TreeChunk* place = root; size_of(place) != size; bits <<= 1) {
        TreeChunk*& child = place->child[top_bit(bits)];
        if (!child) {
            child = chunk;
            return make_leaf(chunk, place);
        }
        if (!is_plausible(s, child)) return;
        place = child;
        root = child;
    }
    join_ring(s, chunk, root);
}

// Leaves the ring. Its next member can stand in for the chunk in the tree.
TreeChunk* leave_ring(State& s, TreeChunk* chunk) {
    Link* const next = chunk->link.next;
    Link* const previous = chunk->link.previous;
    if (is_plausible(s, next) && next->previous == &chunk->link && is_plausible(s, previous) &&
        previous->next == &chunk->link) {
        next->previous = previous;
        previous->next = next;
    }
    return tree_chunk_of(previous);
}

// Cuts the lowest right descendant off: any leaf of the subtree may stand at its root. Null if the
// chunk has no descendants.
TreeChunk* cut_leaf(TreeChunk* chunk) {
    TreeChunk** place = nullptr;
    TreeChunk* leaf = chunk;
    while (leaf->child[1] || leaf->child[0]) {
        place = leaf->child[1] ? &leaf->child[1] : &leaf->child[0];
        leaf = *place;
    }
    if (!place) return nullptr;
    *place = nullptr;
    return leaf;
}

void adopt_child(State& s, TreeChunk* parent, TreeChunk* chunk, unsigned int side) {
    TreeChunk* const child = chunk->child[side];
    if (!child || !is_plausible(s, child)) return;
    parent->child[side] = child;
    child->parent = parent;
}

// Puts `heir`, which may be null, where `chunk` stood.
void replace_in_tree(State& s, TreeChunk* chunk, TreeChunk* heir) {
    TreeChunk* const parent = chunk->parent;
    TreeChunk*& root = s.tree_bins[chunk->bin];
    if (root == chunk) {
        root = heir;
        if (!heir) s.tree_map &= ~(1u << chunk->bin);
    } else if (is_plausible(s, parent)) {
        parent->child[parent->child[0] == chunk ? 0 : 1] = heir;
    }
    if (!heir) return;
    heir->parent = parent == chunk ? heir : parent;
    adopt_child(s, heir, chunk, 0);
    adopt_child(s, heir, chunk, 1);
}

TreeChunk* leftmost_child(TreeChunk* chunk) {
    return chunk->child[0] ? chunk->child[0] : chunk->child[1];
}

struct Fit {
    TreeChunk* chunk;
    Size rest;
};

// A chunk too small for `need` gives a rest that wraps, and so never wins.
void consider(Fit& best, TreeChunk* chunk, Size need) {
    Size const rest = size_of(chunk) - need;
    if (rest < best.rest) best = {chunk, rest};
}

// The smallest of a subtree whose chunks are all large enough lies on the way to the left.
void consider_leftmost(Fit& best, TreeChunk* subtree, Size need) {
    for (; subtree; subtree = leftmost_child(subtree)) consider(best, subtree, need);
}

// Follows the bits of `need` down its own bin. Right children passed by hold larger sizes; the
// lowest of them is the last place to look.
void search_own_bin(Fit& best, TreeChunk* place, Size need, unsigned int bin) {
    TreeChunk* larger = nullptr;
    for (Size bits = branch_bits(need, bin); place; bits <<= 1) {
        consider(best, place, need);
        if (best.rest == 0) return;
        TreeChunk* const right = place->child[1];
        place = place->child[top_bit(bits)];
        if (right && right != place) larger = right;
    }
    consider_leftmost(best, larger, need);
}

Fit find_best(State& s, Size need) {
    Fit best = {nullptr, static_cast<Size>(0) - need};
    unsigned int const bin = tree_bin_of(need);
    if (TreeChunk* const root = s.tree_bins[bin]) search_own_bin(best, root, need, bin);
    if (best.chunk) return best;
    unsigned int const larger_bins = s.tree_map & ~((2u << bin) - 1);
    if (larger_bins) {
        consider_leftmost(best, s.tree_bins[std::countr_zero(larger_bins)], need);
    }
    return best;
}

bool is_sound_fit(State const& s, Fit const& fit, Size need) {
    return is_plausible(s, fit.chunk) && chunk_at(fit.chunk, need) > fit.chunk;
}

}  // namespace

void insert_tree_chunk(State& s, TreeChunk* chunk, Size size) {
    unsigned int const bin = tree_bin_of(size);
    chunk->bin = bin;
    chunk->child[0] = chunk->child[1] = nullptr;
    if (s.tree_map >> bin & 1) return descend_and_insert(s, chunk, size, s.tree_bins[bin]);
    s.tree_map |= 1u << bin;
    s.tree_bins[bin] = chunk;
    make_leaf(chunk, chunk);
}

void unlink_tree_chunk(State& s, TreeChunk* chunk) {
    bool const alone = chunk->link.previous == &chunk->link;
    TreeChunk* const heir = alone ? cut_leaf(chunk) : leave_ring(s, chunk);
    if (chunk->parent) replace_in_tree(s, chunk, heir);
}

namespace {

// Takes a fitting chunk out of its tree and cuts `need` from it; what is left, if it can stand
// alone, goes where `keep` puts it.
void* cut_from_tree(State& s, Fit const& fit, Size need, void (*keep)(State&, Chunk*, Size)) {
    unlink_tree_chunk(s, fit.chunk);
    if (fit.rest < smallest_chunk) {
        mark_in_use(fit.chunk, need + fit.rest);
    } else {
        Chunk* const rest = chunk_at(fit.chunk, need);
        mark_in_use_alone(fit.chunk, need);
        mark_free_alone(rest, fit.rest);
        keep(s, rest, fit.rest);
    }
    return payload(fit.chunk);
}

}  // namespace

void* allocate_from_trees(State& s, Size need) {
    Fit const best = find_best(s, need);
    if (!best.chunk || best.rest >= s.victim_size - need) return nullptr;
    if (!is_sound_fit(s, best, need)) return nullptr;
    return cut_from_tree(s, best, need, insert_chunk);
}

void* allocate_small_from_trees(State& s, Size need) {
    Fit best = {nullptr, ~static_cast<Size>(0)};
    consider_leftmost(best, s.tree_bins[std::countr_zero(s.tree_map)], need);
    if (!best.chunk || !is_sound_fit(s, best, need)) return nullptr;
    return cut_from_tree(s, best, need, replace_victim);
}

}  // namespace QX::arena
