// input_events_platform.cpp - window messages as key and mouse events.
#include <iterator>

#include "qx/app/input.h"
#include "qx/app/input_impl.h"
#include "qx/base/windows.h"

namespace QX {

namespace {

// --- Keys ----------------------------------------------------------------------------------------

constexpr unsigned int backslash_code = 0x2B;
constexpr unsigned int oem_102_code = 0x56;

struct ScanCodeRow {
    unsigned short code;  // 0x100: extended
    KEY_TYPE key;
};

// Codes that differ from the key's number plus 1.
// clang-format off
constexpr ScanCodeRow scan_code_rows[] = {
    {0x045, KEY_PAUSE},       {0x057, KEY_F11},       {0x058, KEY_F12},
    {0x11C, KEY_NUMPADENTER}, {0x11D, KEY_RCONTROL},  {0x132, KEY_WEBHOME},
    {0x135, KEY_DIVIDE},      {0x137, KEY_SYSRQ},     {0x138, KEY_RALT},
    {0x145, KEY_NUMLOCK},     {0x147, KEY_HOME},      {0x148, KEY_UP},
    {0x149, KEY_PAGE_UP},     {0x14B, KEY_LEFT},      {0x14D, KEY_RIGHT},
    {0x14F, KEY_END},         {0x150, KEY_DOWN},      {0x151, KEY_PAGE_DOWN},
    {0x152, KEY_INSERT},      {0x153, KEY_DELETE},    {0x15B, KEY_LWIN},
    {0x15C, KEY_RWIN},        {0x15D, KEY_RWIN},      {0x165, KEY_WEBSEARCH},
    {0x16C, KEY_MAIL},
};
// clang-format on

// British English is 0x0809; its low three bits are not all zero, so the one test covers it.
bool layout_matches() {
    auto const layout = reinterpret_cast<ULONG_PTR>(GetKeyboardLayout(0));
    return (layout & 7) != 0;
}

KEY_TYPE key_from_scan_code(unsigned int code) {
    if (code == backslash_code) return layout_matches() ? KEY_BACKSLASH : KEY_OEM_102;
    if (code == oem_102_code) return layout_matches() ? KEY_OEM_102 : KEY_BACKSLASH;
    for (ScanCodeRow const& row : scan_code_rows) {
        if (row.code == code) return row.key;
    }
    return static_cast<KEY_TYPE>(code - 1);
}

int key_state(unsigned int message) {
    switch (message) {
    case WM_KEYDOWN:
    case WM_SYSKEYDOWN: return 1;
    case WM_KEYUP:
    case WM_SYSKEYUP: return 0;
    default: return -1;
    }
}

// --- Mouse ---------------------------------------------------------------------------------------

constexpr float left_edge = 0.05f;
constexpr float right_edge = 0.95f;

// Whether the button's last press was the second of a double click; its release is one too.
struct ButtonTrack {
    bool double_click = false;

    HW_MOUSE_EVENT released(HW_MOUSE_EVENT up, HW_MOUSE_EVENT double_click_up) {
        HW_MOUSE_EVENT const event = double_click ? double_click_up : up;
        double_click = false;
        return event;
    }

    HW_MOUSE_EVENT double_clicked(HW_MOUSE_EVENT event) {
        double_click = true;
        return event;
    }
};

ButtonTrack left_track;
ButtonTrack right_track;
ButtonTrack middle_track;

// What is not a number counts as too small.
float pull_inside(float value) {
    if (value > right_edge) return right_edge;
    return value >= left_edge ? value : left_edge;
}

// Asked for with every message: the system forgets the request each time the mouse leaves.
void track_leaving(HWND window) {
    TRACKMOUSEEVENT request = {};
    request.cbSize = sizeof request;
    request.dwFlags = TME_LEAVE;
    request.hwndTrack = window;
    TrackMouseEvent(&request);
}

void take_buttons(unsigned long long wparam) {
    MOUSE_STATE& mouse = input_state.mouse;
    mouse.left_button = (wparam & MK_LBUTTON) != 0;
    mouse.right_button = (wparam & MK_RBUTTON) != 0;
    mouse.shift_key = (wparam & MK_SHIFT) != 0;
    mouse.control_key = (wparam & MK_CONTROL) != 0;
    mouse.middle_button = (wparam & MK_MBUTTON) != 0;
}

void take_position(
    HardwareEvent const& event, unsigned int width, unsigned int height, unsigned int y_offset) {
    MOUSE_STATE& mouse = input_state.mouse;
    if (event.message == WM_MOUSEWHEEL) {
        mouse.previous_wheel = mouse.wheel;
        mouse.wheel = static_cast<float>(input_state.wheel);
    } else if (event.message == WM_MOUSELEAVE) {
        mouse.x = pull_inside(mouse.x);
        mouse.y = pull_inside(mouse.y);
    } else {
        auto const x = static_cast<unsigned short>(event.lparam);
        auto const y = static_cast<unsigned short>((event.lparam >> 16) + y_offset);
        mouse.x = static_cast<float>(x) / static_cast<float>(width);
        mouse.y = static_cast<float>(y) / static_cast<float>(height);
    }
}

HW_MOUSE_EVENT event_from_message(unsigned int message) {
    switch (message) {
    case WM_MOUSEMOVE: return MOUSE_MOUSEMOVE;
    case WM_LBUTTONDOWN: return MOUSE_LBUTTON_DOWN;
    case WM_LBUTTONUP: return left_track.released(MOUSE_LBUTTON_UP, MOUSE_LBUTTON_DBL_CLICK_UP);
    case WM_LBUTTONDBLCLK: return left_track.double_clicked(MOUSE_LBUTTON_DBL_CLICK_DOWN);
    case WM_RBUTTONDOWN: return MOUSE_RBUTTON_DOWN;
    case WM_RBUTTONUP: return right_track.released(MOUSE_RBUTTON_UP, MOUSE_RBUTTON_DBL_CLICK_UP);
    case WM_RBUTTONDBLCLK: return right_track.double_clicked(MOUSE_RBUTTON_DBL_CLICK_DOWN);
    case WM_MBUTTONDOWN: return MOUSE_MBUTTON_DOWN;
    case WM_MBUTTONUP: return middle_track.released(MOUSE_MBUTTON_UP, MOUSE_MBUTTON_DBL_CLICK_UP);
    case WM_MBUTTONDBLCLK: return middle_track.double_clicked(MOUSE_MBUTTON_DBL_CLICK_DOWN);
    case WM_MOUSEWHEEL: return MOUSE_MOUSEWHEEL;
    case WM_MOUSELEAVE: return MOUSE_MOUSELEAVE;
    default: return MOUSE_NO_EVENT;
    }
}

}  // namespace

KEY_EVENT_DETAILS key_event(HardwareEvent const& event) {
    auto const code = static_cast<unsigned int>(event.lparam >> 16) & 0x1FF;
    return {key_state(event.message), key_from_scan_code(code)};
}

HW_MOUSE_EVENT mouse_event(
    HardwareEvent const& event, unsigned int width, unsigned int height, unsigned int y_offset,
    bool use_message_keys) {
    input_state.last_was_mouse = true;
    input_state.gesture.type = no_gesture;
    input_state.wheel = static_cast<unsigned short>(input_state.wheel + (event.wparam >> 16));

    bool const leaves = event.message == WM_MOUSELEAVE;
    if (!leaves) track_leaving(event.window);
    input_state.mouse.inside_window = !leaves;

    take_buttons(event.wparam);
    input_state.mouse.use_message_keys = use_message_keys;
    take_position(event, width, height, y_offset);
    return event_from_message(event.message);
}

}  // namespace QX
