// block_model.h - random use of an allocator against a record of what each block must hold.
#pragma once

#include <algorithm>
#include <cstring>
#include <vector>

#include "qx/memory/heap.h"
#include "tests/harness/random.h"

namespace test {

// As Lua asks: makes a block from null, releases it for size 0.
inline void* resize_in_arena(void* block, unsigned long long, unsigned long long size) {
    static QX::HeapPlatform heap(QX::HEAP_SECOND, nullptr);
    if (block && size) return heap.realloc(block, size).first;
    QX::custom_free(block);
    return size ? QX::custom_malloc(size, QX::HEAP_GENERAL) : nullptr;
}

// Blocks handed out, each filled with a byte of its own; overlap or loss shows as a wrong byte.
template <auto RESIZE = resize_in_arena, unsigned int ALIGNMENT = 16>
class BlockModel {
public:
    explicit BlockModel(std::uint64_t salt) : random_(salt) {}
    ~BlockModel() { shrink(0); }

    // One allocation, resize or release; false if a block did not hold what it should.
    bool step() {
        if (random_.chance(50000)) shrink(16 << random_.below(11));
        if (blocks_.empty() || random_.chance(200)) blocks_.resize(blocks_.size() + 40);
        auto& [bytes, size, mark] = blocks_[random_.below(static_cast<unsigned>(blocks_.size()))];
        bool const is_whole = std::count(bytes, bytes + size, mark) == size;
        unsigned int const next = bytes && !random_.chance(3) ? 0 : some_size();
        bytes = static_cast<unsigned char*>(RESIZE(bytes, size, next));
        unsigned int const kept = std::min(size, next);
        bool const is_kept = std::count(bytes, bytes + kept, mark) == kept;
        size = next;
        mark = static_cast<unsigned char>(random_.next());
        if (bytes) std::memset(bytes, mark, size);
        return is_whole && is_kept && reinterpret_cast<std::uintptr_t>(bytes) % ALIGNMENT == 0;
    }

private:
    struct Block {
        unsigned char* bytes = nullptr;
        unsigned int size = 0;
        unsigned char mark = 0;
    };

    // Mostly small; now and then tree sizes, and rarely a mapping of its own.
    unsigned int some_size() {
        unsigned int const kind = random_.below(1000);
        return random_.below(kind < 700 ? 300 : kind < 980 ? 5000 : kind < 998 ? 70000 : 600000);
    }

    void shrink(std::size_t count) {
        for (; blocks_.size() > count; blocks_.pop_back())
            RESIZE(blocks_.back().bytes, blocks_.back().size, 0);
    }

    Random random_;
    std::vector<Block> blocks_;
};

}  // namespace test
