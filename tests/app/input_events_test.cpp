// input_events_test.cpp - names, key and mouse messages, and snapshots: all that needs no device.
#include <gtest/gtest.h>

#include "qx/app/application.h"
#include "qx/app/input.h"
#include "qx/base/windows.h"
#include "tests/harness/stand_in.h"

#include <cfloat>
#include <cstring>
#include <limits>
#include <map>
#include <string>

namespace {

using QX::HARDWARE_CONTROLLER_STATE;
using QX::KEY_TYPE;

KEY_TYPE key(unsigned int number) {
    return static_cast<KEY_TYPE>(number);
}

// --- Names ---------------------------------------------------------------------------------------

TEST(KeyNames, are_whole_and_by_case) {
    for (unsigned int i = 0; i < 143; ++i) {
        char const* const name = QX::name_from_key(key(i));
        EXPECT_EQ(QX::key_from_name(name), key(i));
        EXPECT_EQ(QX::key_from_name(QX::String(name)), key(i));
    }
    for (char const* unknown : {"escape", "ESC", "ESCAPES", ""}) {
        EXPECT_EQ(QX::key_from_name(unknown), key(144));
        EXPECT_EQ(QX::key_from_name(QX::String(unknown)), key(144));
    }
    for (unsigned int i : {143u, 144u, 0x7FFFFFFFu, 0xFFFFFFFFu})
        EXPECT_STREQ(QX::name_from_key(key(i)), "");
}

TEST(MouseEventNames, lead_to_their_numbers_and_back) {
    for (int i = 0; i < 15; ++i) {
        auto const event = static_cast<QX::HW_MOUSE_EVENT>(i);
        EXPECT_EQ(QX::mouse_event_from_name(QX::String(QX::name_from_mouse_event(event))), i);
    }
    EXPECT_STREQ(QX::name_from_mouse_event(QX::MOUSE_RBUTTON_DBL_CLICK_UP), "RBUTTON_DBL_CLICK_UP");
    EXPECT_STREQ(QX::name_from_mouse_event(QX::MOUSE_MOUSELEAVE), "MOUSELEAVE");
    for (int i : {-1, 15, 1000})
        EXPECT_STREQ(QX::name_from_mouse_event(static_cast<QX::HW_MOUSE_EVENT>(i)), "");
    EXPECT_EQ(QX::mouse_event_from_name(QX::String("mousemove")), -1);
}

// --- Key messages --------------------------------------------------------------------------------

ULONG_PTR layout;

HKL WINAPI give_layout(DWORD thread) {
    EXPECT_EQ(thread, 0u);
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
    if (row == translated.end()) return static_cast<int>(code) - 1;
    return QX::key_from_name(row->second);
}

TEST(KeyEvents, every_scan_code_translates_under_every_kind_of_layout) {
    test::StandIn const call("GetKeyboardLayout", give_layout);
    ASSERT_TRUE(call.found());
    struct Row {
        ULONG_PTR layout;
        bool matching;
    };
    constexpr Row rows[] = {
        {0x08090809, true},  {0x04090409, true},          {0x04070407, true},  {0x04080408, false},
        {0x04100410, false}, {0xFFFFFFFFF0C00418, false}, {0x04090000, false},
    };
    for (Row const& row : rows) {
        layout = row.layout;
        for (unsigned int code = 0; code < 0x200; ++code) {
            long long const others = 0x7FFFFFFE0000FFFF;  // bits that do not count
            long long const lparam = others | (static_cast<long long>(code) << 16);
            auto const details = QX::key_event({nullptr, WM_KEYDOWN, 0, lparam});
            ASSERT_EQ(details.key, expected_key(code, row.matching)) << code;
            ASSERT_EQ(details.state, 1);
        }
    }
}

TEST(KeyEvents, state_follows_the_message) {
    for (unsigned int message = 0; message <= 0xFFFF; ++message) {
        bool const down = message == 256 || message == 260;
        bool const up = message == 257 || message == 261;
        auto const details = QX::key_event({nullptr, message, 0, 0x1E0001});
        ASSERT_EQ(details.state, down ? 1 : up ? 0 : -1) << message;
        ASSERT_EQ(details.key, 29);
    }
}

// --- Mouse messages ------------------------------------------------------------------------------

int trackings = 0;

BOOL WINAPI note_tracking(TRACKMOUSEEVENT* request) {
    EXPECT_EQ(request->cbSize, sizeof(TRACKMOUSEEVENT));
    EXPECT_EQ(request->dwFlags, DWORD{TME_LEAVE});
    EXPECT_EQ(request->hwndTrack, reinterpret_cast<HWND>(0x40));
    EXPECT_EQ(request->dwHoverTime, 0u);
    ++trackings;
    return TRUE;
}

class MouseEvents : public testing::Test {
protected:
    MouseEvents() : tracking_("TrackMouseEvent", note_tracking) {}

