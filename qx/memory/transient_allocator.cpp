#include "qx/memory/transient_allocator.h"

#include <cstdint>
#include <new>

#include "qx/base/compiler.h"
#include "qx/memory/heap.h"

namespace QX {

static_assert(sizeof(TransientAllocator) == 24);

namespace {

TransientAllocator* global_ring = nullptr;

using Address = unsigned long long;

Address align_up(Address place, Address alignment) {
    return (place + alignment - 1) & ~(alignment - 1);
}

}  // namespace

TransientAllocator::TransientAllocator(unsigned long long size)
    : base_(static_cast<char*>(custom_malloc(size, HEAP_GENERAL))), end_(base_ + size) {
    current_.store(reinterpret_cast<Address>(base_));
}

TransientAllocator::~TransientAllocator() {
    custom_free(base_);
    base_ = nullptr;
    QX_KEEP_STORES();
}

void* TransientAllocator::allocate(unsigned long long size, unsigned long long alignment) {
    Address seen = current_.load(std::memory_order_relaxed);
    Address start;
    do {
        start = align_up(seen, alignment);
        if (start + size > reinterpret_cast<Address>(end_)) {
            start = align_up(reinterpret_cast<Address>(base_), alignment);
        }
    } while (!current_.compare_exchange_weak(seen, start + size));
    return reinterpret_cast<void*>(start);
}

void create_global_transient_allocator(unsigned long long size) {
    void* const place = custom_malloc(sizeof(TransientAllocator), HEAP_GENERAL);
    try {
        global_ring = new (place) TransientAllocator(size);
    } catch (...) {
        custom_free(place);
        throw;
    }
}

void destroy_global_transient_allocator() {
    if (!global_ring) return;
    global_ring->~TransientAllocator();
    custom_free(global_ring);
    global_ring = nullptr;
}

TransientAllocator* global_transient_allocator() {
    return global_ring;
}

}  // namespace QX
