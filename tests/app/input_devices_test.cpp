// input_devices_test.cpp - the polled devices: scripted ones for each step, and the system's own.
#include <gtest/gtest.h>

#include "qx/app/input.h"
#include "tests/app/host.h"
#include "tests/harness/balance.h"
#include "tests/harness/stand_in.h"

#define DIRECTINPUT_VERSION 0x0800
#include <dinput.h>

namespace {

using QX::HARDWARE_CONTROLLER_STATE;

// --- Scripted devices ----------------------------------------------------------------------------

// An object under the published table of calls.
struct Device {
    void** calls;
    char state[256];
};

void* calls[14];
Device input = {calls, {}}, keyboard = {calls, {}}, mouse = {calls, {}};

std::string trace;     // a character each call, upper case for the mouse; '-' for the input itself
unsigned int failing;  // which calls fail, the first by bit 0
HRESULT failure;

// 2 release, 3 create, 7 acquire, 8 unacquire, 9 state, 11 format, 13 cooperative level.
template <int place>
HRESULT WINAPI scripted_call(Device* device, std::uintptr_t first, void* second) {
    if (place == 3)
        device = *reinterpret_cast<GUID*>(first) == GUID_SysKeyboard ? &keyboard : &mouse;
    int letter = "..rc...aus.f.."[place];
    if (place == 13) letter = '0' + static_cast<int>(reinterpret_cast<std::uintptr_t>(second));
    if (device == &mouse) letter = std::toupper(letter);
    trace += static_cast<char>(device == &input ? '-' : letter);
    if (trace.size() <= 32 && failing >> (trace.size() - 1) & 1) return failure;
    if (place == 3) *static_cast<Device**>(second) = device;
    if (place == 9) std::memcpy(second, device->state, first);
    return DI_OK;
}

template <int... places>
void script_calls(std::integer_sequence<int, places...>) {
    ((calls[places] = reinterpret_cast<void*>(scripted_call<places>)), ...);
}

HRESULT WINAPI create_input(HINSTANCE instance, DWORD version, GUID const& id, void** out, void*) {
    EXPECT_TRUE(instance && version == 0x0800 && id == IID_IDirectInput8W);
    *out = &input;
    return DI_OK;
}

bool acquire(HWND hwnd = reinterpret_cast<HWND>(0x99)) {
    QX::Application application(QX::ApplicationInitialiser{GetModuleHandleW(nullptr)});
    QX::QXWindow window;
    window.set_hwnd(hwnd);
    return QX::acquire_hardware_controllers(application, window);
}

class ScriptedDevices : public testing::Test {
protected:
    ScriptedDevices() {
        script_calls(std::make_integer_sequence<int, 14>());
        QX::on_app_focus_change(true);
    }
    ~ScriptedDevices() override { QX::release_hardware_controllers(); }

