// failing_allocation.h - makes the n-th allocation throw std::bad_alloc, one n after the other.
//
//     test::walk_allocations({{"spawn", [](test::Attempt const& attempt) {
//         Library const library(1);
//         bool const spawned = attempt([] { task::spawn(...); });
//         ...                                       // what holds after success, what after failure
//     }}});
#pragma once

#include <functional>
#include <initializer_list>

namespace test {

// Counts from 1 at construction, in all threads. Takes allocation_hook for its life and puts it
// back.
class FailingAllocation {
public:
    explicit FailingAllocation(unsigned int nth);
    ~FailingAllocation();

    FailingAllocation(FailingAllocation&&) = delete;

    // Whether the n-th allocation was reached.
    bool fired() const;

private:
    void (*previous_)(void const*, unsigned int);
};

// Runs a body in which the n-th allocation fails. True if it ended, false if it threw
// std::bad_alloc.
using Attempt = std::function<bool(std::function<void()> const& body)>;

struct Operation {
    char const* name;
    std::function<void(Attempt const&)> run;
};

// Runs each operation with n = 1, 2, 3 and so on until no allocation fails any more. After each run
// the arena holds the blocks that it held before. `begin` is called before each.
void walk_allocations(
    std::initializer_list<Operation> operations, void (*begin)() = [] {});

}  // namespace test
