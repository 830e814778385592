#include "qx/diagnostics/assertion_dialog.h"

#include <gtest/gtest.h>

#include "qx/diagnostics/teams.h"
#include "tests/diagnostics/dialog_user.h"
#include "tests/harness/stand_in.h"
#include "tests/tasks/scheduler_fixture.h"

#include <algorithm>
#include <string>

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

int show_and(std::function<void(HWND)> act, Texts const& texts = {}) {
    test::DialogUser const user(title, std::move(act));
    return show(texts);
}

void press(HWND dialog, int id) {
    SendMessageW(dialog, WM_COMMAND, static_cast<WPARAM>(id), 0);
}

// --- The template --------------------------------------------------------------------------------

std::wstring seen;

// Reads a template: words as numbers, texts as they are.
INT_PTR WINAPI note_template(HINSTANCE, DLGTEMPLATE const* start, HWND, DLGPROC, LPARAM parameter) {
    auto const* const first = reinterpret_cast<wchar_t const*>(start);
    auto const* at = first;
    auto const read = [&at](int numbers) {
        for (; numbers != 0; --numbers) seen += std::to_wstring(*at++) + L" ";
        seen += std::wstring(at) + L"|";
        at += std::wcslen(at) + 1;
    };
    read(11);
    read(1);
    for (int i = 0; i < 8; ++i) {
        at += (at - first) % 2;
        read(11);
        seen += *at++ == 0 ? L"\n" : L"creation data\n";
    }
    return parameter;
}

TEST(AssertionDialog, template_holds_three_texts_and_five_buttons) {
    test::StandIn const call("DialogBoxIndirectParamW", note_template);
    EXPECT_EQ(show(), QX::ASSERT_SEVERITY_HIGH);
    EXPECT_EQ(
        seen, L"2112 0 0 0 8 0 0 177 211 0 0 QXLibs dialog under test|8 Tahoma|"
              L"128 20480 0 0 10 6 157 29 0 65535 130 head \x20AC|\n"
              L"128 20480 0 0 10 35 157 29 1 65535 130 what\nwhere|\n"
              L"128 20480 0 0 10 35 157 29 2 65535 130 UI & all|\n"
              L"0 20483 0 0 7 41 50 14 3 65535 128 Copy Text|\n"
              L"0 20481 0 0 61 41 50 14 4 65535 128 Abort|\n"
              L"0 22529 0 0 115 41 50 14 5 65535 128 Retry|\n"
              L"0 20481 0 0 169 41 50 14 6 65535 128 Ignore|\n"
              L"0 20481 0 0 223 41 50 14 7 65535 128 Ignore All|\n");
    std::wstring().swap(seen);
}

// --- Answers -------------------------------------------------------------------------------------

BOOL WINAPI debugger_is_there() {
    return TRUE;
}

void expect_focus(HWND dialog, int id) {
    GUITHREADINFO info = {};
    info.cbSize = sizeof info;
    GetGUIThreadInfo(GetWindowThreadProcessId(dialog, nullptr), &info);
    EXPECT_EQ(GetDlgCtrlID(info.hwndFocus), id);
    EXPECT_EQ(IsWindowEnabled(GetDlgItem(dialog, 5)), id == 5);
    press(dialog, 70 + id);
}

TEST(AssertionDialog, ignore_has_the_focus_and_retry_is_off_without_a_debugger) {
    EXPECT_EQ(show_and([](HWND dialog) { expect_focus(dialog, 6); }), 76);
    test::StandIn const debugger("IsDebuggerPresent", debugger_is_there);
    EXPECT_EQ(show_and([](HWND dialog) { expect_focus(dialog, 5); }), 75);
}

TEST(AssertionDialog, copy_text_puts_the_texts_on_the_clipboard_and_stays) {
    show_and([](HWND dialog) {
        press(dialog, 3);
        EXPECT_TRUE(IsWindow(dialog));
        press(dialog, 6);
    });
    OpenClipboard(nullptr);
    auto const* const text = static_cast<wchar_t*>(GlobalLock(GetClipboardData(CF_UNICODETEXT)));
    EXPECT_STREQ(text, L"head \x20AC\n\nwhat\nwhereUI & all\n");
    CloseClipboard();
}

