#include "tests/harness/failing_allocation.h"

#include <new>

#include "qx/memory/heap.h"

namespace test {

namespace {

unsigned int remaining;
bool reached;

// Runs after the block is made: gives it back and throws, which is what exhaustion looks like.
void fail_in_turn(void const* block, unsigned int size) {
    if (size == 0 || remaining == 0 || --remaining != 0) return;
    reached = true;
    auto const hook = QX::allocation_hook;
    QX::allocation_hook = nullptr;
    QX::custom_free(block);
    QX::allocation_hook = hook;
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

}  // namespace test
