// input_devices_test.cpp - the polled devices: scripted ones for each step, and the system's own.
#include <gtest/gtest.h>

#include "qx/app/input.h"
#include "tests/app/host.h"
#include "tests/harness/balance.h"
#include "tests/harness/stand_in.h"

#define DIRECTINPUT_VERSION 0x0800
#include <dinput.h>

#include <deque>

namespace {

using QX::HARDWARE_CONTROLLER_STATE;

// --- Scripted devices ----------------------------------------------------------------------------

// An object under the published table of calls; what is not scripted is null.
struct Device {
    void** table;
    char const* name;
    unsigned char state[256];
};

void* input_calls[11];
void* device_calls[32];
Device input = {input_calls, "i", {}};
Device keyboard = {device_calls, "k", {}};
Device mouse = {device_calls, "m", {}};

std::string trace;                // what was called, in order: "k Acquire, m State16, "
std::deque<std::string> failing;  // the next calls of these names fail
HRESULT failure = E_FAIL;

HRESULT answer(Device* device, std::string const& call, unsigned long detail = 0) {
    std::string name = std::string(device->name) + ' ' + call;
    if (detail > 0) name += std::to_string(detail);
    trace += name + ", ";
    if (failing.empty() || failing.front() != name) return DI_OK;
    failing.pop_front();
    return failure;
}

HRESULT WINAPI create_input(HINSTANCE instance, DWORD version, GUID const& id, void** out, void*) {
    EXPECT_TRUE(instance == GetModuleHandleW(nullptr) && version == 0x0800);
    EXPECT_TRUE(id == IID_IDirectInput8W);
    *out = &input;
    return DI_OK;
}

HRESULT WINAPI create_device(void*, GUID const& kind, Device** out, void*) {
    Device* const device = kind == GUID_SysKeyboard ? &keyboard : &mouse;
    HRESULT const result = answer(device, "Create");
    if (SUCCEEDED(result)) *out = device;
    return result;
}

HRESULT WINAPI get_state(Device* self, DWORD size, void* out) {
    HRESULT const result = answer(self, "State", size);
    if (SUCCEEDED(result)) std::memcpy(out, self->state, size);
    return result;
}

template <typename Call>
void* slot(Call* call) {
    return reinterpret_cast<void*>(call);
}

void script_calls() {
    input_calls[2] = device_calls[2] = slot(+[](Device* self) { return answer(self, "Release"); });
    input_calls[3] = slot(create_device);
    device_calls[7] = slot(+[](Device* self) { return answer(self, "Acquire"); });
    device_calls[8] = slot(+[](Device* self) { return answer(self, "Unacquire"); });
    device_calls[9] = slot(get_state);
    device_calls[11] = slot(+[](Device* self, DIDATAFORMAT const* format) {
        return answer(self, "Format", format->dwDataSize);
    });
    device_calls[13] = slot(+[](Device* self, HWND window, DWORD flags) {
        return answer(self, "Level", window ? flags : 99);
    });
}

bool acquire_for(HWND hwnd) {
    QX::Application application(QX::ApplicationInitialiser{GetModuleHandleW(nullptr)});
    QX::QXWindow window;
    window.set_hwnd(hwnd);
    return QX::acquire_hardware_controllers(application, window);
}

bool acquire() {
    return acquire_for(reinterpret_cast<HWND>(0x99));
}

bool release() {
    QX::release_hardware_controllers();
    return true;
}

bool exclude() {
    return QX::set_mouse_cooperative_level(true);
}

bool share() {
    return QX::set_mouse_cooperative_level(false) && !QX::mouse_cooperative_level_is_exclusive();
}

class ScriptedDevices : public testing::Test {
protected:
    ScriptedDevices() {
        script_calls();
        QX::on_app_focus_change(true);
    }
    ~ScriptedDevices() override { release(); }

    // One frame with W as told; which of held, down and up it shows.
    static std::string frame_of_w(bool pressed) {
        keyboard.state[DIK_W] = pressed ? 0x80 : 0x7F;
        QX::read_hardware_controllers();
        return shown_of_w();
    }

    static std::string shown_of_w() {
        HARDWARE_CONTROLLER_STATE const state;
        return std::string(state.is_key_held(QX::KEY_W) ? "h" : "") +
               (state.is_key_down(QX::KEY_W) ? "d" : "") + (state.is_key_up(QX::KEY_W) ? "u" : "");
    }

