#include "qx/diagnostics/teams.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using namespace QX;

struct Row {
    unsigned int mask;
    char const* names;
};

// clang-format off
constexpr Row rows[] = {
    {0,          ""},
    {0x1,        "Battle"},
    {0x3,        "Battle, Campaign"},
    {0x2010,     "Multiplayer, Campaign AI Ignore For Now Please"},
    {0xF,        "Battle, Campaign, UI, Sound"},
    {0x1F,       "Battle, Campaign, UI, Sound\n, Multiplayer"},
    {0xFFFFC000, ""},
    {0xFFFFFFFF, "Battle, Campaign, UI, Sound\n, Multiplayer, Tools, Tidemark, Animations\n, Art, "
                 "Campaign AI, Campaign Design, Missing Content\n, Global, "
                 "Campaign AI Ignore For Now Please"},
};
// clang-format on

TEST(Teams, names_stand_four_in_a_line_with_the_comma_behind_the_break) {
    for (Row const& row : rows) {
        EXPECT_STREQ(team_names_from_team_mask(row.mask).c_str(), row.names);
        std::wstring const wide(row.names, row.names + std::strlen(row.names));
        EXPECT_EQ(wide_team_names_from_team_mask(row.mask).c_str(), wide);
    }
}

TEST(Teams, records_have_the_bits_of_their_names) {
    TEAM_INFO const* const teams[] = {
        &TI_BATTLE,
        &TI_CAMPAIGN,
        &TI_UI,
        &TI_SOUND,
        &TI_MULTIPLAYER,
        &TI_TOOLS,
        &TI_TIDEMARK,
        &TI_ANIMATIONS,
        &TI_ART,
        &TI_CAMPAIGN_AI,
        &TI_CAMPAIGN_DESIGN,
        &TI_MISSING_CONTENT,
        &TI_GLOBAL,
        &TI_CAMPAIGN_AI_IGNORE_FOR_NOW_PLEASE};
    unsigned int bit = 1;
    for (TEAM_INFO const* team : teams) {
        EXPECT_EQ(team->team_mask, bit);
        EXPECT_EQ(team->level, team == &TI_MISSING_CONTENT ? 2u : 1u);
        EXPECT_TRUE(team->flag_1 && team->flag_2);
        bit <<= 1;
    }
    EXPECT_EQ(team_subscriptions, 0u);
}

TEST(Teams, header_stands_on_a_line_of_its_own) {
    EXPECT_STREQ(team_header().c_str(), "\nThis message applies to the following teams:\n");
    EXPECT_STREQ(wide_team_header().c_str(), L"\nThis message applies to the following teams:\n");
}

}  // namespace
