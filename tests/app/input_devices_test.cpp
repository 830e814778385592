// input_devices_test.cpp - the polled devices: scripted ones for each step, and the system's own.
#include <gtest/gtest.h>

#include "qx/app/application.h"
#include "qx/app/input.h"
#include "tests/app/host.h"
#include "tests/harness/stand_in.h"

#define DIRECTINPUT_VERSION 0x0800
#include <dinput.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using Calls = std::vector<std::string>;
using QX::HARDWARE_CONTROLLER_STATE;

// --- Scripted devices ----------------------------------------------------------------------------

Calls calls = test::roomy<std::string>();  // of all devices, in order

using Failure = std::pair<std::string, HRESULT>;
std::vector<Failure> failures = test::roomy<Failure>();  // the next call of that name fails so

HRESULT answer(std::string const& call) {
    calls.push_back(call);
    if (failures.empty() || failures.front().first != call) return DI_OK;
    HRESULT const result = failures.front().second;
    failures.erase(failures.begin());
    return result;
}

// A device that answers what the test says. Its table is the published one's, by slot.
struct Device {
    void** table;
    std::string name;
    unsigned char keys[256];
    DIMOUSESTATE mouse;
    DIDATAFORMAT const* format;
};

HRESULT WINAPI refuse() {
    ADD_FAILURE() << "a call that nobody told of";
    return E_FAIL;
}

ULONG WINAPI release_device(Device* self) {
    calls.push_back(self->name + ".Release");
    return 0;
}

HRESULT WINAPI get_property(Device* self, GUID const* property, DIPROPHEADER* header) {
    EXPECT_EQ(property, &DIPROP_KEYNAME);
    EXPECT_EQ(header->dwSize, 536u);
    EXPECT_EQ(header->dwHeaderSize, 16u);
    EXPECT_EQ(header->dwHow, 1u);
    HRESULT const result = answer(self->name + ".GetProperty " + std::to_string(header->dwObj));
    auto const text = reinterpret_cast<DIPROPSTRING*>(header);
    if (SUCCEEDED(result)) std::wcscpy(text->wsz, L"\u00C4");
    return result;
}

HRESULT WINAPI acquire(Device* self) {
    return answer(self->name + ".Acquire");
}

HRESULT WINAPI unacquire(Device* self) {
    return answer(self->name + ".Unacquire");
}

HRESULT WINAPI get_state(Device* self, DWORD size, void* out) {
    HRESULT const result = answer(self->name + ".GetDeviceState " + std::to_string(size));
    if (FAILED(result)) return result;
    if (size == 256)
        std::memcpy(out, self->keys, size);
    else
        std::memcpy(out, &self->mouse, size);
    return result;
}

HRESULT WINAPI set_format(Device* self, DIDATAFORMAT const* format) {
    self->format = format;
    return answer(self->name + ".SetDataFormat");
}

HRESULT WINAPI set_level(Device* self, HWND window, DWORD flags) {
    EXPECT_EQ(window, reinterpret_cast<HWND>(0x99));
    return answer(self->name + ".SetCooperativeLevel " + std::to_string(flags));
}

Device keyboard = {nullptr, "keyboard", {}, {}, nullptr};
Device mouse = {nullptr, "mouse", {}, {}, nullptr};

struct DirectInput {
    void** table;
} direct_input;

ULONG WINAPI release_input(DirectInput*) {
    calls.push_back("input.Release");
    return 0;
}

HRESULT WINAPI create_device(DirectInput*, GUID const& kind, Device** out, IUnknown* outer) {
    EXPECT_EQ(outer, nullptr);
    Device* const device = kind == GUID_SysKeyboard ? &keyboard : &mouse;
    EXPECT_TRUE(device == &keyboard || kind == GUID_SysMouse);
    HRESULT const result = answer("input.CreateDevice " + device->name);
    if (SUCCEEDED(result)) *out = device;
    return result;
}

