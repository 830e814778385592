// failing_allocation.h - makes the n-th allocation through custom_malloc throw std::bad_alloc.
#pragma once

namespace test {

// Counts from 1 at construction. Takes allocation_hook for its life and puts it back.
class FailingAllocation {
public:
    explicit FailingAllocation(unsigned int nth);
    ~FailingAllocation();

    FailingAllocation(FailingAllocation const&) = delete;
    FailingAllocation& operator=(FailingAllocation const&) = delete;

    // Whether the n-th allocation was reached.
    bool fired() const;

private:
    void (*previous_)(void const*, unsigned int);
};

}  // namespace test
