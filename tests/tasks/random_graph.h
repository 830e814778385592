// random_graph.h - a random forest of tasks that spawn, wait, yield and change threads, with a sum
// that is known beforehand. Used by the tests in short and by the soak program at length.
#pragma once

#include "qx/tasks/task.h"

#include <atomic>
#include <cstdint>

namespace test {

class RandomGraph {
public:
    explicit RandomGraph(unsigned int workers) : workers_(workers) {}

    // Runs the forest that belongs to `seed`, helping meanwhile. True if every task ran once and
    // each saw the sum of its children whole.
    bool run(std::uint64_t seed, unsigned int roots, unsigned int depth) {
        task::Counter left(roots);
        sum_ = 0;
        std::uint64_t expected = 0;
        for (unsigned int i = 0; i < roots; ++i) {
            std::uint64_t const root = mix(seed + i);
            expected += expect(root, depth);
            spawn_node(root, depth, sum_, left);
        }
        left.wait();
        return sum_ == expected && whole_;
    }

private:
    static std::uint64_t mix(std::uint64_t z) {
        z = (z + 0x9E3779B97F4A7C15) * 0xBF58476D1CE4E5B9;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
        return z ^ (z >> 31);
    }

    static unsigned int child_count(std::uint64_t node, unsigned int depth) {
        return depth == 0 ? 0 : (node >> 8) % 5;
    }

    static std::uint64_t expect(std::uint64_t node, unsigned int depth) {
        std::uint64_t sum = node;
        for (unsigned int i = 0; i < child_count(node, depth); ++i)
            sum += expect(mix(node + i), depth - 1);
        return sum;
    }

    // Leaves may be fibreless, and any task may be pinned, urgent, or the main thread's.
    void spawn_node(
        std::uint64_t node, unsigned int depth, std::atomic<std::uint64_t>& sum,
        task::Counter& left) {
        bool const leaf = child_count(node, depth) == 0;
        bool const fibreless = leaf && (node >> 16 & 1);
        task::spawn(
            fibreless ? task::FiberMode::fiberless : task::FiberMode::fiberful, mask_of(node),
            (node >> 20) % 8 == 0 ? task::Priority::high : task::Priority::normal,
            [this, node, depth, &sum, &left] {
                visit(node, depth, sum);
                left.internal_decrement();
            });
    }

    task::ThreadMask mask_of(std::uint64_t node) const {
        unsigned int const kind = (node >> 24) % 16;
        if (kind < 8) return task::ThreadMask::any_thread;
        if (kind < 12) return task::ThreadMask::worker_threads;
        if (kind == 12) return task::ThreadMask::main_thread;
        return static_cast<task::ThreadMask>(3 + (node >> 32) % workers_);
    }

    void visit(std::uint64_t node, unsigned int depth, std::atomic<std::uint64_t>& sum) {
        if ((node >> 40) % 4 == 0) task::this_task::yield();
        unsigned int const count = child_count(node, depth);
        std::atomic<std::uint64_t> below = 0;
        if (count != 0) run_children(node, depth, count, below);
        if ((node >> 44) % 8 == 0) {
            task::execute_in_thread_context([&] {
                if (task::this_task::id() != 0) whole_ = false;
            });
        }
        sum += node + below;
    }

    void run_children(
        std::uint64_t node, unsigned int depth, unsigned int count,
        std::atomic<std::uint64_t>& below) {
        unsigned int const id = task::this_task::id();
        task::Counter left(count);
        for (unsigned int i = 0; i < count; ++i) spawn_node(mix(node + i), depth - 1, below, left);
        left.wait();
        if (task::this_task::id() != id) whole_ = false;
        std::uint64_t expected = 0;
        for (unsigned int i = 0; i < count; ++i) expected += expect(mix(node + i), depth - 1);
        if (below != expected) whole_ = false;
    }

    unsigned int workers_;
    std::atomic<std::uint64_t> sum_ = 0;
    std::atomic<bool> whole_ = true;
};

}  // namespace test
