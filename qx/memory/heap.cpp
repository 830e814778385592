#include "qx/memory/heap.h"

#include <new>

#include "qx/base/windows.h"

namespace QX {

void (*allocation_hook)(void const* block, unsigned int size) = nullptr;

void* custom_malloc(unsigned long long size, HEAPS) {
    void* const block = HeapAlloc(GetProcessHeap(), 0, size);
    if (!block) throw std::bad_alloc();
    if (allocation_hook) allocation_hook(block, static_cast<unsigned int>(size));
    return block;
}

void custom_free(void const* block) {
    if (!block) return;
    HeapFree(GetProcessHeap(), 0, const_cast<void*>(block));
    if (allocation_hook) allocation_hook(block, 0);
}

void* malloc_aligned(unsigned long long size, unsigned int alignment, HEAPS heap) {
    unsigned long long const step = alignment < 4 ? 4 : alignment;
    auto const base = reinterpret_cast<unsigned long long>(custom_malloc(size + 8 + step, heap));
    unsigned long long const result = (base + 8 + step) / step * step;
    reinterpret_cast<unsigned long long*>(result)[-1] = base;
    return reinterpret_cast<void*>(result);
}

}  // namespace QX
