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

void validate_system_heaps();

}  // namespace QX