HRESULT WINAPI create_input(
    HINSTANCE instance, DWORD version, GUID const& interface_id, void** out, IUnknown* outer) {
    EXPECT_EQ(instance, reinterpret_cast<HINSTANCE>(0x88));
    EXPECT_EQ(version, 0x0800u);
    EXPECT_TRUE(interface_id == IID_IDirectInput8W);
    EXPECT_EQ(outer, nullptr);
    HRESULT const result = answer("DirectInput8Create");
    if (SUCCEEDED(result)) *out = &direct_input;
    return result;
}

template <typename Function>
void* slot(Function* function) {
    return reinterpret_cast<void*>(function);
}

void make_tables() {
    static void* device_table[32];
    static void* input_table[11];
    for (void*& entry : device_table) entry = slot(refuse);
    for (void*& entry : input_table) entry = slot(refuse);
    device_table[2] = slot(release_device);
    device_table[5] = slot(get_property);
    device_table[7] = slot(acquire);
    device_table[8] = slot(unacquire);
    device_table[9] = slot(get_state);
    device_table[11] = slot(set_format);
    device_table[13] = slot(set_level);
    input_table[2] = slot(release_input);
    input_table[3] = slot(create_device);
    keyboard.table = mouse.table = device_table;
    direct_input.table = input_table;
}

class ScriptedDevices : public testing::Test {
protected:
    ScriptedDevices() : create_("DirectInput8Create", create_input) {
        make_tables();
        window_.set_hwnd(reinterpret_cast<HWND>(0x99));
        QX::on_app_focus_change(true);
    }
    ~ScriptedDevices() override {
        QX::release_hardware_controllers();
        calls.clear();
    }

    bool acquire_all() {
        calls.clear();
        return QX::acquire_hardware_controllers(application_, window_);
    }

    static bool read() {
        calls.clear();
        return QX::read_hardware_controllers();
    }

    static QX::MOUSE_STATE motion() { return *HARDWARE_CONTROLLER_STATE().mouse_state(); }

private:
    test::StandIn create_;
    QX::Application application_{QX::ApplicationInitialiser{reinterpret_cast<HINSTANCE>(0x88)}};
    QX::QXWindow window_;
};

Calls const acquiring = {
    "DirectInput8Create",          "input.CreateDevice keyboard",
    "keyboard.SetDataFormat",      "keyboard.SetCooperativeLevel 6",
    "input.CreateDevice mouse",    "mouse.SetDataFormat",
    "mouse.SetCooperativeLevel 6",
};

TEST_F(ScriptedDevices, are_set_up_in_order_and_released_in_order) {
    EXPECT_TRUE(acquire_all());
    EXPECT_EQ(calls, acquiring);
    EXPECT_EQ(keyboard.format->dwDataSize, 256u);
    EXPECT_EQ(mouse.format->dwDataSize, 16u);
    calls.clear();
    QX::release_hardware_controllers();
    QX::release_hardware_controllers();
    EXPECT_EQ(calls, (Calls{"keyboard.Release", "mouse.Release", "input.Release"}));
}

TEST_F(ScriptedDevices, any_failure_of_acquiring_stops_there_and_is_cleaned_up) {
    for (std::size_t step = 0; step < acquiring.size(); ++step) {
        failures.push_back({acquiring[step], E_FAIL});
        EXPECT_FALSE(acquire_all());
        EXPECT_EQ(calls, Calls(acquiring.begin(), acquiring.begin() + step + 1));
        EXPECT_FALSE(QX::set_mouse_cooperative_level(true));
        calls.clear();
        QX::release_hardware_controllers();
        EXPECT_EQ(calls.size(), (step > 0) + (step > 1) + (step > 4) + 0u);
    }
}

