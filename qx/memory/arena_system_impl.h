// arena_system_impl.h - what the arena asks of the system. Null and false are failures.
#pragma once

#include "qx/memory/arena_chunk_impl.h"

namespace QX::arena {

struct SystemFigures {
    Size page_size;
    Size granularity;
};

SystemFigures system_figures();

// Committed, readable and writable memory, zeroed, aligned to the granularity.
void* map_segment(Size size);

// The same, from the top of the address space downwards.
void* map_direct(Size size);

// Releases whole mappings that together make up the range. False, with nothing released, if the
// range does not begin at a mapping's start.
bool unmap(void* base, Size size);

// Whether `base` is the start of a mapping of committed memory.
bool begins_mapping(void const* base);

// Since the system's start; wraps at 32 bits.
unsigned int tick_count_ms();

void yield_processor();

}  // namespace QX::arena
