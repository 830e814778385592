#include "tests/harness/failing_call.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <atomic>
#include <cerrno>
#include <new>
#include <string>

#include "tests/harness/balance.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/stand_in.h"

namespace test {

namespace {

SystemCall call;
void* original;
std::atomic<unsigned int> remaining;

// Hands on as many words as the widest of the calls takes: what is too much harms nobody.
using Word = ULONG_PTR;
Word hand_on(Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h) {
    bool const fails = remaining != 0 && --remaining == 0;
    auto const real = reinterpret_cast<decltype(&hand_on)>(original);
    Word const result = fails && !call.gives_back ? 0 : real(a, b, c, d, e, f, g, h);
    if (!fails) return result;
    errno = EIO;
    SetLastError(ERROR_NOT_READY);
    return static_cast<Word>(call.failure);
}

struct FailingCall {
    explicit FailingCall(unsigned int nth) {
        EXPECT_TRUE(stand_in.found());
        original = stand_in.original();
        remaining = nth;
    }
    bool fired() const { return remaining == 0; }

    StandIn stand_in{call.function, hand_on};
};

// Gives how many failures came.
template <typename Failing>
unsigned int walk(std::string const& what, std::function<bool()> const& use) {
    for (unsigned int nth = 1;; ++nth) {
        SCOPED_TRACE(what + ' ' + std::to_string(nth));
        Holdings const before = current_holdings();
        bool well = false, fired = false;
        {
            Failing const failing(nth);
            try {
                well = use();
            } catch (std::bad_alloc const&) {}
            fired = failing.fired();
        }
        EXPECT_EQ(well, !fired);
        EXPECT_TRUE(use()) << "afterwards";
        expect_no_growth(before, current_holdings());
        if (!fired) return nth - 1;
    }
}

}  // namespace

void walk_failures(
    char const* name, std::function<bool()> const& use, std::initializer_list<SystemCall> calls) {
    EXPECT_TRUE(use()) << name;
    walk<FailingAllocation>(name, use);
    for (SystemCall const& each : calls) {
        call = each;
        EXPECT_GT(walk<FailingCall>(std::string(name) + ' ' + each.function, use), 0u);
    }
}

}  // namespace test