// The system's own codes, under its own names.
TEST_F(ScriptedDevices, every_scan_code_holds_the_key_of_its_name) {
    struct Row {
        char const* name;
        unsigned char code;
    };
#define SAME(name)                                                                                 \
    { #name, DIK_##name }
    // clang-format off
    constexpr Row rows[] = {
        SAME(ESCAPE), SAME(1), SAME(2), SAME(3), SAME(4), SAME(5), SAME(6), SAME(7), SAME(8),
        SAME(9), SAME(0), SAME(MINUS), SAME(EQUALS), SAME(BACK), SAME(TAB), SAME(Q), SAME(W),
        SAME(E), SAME(R), SAME(T), SAME(Y), SAME(U), SAME(I), SAME(O), SAME(P), SAME(LBRACKET),
        SAME(RBRACKET), SAME(RETURN), SAME(LCONTROL), SAME(A), SAME(S), SAME(D), SAME(F), SAME(G),
        SAME(H), SAME(J), SAME(K), SAME(L), SAME(SEMICOLON), SAME(APOSTROPHE), SAME(GRAVE),
        SAME(LSHIFT), SAME(BACKSLASH), SAME(Z), SAME(X), SAME(C), SAME(V), SAME(B), SAME(N),
        SAME(M), SAME(COMMA), SAME(PERIOD), SAME(SLASH), SAME(RSHIFT), SAME(MULTIPLY),
        {"LALT", DIK_LMENU}, SAME(SPACE), SAME(CAPITAL), SAME(F1), SAME(F2), SAME(F3), SAME(F4),
        SAME(F5), SAME(F6), SAME(F7), SAME(F8), SAME(F9), SAME(F10), SAME(NUMLOCK), SAME(SCROLL),
        SAME(NUMPAD7), SAME(NUMPAD8), SAME(NUMPAD9), SAME(SUBTRACT), SAME(NUMPAD4), SAME(NUMPAD5),
        SAME(NUMPAD6), SAME(ADD), SAME(NUMPAD1), SAME(NUMPAD2), SAME(NUMPAD3), SAME(NUMPAD0),
        SAME(DECIMAL), SAME(OEM_102), SAME(F11), SAME(F12), SAME(F13), SAME(F14), SAME(F15),
        SAME(KANA), SAME(ABNT_C1), SAME(CONVERT), SAME(NOCONVERT), SAME(YEN), SAME(ABNT_C2),
        SAME(NUMPADEQUALS), {"PREVTRACK", DIK_CIRCUMFLEX}, SAME(AT), SAME(COLON), SAME(UNDERLINE),
        SAME(KANJI), SAME(STOP), SAME(AX), SAME(NEXTTRACK), SAME(NUMPADENTER), SAME(RCONTROL),
        SAME(MUTE), SAME(CALCULATOR), SAME(PLAYPAUSE), SAME(MEDIASTOP), SAME(VOLUMEDOWN),
        SAME(VOLUMEUP), SAME(WEBHOME), SAME(NUMPADCOMMA), SAME(DIVIDE), SAME(SYSRQ),
        {"RALT", DIK_RMENU}, SAME(PAUSE), SAME(HOME), SAME(UP), {"PAGE_UP", DIK_PRIOR}, SAME(LEFT),
        SAME(RIGHT), SAME(END), SAME(DOWN), {"PAGE_DOWN", DIK_NEXT}, SAME(INSERT), SAME(DELETE),
        SAME(LWIN), SAME(RWIN), SAME(APPS), SAME(POWER), SAME(SLEEP), SAME(WAKE), SAME(WEBSEARCH),
        SAME(WEBFAVORITES), SAME(WEBREFRESH), SAME(WEBSTOP), SAME(WEBFORWARD), SAME(WEBBACK),
        SAME(MYCOMPUTER), SAME(MAIL), SAME(MEDIASELECT),
    };
    // clang-format on
#undef SAME
    ASSERT_EQ(std::size(rows), 143u);
    ASSERT_TRUE(acquire_all());
    for (unsigned int i = 0; i < std::size(rows); ++i) {
        EXPECT_STREQ(QX::name_from_key(static_cast<QX::KEY_TYPE>(i)), rows[i].name);
        std::memset(keyboard.keys, 0x7F, sizeof keyboard.keys);
        keyboard.keys[rows[i].code] = 0x80;
        ASSERT_TRUE(read());
        HARDWARE_CONTROLLER_STATE const state;
        for (unsigned int other = 0; other < 150; ++other)
            ASSERT_EQ(state.is_key_held(static_cast<QX::KEY_TYPE>(other)), other == i) << i;
    }
}

TEST_F(ScriptedDevices, key_that_changes_shows_for_one_frame) {
    ASSERT_TRUE(acquire_all());
    struct Row {
        bool pressed, held, down, up;
    };
    constexpr Row rows[] = {
        {false, false, false, false}, {true, true, true, false},    {true, true, false, false},
        {false, false, false, true},  {false, false, false, false},
    };
    for (Row const& row : rows) {
        keyboard.keys[DIK_W] = row.pressed ? 0x80 : 0;
        ASSERT_TRUE(read());
        HARDWARE_CONTROLLER_STATE const state;
        EXPECT_EQ(state.is_key_held(QX::KEY_W), row.held);
        EXPECT_EQ(state.is_key_down(QX::KEY_W), row.down);
        EXPECT_EQ(state.is_key_up(QX::KEY_W), row.up);
    }
}

TEST_F(ScriptedDevices, keys_answer_only_with_the_focus) {
    ASSERT_TRUE(acquire_all());
    keyboard.keys[DIK_W] = 0x80;
    ASSERT_TRUE(read());
    QX::on_app_focus_change(false);
    EXPECT_FALSE(HARDWARE_CONTROLLER_STATE().is_key_held(QX::KEY_W));
    EXPECT_FALSE(HARDWARE_CONTROLLER_STATE().is_key_down(QX::KEY_W));
    QX::on_app_focus_change(true);
    EXPECT_TRUE(HARDWARE_CONTROLLER_STATE().is_key_down(QX::KEY_W));
    keyboard.keys[DIK_W] = 0;
    ASSERT_TRUE(read());
    QX::on_app_focus_change(false);
    EXPECT_FALSE(HARDWARE_CONTROLLER_STATE().is_key_up(QX::KEY_W));
}

TEST_F(ScriptedDevices, motion_turns_its_signs_and_lasts_one_frame) {
    ASSERT_TRUE(acquire_all());
    mouse.mouse = {3, 4, -120, {0x80, 0x7F, 0x80, 0}};
    ASSERT_TRUE(read());
    EXPECT_EQ(motion().delta_x, 3.0f);
    EXPECT_EQ(motion().delta_y, -4.0f);
    EXPECT_EQ(motion().delta_wheel, 120.0f);
    EXPECT_TRUE(motion().raw_left_button);
    EXPECT_FALSE(motion().raw_right_button);
    EXPECT_TRUE(motion().raw_middle_button);

    failures.push_back({"mouse.GetDeviceState 16", DIERR_GENERIC});
    EXPECT_FALSE(read());
    EXPECT_EQ(motion().delta_x, 0.0f);
    EXPECT_FALSE(motion().raw_left_button);
}

TEST_F(ScriptedDevices, lost_device_is_acquired_and_asked_once_more) {
    ASSERT_TRUE(acquire_all());
    struct Row {
        std::vector<HRESULT> states;  // of the state calls
        HRESULT acquired;
        bool works;
        char const* trace;  // s state, a acquire, u unacquire
    };
    std::vector<Row> const rows = {
        {{}, DI_OK, true, "s"},
        {{DIERR_NOTACQUIRED}, DI_OK, true, "sas"},
        {{DIERR_INPUTLOST}, S_FALSE, true, "sas"},
        {{DIERR_INPUTLOST}, DIERR_OTHERAPPHASPRIO, false, "sa"},
        {{DIERR_NOTACQUIRED, DIERR_INPUTLOST}, DI_OK, false, "sasu"},
        {{DIERR_GENERIC}, DI_OK, false, "s"},
        {{E_PENDING}, DI_OK, false, "s"},
    };
    for (std::string const device : {"keyboard", "mouse"}) {
        for (Row const& row : rows) {
            std::string const state =
                device == "mouse" ? ".GetDeviceState 16" : ".GetDeviceState 256";
            Calls expected;
            if (device == "mouse") expected.push_back("keyboard.GetDeviceState 256");
            std::size_t next = 0;
            for (char const step : std::string(row.trace)) {
                if (step == 's') {
                    if (next < row.states.size())
                        failures.push_back({device + state, row.states[next++]});
                    expected.push_back(device + state);
                } else if (step == 'a') {
                    if (row.acquired != DI_OK)
                        failures.push_back({device + ".Acquire", row.acquired});
                    expected.push_back(device + ".Acquire");
                } else {
                    expected.push_back(device + ".Unacquire");
                }
            }
            if (device == "keyboard" && row.works) expected.push_back("mouse.GetDeviceState 16");
            EXPECT_EQ(read(), row.works) << device << row.trace;
            EXPECT_EQ(calls, expected) << device << row.trace;
        }
    }
}

TEST_F(ScriptedDevices, exclusive_mouse_is_taken_anew) {
    EXPECT_FALSE(QX::set_mouse_cooperative_level(true));
    ASSERT_TRUE(acquire_all());
    for (bool exclusive : {true, false}) {
        std::string const level =
            std::string("mouse.SetCooperativeLevel ") + (exclusive ? "5" : "6");
        calls.clear();
        EXPECT_TRUE(QX::set_mouse_cooperative_level(exclusive));
        EXPECT_EQ(calls, (Calls{"mouse.Unacquire", level, "mouse.Acquire"}));
        EXPECT_EQ(QX::mouse_cooperative_level_is_exclusive(), exclusive);
    }
    failures.push_back({"mouse.SetCooperativeLevel 5", E_FAIL});
    calls.clear();
    EXPECT_FALSE(QX::set_mouse_cooperative_level(true));
    EXPECT_EQ(calls, (Calls{"mouse.Unacquire", "mouse.SetCooperativeLevel 5"}));
    EXPECT_FALSE(QX::mouse_cooperative_level_is_exclusive());

    failures.push_back({"mouse.Acquire", E_FAIL});
    EXPECT_FALSE(QX::set_mouse_cooperative_level(true));
    EXPECT_TRUE(QX::mouse_cooperative_level_is_exclusive());  // stored before acquiring
    ASSERT_TRUE(acquire_all());
    EXPECT_FALSE(QX::mouse_cooperative_level_is_exclusive());
}

int state_reads = 0;
int state_writes = 0;
bool state_readable = true;

BOOL WINAPI read_states(BYTE* states) {
    ++state_reads;
    std::memset(states, 0x5A, 256);
    return state_readable;
}

BOOL WINAPI write_states(BYTE* states) {
    ++state_writes;
    EXPECT_EQ(states[255], 0x5A);
    return TRUE;
}

TEST_F(ScriptedDevices, key_names_keep_the_keyboard_state) {
    test::StandIn const get("GetKeyboardState", read_states);
    test::StandIn const set("SetKeyboardState", write_states);
    EXPECT_EQ(QX::localised_key_name(QX::KEY_HOME).length(), 0u);  // no keyboard yet
    EXPECT_EQ(state_writes, 1);
    ASSERT_TRUE(acquire_all());
    calls.clear();
    EXPECT_EQ(std::wstring(QX::localised_key_name(QX::KEY_HOME).c_str()), L"\u00C4");
    EXPECT_EQ(calls, Calls{"keyboard.GetProperty 199"});
    failures.push_back({"keyboard.GetProperty 1", E_FAIL});
    state_readable = false;
    EXPECT_EQ(QX::localised_key_name(QX::KEY_ESCAPE).length(), 0u);
    EXPECT_EQ(state_writes, 2);
    EXPECT_EQ(QX::localised_key_name(static_cast<QX::KEY_TYPE>(143)).length(), 0u);
    EXPECT_EQ(QX::localised_key_name(static_cast<QX::KEY_TYPE>(-1)).length(), 0u);
    EXPECT_EQ(state_reads, 3);
}

TEST(Devices, reading_without_acquiring_clears_the_motion_alone) {
    QX::MOUSE_STATE given = {};
    given.x = 0.5f;
    given.delta_x = given.delta_y = given.delta_wheel = 7.0f;
    given.raw_middle_button = true;
    HARDWARE_CONTROLLER_STATE const kept(given);
    EXPECT_FALSE(QX::read_hardware_controllers());
    QX::MOUSE_STATE const now = *HARDWARE_CONTROLLER_STATE().mouse_state();
    EXPECT_EQ(now.x, 0.5f);
    EXPECT_EQ(now.delta_x + now.delta_y + now.delta_wheel, 0.0f);
    EXPECT_FALSE(now.raw_middle_button);
    EXPECT_EQ(kept.mouse_state()->delta_x, 7.0f);
}

TEST_F(ScriptedDevices, reading_after_release_ages_the_keys) {
    ASSERT_TRUE(acquire_all());
    keyboard.keys[DIK_W] = 0x80;
    ASSERT_TRUE(read());
    EXPECT_TRUE(HARDWARE_CONTROLLER_STATE().is_key_down(QX::KEY_W));
    QX::release_hardware_controllers();
    EXPECT_FALSE(read());
    EXPECT_TRUE(HARDWARE_CONTROLLER_STATE().is_key_held(QX::KEY_W));
    EXPECT_FALSE(HARDWARE_CONTROLLER_STATE().is_key_down(QX::KEY_W));
    keyboard.keys[DIK_W] = 0;
}

// --- The optional extension ----------------------------------------------------------------------

DWORD major_version, minor_version;
Calls asked = test::roomy<std::string>();
HWND prepared = nullptr;

BOOL WINAPI give_version(OSVERSIONINFOW* version) {
    version->dwMajorVersion = major_version;
    version->dwMinorVersion = minor_version;
    return TRUE;
}

HMODULE WINAPI load_extension(char const* name) {
    asked.push_back(name);
    return LoadLibraryW(L"version.dll");
}

void prepare(HWND window) {
    prepared = window;
}

FARPROC WINAPI give_entry(HMODULE, char const* name) {
    asked.push_back(name);
    if (std::strcmp(name, "InitialiseGesturesExt") != 0) return nullptr;
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(prepare));
}

