// pools.h - process-wide pools of blocks of one size, without heads.
//
// The library holds the pools of 8, 16, 20, 24, 28, 32, 36, 40, 48, 56, 64 and 208 bytes. A pool
// extends by a chunk when it is empty and never shrinks; at process exit its chunks go, with
// whatever is still handed out.
//
// Threads: one pool belongs to one thread at a time, and the first call of pool() must not race.
#pragma once

#include "qx/base/export.h"

namespace QX {

template <unsigned int N>
class ExtendingPool {
public:
    // The pool of this size.
    static ExtendingPool& pool();

    // N bytes, at least 4-byte aligned: blocks lie N bytes apart. Throws what custom_malloc throws.
    void* allocate();

    // The block is the next one that `allocate` hands out. Null does nothing.
    void release(void* block);

    // False if the list of released blocks holds anything but blocks of this pool, each once. The
    // library built with QX_CHECKS fills them with 0xDD, and tells here if one was written to
    // since.
    bool validate() const;

    // In bytes, 4192 for every N.
    unsigned int chunk_size() const { return chunk_size_; }

    ExtendingPool(ExtendingPool const&) = delete;
    ExtendingPool& operator=(ExtendingPool const&) = delete;

private:
    struct FreeBlock {
        FreeBlock* next;
    };

    // Memory and record are blocks of their own. A record without memory is left where only the
    // first was to be had. With k = chunk_size / N, rounded down:
    //   blocks of a chunk   memory, memory + N ... memory + (k - 1) N
    //   of all blocks       each is either handed out or once in the list that begins at free_
    struct ChunkRecord {
        void* memory;
        ChunkRecord* next;
    };

    constexpr ExtendingPool() = default;
    static void tear_down();
    void extend();

    FreeBlock* free_ = nullptr;
    ChunkRecord* chunks_ = nullptr;
    unsigned int chunk_size_ = 0;  // set when the pool is first asked for
};

extern template class QX_API ExtendingPool<8>;
extern template class QX_API ExtendingPool<16>;
extern template class QX_API ExtendingPool<20>;
extern template class QX_API ExtendingPool<24>;
extern template class QX_API ExtendingPool<28>;
extern template class QX_API ExtendingPool<32>;
extern template class QX_API ExtendingPool<36>;
extern template class QX_API ExtendingPool<40>;
extern template class QX_API ExtendingPool<48>;
extern template class QX_API ExtendingPool<56>;
extern template class QX_API ExtendingPool<64>;
extern template class QX_API ExtendingPool<208>;

}  // namespace QX
