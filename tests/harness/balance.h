// balance.h - after every case, counts what the process holds and fails the case that left more.
//
// Cases named in lasting.txt are excused, each with its reason there.
#pragma once

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace test {

// What a process holds at one moment.
struct Holdings {
    unsigned long handles = 0;
    unsigned long threads = 0;
    unsigned long long blocks = 0;  // of the arena
};

Holdings current_holdings();

class BalanceListener : public testing::EmptyTestEventListener {
public:
    BalanceListener();

    void OnTestStart(testing::TestInfo const& info) override;
    void OnTestEnd(testing::TestInfo const& info) override;

private:
    bool is_excused(testing::TestInfo const& info) const;

    std::set<std::string> lasting_;  // "Suite.Case" or "Suite.*"
    Holdings before_;
};

}  // namespace test
