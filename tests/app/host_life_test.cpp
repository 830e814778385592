// A host's whole life, as examples/host_life.cpp lives it: what it leaves, and how it may die.
#define main example_main
#include "examples/host_life.cpp"
#undef main

#include <gtest/gtest.h>

#include "tests/harness/balance.h"
#include "tests/harness/pack_builder.h"
#include "tests/harness/run_tool.h"
#include "tests/harness/temp_folder.h"

namespace {

// The working folder decides on the layout, and comes back at the end.
class HostLife : public testing::TestWithParam<bool> {
protected:
    HostLife() {
        GetCurrentDirectoryA(sizeof before_, before_);
        CreateDirectoryA(folder_.file("data").c_str(), nullptr);
        if (GetParam()) folder_.write("data\\boot.pack", "");
        test::PackRecipe recipe;
        recipe.entries = {{"one", std::string(700, '1')}, {"two", std::string(70000, '2')}};
        pack_ = folder_.write("two.pack", test::build_pack(recipe));
        SetCurrentDirectoryA(folder_.path().c_str());
    }
    ~HostLife() override { SetCurrentDirectoryA(before_); }

    test::TempFolder folder_;
    std::string pack_;
    char before_[MAX_PATH];
};

TEST_P(HostLife, leaves_what_it_found_once_the_system_is_warm) {
    Options options;
    options.pack = pack_.c_str();
    ASSERT_TRUE(live(options));
    test::Holdings before = test::current_holdings();
    ASSERT_TRUE(live(options));
    test::Holdings const after = test::current_holdings();
    // The development layout notes the path to be watched once more.
    before.blocks += GetParam() ? 0 : 1;
    test::expect_no_growth(before, after);
    EXPECT_LE(after.private_bytes, before.private_bytes + 64 * 1024);
}

TEST_P(HostLife, may_end_after_any_step_with_everything_up) {
    for (std::string const step : steps) {
        std::string const arguments = "\"" + pack_ + "\" --frames 20 --until " + step;
        for (char const* const window : {"", " --no-window"}) {
            auto const result = test::run_tool("host_life", arguments + window);
            EXPECT_EQ(result.code, 0u) << step << window << "\n" << result.errors;
            EXPECT_NE(result.output.find("ends after: " + step), std::string::npos);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(InBothLayouts, HostLife, testing::Bool());

}  // namespace