    test::StandIn create{"DirectInput8Create", create_input};
};

TEST_F(ScriptedDevices, are_called_in_order_and_stop_at_a_failure) {
    auto const read = QX::read_hardware_controllers;
    auto const take = [] { return acquire(); };
    auto const release = [] { return QX::release_hardware_controllers(), true; };
    auto const exclude = [] { return QX::set_mouse_cooperative_level(true); };
    constexpr HRESULT lost = DIERR_INPUTLOST, not_acquired = DIERR_NOTACQUIRED;
    struct Row {
        bool (*call)();
        bool works;
        char const* trace;
        unsigned int failing = 0;
        HRESULT failure = E_FAIL;
    };
    Row const rows[] = {
        {read, false, ""},
        {take, false, "cf6", 0b100},
        {release, true, "r-"},
        {take, false, "cf6CF6", 0b100000},
        {exclude, false, ""},  // no window is stored yet
        {release, true, "rR-"},
        {take, true, "cf6CF6"},
        {read, true, "sS"},
        {read, true, "sasS", 0b1, lost},
        {read, false, "sa", 0b11, lost},
        {read, false, "sasu", 0b101, not_acquired},
        {read, false, "s", 0b1},
        {read, true, "sSAS", 0b10, not_acquired},
        {exclude, false, "U5", 0b10},
    };
    for (Row const& row : rows) {
        trace.clear();
        failing = row.failing;
        failure = row.failure;
        EXPECT_EQ(row.call(), row.works) << row.trace;
        EXPECT_EQ(trace, row.trace);
    }
    EXPECT_FALSE(QX::mouse_cooperative_level_is_exclusive());
    trace.clear();
    failing = 0b100;
    EXPECT_FALSE(exclude());
    EXPECT_TRUE(QX::mouse_cooperative_level_is_exclusive());  // stored all the same
    EXPECT_EQ(trace, "U5A");
}

// The first 83 codes follow the numbers; the others are the system's own, under its own names.
TEST_F(ScriptedDevices, every_scan_code_holds_the_key_of_its_name) {
    using Row = std::pair<char const*, unsigned char>;
    // clang-format off
#define K(name) {#name, DIK_##name},
    constexpr Row rows[] = {
        K(OEM_102) K(F11) K(F12) K(F13) K(F14) K(F15) K(KANA) K(ABNT_C1) K(CONVERT) K(NOCONVERT)
        K(YEN) K(ABNT_C2) K(NUMPADEQUALS) {"PREVTRACK", DIK_CIRCUMFLEX}, K(AT) K(COLON) K(UNDERLINE)
        K(KANJI) K(STOP) K(AX) K(NEXTTRACK) K(NUMPADENTER) K(RCONTROL) K(MUTE) K(CALCULATOR)
        K(PLAYPAUSE) K(MEDIASTOP) K(VOLUMEDOWN) K(VOLUMEUP) K(WEBHOME) K(NUMPADCOMMA) K(DIVIDE)
        K(SYSRQ) {"RALT", DIK_RMENU}, K(PAUSE) K(HOME) K(UP) {"PAGE_UP", DIK_PRIOR}, K(LEFT)
        K(RIGHT) K(END) K(DOWN) {"PAGE_DOWN", DIK_NEXT}, K(INSERT) K(DELETE) K(LWIN) K(RWIN) K(APPS)
        K(POWER) K(SLEEP) K(WAKE) K(WEBSEARCH) K(WEBFAVORITES) K(WEBREFRESH) K(WEBSTOP)
        K(WEBFORWARD) K(WEBBACK) K(MYCOMPUTER) K(MAIL) K(MEDIASELECT)
    };
#undef K
    // clang-format on
    ASSERT_TRUE(acquire());
    for (int i = 0; i < 143; ++i) {
        char const* const name = QX::name_from_key(static_cast<QX::KEY_TYPE>(i));
        Row const row = i < 83 ? Row(name, i + 1) : rows[i - 83];
        EXPECT_STREQ(name, row.first);
        UINT const symbol =
            MapVirtualKeyW(row.second, MAPVK_VSC_TO_VK);  // a letter's or digit's own
        EXPECT_TRUE(name[1] != 0 || symbol == static_cast<UINT>(name[0])) << name;
        std::memset(keyboard.state, 0x7F, sizeof keyboard.state);
        keyboard.state[row.second] = '\x80';
        QX::read_hardware_controllers();
        for (int other = -1; other < 150; ++other) {
            auto const key = static_cast<QX::KEY_TYPE>(other);
            ASSERT_EQ(HARDWARE_CONTROLLER_STATE().is_key_held(key), other == i) << i;
        }
    }
}

TEST_F(ScriptedDevices, show_a_change_for_one_frame_and_keys_with_the_focus_alone) {
    ASSERT_TRUE(acquire());
    auto const shown = [](char state) {
        keyboard.state[DIK_W] = state;
        QX::read_hardware_controllers();
        HARDWARE_CONTROLLER_STATE const now;
        return now.is_key_held(QX::KEY_W) + now.is_key_down(QX::KEY_W) * 2 +
               now.is_key_up(QX::KEY_W) * 4;
    };
    for (auto const& [state, expected] :
         {std::pair('\x7F', 0), {'\x80', 3}, {'\x80', 1}, {'\x7F', 4}})
        EXPECT_EQ(shown(state), expected);
    QX::on_app_focus_change(false);
    EXPECT_EQ(shown('\x80') + shown('\x7F'), 0);
    QX::on_app_focus_change(true);
    DIMOUSESTATE const moved = {3, 4, -120, {0x80, 0x7F, 0x80, 0}};
    std::memcpy(mouse.state, &moved, sizeof moved);
    EXPECT_EQ(shown('\x80'), 3);
    QX::MOUSE_STATE now = *HARDWARE_CONTROLLER_STATE().mouse_state();
    EXPECT_TRUE(now.delta_x == 3 && now.delta_y == -4 && now.delta_wheel == 120);
    EXPECT_TRUE(now.raw_left_button && !now.raw_right_button && now.raw_middle_button);
    QX::release_hardware_controllers();
    EXPECT_EQ(shown('\x80'), 1);  // the read fails, but the keys age and the motion ends
    now = *HARDWARE_CONTROLLER_STATE().mouse_state();
    EXPECT_FALSE(now.delta_x || now.delta_y || now.delta_wheel || now.raw_left_button);
}

// --- The system's devices ------------------------------------------------------------------------

class SystemDevices : public testing::Test {
protected:
    void SetUp() override {
        QX::on_app_focus_change(true);
        ASSERT_TRUE(host_.come_to_front() && acquire(host_.window.get_hwnd()));
    }
    ~SystemDevices() override { QX::release_hardware_controllers(); }

