#include "qx/diagnostics/assertion_dialog_impl.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "qx/app/process.h"
#include "qx/base/windows.h"
#include "qx/tasks/task.h"

namespace QX {

namespace assertion_dialog {

namespace {

using Ids = VELLUM_MESSAGE_BOX_IDS;

constexpr int button_count = 5;
constexpr int button_width = 75;
constexpr int button_height = 23;
constexpr int button_step = 81;
constexpr int first_button_x = 11;
constexpr int button_row_width = 422;  // the least width of the client area
constexpr int below_buttons = 34;      // from the top of the buttons to the end of the client area
constexpr int above_buttons = 13;
constexpr int text_x = 15;
constexpr int text_y = 13;
constexpr int behind_heading = 16;
constexpr int behind_details = -8;  // the details end with a line of their own for the teams
constexpr int screen_margin = 60;
constexpr int bold = 700;
constexpr UINT flash_count = 1000;
constexpr COLORREF red = 0x000000FF;

constexpr UINT broken_text = DT_CALCRECT | DT_NOPREFIX | DT_WORDBREAK;
constexpr UINT unbroken_text = DT_CALCRECT | DT_NOPREFIX;

struct Size {
    int width;
    int height;
};

// Owned by the dialog, from its first message to its last.
struct State {
    HFONT normal;
    HFONT heading;
    HFONT teams;
    ASSERT_SEVERITY severity;

