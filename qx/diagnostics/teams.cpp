#include "qx/diagnostics/teams.h"

#include "qx/text/convert.h"

namespace QX {

TEAM_INFO const TI_BATTLE = {0x1, 1, true, true};
TEAM_INFO const TI_CAMPAIGN = {0x2, 1, true, true};
TEAM_INFO const TI_UI = {0x4, 1, true, true};
TEAM_INFO const TI_SOUND = {0x8, 1, true, true};
TEAM_INFO const TI_MULTIPLAYER = {0x10, 1, true, true};
TEAM_INFO const TI_TOOLS = {0x20, 1, true, true};
TEAM_INFO const TI_TIDEMARK = {0x40, 1, true, true};
TEAM_INFO const TI_ANIMATIONS = {0x80, 1, true, true};
TEAM_INFO const TI_ART = {0x100, 1, true, true};
TEAM_INFO const TI_CAMPAIGN_AI = {0x200, 1, true, true};
TEAM_INFO const TI_CAMPAIGN_DESIGN = {0x400, 1, true, true};
TEAM_INFO const TI_MISSING_CONTENT = {0x800, 2, true, true};
TEAM_INFO const TI_GLOBAL = {0x1000, 1, true, true};
TEAM_INFO const TI_CAMPAIGN_AI_IGNORE_FOR_NOW_PLEASE = {0x2000, 1, true, true};

unsigned int team_subscriptions = 0;

namespace {

constexpr unsigned int team_count = 14;
constexpr unsigned int names_in_a_line = 4;

constexpr unsigned int team_masks[team_count] = {0x1,  0x2,   0x4,   0x8,   0x10,  0x20,   0x40,
                                                 0x80, 0x100, 0x200, 0x400, 0x800, 0x1000, 0x2000};

constexpr char const* team_names[team_count] = {
    "Battle",
    "Campaign",
    "UI",
    "Sound",
    "Multiplayer",
    "Tools",
    "Tidemark",
    "Animations",
    "Art",
    "Campaign AI",
    "Campaign Design",
    "Missing Content",
    "Global",
    "Campaign AI Ignore For Now Please",
};

}  // namespace

String team_header() {
    return String("\nThis message applies to the following teams:\n");
}

UniString wide_team_header() {
    return UniString(L"\nThis message applies to the following teams:\n");
}

String team_names_from_team_mask(unsigned int mask) {
    String names;
    unsigned int written = 0;
    for (unsigned int i = 0; i < team_count; ++i) {
        if ((mask & team_masks[i]) == 0) continue;
        // The comma goes behind the line break: readers of the logs expect it there.
        if (written != 0) names += written % names_in_a_line == 0 ? "\n, " : ", ";
        names += team_names[i];
        ++written;
    }
    return names;
}

UniString wide_team_names_from_team_mask(unsigned int mask) {
    return must_fix_string_widen(team_names_from_team_mask(mask));
}

}  // namespace QX
