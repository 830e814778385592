// arena_model.h - random use of the arena against a record of what each block must hold.
#pragma once

#include <cstring>
#include <utility>
#include <vector>

#include "qx/memory/heap.h"
#include "tests/harness/random.h"

namespace test {

// Blocks handed out, each filled with a byte of its own; overlap or loss shows as a wrong byte.
class ArenaModel {
public:
    explicit ArenaModel(std::uint64_t salt) : random_(salt) {}
    ~ArenaModel() {
        while (!blocks_.empty()) drop(0);
    }

    ArenaModel(ArenaModel const&) = delete;
    ArenaModel& operator=(ArenaModel const&) = delete;

    // One allocation, resize or release; false if a block did not hold what it should.
    bool step() {
        unsigned int const live = static_cast<unsigned int>(blocks_.size());
        unsigned int const kind = random_.below(16);
        if (live < 8 || (kind < 8 && live < limit_))
            add();
        else if (kind < 10)
            resize(random_.below(live));
        else
            drop(random_.below(live));
        if (random_.chance(50000)) limit_ = 16 << random_.below(11);
        return intact_;
    }

    std::size_t live() const { return blocks_.size(); }

private:
    struct Block {
        unsigned char* bytes;
        unsigned int size;
        unsigned char mark;
    };

    // Mostly small; now and then tree sizes, and rarely a mapping of its own.
    unsigned int some_size() {
        unsigned int const kind = random_.below(1000);
        if (kind < 700) return random_.below(300);
        if (kind < 980) return random_.below(5000);
        if (kind < 998) return random_.below(70000);
        return random_.below(600000);
    }

    void fill(Block& block) {
        block.mark = static_cast<unsigned char>(random_.next());
        std::memset(block.bytes, block.mark, block.size);
    }

    static bool holds(Block const& block, unsigned int size) {
        if (size == 0) return true;
        return block.bytes[0] == block.mark &&
               std::memcmp(block.bytes, block.bytes + 1, size - 1) == 0;
    }

    void add() {
        Block block = {nullptr, some_size(), 0};
        block.bytes = static_cast<unsigned char*>(QX::custom_malloc(block.size, QX::HEAP_GENERAL));
        if (reinterpret_cast<std::uintptr_t>(block.bytes) % 16 != 0) intact_ = false;
        fill(block);
        blocks_.push_back(block);
    }

    void resize(unsigned int index) {
        Block& block = blocks_[index];
        unsigned int const size = random_.chance(4) ? block.size + 16 : some_size();
        intact_ = intact_ && holds(block, block.size);
        block.bytes = static_cast<unsigned char*>(heap_.realloc(block.bytes, size).first);
        intact_ = intact_ && holds(block, size < block.size ? size : block.size);
        block.size = size;
        fill(block);
    }

    void drop(unsigned int index) {
        std::swap(blocks_[index], blocks_.back());
        intact_ = intact_ && holds(blocks_.back(), blocks_.back().size);
        QX::custom_free(blocks_.back().bytes);
        blocks_.pop_back();
    }

    Random random_;
    QX::HeapPlatform heap_ = QX::HeapPlatform(QX::HEAP_SECOND, 0, 0);
    std::vector<Block> blocks_;
    unsigned int limit_ = 400;
    bool intact_ = true;
};

}  // namespace test
