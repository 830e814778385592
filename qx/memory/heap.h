// heap.h - the allocation entry points.
#pragma once

#include "qx/base/export.h"

namespace QX {

enum HEAPS : int {
    HEAP_GENERAL = 0,
    HEAP_SECOND = 1,
    HEAP_THIRD = 2,
    HEAP_ALL = 3,
};

QX_API void* custom_malloc(unsigned long long size, HEAPS heap);
QX_API void custom_free(void const* block);
QX_API void* malloc_aligned(unsigned long long size, unsigned int alignment, HEAPS heap);

QX_API extern void (*allocation_hook)(void const* block, unsigned int size);

}  // namespace QX