class TouchExtension : public ScriptedDevices {
protected:
    ~TouchExtension() override { asked.clear(); }

    void look(DWORD major, DWORD minor) {
        test::StandIn const version("GetVersionExW", give_version);
        test::StandIn const load("LoadLibraryA", load_extension);
        test::StandIn const entry("GetProcAddress", give_entry);
        ASSERT_TRUE(version.found() && load.found() && entry.found());
        major_version = major;
        minor_version = minor;
        acquire_all();
    }
};

TEST_F(TouchExtension, is_not_looked_for_before_touch_came) {
    look(6, 0);
    EXPECT_EQ(asked, Calls{});
    look(6, 1);  // once only
    EXPECT_EQ(asked, Calls{});
    EXPECT_EQ(prepared, nullptr);
}

TEST_F(TouchExtension, is_loaded_once_and_given_the_window) {
    look(6, 1);
    Calls const names = {
        "QXLibsWinExt.zintelunityrelease.x64.dll",
        "InitialiseGesturesExt",
        "TouchEventsFromLParamExt",
        "GestureEventFromLParamExt",
        "GestureEventFromDWordExt",
        "GestureEventsFromLParamExt",
        "OnGestureNotifyExt"};
    EXPECT_EQ(asked, names);
    EXPECT_EQ(prepared, reinterpret_cast<HWND>(0x99));
    prepared = nullptr;
    look(10, 0);
    EXPECT_EQ(asked, names);
    EXPECT_EQ(prepared, reinterpret_cast<HWND>(0x99));
}

