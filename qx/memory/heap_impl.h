// heap_impl.h - what the halves of the heap room share.
#pragma once

#include "qx/memory/heap.h"

namespace QX {

// Stand before the fast way of custom_malloc: 0 where nothing of it applies.
enum SpecialFlags : unsigned int {
    special_first_use = 1,
    special_fill = 2,
};

extern unsigned int special_flags;

// Makes `count` blocks as so many calls of custom_malloc in this order, but holds the lock once for
// all. False, with none of them made, where one of those calls would throw, fill or call the hook.
bool custom_malloc_all(unsigned long long const* sizes, void** blocks, unsigned int count);

// Releases blocks, none of them null, as so many calls of custom_free in this order, but holds the
// lock once for all. For short batches: nobody else gets a block meanwhile.
void custom_free_all(void const* const* blocks, unsigned int count);

void validate_system_heaps();
unsigned int milliseconds_now();

}  // namespace QX