    test::StandIn create{"DirectInput8Create", create_input};
};

TEST_F(ScriptedDevices, are_called_in_order_and_stop_at_a_failure) {
    auto const read = QX::read_hardware_controllers;
    constexpr HRESULT lost = DIERR_INPUTLOST, not_acquired = DIERR_NOTACQUIRED;
    struct Row {
        bool (*call)();
        bool works;
        std::string trace;
        std::deque<std::string> failing = {};
        HRESULT failure = E_FAIL;
    };
    std::string const made = "k Create, k Format256, k Level6, m Create, m Format16, m Level6, ";
    std::string const retried = "k State256, k Acquire, k State256, ";
    Row const rows[] = {
        {read, false, ""},
        {exclude, false, ""},
        {acquire, false, "k Create, k Format256, k Level6, ", {"k Level6"}},
        {release, true, "k Release, i Release, "},
        {acquire, false, made, {"m Level6"}},
        {exclude, false, ""},  // no window is stored yet
        {release, true, "k Release, m Release, i Release, "},
        {acquire, true, made},
        {read, true, "k State256, m State16, "},
        {read, true, retried + "m State16, ", {"k State256"}, lost},
        {read, false, "k State256, k Acquire, ", {"k State256", "k Acquire"}, lost},
        {read, false, retried + "k Unacquire, ", {"k State256", "k State256"}, not_acquired},
        {read, false, "k State256, ", {"k State256"}, E_PENDING},
        {read, true, "k State256, m State16, m Acquire, m State16, ", {"m State16"}, not_acquired},
        {read, false, "k State256, m State16, ", {"m State16"}, DIERR_GENERIC},
        {exclude, true, "m Unacquire, m Level5, m Acquire, "},
        {share, true, "m Unacquire, m Level6, m Acquire, "},
        {exclude, false, "m Unacquire, m Level5, ", {"m Level5"}},
    };
    for (Row const& row : rows) {
        trace.clear();
        failing = row.failing;
        failure = row.failure;
        EXPECT_EQ(row.call(), row.works) << row.trace;
        EXPECT_EQ(trace, row.trace);
    }
    EXPECT_FALSE(QX::mouse_cooperative_level_is_exclusive());
    failing = {"m Acquire"};
    EXPECT_FALSE(exclude());
    EXPECT_TRUE(QX::mouse_cooperative_level_is_exclusive());  // stored all the same
    acquire();
    EXPECT_FALSE(QX::mouse_cooperative_level_is_exclusive());
}

// The first 83 codes follow the numbers; the others are the system's own, under its own names.
TEST_F(ScriptedDevices, every_scan_code_holds_the_key_of_its_name) {
    struct Row {
        char const* name;
        unsigned char code;
    };
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
        Row const row = i < 83 ? Row{name, static_cast<unsigned char>(i + 1)} : rows[i - 83];
        EXPECT_STREQ(name, row.name);
        UINT const symbol = MapVirtualKeyW(row.code, MAPVK_VSC_TO_VK);  // a letter's or digit's own
        EXPECT_TRUE(name[1] != 0 || symbol == static_cast<UINT>(name[0])) << name;
        std::memset(keyboard.state, 0x7F, sizeof keyboard.state);
        keyboard.state[row.code] = 0x80;
        QX::read_hardware_controllers();
        for (int other = -1; other < 150; ++other) {
            auto const key = static_cast<QX::KEY_TYPE>(other);
            ASSERT_EQ(HARDWARE_CONTROLLER_STATE().is_key_held(key), other == i) << i;
        }
    }
}

TEST_F(ScriptedDevices, show_a_change_for_one_frame_and_keys_with_the_focus_alone) {
    ASSERT_TRUE(acquire());
    for (auto const& [pressed, shown] :
         {std::pair(false, ""), {true, "hd"}, {true, "h"}, {false, "u"}, {true, "hd"}})
        EXPECT_EQ(frame_of_w(pressed), shown);
    QX::on_app_focus_change(false);
    EXPECT_EQ(shown_of_w() + frame_of_w(false), "");
    QX::on_app_focus_change(true);
    EXPECT_EQ(shown_of_w(), "u");
    DIMOUSESTATE const moved = {3, 4, -120, {0x80, 0x7F, 0x80, 0}};
    std::memcpy(mouse.state, &moved, sizeof moved);
    EXPECT_EQ(frame_of_w(true), "hd");
    QX::MOUSE_STATE now = *HARDWARE_CONTROLLER_STATE().mouse_state();
    EXPECT_TRUE(now.delta_x == 3 && now.delta_y == -4 && now.delta_wheel == 120);
    EXPECT_TRUE(now.raw_left_button && !now.raw_right_button && now.raw_middle_button);
    release();
    EXPECT_EQ(frame_of_w(true), "h");  // the read fails, but the keys age and the motion ends
    now = *HARDWARE_CONTROLLER_STATE().mouse_state();
    EXPECT_FALSE(now.delta_x || now.delta_y || now.delta_wheel || now.raw_left_button);
}

// --- The optional extension ----------------------------------------------------------------------

HMODULE WINAPI load_extension(char const* name) {
    EXPECT_STREQ(name, "QXLibsWinExt.zintelunityrelease.x64.dll");
    return LoadLibraryW(L"version.dll");
}

FARPROC WINAPI give_entry(HMODULE, char const* name) {
    trace += std::string(name) + ", ";
    auto const prepare = +[](HWND window) { trace += window ? "prepared, " : ""; };
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(prepare));
}

