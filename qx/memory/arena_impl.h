// arena_impl.h - the arena's operations, for the rooms of this folder. Each holds the lock for the
// whole of its work. None throws; null is exhaustion.
#pragma once

#include <cstring>

#include "qx/memory/arena_bins_impl.h"

#if defined(QX_SANITISE_ADDRESS)
extern "C" void qx_asan_fresh(void const* block, std::size_t usable);
#endif

namespace QX::arena {

// A block of at least `request` bytes, aligned to 16; of 0 bytes too. Null from request_limit on.
void* allocate(Size request);

// Grows or shrinks in place where it can, else moves. Null leaves the old block valid. A null
// block allocates.
void* reallocate(void const* block, Size request);

// Does nothing with null, and with a pointer that is below the arena or whose head says that it is
// not in use.
void release(void const* block);

// Reads every free chunk, the victim and the top, and reports nothing.
void touch_free_chunks();

// --- With the lock held --------------------------------------------------------------------------

// Serves from a larger bin, the trees, the victim, the top or the system, in this order.
void* allocate_small_slowly(State& s, Size need);
void* allocate_large(State& s, Size request);

void* allocate_from_system(State& s, Size need);
void release_direct(State& s, Chunk* chunk);
bool is_mapped(State const& s, Chunk const* chunk);
Chunk* resize_direct(Chunk* chunk, Size need);
void trim_top(State& s);
void release_empty_segments(State& s);
bool is_valid(State& s);

void initialise_parameters();

inline void ensure_parameters() {
    if (parameters.magic.load(std::memory_order_acquire) == 0) initialise_parameters();
}

// --- The way that most requests go ---------------------------------------------------------------

inline void* carve_top(State& s, Size need) {
    Chunk* const chunk = s.top;
    Chunk* const rest = chunk_at(chunk, need);
    s.top_size -= need;
    s.top = rest;
    rest->head = s.top_size | previous_in_use;
    mark_in_use_alone(chunk, need);
    return payload(chunk);
}

inline void* carve_victim(State& s, Size need) {
    Chunk* const chunk = s.victim;
    Size const rest_size = s.victim_size - need;
    if (rest_size >= smallest_chunk) {
        Chunk* const rest = chunk_at(chunk, need);
        set_victim(s, rest, rest_size);
        mark_free_alone(rest, rest_size);
        mark_in_use_alone(chunk, need);
    } else {
        Size const whole = s.victim_size;
        set_victim(s, nullptr, 0);
        mark_in_use(chunk, whole);
    }
    return payload(chunk);
}

inline void* take_exact(State& s, unsigned int bin) {
    Chunk* const chunk = take_first_small(s, bin);
    mark_in_use(chunk, small_bin_size(bin));
    return payload(chunk);
}

QX_ALWAYS_INLINE void* allocate_small(State& s, Size need) {
    unsigned int const bin = small_bin_of(need);
    if (s.small_map >> bin & 1) return take_exact(s, bin);
    if (need <= s.victim_size) return carve_victim(s, need);
    if ((s.small_map >> bin | s.tree_map) == 0 && need < s.top_size) return carve_top(s, need);
    return allocate_small_slowly(s, need);
}

// The checks of a QX_CHECKS build: what is released reads as a pattern, and not as what it held.
// What `next` does not take for a chunk in use is left alone.
inline void poison(Chunk* chunk, Size size, Chunk const* next) {
#if defined(QX_CHECKS)
    constexpr int released = 0xDD;  // as a head: a free chunk's, larger than any footprint
    bool const accepted = chunk < next && has(next, previous_in_use);
    if (accepted) std::memset(payload(chunk), released, size - chunk_overhead);
#else
    static_cast<void>(chunk);
    static_cast<void>(size);
    static_cast<void>(next);
#endif
}

inline void join_top(State& s, Chunk* chunk, Size size) {
    s.top_size += size;
    s.top = chunk;
    chunk->head = s.top_size | previous_in_use;
    if (chunk == s.victim) set_victim(s, nullptr, 0);
    if (QX_UNLIKELY(s.top_size > s.trim_check)) trim_top(s);
}

inline void join_victim(State& s, Chunk* chunk, Size size) {
    set_victim(s, chunk, s.victim_size + size);
    mark_free_alone(chunk, s.victim_size);
}

inline void file_free_chunk(State& s, Chunk* chunk, Size size) {
    if (is_small(size)) return insert_small_chunk(s, chunk, size);
    insert_tree_chunk(s, static_cast<TreeChunk*>(chunk), size);
    if (QX_UNLIKELY(--s.release_checks == 0)) release_empty_segments(s);
}

// Joins `chunk`, `size` bytes that are no longer used, with what is free behind it, and files it.
inline void settle(State& s, Chunk* chunk, Size size, Chunk* next) {
    if (QX_UNLIKELY(chunk >= next || !has(next, previous_in_use))) return;
    if (has(next, in_use)) {
        mark_free(chunk, size, next);
    } else if (next == s.top) {
        return join_top(s, chunk, size);
    } else if (next == s.victim) {
        return join_victim(s, chunk, size);
    } else {
        Size const next_size = size_of(next);
        unlink_chunk(s, next, next_size);
        size += next_size;
        mark_free_alone(chunk, size);
        if (chunk == s.victim) {
            s.victim_size = size;
            return;
        }
    }
    file_free_chunk(s, chunk, size);
}

// The chunk in front is free: joins it first. It may be the victim, which then grows. A chunk that
// was joined already still names the old size of the one in front, and is left alone.
inline void settle_with_previous(State& s, Chunk* chunk, Size size, Chunk* next) {
    Size const previous_size = chunk->foot;
    if (QX_UNLIKELY(previous_size > s.footprint)) return;
    Chunk* const previous = chunk_before(chunk, previous_size);
    if (QX_UNLIKELY(!is_plausible(s, previous) || !has(next, previous_in_use))) return;
    if (QX_UNLIKELY(previous->head != (previous_size | previous_in_use))) return;
    poison(chunk, size, next);
    size += previous_size;
    if (previous != s.victim) {
        unlink_chunk(s, previous, previous_size);
    } else if (has(next, both_in_use)) {
        s.victim_size = size;
        return mark_free(previous, size, next);
    }
    settle(s, previous, size, next);
}

// What is no chunk in use is left alone. No size passes the footprint, so that most heads that are
// really a stranger's bytes are told before anything is read at the end that they seem to name.
QX_ALWAYS_INLINE void release_chunk(State& s, Chunk* chunk) {
    if (QX_UNLIKELY(!is_plausible(s, chunk) || is_stray(chunk))) return;
    if (QX_UNLIKELY(may_be_unmapped(chunk) && !is_mapped(s, chunk))) return;
    if (QX_UNLIKELY(!is_in_use(chunk))) return;
    Size const size = size_of(chunk);
    if (QX_UNLIKELY(size > s.footprint)) return;
    Chunk* const next = chunk_at(chunk, size);
    if (has(chunk, previous_in_use)) {
        poison(chunk, size, next);
        return settle(s, chunk, size, next);
    }
    if (is_direct(chunk)) return release_direct(s, chunk);
    settle_with_previous(s, chunk, size, next);
}

// The checks of a QX_CHECKS build: the whole arena, every so many operations.
inline void check_now_and_then(State& s) {
#if defined(QX_CHECKS)
    constexpr unsigned int period = 4096;
    static unsigned int operations;
    if (++operations % period == 0) QX_CHECK(is_valid(s));
#else
    static_cast<void>(s);
#endif
}

// Tells the address-checking build's run-time of a block that is handed out.
inline void show_to_checker(void* block) {
#if defined(QX_SANITISE_ADDRESS)
    if (block) qx_asan_fresh(block, usable_size(chunk_of(block)));
#else
    static_cast<void>(block);
#endif
}

// One request, with the lock held.
QX_ALWAYS_INLINE void* serve(State& s, Size request) {
    void* const block = QX_LIKELY(request <= largest_small_request)
                            ? allocate_small(s, padded(request))
                            : allocate_large(s, request);
    check_now_and_then(s);
    show_to_checker(block);
    return block;
}

QX_ALWAYS_INLINE void* allocate_inline(Size request) {
    State& s = state;
    s.lock.acquire();
    void* const block = serve(s, request);
    s.lock.release();
    return block;
}

QX_ALWAYS_INLINE void release_inline(void const* block) {
    State& s = state;
    s.lock.acquire();
    release_chunk(s, chunk_of(block));
    check_now_and_then(s);
    s.lock.release();
}

// All or none.
inline bool allocate_all_inline(unsigned long long const* requests, void** blocks, unsigned count) {
    State& s = state;
    s.lock.acquire();
    unsigned int made = 0;
    for (; made != count; ++made) {
        void* const block = serve(s, requests[made]);
        if (QX_UNLIKELY(!block)) break;
        blocks[made] = block;
    }
    bool const all = made == count;
    if (QX_UNLIKELY(!all)) {
        while (made != 0) release_chunk(s, chunk_of(blocks[--made]));
    }
    s.lock.release();
    return all;
}

// Whether `chunk` is one in use inside a segment, whose size can be gone by.
inline bool may_be_joined(State const& s, Chunk const* chunk) {
    return is_plausible(s, chunk) && !is_stray(chunk) && !may_be_unmapped(chunk) &&
           has(chunk, in_use) && size_of(chunk) <= s.footprint;
}

// Blocks that lie one behind the other, the last one first, go as one. The heads are fetched ahead
// of their turn.
inline void release_all_inline(void const* const* blocks, unsigned int count) {
    constexpr unsigned int ahead = 8;
    State& s = state;
    for (unsigned int i = 0; i < count && i < ahead; ++i)
        __builtin_prefetch(chunk_of(blocks[i]), 1);
    s.lock.acquire();
    for (unsigned int i = 0; i != count; ++i) {
        Chunk* chunk = chunk_of(blocks[i]);
        for (bool joins = may_be_joined(s, chunk); joins && i + 1 != count; ++i) {
            if (i + ahead < count) __builtin_prefetch(chunk_of(blocks[i + ahead]), 1);
            Chunk* const before = chunk_of(blocks[i + 1]);
            joins = may_be_joined(s, before) && behind(before) == chunk;
            if (!joins) break;
            before->head += size_of(chunk);
            chunk = before;
        }
        release_chunk(s, chunk);
        check_now_and_then(s);
    }
    s.lock.release();
}

}  // namespace QX::arena
