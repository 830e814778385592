// balance.h - after every case, counts what the process holds and fails the case that left more.
//
// Cases named in lasting.txt are excused, each with its reason there: altogether, or, with "+N"
// before the reason, of N handles.
#pragma once

#include <gtest/gtest.h>

namespace test {

// What a process holds at one moment.
struct Holdings {
    unsigned long long handles = 0;  // but for events
    unsigned long long events = 0;
    unsigned long long threads = 0;
    unsigned long long windows = 0;        // top-level ones of this thread
    unsigned long long blocks = 0;         // of the arena
    unsigned long long private_bytes = 0;  // told, not compared after a case
};

Holdings current_holdings();

// Fails the case for all but private bytes of which there is more than before.
void expect_no_growth(Holdings const& before, Holdings const& now);

// What compares after each case. The runner's list of listeners owns it.
testing::TestEventListener* new_balance_listener();

}  // namespace test
