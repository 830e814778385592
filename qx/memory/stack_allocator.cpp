#include "qx/memory/stack_allocator.h"

#include <cstdint>

#include "qx/memory/heap.h"

namespace QX {

unsigned int const MemoryStackAllocator::ALLOC_SIZE;
char* MemoryStackAllocator::mem_base = nullptr;
char* MemoryStackAllocator::mem_last = nullptr;

namespace {

char*& link_of(char* block) {
    return *reinterpret_cast<char**>(block + MemoryStackAllocator::ALLOC_SIZE);
}

// Where `size` bytes below `last` begin, or null if that is below `base`.
char* place_below(char* base, char* last, unsigned int size, unsigned int alignment) {
    std::uintptr_t const lowest = reinterpret_cast<std::uintptr_t>(base);
    std::uintptr_t const end = reinterpret_cast<std::uintptr_t>(last);
    if (!base || end - lowest < size) return nullptr;
    std::uintptr_t const start = (end - size) & ~static_cast<std::uintptr_t>(alignment - 1);
    return start < lowest ? nullptr : last - (end - start);
}

}  // namespace

void MemoryStackAllocator::alloc() {
    char* const block = static_cast<char*>(custom_malloc(ALLOC_SIZE + sizeof(char*), HEAP_GENERAL));
    link_of(block) = mem_base;
    mem_last = block + ALLOC_SIZE;
    mem_base = block;
}

void* MemoryStackAllocator::allocate(unsigned int size, unsigned int alignment) {
    if (size > ALLOC_SIZE) return nullptr;
    char* place = place_below(mem_base, mem_last, size, alignment);
    if (!place) {
        alloc();
        place = place_below(mem_base, mem_last, size, alignment);
    }
    if (place) mem_last = place;
    return place;
}

char* MemoryStackAllocator::push_watermark() {
    return mem_last;
}

// The end of a block counts as inside: a mark taken before anything was, pops back to there.
void MemoryStackAllocator::pop(char* mark) {
    while (mem_base || mark) {
        if (mark >= mem_base && mark <= mem_base + ALLOC_SIZE) break;
        char* const older = link_of(mem_base);
        custom_free(mem_base);
        mem_base = older;
    }
    mem_last = mark;
}

}  // namespace QX
