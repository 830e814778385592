// allocators.h - stateless allocator types, used as template arguments.
//
// All of them draw on the arena; any two objects of one type are interchangeable, so containers
// that differ only in the object may exchange blocks. Exhaustion throws what custom_malloc throws.
// Threads: all operations may run on any thread.
#pragma once

#include <cstddef>

#include "qx/memory/heap.h"

namespace QX {

namespace DETAIL {

// `count` elements in bytes; a product past 64 bits becomes a size that no heap can serve.
constexpr unsigned long long element_bytes(unsigned long long count, unsigned long long size) {
    return count > ~0ull / 2 / size ? ~0ull / 2 : count * size;
}

}  // namespace DETAIL

// The storage of DynamicArray: 8-byte aligned blocks of malloc_aligned.
class DefaultAllocator {
public:
    static void* allocate(unsigned long long size) { return malloc_aligned(size, 8, HEAP_GENERAL); }

    // `block` is one of `allocate`. Null does nothing.
    static void release(void* block) {
        if (block) custom_free(block_of_aligned(block));
    }
};

// The storage of strings, and an allocator for the standard's containers.
template <typename T>
class Allocator {
public:
    using value_type = T;

    Allocator() = default;

    template <typename Other>
    Allocator(Allocator<Other> const&) {}

    // Room for `count` elements, 16-byte aligned, owned by the caller.
    T* allocate(std::size_t count) {
        unsigned long long const size = DETAIL::element_bytes(count, sizeof(T));
        return static_cast<T*>(custom_malloc(size, HEAP_GENERAL));
    }

    // `block` is one of `allocate`, or null. The count is not looked at.
    void deallocate(T* block, std::size_t) { custom_free(block); }

    template <typename Other>
    bool operator==(Allocator<Other> const&) const {
        return true;
    }
};

// Raw bytes. Equality is always true, assignment does nothing.
class InternalAllocator {
public:
    InternalAllocator() = default;
    InternalAllocator(InternalAllocator const&) = default;
    InternalAllocator& operator=(InternalAllocator const&) { return *this; }

    static void* allocate(unsigned long long size) { return custom_malloc(size, HEAP_GENERAL); }
    static void deallocate(void* block) { custom_free(block); }

    bool operator==(InternalAllocator const&) const { return true; }
    bool operator!=(InternalAllocator const&) const { return false; }
};

}  // namespace QX
