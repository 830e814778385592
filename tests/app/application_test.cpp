// The process as an application: its object, the message pump, and the ways out.
#include <gtest/gtest.h>

#include "qx/app/process.h"
#include "tests/app/host.h"
#include "tests/harness/stand_in.h"

#include <thread>

namespace {

// --- The pump ------------------------------------------------------------------------------------

using Messages = std::vector<unsigned int>;

Messages dispatched;
LRESULT(WINAPI* system_dispatch)(MSG const*);

LRESULT WINAPI note_dispatch(MSG const* message) {
    dispatched.push_back(message->message);
    return system_dispatch(message);
}

// Posts to the thread's own queue and pumps once.
void expect_pumped(Messages const& posted, Messages const& expected, bool quits) {
    test::StandIn const dispatch("DispatchMessageW", note_dispatch);
    system_dispatch = reinterpret_cast<decltype(system_dispatch)>(dispatch.original());
    for (unsigned int message : posted)
        PostThreadMessageW(GetCurrentThreadId(), message, 'A', 0x1E0001);
    EXPECT_EQ(QX::Application::process_message_queue(), quits);
    EXPECT_EQ(std::exchange(dispatched, {}), expected);
}

TEST(MessageLoop, quit_message_is_dispatched_and_then_noticed) {
    expect_pumped({}, {}, false);
    QX::QXWindow::post_quit_message();
    expect_pumped({WM_APP, WM_KEYDOWN}, {WM_APP, WM_KEYDOWN, WM_CHAR, WM_QUIT}, true);
    expect_pumped({WM_QUIT, WM_APP}, {WM_QUIT}, true);
    expect_pumped({}, {WM_APP}, false);
}

TEST(MessageLoop, gesture_stops_the_pump_before_the_rest) {
    expect_pumped({WM_APP, 0x119, WM_QUIT}, {WM_APP, 0x119}, false);
    expect_pumped({}, {WM_QUIT}, true);
}

int messages_left = 3;

BOOL WINAPI check_peek(MSG* message, HWND window, UINT first, UINT last, UINT flags) {
    EXPECT_TRUE(!message && !window && (first | last) == 0 && flags == PM_REMOVE);
    return messages_left-- > 0;
}

TEST(MessageLoop, clearing_removes_without_a_record_until_nothing_is_found) {
    test::StandIn const call("PeekMessageW", check_peek);
    QX::Application::clear_message_queue();
    EXPECT_EQ(messages_left, -1);
}

// --- The process ---------------------------------------------------------------------------------

TEST(ProcessDeathTest, exit_and_kill_end_it_without_orderly_work) {
    auto const orderly_work = [] { std::atexit([] { std::_Exit(99); }); };
    EXPECT_EXIT((orderly_work(), QX::exit_process(77)), testing::ExitedWithCode(77), "");
    EXPECT_EXIT((orderly_work(), QX::Application::kill()), testing::ExitedWithCode(0), "");
}

// Answers the box once it is on the screen.
bool confirm_with(WPARAM button) {
    std::thread answer([button] {
        wchar_t text[100] = {};
        HWND box = nullptr;
        for (; std::wstring(text) != L"Are you sure you want to abort the process?"; Sleep(10)) {
            box = FindWindowW(L"#32770", L"Last chance...");
            GetDlgItemTextW(box, 0xFFFF, text, 100);
        }
        PostMessageW(box, WM_COMMAND, button, 0);
    });
    bool const result = QX::confirm_exit(77);
    answer.join();
    return result;
}

TEST(ProcessDeathTest, confirm_exit_ends_it_on_ok_and_goes_on_after_cancel) {
    EXPECT_FALSE(confirm_with(IDCANCEL));
    EXPECT_EXIT(confirm_with(IDOK), testing::ExitedWithCode(77), "");
}

}  // namespace