// --- The system's devices ------------------------------------------------------------------------

class SystemDevices : public testing::Test {
protected:
    // The system keeps a thread for its devices from their first use on.
    static void SetUpTestSuite() {
        test::Host host;
        QX::Application application(QX::ApplicationInitialiser{GetModuleHandleW(nullptr)});
        host.open();
        QX::acquire_hardware_controllers(application, host.window);
        QX::read_hardware_controllers();
        QX::release_hardware_controllers();
    }

    void SetUp() override {
        host_.initialiser.style = 0x90000000;
        ASSERT_TRUE(host_.open_in_front());
        SetCursorPos(200, 200);
        ASSERT_TRUE(QX::acquire_hardware_controllers(application_, host_.window));
        ASSERT_TRUE(read_until([] { return true; }));
        QX::on_app_focus_change(true);
    }
    void TearDown() override { QX::release_hardware_controllers(); }

    // Reads frames until one shows what is looked for.
    static bool read_until(std::function<bool()> const& shown) {
        return test::pump_until([&] { return QX::read_hardware_controllers() && shown(); });
    }

    test::Host host_;

private:
    QX::Application application_{QX::ApplicationInitialiser{GetModuleHandleW(nullptr)}};
};

TEST_F(SystemDevices, show_synthetic_keys) {
    for (unsigned short code : {0x11, 0x39, 0x148, 0x11C}) {
        QX::KEY_TYPE const key = QX::key_event({nullptr, 0, 0, code << 16}).key;
        test::send_key(code, true);
        EXPECT_TRUE(read_until([&] { return HARDWARE_CONTROLLER_STATE().is_key_down(key); }))
            << key;
        EXPECT_TRUE(read_until([&] { return !HARDWARE_CONTROLLER_STATE().is_key_down(key); }));
        EXPECT_TRUE(HARDWARE_CONTROLLER_STATE().is_key_held(key));
        test::send_key(code, false);
        EXPECT_TRUE(read_until([&] { return HARDWARE_CONTROLLER_STATE().is_key_up(key); })) << key;
        EXPECT_FALSE(HARDWARE_CONTROLLER_STATE().is_key_held(key));
    }
}

