// arena_segments.cpp - what the arena takes from the system and gives back.
#include <cstdlib>

#include "qx/memory/arena_impl.h"
#include "qx/memory/arena_system_impl.h"

namespace QX::arena {

constinit Parameters parameters = {};

namespace {

constexpr Size direct_threshold = 262144;
constexpr Size trim_threshold = 2097152;
constexpr Size kept_top = trim_threshold / 4 * 3;  // spares the next batch its page faults
constexpr Size release_check_period = 4095;
constexpr Size direct_foot = 32;  // room behind a direct chunk for the two heads that end it

// What a segment needs beside the chunk that it is taken for.
constexpr Size segment_padding = foot_room + alignment;

void count_mapped(State& s, void* base, Size size) {
    std::uintptr_t const lowest = reinterpret_cast<std::uintptr_t>(base);
    if (lowest < s.least_address) s.least_address = lowest;
    s.footprint += size;
    if (s.footprint > s.peak_footprint) s.peak_footprint = s.footprint;
}

char* end_of(Segment const& segment) {
    return segment.base + segment.size;
}

bool holds(Segment const& segment, void const* place) {
    return place >= segment.base && place < end_of(segment);
}

void set_top(State& s, Chunk* top, Size size) {
    s.top = top;
    s.top_size = size;
    top->head = size | previous_in_use;
    chunk_at(top, size)->head = foot_room;
    s.trim_check = parameters.trim_threshold;
}

// --- Direct mappings -----------------------------------------------------------------------------

void* allocate_direct(State& s, Size need) {
    Size const room = direct_foot + direct_overhead + alignment - 1;
    Size const size = round_up(need + room, parameters.granularity);
    if (size <= need) return nullptr;
    void* const base = map_direct(size);
    if (!base) return nullptr;
    count_mapped(s, base, size);
    ++s.direct_count;
    s.direct_bytes += size;
    Chunk* const chunk = chunk_at(base);
    chunk->foot = 0;
    chunk->head = size - direct_foot;
    behind(chunk)->head = fence_head;
    behind(chunk)->link.next = nullptr;
    return payload(chunk);
}

// --- Segments ------------------------------------------------------------------------------------

void begin_first_segment(State& s, char* base, Size size) {
    s.first = {base, size, nullptr, 0};
    s.release_checks = release_check_period;
    for (Link& bin : s.small_bins) bin = {&bin, &bin};
    set_top(s, chunk_at(base), size - foot_room);
}

// Ends the old first segment: its record moves into its own last bytes, fences follow, and what
// was left of the top becomes a free chunk.
Segment* retire_first_segment(State& s) {
    char* const end = end_of(s.first);
    Chunk* const old_top = s.top;
    Chunk* chunk = chunk_at(end - foot_room);
    if (address(chunk) < address(old_top) + smallest_chunk) chunk = old_top;
    mark_in_use_alone(chunk, padded(sizeof(Segment)));
    for (char* fence = address(behind(chunk)); fence + sizeof(Size) < end; fence += sizeof(Size)) {
        chunk_at(fence)->head = fence_head;
    }
    if (chunk != old_top) {
        Size const rest = static_cast<Size>(address(chunk) - address(old_top));
        mark_free(old_top, rest, chunk);
        insert_chunk(s, old_top, rest);
    }
    Segment* const record = static_cast<Segment*>(payload(chunk));
    *record = s.first;
    return record;
}

void add_segment(State& s, char* base, Size size) {
    Segment* const older = retire_first_segment(s);
    s.first = {base, size, older, 0};
    set_top(s, chunk_at(base), size - foot_room);
}

// The new range ends where a segment begins: serves `need` from its start and joins the rest with
// the chunk that used to be the segment's first.
void* extend_downwards(State& s, Segment& segment, char* base, Size size, Size need) {
    Chunk* const chunk = chunk_at(base);
    Chunk* const old_first = chunk_at(segment.base);
    Chunk* const rest = chunk_at(chunk, need);
    segment.base = base;
    segment.size += size;
    mark_in_use_alone(chunk, need);
    rest->head = (size - need) | both_in_use;
    old_first->head |= previous_in_use;
    settle(s, rest, size - need, old_first);
    return payload(chunk);
}

Segment* segment_starting_at(State& s, char const* place) {
    Segment* segment = &s.first;
    while (segment && segment->base != place) segment = segment->next;
    return segment;
}

// --- Giving back ---------------------------------------------------------------------------------

// A record inside the first segment keeps its tail from going.
bool holds_a_record(State const& s, Segment const& segment) {
    for (Segment const* other = s.first.next; other; other = other->next) {
        if (holds(segment, other)) return true;
    }
    return false;
}

// The whole granules of the free top beyond `kept` bytes, which are at least a granule.
Size spare_top(State const& s, Size kept) {
    Size const unit = parameters.granularity;
    if (s.top_size <= foot_room + kept) return 0;
    return (s.top_size - foot_room - kept + unit - 1) / unit * unit;
}

bool cut_top(State& s, Size kept) {
    Size const spare = spare_top(s, kept);
    if (spare == 0 || s.first.size < spare || holds_a_record(s, s.first)) return false;
    if (!unmap(end_of(s.first) - spare, spare)) return false;
    s.first.size -= spare;
    s.footprint -= spare;
    set_top(s, s.top, s.top_size - spare);
    return true;
}

// The only chunk of its segment, free and reaching to the record.
bool is_empty(Segment const& segment) {
    Chunk const* const chunk = chunk_at(segment.base);
    return !is_in_use(chunk) && address(chunk) + size_of(chunk) >= end_of(segment) - foot_room;
}

bool unmap_empty(State& s, Segment const segment) {
    TreeChunk* const chunk = static_cast<TreeChunk*>(chunk_at(segment.base));
    Size const size = size_of(chunk);
    if (chunk == s.victim)
        set_victim(s, nullptr, 0);
    else
        unlink_tree_chunk(s, chunk);
    if (!unmap(segment.base, segment.size)) {
        insert_tree_chunk(s, chunk, size);
        return false;
    }
    s.footprint -= segment.size;
    return true;
}

// Returns whether any segment went. The first is never looked at: it has the top.
bool unmap_empty_segments(State& s) {
    bool any = false;
    Size count = 0;
    Segment* before = &s.first;
    for (Segment* segment = before->next; segment; ++count) {
        Segment* const next = segment->next;
        if (is_empty(*segment) && unmap_empty(s, *segment)) {
            before->next = next;
            any = true;
        } else {
            before = segment;
        }
        segment = next;
    }
    s.release_checks = count > release_check_period ? count : release_check_period;
    return any;
}

}  // namespace

void initialise_parameters() {
    SystemFigures const figures = system_figures();
    LockScope const scope(parameters.lock);
    if (parameters.magic.load(std::memory_order_relaxed) != 0) return;
    if (!std::has_single_bit(figures.page_size) || !std::has_single_bit(figures.granularity)) {
        std::abort();
    }
    parameters.page_size = figures.page_size;
    parameters.granularity = figures.granularity;
    parameters.direct_threshold = direct_threshold;
    parameters.trim_threshold = trim_threshold;
    parameters.flags = flag_direct_mapping | flag_locking | flag_non_contiguous;
    Size const magic = ((tick_count_ms() & ~flag_bits) ^ 0x55555550) | 8;
    parameters.magic.store(magic, std::memory_order_release);
}

void* allocate_from_system(State& s, Size need) {
    ensure_parameters();
    bool const maps_directly = parameters.flags & flag_direct_mapping;
    if (maps_directly && need >= parameters.direct_threshold) {
        if (void* const block = allocate_direct(s, need)) return block;
    }
    Size const size = round_up(need + segment_padding, parameters.granularity);
    if (size <= need) return nullptr;
    char* const base = static_cast<char*>(map_segment(size));
    if (!base) return nullptr;
    count_mapped(s, base, size);
    if (!s.top) {
        begin_first_segment(s, base, size);
    } else if (base == end_of(s.first)) {
        s.first.size += size;
        set_top(s, s.top, s.top_size + size);
    } else if (Segment* const above = segment_starting_at(s, base + size)) {
        return extend_downwards(s, *above, base, size, need);
    } else {
        add_segment(s, base, size);
    }
    return carve_top(s, need);
}

bool is_mapped(State const& s, Chunk const* chunk) {
    for (Segment const* segment = &s.first; segment; segment = segment->next) {
        if (holds(*segment, chunk)) return true;
    }
    return begins_mapping(chunk);
}

void release_direct(State& s, Chunk* chunk) {
    Size const size = size_of(chunk) + chunk->foot + direct_foot;
    if (!unmap(chunk_before(chunk, chunk->foot), size)) return;
    s.footprint -= size;
    s.direct_bytes -= size;
    --s.direct_count;
}

// A direct chunk stays where it is if it is large enough and not by far too large.
Chunk* resize_direct(Chunk* chunk, Size need) {
    if (is_small(need)) return nullptr;
    Size const size = size_of(chunk);
    bool const fits = size >= need + sizeof(Size) && size - need <= 2 * parameters.granularity;
    return fits ? chunk : nullptr;
}

// Where no mapping begins at the one place, one may at the other. Where nothing could be given
// back, the next attempt waits until the top is made anew.
void trim_top(State& s) {
    bool const cut = cut_top(s, kept_top) || cut_top(s, parameters.granularity);
    bool const unmapped = unmap_empty_segments(s);
    if (!cut && !unmapped && s.top_size > s.trim_check) s.trim_check = ~static_cast<Size>(0);
}

void release_empty_segments(State& s) {
    unmap_empty_segments(s);
}

}  // namespace QX::arena
