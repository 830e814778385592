#include "qx/diagnostics/teams.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using namespace QX;

constexpr char all_names[] =
    "Battle, Campaign, UI, Sound\n, Multiplayer, Tools, Tidemark, Animations\n, Art, Campaign AI, "
    "Campaign Design, Missing Content\n, Global, Campaign AI Ignore For Now Please";

TEST(Teams, names_stand_four_in_a_line_with_the_comma_behind_the_break) {
    struct Row {
        unsigned int mask;
        char const* names;
    };
    for (Row const& row :
         {Row{0xFFFFC000, ""}, Row{0x2010, "Multiplayer, Campaign AI Ignore For Now Please"},
          Row{0xF, "Battle, Campaign, UI, Sound"}, Row{0xFFFFFFFF, all_names}}) {
        EXPECT_STREQ(team_names_from_team_mask(row.mask).c_str(), row.names);
        std::wstring const wide(row.names, row.names + std::strlen(row.names));
        EXPECT_EQ(wide_team_names_from_team_mask(row.mask).c_str(), wide);
    }
    EXPECT_STREQ(team_header().c_str(), "\nThis message applies to the following teams:\n");
}

TEST(Teams, records_have_the_bits_of_their_names) {
    TEAM_INFO const* const teams[] = {&TI_BATTLE, &TI_CAMPAIGN_AI, &TI_MISSING_CONTENT, &TI_GLOBAL};
    unsigned int const masks[] = {0x1, 0x200, 0x800, 0x1000};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(teams[i]->team_mask, masks[i]);
        EXPECT_EQ(teams[i]->level, i == 2 ? 2u : 1u);
        EXPECT_TRUE(teams[i]->flag_1 && teams[i]->flag_2);
    }
}

}  // namespace
