// main.cpp - the runner of every test program: GoogleTest, with the balance of blocks, handles and
// threads checked after each case.
#include <gtest/gtest.h>

#include "tests/harness/balance.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new test::BalanceListener);
    return RUN_ALL_TESTS();
}
