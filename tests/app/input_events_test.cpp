// input_events_test.cpp - names, key and mouse messages, and snapshots: all that needs no device.
#include <gtest/gtest.h>

#include "qx/app/input.h"
#include "qx/base/windows.h"
#include "tests/harness/stand_in.h"

#include <cfloat>
#include <map>
#include <string>

namespace {

using QX::HARDWARE_CONTROLLER_STATE;

QX::KEY_TYPE key(unsigned int number) {
    return static_cast<QX::KEY_TYPE>(number);
}

// --- Names ---------------------------------------------------------------------------------------

TEST(KeyNames, are_whole_and_by_case) {
    for (int i = -1; i < 150; ++i) {
        std::string const name = QX::name_from_key(static_cast<QX::KEY_TYPE>(i));
        int const known = i >= 0 && i < 143 ? i : 144;
        EXPECT_EQ(QX::key_from_name(name.c_str()), known);
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

class MouseEvents : public testing::Test {
protected:
    // In a window of 200 by 100.
    static int send(
        unsigned int message, unsigned long long wparam = 0, int x = 0, int y = 0,
        unsigned int y_offset = 0) {
        long long const lparam = (static_cast<long long>(y) << 16) | x;
        auto const window = reinterpret_cast<HWND>(0x40);
        return QX::mouse_event({window, message, wparam, lparam}, 200, 100, y_offset, true);
    }

    static QX::MOUSE_STATE state() { return *HARDWARE_CONTROLLER_STATE().mouse_state(); }

    static void expect_at(float x, float y) {
        EXPECT_TRUE(state().x == x && state().y == y) << state().x << ' ' << state().y;
    }

    static void expect_wheel(float wheel, float previous) {
        EXPECT_TRUE(state().wheel == wheel && state().previous_wheel == previous) << wheel;
    }

    test::StandIn tracking{"TrackMouseEvent", note_tracking};
};

TEST_F(MouseEvents, every_message_has_its_event_and_double_clicks_are_told_by_button) {
    std::map<unsigned int, int> events = {
        {512, 12}, {513, 1}, {514, 0}, {515, 3},  {516, 5},  {517, 4},
        {518, 7},  {519, 9}, {520, 8}, {521, 11}, {522, 13}, {675, 14},
    };
    for (unsigned int message = 0; message <= 0xFFFF; ++message)
        ASSERT_EQ(send(message), events.count(message) ? events[message] : -1) << message;
    for (unsigned int up : {514u, 517u, 520u}) {
        EXPECT_EQ(send(up), events[up] + 2);  // that of the double click above, told once
        EXPECT_EQ(send(up), events[up]);
    }
}

TEST_F(MouseEvents, position_is_a_fraction_of_the_size_and_pulled_inside_by_leaving) {
    send(WM_MOUSEMOVE, 0, 50, 10);
    expect_at(0.25f, 0.1f);
    send(WM_LBUTTONDOWN, 0, 0xFFFF, 20, 30);
    expect_at(65535.0f / 200.0f, 0.5f);
    send(0x1234, 0, 0, 0xFFF0, 26);  // the sum is cut to 16 bits, and any message moves
    expect_at(0.0f, 0.1f);
    trackings = 0;
    send(WM_MOUSELEAVE, 0, 100, 50);
    expect_at(0.05f, 0.1f);
    EXPECT_TRUE(!state().inside_window && trackings == 0);
    send(WM_MOUSEMOVE, 0, 198, 99);
    EXPECT_TRUE(state().inside_window && trackings == 1);
    send(WM_MOUSELEAVE);
    expect_at(0.95f, 0.95f);
    // In a window of no size the position is no number, which counts as too small.
    QX::mouse_event({nullptr, WM_MOUSEMOVE, 0, 0}, 0, 0, 0, false);
    send(WM_MOUSELEAVE);
    expect_at(0.05f, 0.05f);
}

TEST_F(MouseEvents, wheel_adds_up_over_every_message) {
    send(WM_MOUSEMOVE, 0, 20, 20);
    send(WM_MOUSEWHEEL, 120 << 16, 150, 90);
    expect_at(0.1f, 0.2f);  // stays
    expect_wheel(120, 0);
    send(WM_MOUSEMOVE, 30 << 16);
    expect_wheel(120, 0);  // not before the next wheel message
    send(WM_MOUSEWHEEL, 0xFFFFFF88ull << 16);
    expect_wheel(30, 120);
    send(WM_MOUSEWHEEL, 0xFFC4ull << 16);  // 60 back, below 0
    expect_wheel(65506, 30);
}

TEST_F(MouseEvents, buttons_and_keys_come_from_wparam) {
    for (unsigned int bits = 0; bits < 32; ++bits) {
        send(WM_MOUSEMOVE, bits);
        QX::MOUSE_STATE const now = state();
        unsigned int const got = now.left_button | now.right_button << 1 | now.shift_key << 2 |
                                 now.control_key << 3 | now.middle_button << 4;
        EXPECT_EQ(got, bits);
        HARDWARE_CONTROLLER_STATE const keys;  // which answer without the focus
        EXPECT_TRUE(keys.is_key_held(key(28)) == now.control_key && !keys.is_key_down(key(28)));
        EXPECT_TRUE(keys.is_key_held(key(41)) == now.shift_key && !keys.is_key_held(key(0)));
    }
    QX::MOUSE_STATE given = {};
    given.escape_key = given.control_key = true;
    EXPECT_FALSE(HARDWARE_CONTROLLER_STATE(given).is_key_held(key(0)));
    given.use_message_keys = true;
    EXPECT_TRUE(HARDWARE_CONTROLLER_STATE(given).is_key_held(key(0)));
    EXPECT_TRUE(HARDWARE_CONTROLLER_STATE().is_key_held(key(28)));
}

// --- Snapshots -----------------------------------------------------------------------------------

TEST(Snapshots, gesture_hides_the_mouse_until_its_next_event) {
    EXPECT_NE(HARDWARE_CONTROLLER_STATE().mouse_state(), nullptr);
    auto const gesture_of = [](int type) {
        return HARDWARE_CONTROLLER_STATE(QX::GestureEventDetails{type, {7}});
    };
    HARDWARE_CONTROLLER_STATE const gesture = gesture_of(3);
    EXPECT_EQ(gesture.mouse_state(), nullptr);
    ASSERT_NE(gesture.gesture_details(), nullptr);
    EXPECT_EQ(gesture.gesture_details()->details[0], 7);
    EXPECT_EQ(HARDWARE_CONTROLLER_STATE().gesture_details(), nullptr);  // kept by the caller alone
    EXPECT_TRUE(!gesture_of(-1).gesture_details() && !gesture_of(5).gesture_details());
    QX::mouse_event({nullptr, WM_MOUSEMOVE, 0, 0}, 1, 1, 0, false);
    ASSERT_NE(gesture.mouse_state(), nullptr);
    EXPECT_EQ(gesture.mouse_state()->previous_wheel, FLT_MAX);
}

TEST(MouseWheel, difference_takes_the_shorter_way_round) {
    constexpr float rows[][3] = {
        {5, 3, 2},          {3, 5, -2},        {10, 65530, 15},         {65530, 10, -15},
        {7, 7, 0},          {0, 65535, 0},     {32767.5f, 0, 32767.5f}, {0, 32767.5f, -32767.5f},
        {32768, 0, -32767}, {0, 32768, 32767}, {32767, 0, 32767}};
    for (auto const& [a, b, difference] : rows)
        EXPECT_EQ(QX::mouse_wheel_cyclical_difference(a, b), difference) << a;
}

}  // namespace
