// stack_allocator.h - a process-wide stack of 256 KiB blocks, released by watermarks.
//
//     char* const mark = MemoryStackAllocator::push_watermark();
//     ... MemoryStackAllocator::allocate(1000) ...
//     MemoryStackAllocator::pop(mark);          everything taken since is gone
//
// Marks nest like stack frames: popping to an older one releases all younger blocks.
//
// Threads: one at a time; the state belongs to the process.
#pragma once

#include "qx/base/export.h"

namespace QX {

class MemoryStackAllocator {
public:
    // The usable bytes of a block.
    QX_API static unsigned int const ALLOC_SIZE = 0x40000;

    // `size` bytes aligned to `alignment`, a power of two, valid until a mark below is popped. Null
    // for what no block can hold. Throws what custom_malloc throws.
    QX_API static void* allocate(unsigned int size, unsigned int alignment = 16);

    // The present position. Nothing is pushed: the value is the mark. Null before the first block.
    QX_API static char* push_watermark();

    // Releases every block younger than the one that `mark` lies in and makes it the position. The
    // null mark releases all. Any other mark that did not come from push_watermark faults.
    QX_API static void pop(char* mark);

    QX_API static char* mem_base;  // the newest block
    QX_API static char* mem_last;  // the position; it moves downwards as memory is taken

protected:
    // Pushes a block. Its last word, behind the usable bytes, names the block before.
    QX_API static void alloc();
};

}  // namespace QX
