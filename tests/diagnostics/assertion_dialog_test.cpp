#include "qx/diagnostics/assertion_dialog.h"

#include <gtest/gtest.h>

#include "qx/diagnostics/teams.h"
#include "tests/diagnostics/dialog_user.h"
#include "tests/harness/stand_in.h"
#include "tests/tasks/scheduler_fixture.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace {

using QX::UniString;
using Ids = QX::VELLUM_MESSAGE_BOX_IDS;

wchar_t const title[] = L"QXLibs dialog under test";

struct Texts {
    UniString heading = L"health >= 0";
    UniString details = L"battle.cpp(120)";
    UniString teams = L"Battle";
    QX::ASSERT_SEVERITY severity = QX::ASSERT_SEVERITY_NORMAL;
};

Ids show(Texts const& texts = {}) {
    return QX::ignore_all_message_box_dialog(
        title, texts.heading, texts.details, texts.teams, texts.severity);
}

Ids show_and(std::function<void(HWND)> act, Texts const& texts = {}) {
    test::DialogUser const user(title, std::move(act));
    return show(texts);
}

void press(HWND dialog, int id) {
    SendMessageW(dialog, WM_COMMAND, static_cast<WPARAM>(id), 0);
}

int focused_id(HWND dialog) {
    GUITHREADINFO info = {};
    info.cbSize = sizeof info;
    GetGUIThreadInfo(GetWindowThreadProcessId(dialog, nullptr), &info);
    return GetDlgCtrlID(info.hwndFocus);
}

BOOL WINAPI debugger_is_there() {
    return TRUE;
}

// --- The template --------------------------------------------------------------------------------

std::vector<unsigned short> seen_template;
LPARAM seen_parameter;

INT_PTR WINAPI note_template(HINSTANCE, DLGTEMPLATE const* start, HWND, DLGPROC, LPARAM parameter) {
    auto const* const words = reinterpret_cast<unsigned short const*>(start);
    std::copy_n(words, seen_template.size(), seen_template.begin());
    seen_parameter = parameter;
    return 7;
}

// Reads what note_template has seen.
class TemplateReader {
public:
    unsigned int word() { return seen_template[at_++]; }
    unsigned int double_word() {
        unsigned int const low = word();
        return low | word() << 16;
    }
    std::wstring text() {
        std::wstring read;
        while (unsigned int const c = word()) read += static_cast<wchar_t>(c);
        return read;
    }
    // "style extended x y width height id class atom text creation"
    std::wstring item() {
        at_ += at_ % 2;
        wchar_t line[300];
        unsigned int const style = double_word(), extended = double_word();
        unsigned int w[6];
        for (unsigned int& value : w) value = word();
        unsigned int const atom = word();
        std::wstring const caption = text();
        _snwprintf(
            line, 300, L"%x %x %d,%d,%d,%d %d %x %x %s %d", style, extended, w[0], w[1], w[2], w[3],
            w[4], w[5], atom, caption.c_str(), word());
        return line;
    }

private:
    std::size_t at_ = 0;
};

TEST(AssertionDialog, template_holds_three_texts_and_five_buttons) {
    test::StandIn const call("DialogBoxIndirectParamW", note_template);
    seen_template.assign(230, 0);
    EXPECT_EQ(show({L"head", L"what", L"UI", QX::ASSERT_SEVERITY_HIGH}), Ids::IGNORE_ALL);
    EXPECT_EQ(seen_parameter, 1);
    TemplateReader reader;
    EXPECT_EQ(reader.double_word(), 0x840u);
    EXPECT_EQ(reader.double_word(), 0u);
    for (unsigned int value : {8, 0, 0, 177, 211, 0, 0}) EXPECT_EQ(reader.word(), value);
    EXPECT_EQ(reader.text(), title);
    EXPECT_EQ(reader.word(), 8u);
    EXPECT_EQ(reader.text(), L"Tahoma");
    EXPECT_EQ(reader.item(), L"50000080 0 10,6,157,29 0 ffff 82 head 0");
    EXPECT_EQ(reader.item(), L"50000080 0 10,35,157,29 1 ffff 82 what 0");
    EXPECT_EQ(reader.item(), L"50000080 0 10,35,157,29 2 ffff 82 UI 0");
    EXPECT_EQ(reader.item(), L"50030000 0 7,41,50,14 3 ffff 80 Copy Text 0");
    EXPECT_EQ(reader.item(), L"50010000 0 61,41,50,14 4 ffff 80 Abort 0");
    EXPECT_EQ(reader.item(), L"58010000 0 115,41,50,14 5 ffff 80 Retry 0");
    EXPECT_EQ(reader.item(), L"50010000 0 169,41,50,14 6 ffff 80 Ignore 0");
    EXPECT_EQ(reader.item(), L"50010000 0 223,41,50,14 7 ffff 80 Ignore All 0");
    std::vector<unsigned short>().swap(seen_template);
}