    // In a window of 200 by 100.
    static int send(
        unsigned int message, unsigned long long wparam = 0, int x = 0, int y = 0,
        unsigned int y_offset = 0, bool message_keys = false) {
        long long const lparam = (static_cast<long long>(y) << 16) | (x & 0xFFFF);
        auto const window = reinterpret_cast<HWND>(0x40);
        return QX::mouse_event({window, message, wparam, lparam}, 200, 100, y_offset, message_keys);
    }

    static QX::MOUSE_STATE state() { return *HARDWARE_CONTROLLER_STATE().mouse_state(); }

private:
    test::StandIn tracking_;
};

TEST_F(MouseEvents, every_message_has_its_event_or_none) {
    std::map<unsigned int, int> const events = {
        {512, 12}, {513, 1}, {514, 0}, {515, 3},  {516, 5},  {517, 4},
        {518, 7},  {519, 9}, {520, 8}, {521, 11}, {522, 13}, {675, 14},
    };
    for (unsigned int message = 0; message <= 0xFFFF; ++message) {
        auto const row = events.find(message);
        ASSERT_EQ(send(message), row == events.end() ? -1 : row->second) << message;
    }
}

TEST_F(MouseEvents, release_after_a_double_click_is_told_apart_by_button) {
    struct Row {
        unsigned int down;
        int first_event;  // the button's "up"
    };
    for (Row const& row : {Row{513, 0}, Row{516, 4}, Row{519, 8}}) {
        EXPECT_EQ(send(row.down), row.first_event + 1);
        EXPECT_EQ(send(row.down + 1), row.first_event);
        EXPECT_EQ(send(row.down + 2), row.first_event + 3);
        EXPECT_EQ(send(row.down == 513 ? 517 : 514), row.down == 513 ? 4 : 0);
        EXPECT_EQ(send(row.down + 1), row.first_event + 2);
        EXPECT_EQ(send(row.down + 1), row.first_event);
    }
}

TEST_F(MouseEvents, position_is_a_fraction_of_the_size) {
    send(WM_MOUSEMOVE, 0, 50, 10);
    EXPECT_EQ(state().x, 0.25f);
    EXPECT_EQ(state().y, 0.1f);
    send(WM_LBUTTONDOWN, 0, 0xFFFF, 20, 30);
    EXPECT_EQ(state().x, 65535.0f / 200.0f);
    EXPECT_EQ(state().y, 0.5f);
    send(0x1234, 0, 0, 0xFFF0, 26);  // the sum is cut to 16 bits, and any message moves
    EXPECT_EQ(state().x, 0.0f);
    EXPECT_EQ(state().y, 0.1f);
}

TEST_F(MouseEvents, wheel_adds_up_over_every_message) {
    send(WM_MOUSEMOVE, 0, 20, 20);
    send(WM_MOUSEWHEEL, 120 << 16, 150, 90);
    EXPECT_EQ(state().x, 0.1f);  // stays
    EXPECT_EQ(state().wheel, 120.0f);
    EXPECT_EQ(state().previous_wheel, 0.0f);
    send(WM_MOUSEMOVE, 30 << 16, 20, 20);
    EXPECT_EQ(state().wheel, 120.0f);  // not before the next wheel message
    send(WM_MOUSEWHEEL, 0xFFFFFF88ull << 16);
    EXPECT_EQ(state().wheel, 30.0f);
    EXPECT_EQ(state().previous_wheel, 120.0f);
    send(WM_MOUSEWHEEL, 0xFFC4ull << 16);  // 60 back, below 0
    EXPECT_EQ(state().wheel, 65506.0f);
    EXPECT_EQ(QX::mouse_wheel_cyclical_difference(state().wheel, state().previous_wheel), -59.0f);
}

TEST_F(MouseEvents, buttons_and_keys_come_from_wparam) {
    for (unsigned int bits = 0; bits < 32; ++bits) {
        send(WM_MOUSEMOVE, bits, 0, 0, 0, bits % 2 == 1);
        QX::MOUSE_STATE const now = state();
        unsigned int const got = now.left_button | now.right_button << 1 | now.shift_key << 2 |
                                 now.control_key << 3 | now.middle_button << 4;
        EXPECT_EQ(got, bits);
        EXPECT_EQ(now.use_message_keys, bits % 2 == 1);
    }
}

TEST_F(MouseEvents, leaving_pulls_the_position_inside) {
    struct Row {
        int x, y;
        float left_x, left_y;
    };
    constexpr Row rows[] = {
        {198, 50, 0.95f, 0.5f}, {190, 95, 0.95f, 0.95f}, {2, 1, 0.05f, 0.05f},
        {10, 5, 0.05f, 0.05f},  {100, 99, 0.5f, 0.95f},
    };
    for (Row const& row : rows) {
        send(WM_MOUSEMOVE, 0, row.x, row.y);
        EXPECT_TRUE(state().inside_window);
        trackings = 0;
        send(WM_MOUSELEAVE);
        EXPECT_EQ(trackings, 0);
        EXPECT_FALSE(state().inside_window);
        EXPECT_EQ(state().x, row.left_x);
        EXPECT_EQ(state().y, row.left_y);
        send(WM_MOUSEWHEEL);
        EXPECT_EQ(trackings, 1);
        EXPECT_TRUE(state().inside_window);
    }
    // Of a window of no size the position is no number, which counts as too small.
    QX::mouse_event({reinterpret_cast<HWND>(0x40), WM_MOUSEMOVE, 0, 0}, 0, 0, 0, false);
    send(WM_MOUSELEAVE);
    EXPECT_EQ(state().x, 0.05f);
}

// --- Snapshots -----------------------------------------------------------------------------------

QX::GestureEventDetails gesture_of(int type) {
    QX::GestureEventDetails gesture = {};
    gesture.type = type;
    gesture.details[10] = 99;
    return gesture;
}

TEST(Snapshots, gesture_hides_the_mouse_until_its_next_event) {
    EXPECT_NE(HARDWARE_CONTROLLER_STATE().mouse_state(), nullptr);
    HARDWARE_CONTROLLER_STATE const gesture(gesture_of(3));
    EXPECT_EQ(gesture.mouse_state(), nullptr);
    EXPECT_EQ(HARDWARE_CONTROLLER_STATE().mouse_state(), nullptr);
    ASSERT_NE(gesture.gesture_details(), nullptr);
    EXPECT_EQ(gesture.gesture_details()->details[10], 99);
    EXPECT_EQ(HARDWARE_CONTROLLER_STATE().gesture_details(), nullptr);  // kept by the caller alone
    for (int type : {-1, 5})
        EXPECT_EQ(HARDWARE_CONTROLLER_STATE(gesture_of(type)).gesture_details(), nullptr);

    QX::mouse_event({nullptr, WM_MOUSEMOVE, 0, 0}, 1, 1, 0, false);
    ASSERT_NE(gesture.mouse_state(), nullptr);
    EXPECT_EQ(gesture.mouse_state()->previous_wheel, FLT_MAX);
    EXPECT_EQ(gesture.mouse_state()->wheel, 0.0f);
}

TEST(Snapshots, message_keys_answer_without_the_focus) {
    QX::MOUSE_STATE given = {};
    given.control_key = given.shift_key = given.escape_key = true;
    for (bool use : {false, true}) {
        given.use_message_keys = use;
        HARDWARE_CONTROLLER_STATE const snapshot(given);
        for (unsigned int i = 0; i < 150; ++i) {
            bool const by_message = i == 0 || i == 28 || i == 41;
            EXPECT_EQ(snapshot.is_key_held(key(i)), use && by_message) << i;
            EXPECT_FALSE(snapshot.is_key_down(key(i)));
        }
    }
}

TEST(MouseWheel, difference_takes_the_shorter_way_round) {
    constexpr float infinite = std::numeric_limits<float>::infinity();
    struct Row {
        float a, b, difference;
    };
    constexpr Row rows[] = {
        {5, 3, 2},          {3, 5, -2},        {10, 65530, 15},         {65530, 10, -15},
        {7, 7, 0},          {0, 65535, 0},     {32767.5f, 0, 32767.5f}, {0, 32767.5f, -32767.5f},
        {32768, 0, -32767}, {0, 32768, 32767}, {32767, 0, 32767},       {infinite, infinite, 0},
    };
    for (Row const& row : rows)
        EXPECT_EQ(QX::mouse_wheel_cyclical_difference(row.a, row.b), row.difference) << row.a;
}

}  // namespace