TEST_F(ScriptedDevices, look_once_for_the_extension_and_give_it_the_window) {
    test::StandIn const load("LoadLibraryA", load_extension), entry("GetProcAddress", give_entry);
    acquire();
    EXPECT_TRUE(trace.starts_with(
        "InitialiseGesturesExt, TouchEventsFromLParamExt, GestureEventFromLParamExt, "
        "GestureEventFromDWordExt, GestureEventsFromLParamExt, OnGestureNotifyExt, prepared, k "));
    trace.clear();
    acquire();
    EXPECT_TRUE(trace.starts_with("prepared, k Create"));
}

// --- The system's devices ------------------------------------------------------------------------

void send_key(unsigned short code, bool down) {
    INPUT event = {};
    event.type = INPUT_KEYBOARD;
    event.ki.wScan = code & 0xFF;
    event.ki.dwFlags = KEYEVENTF_SCANCODE | (code & 0x100 ? KEYEVENTF_EXTENDEDKEY : 0);
    if (!down) event.ki.dwFlags |= KEYEVENTF_KEYUP;
    SendInput(1, &event, sizeof event);
}

void send_mouse(DWORD flags, int x = 0, int y = 0, int wheel = 0) {
    INPUT event = {};
    event.type = INPUT_MOUSE;
    event.mi = {x, y, static_cast<DWORD>(wheel), flags, 0, 0};
    SendInput(1, &event, sizeof event);
}

class SystemDevices : public testing::Test {
protected:
    SystemDevices() {
        QX::on_app_focus_change(true);
        host.come_to_front();
        acquire_for(host.window.get_hwnd());
        EXPECT_TRUE(shows([](auto&) { return true; }));
    }
    ~SystemDevices() override { QX::release_hardware_controllers(); }

    // Reads frames until one shows what is looked for.
    static bool shows(std::function<bool(HARDWARE_CONTROLLER_STATE const&)> const& wanted) {
        auto const frame = [&] {
            return QX::read_hardware_controllers() && wanted(HARDWARE_CONTROLLER_STATE());
        };
        return test::pump_until(frame);
    }

    test::Host host;
};

TEST_F(SystemDevices, show_synthetic_keys_and_come_back_with_the_focus) {
    for (unsigned short code : {0x11, 0x39, 0x148, 0x11C}) {
        QX::KEY_TYPE const key = QX::key_event({nullptr, 0, 0, code << 16}).key;
        send_key(code, true);
        EXPECT_TRUE(shows([key](auto& now) { return now.is_key_down(key); }));
        send_key(code, false);
        EXPECT_TRUE(shows([key](auto& now) { return now.is_key_up(key); }));
    }
    EXPECT_FALSE(QX::localised_key_name(QX::KEY_SPACE).empty());
    EXPECT_TRUE(QX::localised_key_name(QX::KEY_COUNT).empty());
    EXPECT_TRUE(QX::set_mouse_cooperative_level(true));
    test::Host other;
    ASSERT_TRUE(other.come_to_front());
    EXPECT_FALSE(QX::read_hardware_controllers());
    ASSERT_TRUE(host.come_to_front());
    EXPECT_TRUE(shows([](auto&) { return true; }));
}

TEST_F(SystemDevices, show_synthetic_motion_upward_positive) {
    float x = 0, y = 0, wheel = 0;
    send_mouse(MOUSEEVENTF_MOVE, 3, -2);
    send_mouse(MOUSEEVENTF_WHEEL, 0, 0, -120);
    send_mouse(MOUSEEVENTF_RIGHTDOWN);
    EXPECT_TRUE(shows([&](auto& now) {
        x += now.mouse_state()->delta_x;
        y += now.mouse_state()->delta_y;
        wheel += now.mouse_state()->delta_wheel;
        return x == 3 && y == 2 && wheel == 120 && now.mouse_state()->raw_right_button;
    })) << x
        << ' ' << y << ' ' << wheel;
    send_mouse(MOUSEEVENTF_RIGHTUP);
}

// --- An hour at 60 frames a second, run at full speed: QX_TEST_FRAMES=216000 ---------------------

using Frames = SystemDevices;

TEST_F(Frames, leave_handles_windows_and_memory_as_they_were) {
    auto const run = [&](int count) {
        for (int i = 0; i < count; ++i) {
            LPARAM const place = MAKELPARAM(i % 300, i % 200);
            if (i % 4 == 0) PostMessageW(host.window.get_hwnd(), WM_MOUSEMOVE, 0, place);
            QX::Application::process_message_queue();
            QX::read_hardware_controllers();
        }
        host.handler.calls = {};
        return test::current_holdings();
    };
    char const* const frames = std::getenv("QX_TEST_FRAMES");
    test::Holdings const before = run(2000);
    test::Holdings const after = run(frames ? std::atoi(frames) : 10000);
    EXPECT_LE(after.handles, before.handles);
    EXPECT_LE(after.windows, before.windows);
    EXPECT_LE(after.blocks, before.blocks);
    EXPECT_LE(after.private_bytes, before.private_bytes + 64 * 1024);
}

}  // namespace