// --- Answers -------------------------------------------------------------------------------------

TEST(AssertionDialog, ends_with_the_id_of_the_command) {
    for (int id : {5, 6, 7, 2, 77}) {
        EXPECT_EQ(static_cast<int>(show_and([id](HWND dialog) { press(dialog, id); })), id);
    }
}

TEST(AssertionDialog, ignore_has_the_focus_and_retry_is_off_without_a_debugger) {
    show_and([](HWND dialog) {
        EXPECT_FALSE(IsWindowEnabled(GetDlgItem(dialog, 5)));
        EXPECT_EQ(focused_id(dialog), 6);
        press(dialog, 6);
    });
}

TEST(AssertionDialog, retry_has_the_focus_under_a_debugger) {
    test::StandIn const debugger("IsDebuggerPresent", debugger_is_there);
    show_and([](HWND dialog) {
        EXPECT_TRUE(IsWindowEnabled(GetDlgItem(dialog, 5)));
        EXPECT_EQ(focused_id(dialog), 5);
        press(dialog, 5);
    });
}

std::wstring clipboard_text() {
    OpenClipboard(nullptr);
    HANDLE const block = GetClipboardData(CF_UNICODETEXT);
    auto const* const words = static_cast<wchar_t const*>(block ? GlobalLock(block) : nullptr);
    std::wstring const text = words ? words : L"nothing";
    if (block) GlobalUnlock(block);
    CloseClipboard();
    return text;
}

TEST(AssertionDialog, copy_text_puts_the_texts_on_the_clipboard_and_stays) {
    show_and(
        [](HWND dialog) {
            press(dialog, 3);
            EXPECT_TRUE(IsWindow(dialog));
            press(dialog, 6);
        },
        {L"head \x20AC", L"what\nwhere", L"UI & all"});
    EXPECT_EQ(clipboard_text(), L"head \x20AC\n\nwhat\nwhereUI & all\n");
}

int box_answer;
std::vector<unsigned int> exit_codes;

int WINAPI answer_box(HWND, wchar_t const* text, wchar_t const* caption, UINT flags) {
    EXPECT_STREQ(text, L"Are you sure you want to abort the process?");
    EXPECT_STREQ(caption, L"Last chance...");
    EXPECT_EQ(flags, 0x2131u);
    return box_answer;
}

BOOL WINAPI note_exit(HANDLE, UINT code) {
    exit_codes.push_back(code);
    return TRUE;
}

TEST(AssertionDialog, abort_asks_again_and_stays_open_unless_confirmed) {
    test::StandIn const box("MessageBoxW", answer_box);
    test::StandIn const exit("TerminateProcess", note_exit);
    exit_codes.reserve(4);
    Ids const result = show_and([](HWND dialog) {
        box_answer = IDCANCEL;
        press(dialog, 4);
        EXPECT_TRUE(exit_codes.empty());
        EXPECT_TRUE(IsWindow(dialog));
        box_answer = IDOK;
        press(dialog, 4);
        press(dialog, 6);
    });
    EXPECT_EQ(exit_codes, std::vector<unsigned int>{0});
    EXPECT_EQ(result, Ids::IGNORE);
    std::vector<unsigned int>().swap(exit_codes);
}

// --- Layout and looks ----------------------------------------------------------------------------

struct Look {
    LOGFONTW font = {};
    COLORREF colour = 0;
    int background = 0;
    LRESULT brush = 0;
    SIZE needed = {};       // by the text, broken or not, within the screen less 60
    long to_last_text = 0;  // the height up to the last line that is not empty
};

