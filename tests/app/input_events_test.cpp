// input_events_test.cpp - names, key and mouse messages, and snapshots: all that needs no device.
#include <gtest/gtest.h>

#include "qx/app/input.h"
#include "qx/base/windows.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <algorithm>
#include <cfloat>
#include <map>
#include <string>

namespace {

using QX::HARDWARE_CONTROLLER_STATE;

// --- Names ---------------------------------------------------------------------------------------

TEST(KeyNames, are_whole_and_by_case) {
    for (int i = -1; i < 150; ++i) {
        std::string const name = QX::name_from_key(static_cast<QX::KEY_TYPE>(i));
        int const known = i >= 0 && i < 143 ? i : 144;
        EXPECT_EQ(QX::key_from_name(QX::String(name.c_str())), known);
        EXPECT_EQ(QX::key_from_name((name + "x").c_str()), 144);
        char const* const event = QX::name_from_mouse_event(static_cast<QX::HW_MOUSE_EVENT>(i));
        EXPECT_EQ(QX::mouse_event_from_name(QX::String(event)), i < 15 ? i : -1);
    }
    EXPECT_EQ(QX::key_from_name("escape"), 144);
    EXPECT_STREQ(QX::name_from_mouse_event(QX::MOUSE_RBUTTON_DBL_CLICK_UP), "RBUTTON_DBL_CLICK_UP");
}

// --- Key messages --------------------------------------------------------------------------------

ULONG_PTR layout;

HKL WINAPI give_layout(DWORD) {
    return reinterpret_cast<HKL>(layout);
}

// By name, so that a slip in the key table shows here too.
std::map<unsigned int, char const*> const translated = {
    {0x45, "PAUSE"},     {0x57, "F11"},        {0x58, "F12"},     {0x11C, "NUMPADENTER"},
    {0x11D, "RCONTROL"}, {0x132, "WEBHOME"},   {0x135, "DIVIDE"}, {0x137, "SYSRQ"},
    {0x138, "RALT"},     {0x145, "NUMLOCK"},   {0x147, "HOME"},   {0x148, "UP"},
    {0x149, "PAGE_UP"},  {0x14B, "LEFT"},      {0x14D, "RIGHT"},  {0x14F, "END"},
    {0x150, "DOWN"},     {0x151, "PAGE_DOWN"}, {0x152, "INSERT"}, {0x153, "DELETE"},
    {0x15B, "LWIN"},     {0x15C, "RWIN"},      {0x15D, "RWIN"},   {0x165, "WEBSEARCH"},
    {0x16C, "MAIL"},
};

int expected_key(unsigned int code, bool matching) {
    if (code == 0x2B) return matching ? 42 : 83;
    if (code == 0x56) return matching ? 83 : 42;
    auto const row = translated.find(code);
    return row != translated.end() ? QX::key_from_name(row->second) : static_cast<int>(code) - 1;
}

TEST(KeyEvents, every_scan_code_translates_under_every_kind_of_layout) {
    test::StandIn const call("GetKeyboardLayout", give_layout);
    for (ULONG_PTR given : {0x08090809u, 0x04070407u, 0x04080408u, 0xF0C00418u, 0x04090000u}) {
        layout = given;
        for (unsigned int code = 0; code < 0x200; ++code) {
            long long const others = 0x7FFFFFFE0000FFFF;  // bits that do not count
            long long const lparam = others | (static_cast<long long>(code) << 16);
            auto const details = QX::key_event({nullptr, WM_KEYDOWN, 0, lparam});
            ASSERT_EQ(details.key, expected_key(code, (given & 0xF) > 8 || (given & 0xF) == 7));
        }
    }
    std::map<unsigned int, int> const states = {{256, 1}, {257, 0}, {260, 1}, {261, 0}};
    for (unsigned int message = 0; message <= 0xFFFF; ++message) {
        int const state = states.count(message) ? states.at(message) : -1;
        ASSERT_EQ(QX::key_event({nullptr, message, 0, 0}).state, state) << message;
    }
}

// --- Mouse messages ------------------------------------------------------------------------------

int trackings = 0;

BOOL WINAPI note_tracking(TRACKMOUSEEVENT* request) {
    trackings += request->dwFlags == TME_LEAVE && request->hwndTrack != nullptr;
    return TRUE;
}

std::map<unsigned int, int> const mouse_events = {
    {512, 12}, {513, 1}, {514, 0}, {515, 3},  {516, 5},  {517, 4},
    {518, 7},  {519, 9}, {520, 8}, {521, 11}, {522, 13}, {675, 14},
};

// The rules told plainly, for a window of 200 by 100 whose offset is 10.
struct PlainMouse {
    QX::MOUSE_STATE state = {};
    unsigned short wheel = 0;
    bool double_clicks[3] = {};

