// failing_call.h - makes each allocation and the n-th call of system functions fail in turn.
//
//     test::walk_failures("copy", [] { return copy(...); }, {{"CreateFileA", -1}, {"ReadFile"}});
#pragma once

#include <functional>
#include <initializer_list>

namespace test {

// A system function that the library imports, and what it returns when it fails. One that gives
// something back does so all the same.
struct SystemCall {
    char const* function;
    long long failure = 0;
    bool gives_back = false;
};

// Runs `use` with the n-th allocation, then with the n-th of each of `calls` failing, n = 1, 2, 3
// and so on until nothing fails any more. `use` tells whether all went well, which it must not
// where something failed; std::bad_alloc is such a telling. Afterwards it must go well again, and
// the process holds what it held before.
void walk_failures(
    char const* name, std::function<bool()> const& use, std::initializer_list<SystemCall> calls);

}  // namespace test