// What the dialog chooses for one of its texts, and the room that the text then takes.
Look look_of(HWND dialog, int id) {
    Look look;
    HDC const context = CreateCompatibleDC(nullptr);
    HWND const control = GetDlgItem(dialog, id);
    look.brush = SendMessageW(
        dialog, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(context),
        reinterpret_cast<LPARAM>(control));
    GetObjectW(GetCurrentObject(context, OBJ_FONT), sizeof look.font, &look.font);
    look.colour = GetTextColor(context);
    look.background = GetBkMode(context);
    LONG const width = GetSystemMetrics(SM_CXSCREEN) - 60;
    LONG const height = GetSystemMetrics(SM_CYSCREEN) - 60;
    RECT area = {0, 0, width, height};
    std::wstring text = test::text_of(control);
    UINT const flags = id == 2 ? 0xC00 : 0xC10;
    if (!text.empty() && text.back() == L'\n') text += L' ';  // a last empty line counts
    DrawTextW(context, text.c_str(), -1, &area, flags);
    look.needed = {std::min(area.right, width), std::min(area.bottom, height)};
    text.resize(text.find_last_not_of(L"\n ") + 1);
    DrawTextW(context, text.c_str(), -1, &area, flags);
    look.to_last_text = area.bottom;
    DeleteDC(context);
    return look;
}

std::string describe(RECT const& r) {
    return std::to_string(r.left) + "," + std::to_string(r.top) + " " +
           std::to_string(r.right - r.left) + "x" + std::to_string(r.bottom - r.top);
}

std::string described(long x, long y, long width, long height) {
    return describe({x, y, x + width, y + height});
}

// Every place in the dialog follows from the sizes of its texts.
void expect_layout(HWND dialog) {
    SIZE const a = look_of(dialog, 0).needed;
    Look const details = look_of(dialog, 1);
    SIZE const b = details.needed;
    SIZE const c = look_of(dialog, 2).needed;
    long const width = std::max({a.cx, b.cx, c.cx});
    long const third = 13 + a.cy + 16 + b.cy - 8;
    EXPECT_EQ(describe(test::place_of(dialog, 0)), described(15, 13, width, a.cy));
    EXPECT_EQ(describe(test::place_of(dialog, 1)), described(15, 29 + a.cy, width, b.cy));
    EXPECT_EQ(describe(test::place_of(dialog, 2)), described(15, third, width, c.cy));

    RECT client, outer;
    GetClientRect(dialog, &client);
    GetWindowRect(dialog, &outer);
    long const row = third + c.cy + 13;
    long const client_width = std::max(width + 30, 422l);
    for (int i = 0; i < 5; ++i) {
        long const x = 11 + 81 * i + (client_width - 422) / 2;
        EXPECT_EQ(describe(test::place_of(dialog, 3 + i)), described(x, row, 75, 23));
    }
    bool const has_line_to_spare = details.to_last_text < b.cy;
    EXPECT_TRUE(!has_line_to_spare || 29 + a.cy + details.to_last_text <= third);
    // The system lets no window grow past the screen, and then the lower controls are cut off.
    if (row + 34 > GetSystemMetrics(SM_CYSCREEN) - 60) return;
    EXPECT_EQ(describe(client), described(0, 0, client_width, row + 34));
    EXPECT_EQ(outer.left, (GetSystemMetrics(SM_CXSCREEN) - (outer.right - outer.left)) / 2);
    EXPECT_EQ(outer.top, (GetSystemMetrics(SM_CYSCREEN) - (outer.bottom - outer.top)) / 2);
}

UniString repeated(wchar_t const* text, int times) {
    UniString all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
}

TEST(AssertionDialog, is_laid_out_by_its_texts) {
    UniString const teams = QX::wide_team_names_from_team_mask(0x3FFF);
    UniString const header = QX::wide_team_header();
    Texts const cases[] = {
        {L"x", header, L"UI"},
        {},
        {L"", L"", L""},
        {repeated(L"a long heading of many words ", 12), L"file.cpp" + header, teams},
        {L"short", repeated(L"one line & another\n", 12) + header, teams},
        {L"short", repeated(L"details that fill more than a whole screen ", 500), teams},
        {repeated(L"unbroken", 60), repeated(L"line\n", 300), repeated(L"team, ", 200)},
    };
    for (Texts const& texts : cases) {
        show_and(
            [](HWND dialog) {
                expect_layout(dialog);
                press(dialog, 6);
            },
            texts);
    }
}

