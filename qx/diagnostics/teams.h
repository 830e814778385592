// teams.h - the teams that a failure message concerns.
//
//     team_names_from_team_mask(0)     =>  ""
//     team_names_from_team_mask(0x3)   =>  "Battle, Campaign"
//     team_names_from_team_mask(0x1F)  =>  "Battle, Campaign, UI, Sound\n, Multiplayer"
//
// The fifth name and every fourth behind it begin a new line, behind a comma that is kept.
// Failure: exhaustion alone (std::bad_alloc). Threads: constants, and texts made for the caller.
#pragma once

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

// What an assertion macro knows about its team. The library passes these on and reads none.
struct TEAM_INFO {
    unsigned int team_mask;  // one bit
    unsigned int level;      // 2 for missing content, else 1
    bool flag_1;             // true in every row
    bool flag_2;             // true in every row
};

// One record for each team, with the bits in this order from 0x1 on.
extern QX_API TEAM_INFO const TI_BATTLE;
extern QX_API TEAM_INFO const TI_CAMPAIGN;
extern QX_API TEAM_INFO const TI_UI;
extern QX_API TEAM_INFO const TI_SOUND;
extern QX_API TEAM_INFO const TI_MULTIPLAYER;
extern QX_API TEAM_INFO const TI_TOOLS;
extern QX_API TEAM_INFO const TI_TIDEMARK;
extern QX_API TEAM_INFO const TI_ANIMATIONS;
extern QX_API TEAM_INFO const TI_ART;
extern QX_API TEAM_INFO const TI_CAMPAIGN_AI;
extern QX_API TEAM_INFO const TI_CAMPAIGN_DESIGN;
extern QX_API TEAM_INFO const TI_MISSING_CONTENT;
extern QX_API TEAM_INFO const TI_GLOBAL;
extern QX_API TEAM_INFO const TI_CAMPAIGN_AI_IGNORE_FOR_NOW_PLEASE;

// The teams whose messages this user wants; 0 at load. For client macros: nothing here reads it.
extern QX_API unsigned int team_subscriptions;

// "\nThis message applies to the following teams:\n"
QX_API String team_header();
QX_API UniString wide_team_header();

// The names of the bits that are set, lowest first. Bits without a team are passed over.
QX_API String team_names_from_team_mask(unsigned int mask);
QX_API UniString wide_team_names_from_team_mask(unsigned int mask);

}  // namespace QX
