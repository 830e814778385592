#include "qx/diagnostics/assertion_dialog.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "qx/diagnostics/teams.h"
#include "tests/harness/stand_in.h"
#include "tests/tasks/scheduler_fixture.h"

#include <algorithm>
#include <array>
#include <functional>
#include <string>
#include <thread>

namespace {

using QX::UniString;

wchar_t const title[] = L"QXLibs dialog under test";

struct Texts {
    UniString heading = L"head \x20AC";
    UniString details = L"what\nwhere";
    UniString teams = L"UI & all";
    QX::ASSERT_SEVERITY severity = QX::ASSERT_SEVERITY_HIGH;
};

int show(Texts const& texts = {}) {
    return static_cast<int>(QX::ignore_all_message_box_dialog(
        title, texts.heading, texts.details, texts.teams, texts.severity));
}

void press(HWND dialog, int id) {
    SendMessageW(dialog, WM_COMMAND, static_cast<WPARAM>(id), 0);
}

// The dialog is ignored in the end unless it has been answered, which hides it.
int show_and(std::function<void(HWND)> act, Texts const& texts = {}) {
    std::thread person([&] {
        HWND dialog = nullptr;
        for (int i = 0; i < 2000 && !IsWindowVisible(dialog); ++i, Sleep(5))
            dialog = FindWindowW(nullptr, title);
        act(dialog);
        if (IsWindowVisible(dialog)) press(dialog, 6);
    });
    int const answer = show(texts);
    person.join();
    return answer;
}

// --- Controls and answers ------------------------------------------------------------------------

// Id, style and text of each, in the order of their creation.
std::wstring controls_of(HWND dialog) {
    std::wstring controls;
    for (HWND at = GetWindow(dialog, GW_CHILD); at != nullptr; at = GetWindow(at, GW_HWNDNEXT)) {
        wchar_t line[100], text[50];
        GetWindowTextW(at, text, 50);
        LONG const style = GetWindowLongW(at, GWL_STYLE) & ~BS_DEFPUSHBUTTON;
        _snwprintf(line, 100, L"%d %x %s\n", GetDlgCtrlID(at), style, text);
        controls += line;
    }
    return controls;
}

wchar_t const controls[] =
    L"0 50000080 head \x20AC\n1 50000080 what\nwhere\n2 50000080 UI & all\n"
    L"3 50030000 Copy Text\n4 50010000 Abort\n5 58010000 Retry\n6 50010000 Ignore\n"
    L"7 50010000 Ignore All\n";

void press_focused(HWND dialog) {
    GUITHREADINFO info = {};
    info.cbSize = sizeof info;
    GetGUIThreadInfo(GetWindowThreadProcessId(dialog, nullptr), &info);
    press(dialog, 70 + GetDlgCtrlID(info.hwndFocus));
}

TEST(AssertionDialog, has_its_controls_and_the_focus_on_ignore_without_a_debugger) {
    EXPECT_EQ(show_and([](HWND dialog) { EXPECT_EQ(controls_of(dialog), controls); }), 6);
    EXPECT_EQ(show_and(press_focused), 76);
    test::StandIn const debugger(
        "IsDebuggerPresent", +[] { return TRUE; });
    EXPECT_EQ(show_and(press_focused), 75);
}

TEST(AssertionDialog, copy_text_puts_the_texts_on_the_clipboard_and_stays) {
    show_and([](HWND dialog) {
        press(dialog, 3);
        EXPECT_TRUE(IsWindow(dialog));
    });
    OpenClipboard(nullptr);
    auto const* const text = static_cast<wchar_t*>(GlobalLock(GetClipboardData(CF_UNICODETEXT)));
    EXPECT_STREQ(text, L"head \x20AC\n\nwhat\nwhereUI & all\n");
    CloseClipboard();
}

int box_answer;
UINT exit_code = 99;

TEST(AssertionDialog, abort_asks_again_and_stays_open_unless_confirmed) {
    test::StandIn const box(
        "MessageBoxW", +[] { return box_answer; });
    test::StandIn const exit(
        "TerminateProcess", +[](HANDLE, UINT code) { exit_code = code; });
    show_and([](HWND dialog) {
        for (int answer : {IDCANCEL, IDOK}) {
            box_answer = answer;
            press(dialog, 4);
            EXPECT_TRUE(IsWindow(dialog));
            EXPECT_EQ(exit_code, answer == IDOK ? 0u : 99u);
        }
    });
}

// --- Layout and looks ----------------------------------------------------------------------------

SIZE screen() {
    return {GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
}

void expect_place(HWND dialog, int id, long x, long y, long width, long height) {
    RECT place, expected = {x, y, x + width, y + height};
    GetWindowRect(GetDlgItem(dialog, id), &place);
    MapWindowPoints(nullptr, dialog, reinterpret_cast<POINT*>(&place), 2);
    EXPECT_TRUE(EqualRect(&place, &expected)) << id << ": " << place.left << "," << place.top;
}

// Looks at one of the texts; the answer is the room that it takes.
SIZE expect_look(HWND dialog, int id, COLORREF heading_colour) {
    HDC const context = CreateCompatibleDC(nullptr);
    HWND const control = GetDlgItem(dialog, id);
    SendMessageW(dialog, WM_CTLCOLORSTATIC, WPARAM(context), LPARAM(control));
    int const system_colour = id == 1 ? COLOR_GRAYTEXT : COLOR_WINDOWTEXT;
    EXPECT_EQ(GetTextColor(context), id == 0 ? heading_colour : GetSysColor(system_colour));
    LOGFONTW base = {}, font = {};
    GetObjectW(HFONT(SendMessageW(dialog, WM_GETFONT, 0, 0)), sizeof base, &base);
    GetObjectW(GetCurrentObject(context, OBJ_FONT), sizeof font, &font);
    EXPECT_EQ(font.lfHeight, static_cast<LONG>(base.lfHeight * std::array{1.7, 1.0, 1.2}[id]));
    EXPECT_EQ(font.lfWeight, id == 1 ? base.lfWeight : 700);

    wchar_t text[3000] = {};
    GetWindowTextW(control, text, 2999);
    if (std::wstring_view(text).ends_with(L'\n')) std::wcscat(text, L" ");  // the line counts
    RECT area = {0, 0, screen().cx - 60, screen().cy - 60};
    DrawTextW(context, text, -1, &area, id == 2 ? 0xC00 : 0xC10);
    DeleteDC(context);
    return {std::min(area.right, screen().cx - 60), std::min(area.bottom, screen().cy - 60)};
}

// Every place in the dialog follows from the sizes of its texts.
void expect_layout(HWND dialog, COLORREF heading_colour) {
    SIZE sizes[3];
    for (int id = 0; id < 3; ++id) sizes[id] = expect_look(dialog, id, heading_colour);
    long const width = std::max({sizes[0].cx, sizes[1].cx, sizes[2].cx});
    long const second = 13 + sizes[0].cy + 16, third = second + sizes[1].cy - 8;
    expect_place(dialog, 0, 15, 13, width, sizes[0].cy);
    expect_place(dialog, 1, 15, second, width, sizes[1].cy);
    expect_place(dialog, 2, 15, third, width, sizes[2].cy);
    long const row = third + sizes[2].cy + 13;
    long const client_width = std::max(width + 30, 422l);
    for (int i = 0; i < 5; ++i)
        expect_place(dialog, 3 + i, 11 + 81 * i + (client_width - 422) / 2, row, 75, 23);
    // The system lets no window grow past the screen, and then the lower controls are cut off.
    if (row + 34 > screen().cy - 60) return;
    RECT client, outer;
    GetClientRect(dialog, &client);
    GetWindowRect(dialog, &outer);
    EXPECT_TRUE(client.right == client_width && client.bottom == row + 34);
    EXPECT_EQ(outer.top, (screen().cy - (outer.bottom - outer.top)) / 2);
}

UniString repeated(wchar_t const* text, int times) {
    UniString all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
}

TEST(AssertionDialog, is_laid_out_by_its_texts) {
    UniString const header = QX::wide_team_header();
    UniString const teams = QX::wide_team_names_from_team_mask(0x3FFF);
    Texts const cases[] = {
        {L"x", header, L"UI", QX::ASSERT_SEVERITY_NORMAL},
        {L"", L"", L""},
        {repeated(L"a long heading of many words ", 12), L"file.cpp" + header, teams},
        {repeated(L"unbroken", 60), repeated(L"line\n", 300), repeated(L"team, ", 200)},
    };
    for (Texts const& texts : cases) {
        COLORREF const colour = texts.severity ? 0xFF : GetSysColor(COLOR_WINDOWTEXT);
        show_and([=](HWND dialog) { expect_layout(dialog, colour); }, texts);
    }
}

// --- Stacks --------------------------------------------------------------------------------------

void* dialog_stack;

INT_PTR note_stack() {
    dialog_stack = reinterpret_cast<NT_TIB*>(NtCurrentTeb())->StackBase;
    return task::detail::in_fiberful_task();
}

TEST(AssertionDialog, runs_on_the_stack_of_the_thread_when_asked_from_a_fibre) {
    test::StandIn const call("DialogBoxIndirectParamW", note_stack);
    test::Library const library(1);
    std::atomic<bool> done = false;
    task::spawn(test::fiberful, test::worker_threads, test::normal, [&] {
        EXPECT_EQ(show(), 0);
        EXPECT_NE(dialog_stack, reinterpret_cast<NT_TIB*>(NtCurrentTeb())->StackBase);
        done = true;
    });
    test::await([&] { return done.load(); });
}

}  // namespace