int box_answer;
std::string boxes = std::string(100, ' ');

int WINAPI answer_box(HWND, wchar_t const* text, wchar_t const* caption, UINT flags) {
    EXPECT_STREQ(text, L"Are you sure you want to abort the process?");
    EXPECT_STREQ(caption, L"Last chance...");
    boxes += std::to_string(flags) + " ";
    return box_answer;
}

BOOL WINAPI note_exit(HANDLE, UINT code) {
    boxes += "exit " + std::to_string(code);
    return TRUE;
}

TEST(AssertionDialog, abort_asks_again_and_stays_open_unless_confirmed) {
    test::StandIn const box("MessageBoxW", answer_box);
    test::StandIn const exit("TerminateProcess", note_exit);
    boxes.clear();
    show_and([](HWND dialog) {
        for (int answer : {IDCANCEL, IDOK}) {
            box_answer = answer;
            press(dialog, 4);
            EXPECT_TRUE(IsWindow(dialog));
        }
        press(dialog, 6);
    });
    EXPECT_EQ(boxes, "8497 8497 exit 0");  // 0x2131
}

// --- Layout and looks ----------------------------------------------------------------------------

SIZE screen() {
    return {GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
}

// Where the control stands in the dialog.
std::string place_of(HWND dialog, int id) {
    RECT r = {};
    GetWindowRect(GetDlgItem(dialog, id), &r);
    MapWindowPoints(nullptr, dialog, reinterpret_cast<POINT*>(&r), 2);
    return std::to_string(r.left) + "," + std::to_string(r.top) + " " +
           std::to_string(r.right - r.left) + "x" + std::to_string(r.bottom - r.top);
}

std::string place(long x, long y, long width, long height) {
    return std::to_string(x) + "," + std::to_string(y) + " " + std::to_string(width) + "x" +
           std::to_string(height);
}

// What the dialog chooses for one of its texts; the answer is the room that the text then takes.
SIZE expect_look(HWND dialog, int id, COLORREF heading_colour) {
    HDC const context = CreateCompatibleDC(nullptr);
    HWND const control = GetDlgItem(dialog, id);
    EXPECT_EQ(
        SendMessageW(
            dialog, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(context),
            reinterpret_cast<LPARAM>(control)),
        reinterpret_cast<LRESULT>(GetSysColorBrush(COLOR_3DFACE)));
    EXPECT_EQ(GetBkMode(context), TRANSPARENT);
    COLORREF const text_colour = GetSysColor(COLOR_WINDOWTEXT);
    COLORREF const colours[] = {heading_colour, GetSysColor(COLOR_GRAYTEXT), text_colour};
    EXPECT_EQ(GetTextColor(context), colours[id]);

    LOGFONTW base = {}, font = {}, drawn = {};
    GetObjectW(reinterpret_cast<HFONT>(SendMessageW(dialog, WM_GETFONT, 0, 0)), sizeof base, &base);
    GetObjectW(
        reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0)), sizeof base, &drawn);
    GetObjectW(GetCurrentObject(context, OBJ_FONT), sizeof font, &font);
    double const scales[] = {1.7, 1, 1.2};
    EXPECT_EQ(font.lfHeight, static_cast<LONG>(base.lfHeight * scales[id]));
    EXPECT_EQ(font.lfWeight, id == 1 ? base.lfWeight : 700);
    EXPECT_EQ(font.lfQuality, 5);
    EXPECT_EQ(drawn.lfHeight, font.lfHeight);

    RECT area = {0, 0, screen().cx - 60, screen().cy - 60};
    std::wstring text = test::text_of(control);
    if (!text.empty() && text.back() == L'\n') text += L' ';  // a last empty line counts
    DrawTextW(context, text.c_str(), -1, &area, id == 2 ? 0xC00 : 0xC10);
    DeleteDC(context);
    return {std::min(area.right, screen().cx - 60), std::min(area.bottom, screen().cy - 60)};
}

