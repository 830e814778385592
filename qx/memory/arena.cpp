#include "qx/memory/arena.h"

#include <cstring>

#include "qx/memory/arena_impl.h"
#include "qx/memory/arena_system_impl.h"

namespace QX::arena {

constinit State state = {};

void SpinLock::wait() {
    constexpr unsigned int attempts_a_yield = 10000;
    unsigned int attempts = 0;
    do {
        if (++attempts % attempts_a_yield == 0) yield_processor();
    } while (word_.load(std::memory_order_relaxed) != 0 ||
             word_.exchange(1, std::memory_order_acquire) != 0);
}

namespace {

void* allocate_from_rests(State& s, Size need) {
    if (need <= s.victim_size) return carve_victim(s, need);
    if (need < s.top_size) return carve_top(s, need);
    return allocate_from_system(s, need);
}

// Splits a chunk of the next larger small bin; the rest becomes the victim.
void* allocate_from_larger_bin(State& s, Size need, unsigned int bins) {
    unsigned int const bin = static_cast<unsigned int>(std::countr_zero(bins));
    Chunk* const chunk = take_first_small(s, bin);
    Size const rest_size = small_bin_size(bin) - need;
    if (rest_size < smallest_chunk) {
        mark_in_use(chunk, small_bin_size(bin));
    } else {
        Chunk* const rest = chunk_at(chunk, need);
        mark_in_use_alone(chunk, need);
        mark_free_alone(rest, rest_size);
        replace_victim(s, rest, rest_size);
    }
    return payload(chunk);
}

// --- Resizing in place ---------------------------------------------------------------------------

// Cuts `chunk`, `size` bytes in use, down to `need` and gives the rest back.
void split_off(State& s, Chunk* chunk, Size size, Size need) {
    if (size - need < smallest_chunk) return resize_in_use(chunk, size);
    Chunk* const rest = chunk_at(chunk, need);
    Chunk* const next = chunk_at(chunk, size);
    resize_in_use(chunk, need);
    rest->head = (size - need) | both_in_use;
    next->head |= previous_in_use;
    settle(s, rest, size - need, next);
}

bool grow_into_top(State& s, Chunk* chunk, Size need) {
    Size const whole = size_of(chunk) + s.top_size;
    if (whole <= need) return false;
    resize_in_use(chunk, need);
    s.top = chunk_at(chunk, need);
    s.top_size = whole - need;
    s.top->head = s.top_size | previous_in_use;
    return true;
}

bool grow_into_victim(State& s, Chunk* chunk, Size need) {
    Size const whole = size_of(chunk) + s.victim_size;
    if (whole < need) return false;
    if (whole - need < smallest_chunk) {
        resize_in_use(chunk, whole);
        set_victim(s, nullptr, 0);
        return true;
    }
    Chunk* const rest = chunk_at(chunk, need);
    resize_in_use(chunk, need);
    set_victim(s, rest, whole - need);
    mark_free_alone(rest, whole - need);
    return true;
}

bool grow_into_free(State& s, Chunk* chunk, Chunk* next, Size need) {
    Size const size = size_of(chunk);
    Size const next_size = size_of(next);
    if (size + next_size < need) return false;
    unlink_chunk(s, next, next_size);
    split_off(s, chunk, size + next_size, need);
    return true;
}

bool resize_in_place(State& s, Chunk* chunk, Size need) {
    if (is_direct(chunk)) return resize_direct(chunk, need) != nullptr;
    Chunk* const next = behind(chunk);
    if (size_of(chunk) >= need) {
        split_off(s, chunk, size_of(chunk), need);
        return true;
    }
    if (next == s.top) return grow_into_top(s, chunk, need);
    if (next == s.victim) return grow_into_victim(s, chunk, need);
    return !has(next, in_use) && grow_into_free(s, chunk, next, need);
}

bool is_ours(State const& s, Chunk const* chunk) {
    if (!is_plausible(s, chunk) || is_stray(chunk)) return false;
    if (may_be_unmapped(chunk) && !is_mapped(s, chunk)) return false;
    if (!is_in_use(chunk) || size_of(chunk) > s.footprint) return false;
    Chunk const* const next = behind(chunk);
    return next > chunk && has(next, previous_in_use);
}

// A block that outgrew its place will grow again: the top has room for that, while the victim would
// keep it beside the small blocks that are cut from it next.
void* allocate_for_growth(Size request) {
    if (request <= largest_small_request) return allocate(request);
    LockScope const scope(state.lock);
    State& s = state;
    Size const need = padded(request);
    if (s.tree_map) {
        if (void* const block = allocate_from_trees(s, need)) return block;
    }
    return need < s.top_size ? carve_top(s, need) : allocate_from_rests(s, need);
}

void* move(void const* block, Size request, Size old_usable) {
    void* const moved = allocate_for_growth(request);
    if (!moved) return nullptr;
    show_to_checker(moved);
    std::memcpy(moved, block, request < old_usable ? request : old_usable);
    release(block);
    return moved;
}

}  // namespace

void* allocate_small_slowly(State& s, Size need) {
    if (need <= s.victim_size) return carve_victim(s, need);
    unsigned int const bin = small_bin_of(need);
    unsigned int const larger = s.small_map & ~((2u << bin) - 1);
    if (larger) return allocate_from_larger_bin(s, need, larger);
    if (s.tree_map) {
        if (void* const block = allocate_small_from_trees(s, need)) return block;
    }
    return allocate_from_rests(s, need);
}

void* allocate_large(State& s, Size request) {
    if (request >= request_limit) return nullptr;
    Size const need = padded(request);
    if (s.tree_map) {
        if (void* const block = allocate_from_trees(s, need)) return block;
    }
    return allocate_from_rests(s, need);
}

void* allocate(Size request) {
    return allocate_inline(request);
}

void release(void const* block) {
    if (block) release_inline(block);
}

void* reallocate(void const* block, Size request) {
    if (!block) return allocate(request);
    if (request >= request_limit) return nullptr;
    Chunk* const chunk = chunk_of(block);
    Size old_usable;
    {
        LockScope const scope(state.lock);
        if (!is_ours(state, chunk)) return nullptr;
        if (resize_in_place(state, chunk, padded(request))) {
            show_to_checker(payload(chunk));
            return payload(chunk);
        }
        old_usable = usable_size(chunk);
    }
    return move(block, request, old_usable);
}

}  // namespace QX::arena
