// global_new.h - the global operators new and delete, drawn from the arena.
//
// A definition, not an interface: included by one source of the library and by client_new.cpp,
// which the CMake target compiles into each client. Plain `new` throws what custom_malloc throws;
// the nothrow form gives null. The aligned pair stays the system's.
#include <cstddef>
#include <new>

#include "qx/memory/heap.h"

void* operator new(std::size_t size) {
    return QX::custom_malloc(size, QX::HEAP_GENERAL);
}

void* operator new[](std::size_t size) {
    return QX::custom_malloc(size, QX::HEAP_GENERAL);
}

void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    try {
        return QX::custom_malloc(size, QX::HEAP_GENERAL);
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}

void* operator new[](std::size_t size, std::nothrow_t const& tag) noexcept {
    return operator new(size, tag);
}

void operator delete(void* block) noexcept {
    QX::custom_free(block);
}

void operator delete[](void* block) noexcept {
    QX::custom_free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    QX::custom_free(block);
}

void operator delete[](void* block, std::size_t) noexcept {
    QX::custom_free(block);
}

void operator delete(void* block, std::nothrow_t const&) noexcept {
    QX::custom_free(block);
}

void operator delete[](void* block, std::nothrow_t const&) noexcept {
    QX::custom_free(block);
}
