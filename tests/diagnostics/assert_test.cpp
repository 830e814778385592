#define QX_ASSERTS 1
#include "qx/diagnostics/assert.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// What reached whom, a letter each: r redirect, o output, h box hook, t text.
std::string reached = std::string(200, ' ');

bool redirect(QX::TEAM_INFO const& team, char const* condition, char const*, QX::UniString const&) {
    EXPECT_STREQ(condition, "1 == 2");
    reached += 'r';
    return &team == &QX::TI_BATTLE;
}

void output(QX::UniString const&) {
    reached += 'o';
}

bool answer_box(bool, QX::UniString const&, bool&, bool& ignore_all) {
    EXPECT_TRUE(QX::in_assert);
    reached += 'h';
    ignore_all = reached == "h";
    return false;
}

bool take_text(QX::UniString const&) {
    reached += 't';
    return false;
}

// Who hears of one site of a battle.
std::string fail_once() {
    reached.clear();
    QX_ASSERT_TEAM(QX::TI_BATTLE, 1 == 2, QX::String("text"));
    return reached;
}

TEST(AssertMacros, obey_the_switches) {
    QX::qx_message_box_hook = answer_box;
    QX::qx_message_txt_hook = take_text;
    for (bool* one : {&QX::dialogs_disabled, &QX::dialog_error_fullscreen_mode, &QX::in_assert}) {
        *one = true;
        EXPECT_EQ(fail_once(), "t");
        *one = false;
    }
    QX::register_err_msg_redirect_fn(redirect);
    QX::register_output_debug_string_fn(output);
    for (unsigned int subscriptions : {0, 1, 2, 3}) {
        QX::team_subscriptions = subscriptions;
        EXPECT_EQ(fail_once(), subscriptions == 2 ? "ro" : "roh");
    }
    QX_ASSERT(1 == 2);
    EXPECT_EQ(reached, "rohr") << "a redirection that answers false ends the matter";
    QX::recurring_assert_messages_disabled = true;
    EXPECT_EQ(fail_once(), "");
}

TEST(AssertMacros, remember_ignore_all_for_each_site) {
    QX::qx_message_box_hook = answer_box;
    reached.clear();
    for (int round = 0; round < 3; ++round) {
        QX_ASSERT(round > 5);
        EXPECT_FALSE(QX_VERIFY(round > 5));
    }
    EXPECT_EQ(reached, "hhhh") << "the first site is asked for once";
}

}  // namespace
