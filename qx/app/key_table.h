// key_table.h - the keys and mouse events by number and by name.
//
// The numbers and names are fixed: games store both in their key bindings. Constant tables: any
// thread may ask at any time. A null name faults.
#pragma once

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

// A key's row in the key table. Any 32-bit number is a legal argument of the functions below.
// clang-format off
enum KEY_TYPE : int {
    KEY_ESCAPE = 0, KEY_1, KEY_2, KEY_3, KEY_4, KEY_5, KEY_6, KEY_7, KEY_8, KEY_9, KEY_0, KEY_MINUS,
    KEY_EQUALS, KEY_BACK, KEY_TAB, KEY_Q, KEY_W, KEY_E, KEY_R, KEY_T, KEY_Y, KEY_U, KEY_I, KEY_O,
    KEY_P, KEY_LBRACKET, KEY_RBRACKET, KEY_RETURN, KEY_LCONTROL, KEY_A, KEY_S, KEY_D, KEY_F, KEY_G,
    KEY_H, KEY_J, KEY_K, KEY_L, KEY_SEMICOLON, KEY_APOSTROPHE, KEY_GRAVE, KEY_LSHIFT, KEY_BACKSLASH,
    KEY_Z, KEY_X, KEY_C, KEY_V, KEY_B, KEY_N, KEY_M, KEY_COMMA, KEY_PERIOD, KEY_SLASH, KEY_RSHIFT,
    KEY_MULTIPLY, KEY_LALT, KEY_SPACE, KEY_CAPITAL, KEY_F1, KEY_F2, KEY_F3, KEY_F4, KEY_F5, KEY_F6,
    KEY_F7, KEY_F8, KEY_F9, KEY_F10, KEY_NUMLOCK, KEY_SCROLL, KEY_NUMPAD7, KEY_NUMPAD8, KEY_NUMPAD9,
    KEY_SUBTRACT, KEY_NUMPAD4, KEY_NUMPAD5, KEY_NUMPAD6, KEY_ADD, KEY_NUMPAD1, KEY_NUMPAD2,
    KEY_NUMPAD3, KEY_NUMPAD0, KEY_DECIMAL, KEY_OEM_102, KEY_F11, KEY_F12, KEY_F13, KEY_F14, KEY_F15,
    KEY_KANA, KEY_ABNT_C1, KEY_CONVERT, KEY_NOCONVERT, KEY_YEN, KEY_ABNT_C2, KEY_NUMPADEQUALS,
    KEY_PREVTRACK, KEY_AT, KEY_COLON, KEY_UNDERLINE, KEY_KANJI, KEY_STOP, KEY_AX, KEY_NEXTTRACK,
    KEY_NUMPADENTER, KEY_RCONTROL, KEY_MUTE, KEY_CALCULATOR, KEY_PLAYPAUSE, KEY_MEDIASTOP,
    KEY_VOLUMEDOWN, KEY_VOLUMEUP, KEY_WEBHOME, KEY_NUMPADCOMMA, KEY_DIVIDE, KEY_SYSRQ, KEY_RALT,
    KEY_PAUSE, KEY_HOME, KEY_UP, KEY_PAGE_UP, KEY_LEFT, KEY_RIGHT, KEY_END, KEY_DOWN, KEY_PAGE_DOWN,
    KEY_INSERT, KEY_DELETE, KEY_LWIN, KEY_RWIN, KEY_APPS, KEY_POWER, KEY_SLEEP, KEY_WAKE,
    KEY_WEBSEARCH, KEY_WEBFAVORITES, KEY_WEBREFRESH, KEY_WEBSTOP, KEY_WEBFORWARD, KEY_WEBBACK,
    KEY_MYCOMPUTER, KEY_MAIL, KEY_MEDIASELECT,
    KEY_COUNT,                  // 143
    KEY_UNKNOWN = 144,          // the answer for a name that no row has
};
// clang-format on

// What a window message means for the mouse.
enum HW_MOUSE_EVENT : int {
    MOUSE_NO_EVENT = -1,
    MOUSE_LBUTTON_UP = 0,
    MOUSE_LBUTTON_DOWN = 1,
    MOUSE_LBUTTON_DBL_CLICK_UP = 2,
    MOUSE_LBUTTON_DBL_CLICK_DOWN = 3,
    MOUSE_RBUTTON_UP = 4,
    MOUSE_RBUTTON_DOWN = 5,
    MOUSE_RBUTTON_DBL_CLICK_UP = 6,
    MOUSE_RBUTTON_DBL_CLICK_DOWN = 7,
    MOUSE_MBUTTON_UP = 8,
    MOUSE_MBUTTON_DOWN = 9,
    MOUSE_MBUTTON_DBL_CLICK_UP = 10,
    MOUSE_MBUTTON_DBL_CLICK_DOWN = 11,
    MOUSE_MOUSEMOVE = 12,
    MOUSE_MOUSEWHEEL = 13,
    MOUSE_MOUSELEAVE = 14,
};

// The key of a whole name, by case:
//
//     "ESCAPE"  =>  0
//     "escape"  =>  144
//     "ESC"     =>  144
QX_API KEY_TYPE key_from_name(String const& name);
QX_API KEY_TYPE key_from_name(char const* name);

// A key's name; "" for anything that is no row. The text is the library's and lasts.
QX_API char const* name_from_key(KEY_TYPE key);

// "LBUTTON_UP" => 0 ... "MOUSELEAVE" => 14, by case; -1 for any other name.
QX_API HW_MOUSE_EVENT mouse_event_from_name(String const& name);

// An event's name; "" for -1 and for anything above 14. The text is the library's and lasts.
QX_API char const* name_from_mouse_event(HW_MOUSE_EVENT event);

}  // namespace QX
