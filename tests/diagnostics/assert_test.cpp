#define QX_ASSERTS 1
#include "qx/diagnostics/assert.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <string>

namespace {

using QX::UniString;

// What reached whom, a letter each: r redirect, o output, h box hook, t text.
std::string reached = std::string(200, ' ');
bool answer_retry;
bool answer_ignore_all;
bool redirect_passes_on;
std::wstring last_text = std::wstring(500, L' ');

bool redirect(QX::TEAM_INFO const&, char const* condition, char const* place, UniString const&) {
    EXPECT_STREQ(condition, "1 == 2");
    EXPECT_NE(std::string(place).find("assert_test.cpp("), std::string::npos);
    reached += 'r';
    return redirect_passes_on;
}

void output(UniString const&) {
    reached += 'o';
}

bool answer_box(bool, UniString const& text, bool& result, bool& ignore_all) {
    EXPECT_TRUE(QX::in_assert);
    reached += 'h';
    last_text = text.c_str();
    result = answer_retry;
    ignore_all = answer_ignore_all;
    return false;
}

bool take_text(UniString const& text) {
    reached += 't';
    last_text = text.c_str();
    return false;
}

class AssertMacros : public testing::Test {
protected:
    AssertMacros() {
        reset();
        QX::qx_message_box_hook = answer_box;
        QX::qx_message_txt_hook = take_text;
    }
    ~AssertMacros() {
        reset();
        QX::qx_message_box_hook = nullptr;
        QX::qx_message_txt_hook = nullptr;
    }

    static void reset() {
        reached.clear();
        answer_retry = answer_ignore_all = redirect_passes_on = false;
        QX::err_msg_redirect = nullptr;
        QX::ODS_fn = nullptr;
        QX::in_assert = QX::dialogs_disabled = false;
        QX::recurring_assert_messages_disabled = QX::dialog_error_fullscreen_mode = false;
        QX::team_subscriptions = 0;
    }

    // One site of a battle, and who heard of it.
    static std::string fail_once() {
        reached.clear();
        QX_ASSERT_TEAM(QX::TI_BATTLE, 1 == 2, QX::String("text"));
        return reached;
    }
};

TEST_F(AssertMacros, say_nothing_where_the_condition_holds) {
    QX_ASSERT(1 + 1 == 2);
    EXPECT_TRUE(QX_VERIFY(1 + 1 == 2));
    EXPECT_EQ(reached, "");
}

TEST_F(AssertMacros, go_through_redirect_output_and_box_in_order) {
    QX::err_msg_redirect = redirect;
    QX::ODS_fn = output;
    EXPECT_EQ(fail_once(), "r");
    redirect_passes_on = true;
    EXPECT_EQ(fail_once(), "roh");
    EXPECT_FALSE(QX::in_assert);
    EXPECT_EQ(last_text.find(L"1 == 2\n"), 0u);
    EXPECT_NE(last_text.find(L"teams:\nBattle\n"), std::wstring::npos);
}

TEST_F(AssertMacros, obey_the_switches) {
    bool* const switches[] = {
        &QX::dialogs_disabled, &QX::dialog_error_fullscreen_mode, &QX::in_assert};
    for (bool* one : switches) {
        *one = true;
        EXPECT_EQ(fail_once(), "t");
        *one = false;
    }
    EXPECT_EQ(fail_once(), "h");
    QX::recurring_assert_messages_disabled = true;
    EXPECT_EQ(fail_once(), "");
}

TEST_F(AssertMacros, ask_for_the_teams_subscribed_to) {
    struct Row {
        unsigned int subscriptions;
        char const* reached;
    };
    for (Row const& row : {Row{0, "h"}, Row{1, "h"}, Row{2, ""}, Row{3, "h"}}) {
        QX::team_subscriptions = row.subscriptions;
        EXPECT_EQ(fail_once(), row.reached) << row.subscriptions;
    }
    QX::team_subscriptions = 2;
    reached.clear();
    QX_ASSERT(1 == 2);
    EXPECT_EQ(reached, "h");
}

TEST_F(AssertMacros, remember_ignore_all_for_each_site) {
    for (int round = 0; round < 3; ++round) {
        reached.clear();
        answer_ignore_all = true;
        QX_ASSERT(round > 5);
        EXPECT_EQ(reached, round == 0 ? "h" : "");
        answer_ignore_all = false;
        QX_ASSERT(round > 5);
        EXPECT_EQ(reached, round == 0 ? "hh" : "h");
    }
}

int breaks;

LONG CALLBACK step_over_break(EXCEPTION_POINTERS* at) {
    if (at->ExceptionRecord->ExceptionCode != EXCEPTION_BREAKPOINT)
        return EXCEPTION_CONTINUE_SEARCH;
    if (*reinterpret_cast<unsigned char const*>(at->ContextRecord->Rip) == 0xCC)
        ++at->ContextRecord->Rip;
    ++breaks;
    answer_retry = breaks < 2;
    return EXCEPTION_CONTINUE_EXECUTION;
}

TEST_F(AssertMacros, break_on_retry_and_look_again) {
    void* const handler = AddVectoredExceptionHandler(1, step_over_break);
    breaks = 0;
    answer_retry = true;
    int looks = 0;
    QX_ASSERT(++looks > 2);
    EXPECT_EQ(looks, 3);
    EXPECT_EQ(breaks, 2);
    answer_retry = true;
    EXPECT_FALSE(QX_VERIFY(looks == 0));
    EXPECT_EQ(breaks, 3);
    EXPECT_EQ(reached, "hhh");
    RemoveVectoredExceptionHandler(handler);
}

}  // namespace
