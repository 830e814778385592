#define QX_ASSERTS 1
#include "qx/diagnostics/assert.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <string>

namespace {

using QX::UniString;

// What reached whom, a letter each: r redirect, o output, h box hook, t text, b breakpoint.
std::string reached = std::string(200, ' ');
bool redirect_passes_on;
bool answer_retry;
bool answer_ignore_all;

bool redirect(QX::TEAM_INFO const&, char const* condition, char const* place, UniString const&) {
    EXPECT_STREQ(condition, "1 == 2");
    EXPECT_NE(std::string(place).find("assert_test.cpp("), std::string::npos);
    reached += 'r';
    return redirect_passes_on;
}

void output(UniString const& text) {
    EXPECT_EQ(text.find(L"text\n1 == 2\n"), 0u);
    reached += 'o';
}

bool answer_box(bool, UniString const&, bool& result, bool& ignore_all) {
    EXPECT_TRUE(QX::in_assert);
    reached += 'h';
    result = answer_retry;
    ignore_all = answer_ignore_all;
    return false;
}

bool take_text(UniString const&) {
    reached += 't';
    return false;
}

// One site of a battle, and who heard of it.
std::string fail_once() {
    reached.clear();
    QX_ASSERT_TEAM(QX::TI_BATTLE, 1 == 2, QX::String("text"));
    return reached;
}

// What a case sets is put back.
class AssertMacros : public testing::Test {
protected:
    AssertMacros() {
        reached.clear();
        QX::qx_message_box_hook = answer_box;
        QX::qx_message_txt_hook = take_text;
    }
    ~AssertMacros() {
        QX::qx_message_box_hook = nullptr;
        QX::qx_message_txt_hook = nullptr;
        QX::register_err_msg_redirect_fn(nullptr);
        QX::register_output_debug_string_fn(nullptr);
        QX::recurring_assert_messages_disabled = false;
        QX::team_subscriptions = 0;
    }
};

TEST_F(AssertMacros, go_through_redirect_output_and_box_in_order) {
    QX::register_err_msg_redirect_fn(redirect);
    QX::register_output_debug_string_fn(output);
    EXPECT_EQ(fail_once(), "r");
    redirect_passes_on = true;
    EXPECT_EQ(fail_once(), "roh");
    EXPECT_FALSE(QX::in_assert);
}

TEST_F(AssertMacros, obey_the_switches) {
    for (bool* one : {&QX::dialogs_disabled, &QX::dialog_error_fullscreen_mode, &QX::in_assert}) {
        *one = true;
        EXPECT_EQ(fail_once(), "t");
        *one = false;
    }
    for (unsigned int subscriptions : {0, 1, 2, 3}) {
        QX::team_subscriptions = subscriptions;
        EXPECT_EQ(fail_once(), subscriptions == 2 ? "" : "h");
        QX_ASSERT(1 == 2);
        EXPECT_EQ(reached.back(), 'h') << "everybody is in the global team";
    }
    QX::recurring_assert_messages_disabled = true;
    EXPECT_EQ(fail_once(), "");
}

TEST_F(AssertMacros, remember_ignore_all_for_each_site) {
    for (int round = 0; round < 3; ++round) {
        for (bool all : {true, false}) {
            answer_ignore_all = all;
            if (all) QX_ASSERT(round > 5);
            if (!all) QX_ASSERT(round > 5);
        }
    }
    EXPECT_EQ(reached, "hhhh");
}

LONG CALLBACK step_over_break(EXCEPTION_POINTERS* at) {
    if (at->ExceptionRecord->ExceptionCode != EXCEPTION_BREAKPOINT)
        return EXCEPTION_CONTINUE_SEARCH;
    if (*reinterpret_cast<unsigned char const*>(at->ContextRecord->Rip) == 0xCC)
        ++at->ContextRecord->Rip;
    reached += 'b';
    return EXCEPTION_CONTINUE_EXECUTION;
}

TEST_F(AssertMacros, break_on_retry_and_look_again) {
    void* const handler = AddVectoredExceptionHandler(1, step_over_break);
    answer_retry = true;
    int looks = 0;
    QX_ASSERT(++looks > 2);
    EXPECT_EQ(looks, 3);
    EXPECT_FALSE(QX_VERIFY(looks == 0));
    EXPECT_TRUE(QX_VERIFY(looks == 3));
    EXPECT_EQ(reached, "hbhbhb");
    RemoveVectoredExceptionHandler(handler);
}

}  // namespace
