// The process as an application: its object, the message pump, and the ways out.
#include <gtest/gtest.h>

#include "qx/app/process.h"
#include "tests/app/host.h"
#include "tests/harness/stand_in.h"

#include <vector>

namespace {

// --- The pump ------------------------------------------------------------------------------------

using Messages = std::vector<unsigned int>;

// Posts to the thread's own queue and pumps once.
void expect_pumped(Messages const& posted, Messages const& expected, bool quits) {
    static Messages dispatched;
    static void* system_dispatch;
    auto const note = +[](MSG const* message) -> LRESULT {
        dispatched.push_back(message->message);
        return reinterpret_cast<decltype(&DispatchMessageW)>(system_dispatch)(message);
    };
    test::StandIn const dispatch("DispatchMessageW", note);
    system_dispatch = dispatch.original();
    for (unsigned int message : posted)
        PostThreadMessageW(GetCurrentThreadId(), message, 'A', 0x1E0001);
    EXPECT_EQ(QX::Application::process_message_queue(), quits);
    EXPECT_EQ(std::exchange(dispatched, {}), expected);
}

TEST(MessageLoop, quit_and_gesture_messages_are_dispatched_and_end_the_pump) {
    expect_pumped({}, {}, false);
    QX::QXWindow::post_quit_message();
    expect_pumped({WM_APP, WM_KEYDOWN}, {WM_APP, WM_KEYDOWN, WM_CHAR, WM_QUIT}, true);
    expect_pumped({WM_QUIT, WM_APP}, {WM_QUIT}, true);
    expect_pumped({0x119, WM_QUIT}, {WM_APP, 0x119}, false);
    expect_pumped({}, {WM_QUIT}, true);
}

TEST(MessageLoop, clearing_removes_without_a_record_until_nothing_is_found) {
    static int messages_left = 3;
    auto const peek = +[](MSG* message, HWND window, UINT first, UINT last, UINT flags) -> BOOL {
        EXPECT_TRUE(!message && !window && (first | last) == 0 && flags == PM_REMOVE);
        return messages_left-- > 0;
    };
    test::StandIn const call("PeekMessageW", peek);
    QX::Application::clear_message_queue();
    EXPECT_EQ(messages_left, -1);
}

// --- The process ---------------------------------------------------------------------------------

TEST(ProcessDeathTest, exit_and_kill_end_it_without_orderly_work) {
    auto const orderly_work = [] { std::atexit([] { std::_Exit(99); }); };
    EXPECT_EXIT((orderly_work(), QX::exit_process(77)), testing::ExitedWithCode(77), "");
    EXPECT_EXIT((orderly_work(), QX::Application::kill()), testing::ExitedWithCode(0), "");
}

int pressed;

int WINAPI press(HWND, wchar_t const* text, wchar_t const* title, UINT) {
    EXPECT_STREQ(text, L"Are you sure you want to abort the process?");
    EXPECT_STREQ(title, L"Last chance...");
    return pressed;
}

TEST(ProcessDeathTest, confirm_exit_ends_it_on_ok_and_goes_on_after_cancel) {
    test::StandIn const box("MessageBoxW", press);
    pressed = IDCANCEL;
    EXPECT_FALSE(QX::confirm_exit(77));
    pressed = IDOK;
    EXPECT_EXIT(QX::confirm_exit(77), testing::ExitedWithCode(77), "");
}

}  // namespace