// Every place in the dialog follows from the sizes of its texts.
void expect_layout(HWND dialog, COLORREF heading_colour) {
    SIZE sizes[3];
    for (int id = 0; id < 3; ++id) sizes[id] = expect_look(dialog, id, heading_colour);
    long const width = std::max({sizes[0].cx, sizes[1].cx, sizes[2].cx});
    long const second = 13 + sizes[0].cy + 16, third = second + sizes[1].cy - 8;
    EXPECT_EQ(place_of(dialog, 0), place(15, 13, width, sizes[0].cy));
    EXPECT_EQ(place_of(dialog, 1), place(15, second, width, sizes[1].cy));
    EXPECT_EQ(place_of(dialog, 2), place(15, third, width, sizes[2].cy));
    long const row = third + sizes[2].cy + 13;
    long const client_width = std::max(width + 30, 422l);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(
            place_of(dialog, 3 + i), place(11 + 81 * i + (client_width - 422) / 2, row, 75, 23));
    // The system lets no window grow past the screen, and then the lower controls are cut off.
    if (row + 34 > screen().cy - 60) return;
    RECT client, outer;
    GetClientRect(dialog, &client);
    GetWindowRect(dialog, &outer);
    EXPECT_EQ(place(0, 0, client.right, client.bottom), place(0, 0, client_width, row + 34));
    EXPECT_EQ(outer.left, (screen().cx - (outer.right - outer.left)) / 2);
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
        {L"short", repeated(L"one line & another\n", 12) + header, teams},
        {repeated(L"unbroken", 60), repeated(L"line\n", 300), repeated(L"team, ", 200)},
    };
    for (Texts const& texts : cases) {
        COLORREF const colour = texts.severity ? 0xFF : GetSysColor(COLOR_WINDOWTEXT);
        show_and(
            [colour](HWND dialog) {
                expect_layout(dialog, colour);
                press(dialog, 6);
            },
            texts);
    }
}

int fonts;
DWORD flash;
HFONT(WINAPI* make_font)(LOGFONTW const*);
BOOL(WINAPI* delete_object)(HGDIOBJ);

BOOL WINAPI note_flash(FLASHWINFO* info) {
    flash = info->dwFlags * 10000 + info->uCount;
    return TRUE;
}
HFONT WINAPI note_font(LOGFONTW const* font) {
    ++fonts;
    return make_font(font);
}
BOOL WINAPI note_delete(HGDIOBJ object) {
    --fonts;
    return delete_object(object);
}

TEST(AssertionDialog, flashes_until_in_front_and_gives_its_fonts_back) {
    test::StandIn const flashing("FlashWindowEx", note_flash);
    test::StandIn const making("CreateFontIndirectW", note_font);
    test::StandIn const deleting("DeleteObject", note_delete);
    make_font = reinterpret_cast<decltype(make_font)>(making.original());
    delete_object = reinterpret_cast<decltype(delete_object)>(deleting.original());
    show_and([](HWND dialog) {
        EXPECT_EQ(fonts, 3);
        press(dialog, 6);
    });
    EXPECT_EQ(flash, 141000u);
    EXPECT_EQ(fonts, 0);
}

// --- Stacks --------------------------------------------------------------------------------------

void* stack_base() {
    return reinterpret_cast<NT_TIB*>(NtCurrentTeb())->StackBase;
}

void* dialog_stack;

INT_PTR WINAPI note_stack(HINSTANCE, DLGTEMPLATE const*, HWND, DLGPROC, LPARAM) {
    dialog_stack = stack_base();
    return task::detail::in_fiberful_task();
}

TEST(AssertionDialog, runs_on_the_stack_of_the_thread_when_asked_from_a_fibre) {
    test::StandIn const call("DialogBoxIndirectParamW", note_stack);
    test::Library const library(1);
    std::atomic<bool> done = false;
    task::spawn(test::fiberful, test::worker_threads, test::normal, [&] {
        EXPECT_EQ(show(), 0);
        EXPECT_NE(dialog_stack, stack_base());
        done = true;
    });
    test::await([&] { return done.load(); });
}

}  // namespace