TEST_F(SystemDevices, show_synthetic_motion_upward_positive) {
    float x = 0.0f, y = 0.0f, wheel = 0.0f;
    test::send_mouse(MOUSEEVENTF_MOVE, 3, -2);
    test::send_mouse(MOUSEEVENTF_WHEEL, 0, 0, -120);
    EXPECT_TRUE(read_until([&] {
        QX::MOUSE_STATE const now = *HARDWARE_CONTROLLER_STATE().mouse_state();
        x += now.delta_x;
        y += now.delta_y;
        wheel += now.delta_wheel;
        return x == 3.0f && y == 2.0f && wheel == 120.0f;
    })) << x
        << " " << y << " " << wheel;
    test::send_mouse(MOUSEEVENTF_RIGHTDOWN);
    EXPECT_TRUE(
        read_until([] { return HARDWARE_CONTROLLER_STATE().mouse_state()->raw_right_button; }));
    test::send_mouse(MOUSEEVENTF_RIGHTUP);
}

TEST_F(SystemDevices, come_back_after_the_focus_was_away) {
    test::Host other;
    ASSERT_TRUE(other.open_in_front());
    EXPECT_FALSE(QX::read_hardware_controllers());
    ASSERT_TRUE(host_.come_to_front());
    EXPECT_TRUE(read_until([] { return true; }));
}

