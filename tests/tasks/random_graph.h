// random_graph.h - a random forest of tasks that spawn, wait, yield and change threads.
#pragma once

#include "qx/tasks/task.h"

#include <atomic>
#include <cstdint>

namespace test {

class RandomGraph {
public:
    explicit RandomGraph(unsigned int workers) : workers_(workers) {}

    // Runs the forest that belongs to `seed`, helping meanwhile. True if every task ran once, and
    // none went on before its children had ended.
    bool run(std::uint64_t seed, unsigned int roots, unsigned int depth) {
        grow(seed, roots, depth);
        return whole_;
    }

private:
    static std::uint64_t mix(std::uint64_t z) {
        z = (z + 0x9E3779B97F4A7C15) * 0xBF58476D1CE4E5B9;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
        return z ^ (z >> 31);
    }

    void require(bool holds) {
        if (!holds) whole_ = false;
    }

    // Spawns and waits. What the children count with lies on this stack, and is gone when the wait
    // returns. Leaves may be fibreless, and any task may be pinned, urgent, or the main thread's.
    void grow(std::uint64_t seed, unsigned int count, unsigned int depth) {
        std::atomic<unsigned int> ended = 0;
        task::Counter left(count);
        for (unsigned int i = 0; i < count; ++i) {
            std::uint64_t const node = mix(seed + i);
            unsigned int const children = depth != 0 ? (node >> 8) % 5 : 0;
            bool const fibreless = children == 0 && (node >> 16 & 1);
            task::spawn(
                fibreless ? task::FiberMode::fiberless : task::FiberMode::fiberful, mask_of(node),
                (node >> 20) % 8 == 0 ? task::Priority::high : task::Priority::normal,
                [this, node, children, depth, &ended, &left] {
                    visit(node, children, depth);
                    ++ended;
                    left.internal_decrement();
                });
        }
        left.wait();
        require(ended == count);
    }

    task::ThreadMask mask_of(std::uint64_t node) const {
        unsigned int const kind = (node >> 24) % 16;
        unsigned int const pinned = 3 + (node >> 32) % workers_;
        return static_cast<task::ThreadMask>(
            kind < 8     ? 0
            : kind < 12  ? 1
            : kind == 12 ? 2
                         : pinned);
    }

    void visit(std::uint64_t node, unsigned int children, unsigned int depth) {
        unsigned int const id = task::this_task::id();
        if ((node >> 40) % 4 == 0) task::this_task::yield();
        if (children != 0) grow(node, children, depth - 1);
        if ((node >> 44) % 8 == 0)
            task::execute_in_thread_context([this] { require(task::this_task::id() == 0); });
        require(task::this_task::id() == id);
    }

    unsigned int workers_;
    std::atomic<bool> whole_ = true;
};

}  // namespace test
