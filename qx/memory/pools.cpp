#include "qx/memory/pools.h"

#include <cstdlib>
#include <new>

#include "qx/base/compiler.h"
#include "qx/memory/free_list_impl.h"
#include "qx/memory/heap.h"

namespace QX {

namespace {

constexpr unsigned int pool_chunk_size = 0x1060;

// Whether a block of N bytes begins at `place` in one of the chunks.
template <unsigned int N, typename Record>
[[maybe_unused]] bool owns(Record const* chunks, void const* place) {
    for (; chunks; chunks = chunks->next) {
        bool const filled = chunks->memory != nullptr;
        if (filled && begins_block(place, chunks->memory, N, pool_chunk_size / N)) return true;
    }
    return false;
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
    QX_CHECK(is_untouched(block, N));
    free_ = static_cast<FreeBlock*>(next_free(block));
    return block;
}

template <unsigned int N>
void ExtendingPool<N>::release(void* block) {
    if (!block) return;
    QX_CHECK(owns<N>(chunks_, block));
    link_free(block, N, free_);
    free_ = static_cast<FreeBlock*>(block);
}

template <unsigned int N>
bool ExtendingPool<N>::validate() const {
    unsigned int count = 0;
    for (ChunkRecord const* record = chunks_; record; record = record->next) {
        if (record->memory) count += pool_chunk_size / N;
    }
    return free_list_is_sound(
        free_, N, count, [this](void const* block) { return owns<N>(chunks_, block); });
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
    QX_CHECK(only.validate());
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