TEST_F(SystemDevices, mouse_can_be_had_exclusively_and_given_back) {
    EXPECT_TRUE(QX::set_mouse_cooperative_level(true));
    EXPECT_TRUE(QX::mouse_cooperative_level_is_exclusive());
    EXPECT_TRUE(QX::set_mouse_cooperative_level(false));
    EXPECT_GT(QX::localised_key_name(QX::KEY_SPACE).length(), 0u);
}

TEST_F(SystemDevices, window_messages_reach_the_mouse_state) {
    std::vector<int> events;
    host_.on_message = [&](UINT message, WPARAM wparam, LPARAM lparam) {
        bool const of_mouse = message >= WM_MOUSEFIRST && message <= WM_MOUSELAST;
        if (!of_mouse && message != WM_MOUSELEAVE) return;
        int const event =
            QX::mouse_event({host_.hwnd(), message, wparam, lparam}, 400, 300, 0, false);
        if (event >= 0) events.push_back(event);
    };
    SetCursorPos(250, 210);
    ASSERT_TRUE(test::pump_until([&] { return !events.empty(); }));
    QX::MOUSE_STATE const now = *HARDWARE_CONTROLLER_STATE().mouse_state();
    EXPECT_TRUE(now.inside_window);
    events.clear();
    for (int click = 0; click < 2; ++click) {
        test::send_mouse(MOUSEEVENTF_LEFTDOWN);
        test::send_mouse(MOUSEEVENTF_LEFTUP);
    }
    test::pump_until([&] { return events.size() >= 4; });
    std::erase(events, 12);
    EXPECT_EQ(events, (std::vector<int>{1, 0, 3, 2}));
}

}  // namespace
