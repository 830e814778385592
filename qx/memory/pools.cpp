#include "qx/memory/pools.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "qx/memory/heap.h"

namespace QX {

namespace {

constexpr unsigned int pool_chunk_size = 0x1060;

// Blocks of 20, 28 or 36 bytes are aligned to 4 only, so links are copied in and out.
template <typename Pointer>
Pointer read_link(void const* block) {
    Pointer next;
    std::memcpy(&next, block, sizeof next);
    return next;
}

template <typename Pointer>
void write_link(void* block, Pointer next) {
    std::memcpy(block, &next, sizeof next);
}

}  // namespace

template <unsigned int N>
ExtendingPool<N>& ExtendingPool<N>::pool() {
    static constinit ExtendingPool only;
    if (only.chunk_size_ == 0) {
        only.chunk_size_ = pool_chunk_size;
        std::atexit(tear_down);
    }
    return only;
}

template <unsigned int N>
void* ExtendingPool<N>::allocate() {
    if (!free_) extend();
    FreeBlock* const block = free_;
    free_ = read_link<FreeBlock*>(block);
    return block;
}

template <unsigned int N>
void ExtendingPool<N>::release(void* block) {
    if (!block) return;
    write_link(block, free_);
    free_ = static_cast<FreeBlock*>(block);
}

// Links the blocks of a new chunk in ascending order.
template <unsigned int N>
void ExtendingPool<N>::extend() {
    void* const place = custom_malloc(sizeof(ChunkRecord), HEAP_GENERAL);
    ChunkRecord* const record = new (place) ChunkRecord{nullptr, chunks_};
    chunks_ = record;
    record->memory = custom_malloc(chunk_size_, HEAP_GENERAL);
    char* const first = static_cast<char*>(record->memory);
    for (unsigned int end = chunk_size_ / N * N; end != 0; end -= N) release(first + end - N);
}

template <unsigned int N>
void ExtendingPool<N>::tear_down() {
    ExtendingPool& only = pool();
    for (ChunkRecord* record = only.chunks_; record;) {
        ChunkRecord* const next = record->next;
        custom_free(record->memory);
        custom_free(record);
        record = next;
    }
    only.chunks_ = nullptr;
    only.free_ = nullptr;
}

template class ExtendingPool<8>;
template class ExtendingPool<16>;
template class ExtendingPool<20>;
template class ExtendingPool<24>;
template class ExtendingPool<28>;
template class ExtendingPool<32>;
template class ExtendingPool<36>;
template class ExtendingPool<40>;
template class ExtendingPool<48>;
template class ExtendingPool<56>;
template class ExtendingPool<64>;
template class ExtendingPool<208>;

}  // namespace QX