TEST(AssertionDialog, texts_have_fonts_and_colours_of_their_own) {
    for (auto severity : {QX::ASSERT_SEVERITY_NORMAL, QX::ASSERT_SEVERITY_HIGH}) {
        show_and(
            [severity](HWND dialog) {
                LOGFONTW base = {};
                GetObjectW(
                    reinterpret_cast<HFONT>(SendMessageW(dialog, WM_GETFONT, 0, 0)), sizeof base,
                    &base);
                COLORREF const text = GetSysColor(COLOR_WINDOWTEXT);
                COLORREF const colours[] = {
                    severity ? 0xFF : text, GetSysColor(COLOR_GRAYTEXT), text};
                double const scales[] = {1.7, 1, 1.2};
                for (int id = 0; id < 3; ++id) {
                    Look const look = look_of(dialog, id);
                    EXPECT_EQ(look.font.lfHeight, static_cast<LONG>(base.lfHeight * scales[id]));
                    EXPECT_EQ(look.font.lfWeight, id == 1 ? base.lfWeight : 700);
                    EXPECT_EQ(look.font.lfQuality, 5);
                    EXPECT_EQ(look.colour, colours[id]);
                    LOGFONTW drawn = {};
                    GetObjectW(
                        reinterpret_cast<HFONT>(SendDlgItemMessageW(dialog, id, WM_GETFONT, 0, 0)),
                        sizeof drawn, &drawn);
                    EXPECT_EQ(drawn.lfHeight, look.font.lfHeight);
                    EXPECT_EQ(look.background, TRANSPARENT);
                    EXPECT_EQ(
                        look.brush, reinterpret_cast<LRESULT>(GetSysColorBrush(COLOR_3DFACE)));
                }
                press(dialog, 6);
            },
            {L"head", L"what", L"UI", severity});
    }
}

FLASHWINFO flash;
std::set<HGDIOBJ> fonts;
HFONT(WINAPI* make_font)(LOGFONTW const*);
BOOL(WINAPI* delete_object)(HGDIOBJ);

BOOL WINAPI note_flash(FLASHWINFO* info) {
    flash = *info;
    return TRUE;
}
HFONT WINAPI note_font(LOGFONTW const* font) {
    return static_cast<HFONT>(*fonts.insert(make_font(font)).first);
}
BOOL WINAPI note_delete(HGDIOBJ object) {
    fonts.erase(object);
    return delete_object(object);
}

TEST(AssertionDialog, flashes_until_in_front_and_gives_its_fonts_back) {
    test::StandIn const flashing("FlashWindowEx", note_flash);
    test::StandIn const making("CreateFontIndirectW", note_font);
    test::StandIn const deleting("DeleteObject", note_delete);
    make_font = reinterpret_cast<decltype(make_font)>(making.original());
    delete_object = reinterpret_cast<decltype(delete_object)>(deleting.original());
    show_and([](HWND dialog) {
        EXPECT_EQ(fonts.size(), 3u);
        EXPECT_EQ(flash.hwnd, dialog);
        press(dialog, 6);
    });
    EXPECT_EQ(flash.dwFlags, 14u);
    EXPECT_EQ(flash.uCount, 1000u);
    EXPECT_TRUE(fonts.empty());
}

// --- Stacks --------------------------------------------------------------------------------------

TEST(AssertionDialog, runs_on_the_stack_of_the_thread_when_asked_from_a_fibre) {
    test::Library const library(1);
    std::atomic<bool> done = false;
    void* fibre_stack = nullptr;
    void* dialog_stack = nullptr;
    test::DialogUser const user(title, [](HWND dialog) { press(dialog, 7); });
    task::spawn(test::fiberful, test::worker_threads, test::normal, [&] {
        fibre_stack = reinterpret_cast<NT_TIB*>(NtCurrentTeb())->StackBase;
        task::execute_in_thread_context(
            [&] { dialog_stack = reinterpret_cast<NT_TIB*>(NtCurrentTeb())->StackBase; });
        EXPECT_EQ(show(), Ids::IGNORE_ALL);
        done = true;
    });
    test::await([&] { return done.load(); });
    EXPECT_NE(fibre_stack, dialog_stack);
}

bool was_in_task = true;

INT_PTR WINAPI note_context(HINSTANCE, DLGTEMPLATE const*, HWND, DLGPROC, LPARAM) {
    was_in_task = task::detail::in_fiberful_task();
    return 5;
}

TEST(AssertionDialog, has_no_task_current_while_it_runs) {
    test::StandIn const call("DialogBoxIndirectParamW", note_context);
    test::Library const library(1);
    std::atomic<bool> done = false;
    task::spawn(test::fiberful, test::worker_threads, test::normal, [&] {
        EXPECT_EQ(show(), Ids::RETRY);
        done = true;
    });
    test::await([&] { return done.load(); });
    EXPECT_FALSE(was_in_task);
}

}  // namespace
