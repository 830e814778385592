#include "tests/harness/failing_allocation.h"

#include <gtest/gtest.h>

#include <atomic>

#include "qx/memory/arena.h"
#include "qx/memory/heap.h"

namespace test {

namespace {

std::atomic<unsigned int> remaining;
std::atomic<bool> reached;

// Runs after the block is made: gives it back and throws, which is what exhaustion looks like.
void fail_in_turn(void const* block, unsigned int size) {
    if (size == 0 || remaining-- != 1) return;
    reached = true;
    QX::custom_free(block);
    throw std::bad_alloc();
}

}  // namespace

FailingAllocation::FailingAllocation(unsigned int nth) : previous_(QX::allocation_hook) {
    remaining = nth;
    reached = false;
    QX::allocation_hook = fail_in_turn;
}

FailingAllocation::~FailingAllocation() {
    QX::allocation_hook = previous_;
}

bool FailingAllocation::fired() const {
    return reached;
}

void walk_allocations(std::initializer_list<Operation> operations, void (*begin)()) {
    for (Operation const& operation : operations) {
        bool fired = true;
        for (unsigned int nth = 1; fired; ++nth) {
            begin();
            auto const blocks = QX::arena::statistics().blocks_in_use;
            operation.run([&](auto const& body) {
                FailingAllocation const failing(nth);
                bool done = true;
                try {
                    body();
                } catch (std::bad_alloc const&) {
                    done = false;
                }
                fired = failing.fired();
                return done;
            });
            EXPECT_EQ(QX::arena::statistics().blocks_in_use, blocks)
                << operation.name << ", allocation " << nth;
        }
    }
}

}  // namespace test
