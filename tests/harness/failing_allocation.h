// failing_allocation.h - makes the n-th allocation throw std::bad_alloc, one n after the other.
//
//     test::walk_allocations({{"spawn", [](test::Attempt& attempt) {
//         Library const library(1);
//         bool const spawned = attempt([] { task::spawn(...); });
//         ...                                       // what holds after success, what after failure
//     }}});
#pragma once

#include <initializer_list>
#include <new>

namespace test {

// Counts from 1 at construction, in all threads. Takes allocation_hook for its life and puts it
// back.
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

// One run of an operation. What it does under `attempt` has its n-th allocation fail.
class Attempt {
public:
    explicit Attempt(unsigned int nth) : nth_(nth) {}

    // True if the body ended, false if it threw std::bad_alloc.
    template <typename Body>
    bool operator()(Body body) {
        FailingAllocation const failing(nth_);
        bool done = true;
        try {
            body();
        } catch (std::bad_alloc const&) {
            done = false;
        }
        fired_ = failing.fired();
        return done;
    }

    bool fired() const { return fired_; }

private:
    unsigned int nth_;
    bool fired_ = false;
};

struct Operation {
    char const* name;
    void (*run)(Attempt& attempt);
};

// Runs each operation with n = 1, 2, 3 and so on until no allocation fails any more. After each run
// the arena holds the blocks that it held before. `begin` is called before each.
void walk_allocations(
    std::initializer_list<Operation> operations, void (*begin)() = [] {});

}  // namespace test