    HFONT font_of(int id) const {
        return id == id_heading ? heading : id == id_team_names ? teams : normal;
    }
};

State* state_of(HWND dialog) {
    return reinterpret_cast<State*>(GetWindowLongPtrW(dialog, GWLP_USERDATA));
}

UniString read_text(HWND dialog, int id) {
    HWND const control = GetDlgItem(dialog, id);
    UniString text;
    text.resize(static_cast<unsigned int>(GetWindowTextLengthW(control)));
    if (!text.empty()) GetWindowTextW(control, text.begin(), static_cast<int>(text.length()) + 1);
    return text;
}

// --- Fonts ---------------------------------------------------------------------------------------

HFONT scaled_font(LOGFONTW font, double factor, LONG weight) {
    font.lfHeight = static_cast<LONG>(font.lfHeight * factor);
    font.lfWeight = weight;
    font.lfQuality = CLEARTYPE_QUALITY;
    return CreateFontIndirectW(&font);
}

void make_fonts(HWND dialog, State& state) {
    LOGFONTW font = {};
    auto const own = reinterpret_cast<HFONT>(SendMessageW(dialog, WM_GETFONT, 0, 0));
    GetObjectW(own, sizeof font, &font);
    state.normal = scaled_font(font, 1, font.lfWeight);
    state.heading = scaled_font(font, 1.7, bold);
    state.teams = scaled_font(font, 1.2, bold);
    // Some systems draw a text in its control's own font, whatever the message for colours chose.
    for (int id : {id_heading, id_details, id_team_names})
        SendDlgItemMessageW(
            dialog, id, WM_SETFONT, reinterpret_cast<WPARAM>(state.font_of(id)), FALSE);
}

void destroy_state(HWND dialog) {
    State* const state = state_of(dialog);
    if (state == nullptr) return;
    SetWindowLongPtrW(dialog, GWLP_USERDATA, 0);
    for (HFONT font : {state->normal, state->heading, state->teams}) DeleteObject(font);
    delete state;
}

// --- Layout, in pixels ---------------------------------------------------------------------------

// A line end at the end of the text counts as one more line, also where the system leaves it out:
// the teams are placed into that line.
Size measure(HDC context, HFONT font, UniString text, UINT flags, Size limit) {
    if (text.back() == L'\n') text += L' ';
    RECT area = {0, 0, limit.width, limit.height};
    HGDIOBJ const previous = SelectObject(context, font);
    DrawTextW(context, text.c_str(), -1, &area, flags);
    SelectObject(context, previous);
    return {
        std::min<int>(area.right - area.left, limit.width),
        std::min<int>(area.bottom - area.top, limit.height)};
}

void move_control(HWND dialog, int id, int x, int y, Size size) {
    MoveWindow(GetDlgItem(dialog, id), x, y, size.width, size.height, TRUE);
}

// Answers the size that the client area needs.
Size lay_out_controls(HWND dialog, Size const (&texts)[3]) {
    int const width = std::max({texts[0].width, texts[1].width, texts[2].width});
    int const second = text_y + texts[0].height + behind_heading;
    int const third = second + texts[1].height + behind_details;
    move_control(dialog, id_heading, text_x, text_y, {width, texts[0].height});
    move_control(dialog, id_details, text_x, second, {width, texts[1].height});
    move_control(dialog, id_team_names, text_x, third, {width, texts[2].height});

    int const client_width = std::max(width + 2 * text_x, button_row_width);
    int const row = third + texts[2].height + above_buttons;
    int const left = first_button_x + (client_width - button_row_width) / 2;
    for (int i = 0; i < button_count; ++i) {
        int const id = static_cast<int>(Ids::COPY_TEXT) + i;
        move_control(dialog, id, left + i * button_step, row, {button_width, button_height});
    }
    return {client_width, row + below_buttons};
}

void place_on_screen(HWND dialog, Size client, Size screen) {
    RECT outer = {0, 0, client.width, client.height};
    AdjustWindowRect(&outer, static_cast<DWORD>(GetWindowLongPtrW(dialog, GWL_STYLE)), FALSE);
    int const width = outer.right - outer.left;
    int const height = outer.bottom - outer.top;
    SetWindowPos(
        dialog, nullptr, (screen.width - width) / 2, (screen.height - height) / 2, width, height,
        SWP_NOZORDER);
}

void lay_out(HWND dialog, State const& state) {
    Size const screen = {GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
    Size const limit = {screen.width - screen_margin, screen.height - screen_margin};
    HDC const context = GetDC(dialog);
    Size texts[3];
    for (int id = id_heading; id <= id_team_names; ++id) {
        UINT const flags = id == id_team_names ? unbroken_text : broken_text;
        texts[id] = measure(context, state.font_of(id), read_text(dialog, id), flags, limit);
    }
    ReleaseDC(dialog, context);
    place_on_screen(dialog, lay_out_controls(dialog, texts), screen);
}

void flash_until_in_front(HWND dialog) {
    FLASHWINFO info = {sizeof info, dialog, FLASHW_TRAY | FLASHW_TIMERNOFG, flash_count, 0};
    FlashWindowEx(&info);
}

// --- Messages ------------------------------------------------------------------------------------

void initialise(HWND dialog, ASSERT_SEVERITY severity) {
    auto* const state = new State{nullptr, nullptr, nullptr, severity};
    SetWindowLongPtrW(dialog, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(state));
    make_fonts(dialog, *state);
    lay_out(dialog, *state);
    SetFocus(GetDlgItem(dialog, static_cast<int>(IsDebuggerPresent() ? Ids::RETRY : Ids::IGNORE)));
    flash_until_in_front(dialog);
}

COLORREF heading_colour(ASSERT_SEVERITY severity) {
    return severity == ASSERT_SEVERITY_HIGH ? red : GetSysColor(COLOR_WINDOWTEXT);
}

HBRUSH prepare_text(HWND dialog, HDC context, HWND control) {
    State const* const state = state_of(dialog);
    if (state == nullptr) return nullptr;
    int const id = GetDlgCtrlID(control);
    COLORREF colour = GetSysColor(COLOR_GRAYTEXT);
    if (id == id_heading) colour = heading_colour(state->severity);
    if (id == id_team_names) colour = GetSysColor(COLOR_WINDOWTEXT);
    SelectObject(context, state->font_of(id));
    SetTextColor(context, colour);
    SetBkMode(context, TRANSPARENT);
    return GetSysColorBrush(COLOR_3DFACE);
}

void copy_to_clipboard(HWND dialog, UniString const& text) {
    if (!OpenClipboard(dialog)) return;
    EmptyClipboard();
    std::size_t const size = (text.length() + std::size_t{1}) * sizeof(wchar_t);
    if (HGLOBAL const block = GlobalAlloc(GMEM_MOVEABLE, size)) {
        std::memcpy(GlobalLock(block), text.c_str(), size);
        GlobalUnlock(block);
        if (SetClipboardData(CF_UNICODETEXT, block) == nullptr) GlobalFree(block);
    }
    CloseClipboard();
}

void copy_texts(HWND dialog) {
    copy_to_clipboard(
        dialog, read_text(dialog, id_heading) + L"\n\n" + read_text(dialog, id_details) +
                    read_text(dialog, id_team_names) + L"\n");
}

void act_on_command(HWND dialog, int id) {
    switch (static_cast<Ids>(id)) {
    case Ids::COPY_TEXT: return copy_texts(dialog);
    case Ids::ABORT:
        return static_cast<void>(confirm_exit(0));  // returns only if thought better of
    default: EndDialog(dialog, id);
    }
}

INT_PTR handle(HWND dialog, UINT message, WPARAM first, LPARAM second) {
    switch (message) {
    case WM_INITDIALOG:
        initialise(dialog, static_cast<ASSERT_SEVERITY>(second));
        return FALSE;  // the focus is set
    case WM_CTLCOLORSTATIC:
        return reinterpret_cast<INT_PTR>(
            prepare_text(dialog, reinterpret_cast<HDC>(first), reinterpret_cast<HWND>(second)));
    case WM_COMMAND: act_on_command(dialog, LOWORD(first)); return TRUE;
    case WM_DESTROY: destroy_state(dialog); return TRUE;
    default: return FALSE;
    }
}

// No exception may leave for the system's code: what memory can't be had for is left out.
INT_PTR CALLBACK procedure(HWND dialog, UINT message, WPARAM first, LPARAM second) {
    try {
        return handle(dialog, message, first, second);
    } catch (std::bad_alloc const&) {
        return FALSE;
    }
}

DLGTEMPLATE const* as_system(Template const& dialog) {
    return reinterpret_cast<DLGTEMPLATE const*>(dialog.data());
}

}  // namespace

void* open_without_buttons(Template const& dialog, ASSERT_SEVERITY severity) {
    HWND const window = CreateDialogIndirectParamW(
        GetModuleHandleW(nullptr), as_system(dialog), nullptr, procedure,
        static_cast<LPARAM>(severity));
    if (window != nullptr) ShowWindow(window, SW_SHOW);
    return window;
}

void end(void* dialog) {
    DestroyWindow(static_cast<HWND>(dialog));
}

}  // namespace assertion_dialog

VELLUM_MESSAGE_BOX_IDS ignore_all_message_box_dialog(
    UniString const& title, UniString const& heading, UniString const& details,
    UniString const& team_names, ASSERT_SEVERITY severity) {
    using namespace assertion_dialog;
    Template const dialog = build_template(
        {title, heading, details, team_names},
        IsDebuggerPresent() ? Buttons::all : Buttons::all_but_retry);
    INT_PTR result = 0;
    task::execute_in_thread_context([&] {
        result = DialogBoxIndirectParamW(
            GetModuleHandleW(nullptr), as_system(dialog), nullptr, procedure,
            static_cast<LPARAM>(severity));
    });
    return static_cast<VELLUM_MESSAGE_BOX_IDS>(result);
}

}  // namespace QX
