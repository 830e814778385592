// transient_allocator.h - a lock-free ring for data that lives about a frame.
#pragma once

#include <atomic>

#include "qx/base/export.h"

namespace QX {

// Hands out pieces of one buffer in turn and begins again at its start: there is no release, and
// nothing taken lives longer than one pass round the ring.
//
//     TransientAllocator ring(1000);
//     ring.allocate(600, 16)  =>  the buffer's start
//     ring.allocate(400, 1)   =>  600 behind it: a request that just reaches the end does not wrap
//     ring.allocate(1, 1)     =>  the buffer's start
//
// Threads: `allocate` may run on any number of threads at once.
class TransientAllocator {
public:
    // `size` in bytes. Throws what custom_malloc throws.
    QX_API explicit TransientAllocator(unsigned long long size);
    QX_API ~TransientAllocator();

    TransientAllocator(TransientAllocator const&) = delete;
    TransientAllocator& operator=(TransientAllocator const&) = delete;

    // `alignment` is a power of two. A request larger than the buffer is not detected and runs off
    // its end.
    QX_API void* allocate(unsigned long long size, unsigned long long alignment);

    // The next free address, which another thread may have moved since.
    unsigned long long current() const { return current_.load(); }
    // The buffer's start, and one past it.
    char* base() const { return base_; }
    char* end() const { return end_; }

private:
    std::atomic<unsigned long long> current_ = 0;
    char* base_ = nullptr;
    char* end_ = nullptr;
};

// The process's own ring. Creating one while there is one loses the earlier. No lock: made and
// ended while no other thread asks for it.
QX_API void create_global_transient_allocator(unsigned long long size);
QX_API void destroy_global_transient_allocator();

// Null where none was created.
QX_API TransientAllocator* global_transient_allocator();

}  // namespace QX
