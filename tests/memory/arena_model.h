// arena_model.h - random use of the arena against a record of what each block must hold.
#pragma once

#include <algorithm>
#include <cstring>
#include <vector>

#include "qx/memory/heap.h"
#include "tests/harness/random.h"

namespace test {

// Blocks handed out, each filled with a byte of its own; overlap or loss shows as a wrong byte.
class ArenaModel {
public:
    explicit ArenaModel(std::uint64_t salt) : random_(salt) {}
    ~ArenaModel() { shrink(0); }

    // One allocation, resize or release; false if a block did not hold what it should.
    bool step() {
        if (random_.chance(50000)) shrink(16 << random_.below(11));
        if (blocks_.empty() || random_.chance(200)) blocks_.resize(blocks_.size() + 40);
        Block& block = blocks_[random_.below(static_cast<unsigned int>(blocks_.size()))];
        bool intact = block.holds(block.size);
        unsigned int const size = some_size();
        if (block.bytes && random_.chance(3)) {
            block.bytes = static_cast<unsigned char*>(heap_.realloc(block.bytes, size).first);
            intact = intact && block.holds(std::min(size, block.size));
        } else {
            void* const next = block.bytes ? nullptr : QX::custom_malloc(size, QX::HEAP_GENERAL);
            QX::custom_free(block.bytes);
            block.bytes = static_cast<unsigned char*>(next);
        }
        block.size = block.bytes ? size : 0;
        block.mark = static_cast<unsigned char>(random_.next());
        if (block.bytes) std::memset(block.bytes, block.mark, size);
        return intact && reinterpret_cast<std::uintptr_t>(block.bytes) % 16 == 0;
    }

private:
    struct Block {
        bool holds(unsigned int count) const {
            return std::count(bytes, bytes + count, mark) == count;
        }

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
        for (; blocks_.size() > count; blocks_.pop_back()) QX::custom_free(blocks_.back().bytes);
    }

    Random random_;
    QX::HeapPlatform heap_ = QX::HeapPlatform(QX::HEAP_SECOND, nullptr);
    std::vector<Block> blocks_;
};

}  // namespace test