    int take(unsigned int message, unsigned int wparam, unsigned int lparam) {
        wheel = static_cast<unsigned short>(wheel + (wparam >> 16));
        if (message == WM_MOUSEWHEEL) {
            state.previous_wheel = std::exchange(state.wheel, wheel);
        } else if (message == WM_MOUSELEAVE) {
            state.x = std::clamp(state.x, 0.05f, 0.95f);
            state.y = std::clamp(state.y, 0.05f, 0.95f);
        } else {
            state.x = static_cast<float>(lparam & 0xFFFF) / 200;
            state.y = static_cast<float>(((lparam >> 16) + 10) & 0xFFFF) / 100;
        }
        auto const found = mouse_events.find(message);
        int const event = found == mouse_events.end() ? -1 : found->second;
        if (event < 0 || event > 11) return event;
        bool& double_click = double_clicks[event / 4];
        if (event % 4 == 3) double_click = true;
        return event % 4 == 0 && std::exchange(double_click, false) ? event + 2 : event;
    }
};

TEST(MouseEvents, random_messages_change_the_state_by_the_plain_rules) {
    test::StandIn const tracking("TrackMouseEvent", note_tracking);
    test::Random random;
    PlainMouse model;
    for (int round = 0; round < 200000; ++round) {
        unsigned int message = 511 + random.below(13);
        if (random.chance(3)) message = random.chance(2) ? WM_MOUSELEAVE : random.below(0x10000);
        unsigned int const wparam = random.next(), lparam = random.next() & 0xFFFF00FF;
        auto const window = reinterpret_cast<HWND>(0x40);
        int const event = QX::mouse_event({window, message, wparam, lparam}, 200, 100, 10, true);
        ASSERT_EQ(event, model.take(message, wparam, lparam)) << message;
        QX::MOUSE_STATE const now = *HARDWARE_CONTROLLER_STATE().mouse_state();
        ASSERT_TRUE(now.x == model.state.x && now.y == model.state.y) << message;
        ASSERT_TRUE(
            now.wheel == model.state.wheel && now.previous_wheel == model.state.previous_wheel);
        unsigned int const buttons = now.left_button | now.right_button << 1 | now.shift_key << 2 |
                                     now.control_key << 3 | now.middle_button << 4;
        ASSERT_EQ(buttons, wparam & 31);
        ASSERT_EQ(std::exchange(trackings, 0), message != WM_MOUSELEAVE);
        ASSERT_EQ(now.inside_window, message != WM_MOUSELEAVE);
    }
}

TEST(MouseEvents, keys_of_the_message_answer_without_the_focus) {
    auto const held = [](QX::KEY_TYPE key) { return HARDWARE_CONTROLLER_STATE().is_key_held(key); };
    QX::mouse_event({nullptr, WM_MOUSEMOVE, MK_CONTROL, 0}, 0, 0, 0, true);
    EXPECT_TRUE(held(QX::KEY_LCONTROL) && !held(QX::KEY_LSHIFT) && !held(QX::KEY_ESCAPE));
    // In a window of no size the position is no number, which counts as too small.
    QX::mouse_event({nullptr, WM_MOUSELEAVE, MK_SHIFT, 0}, 0, 0, 0, true);
    EXPECT_EQ(HARDWARE_CONTROLLER_STATE().mouse_state()->x, 0.05f);
    EXPECT_TRUE(!held(QX::KEY_LCONTROL) && held(QX::KEY_LSHIFT));
    QX::MOUSE_STATE given = {};
    given.escape_key = true;
    EXPECT_FALSE(HARDWARE_CONTROLLER_STATE(given).is_key_held(QX::KEY_ESCAPE));
    given.use_message_keys = true;
    EXPECT_TRUE(HARDWARE_CONTROLLER_STATE(given).is_key_held(QX::KEY_ESCAPE));
}

// --- Snapshots -----------------------------------------------------------------------------------

TEST(Snapshots, gesture_hides_the_mouse_until_its_next_event) {
    auto const gesture_of = [](int type) {
        return HARDWARE_CONTROLLER_STATE(QX::GestureEventDetails{type, {7}});
    };
    EXPECT_TRUE(!gesture_of(-1).gesture_details() && !gesture_of(5).gesture_details());
    HARDWARE_CONTROLLER_STATE const gesture = gesture_of(3);
    EXPECT_EQ(gesture.mouse_state(), nullptr);
    EXPECT_EQ(gesture.gesture_details()->details[0], 7);
    EXPECT_EQ(HARDWARE_CONTROLLER_STATE().gesture_details(), nullptr);  // kept by the caller alone
    QX::mouse_event({nullptr, WM_MOUSEMOVE, 0, 0}, 1, 1, 0, false);
    EXPECT_EQ(gesture.mouse_state()->previous_wheel, FLT_MAX);
}

TEST(MouseWheel, difference_takes_the_shorter_way_round) {
    constexpr float rows[][3] = {{5, 3, 2},          {10, 65530, 15},   {65530, 10, -15},
                                 {7, 7, 0},          {3, 5, -2},        {0, 65535, 0},
                                 {32768, 0, -32767}, {0, 32768, 32767}, {32767.5f, 0, 32767.5f}};
    for (auto const& [a, b, difference] : rows)
        EXPECT_EQ(QX::mouse_wheel_cyclical_difference(a, b), difference) << a;
}

}  // namespace