    test::Host host_;
};

bool shows_w_held(bool held) {
    INPUT event = {};
    event.type = INPUT_KEYBOARD;
    event.ki = {0, DIK_W, KEYEVENTF_SCANCODE | (held ? 0ul : KEYEVENTF_KEYUP), 0, 0};
    SendInput(1, &event, sizeof event);
    return test::pump_until([=] {
        return QX::read_hardware_controllers() &&
               HARDWARE_CONTROLLER_STATE().is_key_held(QX::KEY_W) == held;
    });
}

TEST_F(SystemDevices, show_synthetic_keys_and_come_back_with_the_focus) {
    EXPECT_TRUE(shows_w_held(false) && shows_w_held(true));
    EXPECT_FALSE(QX::localised_key_name(QX::KEY_SPACE).empty());
    EXPECT_TRUE(QX::localised_key_name(QX::KEY_COUNT).empty());
    {
        test::Host other;
        ASSERT_TRUE(other.come_to_front());
        EXPECT_FALSE(QX::read_hardware_controllers());
    }
    ASSERT_TRUE(host_.come_to_front());
    EXPECT_TRUE(shows_w_held(false) && shows_w_held(true));
}

void send_mouse(DWORD flags, int x = 0, int y = 0, int wheel = 0) {
    INPUT event = {};
    event.type = INPUT_MOUSE;
    event.mi = {x, y, static_cast<DWORD>(wheel), flags, 0, 0};
    SendInput(1, &event, sizeof event);
}

TEST_F(SystemDevices, show_synthetic_motion_upward_positive) {
    ASSERT_TRUE(shows_w_held(false));
    send_mouse(MOUSEEVENTF_MOVE, 3, -2);
    send_mouse(MOUSEEVENTF_WHEEL, 0, 0, -120);
    float x = 0, y = 0, wheel = 0;
    EXPECT_TRUE(test::pump_until([&] {
        if (!QX::read_hardware_controllers()) return false;
        QX::MOUSE_STATE const now = *HARDWARE_CONTROLLER_STATE().mouse_state();
        x += now.delta_x;
        y += now.delta_y;
        wheel += now.delta_wheel;
        return x == 3 && y == 2 && wheel == 120;
    })) << x
        << ' ' << y << ' ' << wheel;
}

using Frames = SystemDevices;

// An hour at 60 frames a second, run at full speed: QX_TEST_FRAMES=216000.
TEST_F(Frames, leave_handles_windows_and_memory_as_they_were) {
    auto const run = [&](int count) {
        for (int i = 0; i < count; ++i) {
            LPARAM const place = MAKELPARAM(i % 300, i % 200);
            if (i % 4 == 0) PostMessageW(host_.window.get_hwnd(), WM_MOUSEMOVE, 0, place);
            QX::Application::process_message_queue();
            QX::read_hardware_controllers();
        }
        return test::current_holdings();
    };
    char const* const frames = std::getenv("QX_TEST_FRAMES");
    test::Holdings const before = run(2000);
    test::Holdings const after = run(frames ? std::atoi(frames) : 10000);
    test::expect_no_growth(before, after);
    EXPECT_LE(after.private_bytes, before.private_bytes + 64 * 1024);
}

}  // namespace
