#include "qx/diagnostics/teams.h"

#include <gtest/gtest.h>

namespace {

using namespace QX;

constexpr char all_names[] =
    "Battle, Campaign, UI, Sound\n, Multiplayer, Tools, Tidemark, Animations\n, Art, Campaign AI, "
    "Campaign Design, Missing Content\n, Global, Campaign AI Ignore For Now Please";

TEST(Teams, names_stand_four_in_a_line_with_the_comma_behind_the_break) {
    EXPECT_STREQ(team_names_from_team_mask(0xFFFFC000).c_str(), "");
    EXPECT_STREQ(team_names_from_team_mask(0xF).c_str(), "Battle, Campaign, UI, Sound");
    EXPECT_STREQ(team_names_from_team_mask(0xFFFFFFFF).c_str(), all_names);
    EXPECT_STREQ(wide_team_names_from_team_mask(TI_GLOBAL.team_mask).c_str(), L"Global");
    EXPECT_STREQ(team_header().c_str(), "\nThis message applies to the following teams:\n");
    EXPECT_EQ(TI_MISSING_CONTENT.team_mask, 0x800u);
    EXPECT_EQ(TI_MISSING_CONTENT.level - TI_CAMPAIGN.level, 1u);
}

}  // namespace
