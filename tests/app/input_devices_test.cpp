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

using QX::HARDWARE_CONTROLLER_STATE;

// --- Scripted devices ----------------------------------------------------------------------------

// What was called, in order: "k Acquire, m State16, ". One long text that takes no block.
std::string trace(4000, ' ');

// The next calls of these names fail so.
using Failure = std::pair<std::string, HRESULT>;
std::vector<Failure> failures = test::roomy<Failure>();

HRESULT answer(char const* device, std::string const& call) {
    std::string const name = std::string(device) + " " + call;
    trace += name + ", ";
    if (failures.empty() || failures.front().first != name) return DI_OK;
    HRESULT const result = failures.front().second;
    failures.erase(failures.begin());
    return result;
}

// A device that answers what the test says, under the published table of calls.
struct Device {
    void** table;
    char const* name;
    unsigned char keys[256];
    DIMOUSESTATE mouse;
};

Device keyboard = {nullptr, "k", {}, {}};
Device mouse = {nullptr, "m", {}, {}};
void** input_table = nullptr;

HRESULT WINAPI refuse() {
    ADD_FAILURE() << "a call that nobody told of";
    return E_FAIL;
}

ULONG WINAPI release_device(Device* self) {
    answer(self->name, "Release");
    return 0;
}

HRESULT WINAPI get_property(Device* self, GUID const* property, DIPROPHEADER* header) {
    EXPECT_EQ(property, &DIPROP_KEYNAME);
    EXPECT_EQ(header->dwSize, 536u);
    EXPECT_EQ(header->dwHeaderSize, 16u);
    EXPECT_EQ(header->dwHow, 1u);
    HRESULT const result = answer(self->name, "Name" + std::to_string(header->dwObj));
    if (SUCCEEDED(result)) std::wcscpy(reinterpret_cast<DIPROPSTRING*>(header)->wsz, L"\u00C4");
    return result;
}

HRESULT WINAPI acquire(Device* self) {
    return answer(self->name, "Acquire");
}

HRESULT WINAPI unacquire(Device* self) {
    return answer(self->name, "Unacquire");
}

HRESULT WINAPI get_state(Device* self, DWORD size, void* out) {
    HRESULT const result = answer(self->name, "State" + std::to_string(size));
    if (SUCCEEDED(result))
        std::memcpy(out, size == 256 ? self->keys : static_cast<void*>(&self->mouse), size);
    return result;
}

HRESULT WINAPI set_format(Device* self, DIDATAFORMAT const* format) {
    return answer(self->name, "Format" + std::to_string(format->dwDataSize));
}

HRESULT WINAPI set_level(Device* self, HWND window, DWORD flags) {
    EXPECT_EQ(window, reinterpret_cast<HWND>(0x99));
    return answer(self->name, "Level" + std::to_string(flags));
}

ULONG WINAPI release_input(void*) {
    answer("i", "Release");
    return 0;
}

HRESULT WINAPI create_device(void*, GUID const& kind, Device** out, IUnknown*) {
    Device* const device = kind == GUID_SysKeyboard ? &keyboard : &mouse;
    EXPECT_TRUE(device == &keyboard || kind == GUID_SysMouse);
    HRESULT const result = answer(device->name, "Create");
    if (SUCCEEDED(result)) *out = device;
    return result;
}

HRESULT WINAPI
create_input(HINSTANCE instance, DWORD version, GUID const& id, void** out, IUnknown*) {
    EXPECT_EQ(instance, reinterpret_cast<HINSTANCE>(0x88));
    EXPECT_EQ(version, 0x0800u);
    EXPECT_TRUE(id == IID_IDirectInput8W);
    HRESULT const result = answer("i", "Create");
    if (SUCCEEDED(result)) *out = &input_table;
    return result;
}

template <typename Function>
void* slot(Function* function) {
    return reinterpret_cast<void*>(function);
}

void make_tables() {
    static void* device_slots[32];
    static void* input_slots[11];
    for (void*& entry : device_slots) entry = slot(refuse);
    for (void*& entry : input_slots) entry = slot(refuse);
    device_slots[2] = slot(release_device);
    device_slots[5] = slot(get_property);
    device_slots[7] = slot(acquire);
    device_slots[8] = slot(unacquire);
    device_slots[9] = slot(get_state);
    device_slots[11] = slot(set_format);
    device_slots[13] = slot(set_level);
    input_slots[2] = slot(release_input);
    input_slots[3] = slot(create_device);
    keyboard.table = mouse.table = device_slots;
    input_table = input_slots;
}

class ScriptedDevices : public testing::Test {
protected:
    ScriptedDevices() : create_("DirectInput8Create", create_input) {
        make_tables();
        window_.set_hwnd(reinterpret_cast<HWND>(0x99));
        QX::on_app_focus_change(true);
    }
    ~ScriptedDevices() override { QX::release_hardware_controllers(); }

    bool acquire_all() {
        trace.clear();
        return QX::acquire_hardware_controllers(application_, window_);
    }

    static bool read() {
        trace.clear();
        return QX::read_hardware_controllers();
    }

    // One frame with W as told; which of held, down and up it shows.
    static std::string frame_of_w(bool pressed) {
        keyboard.keys[DIK_W] = pressed ? 0x80 : 0x7F;
        EXPECT_TRUE(read());
        return shown_of_w();
    }

    static std::string shown_of_w() {
        HARDWARE_CONTROLLER_STATE const state;
        return std::string(state.is_key_held(QX::KEY_W) ? "h" : "") +
               (state.is_key_down(QX::KEY_W) ? "d" : "") + (state.is_key_up(QX::KEY_W) ? "u" : "");
    }

    static QX::MOUSE_STATE motion() { return *HARDWARE_CONTROLLER_STATE().mouse_state(); }

private:
    test::StandIn create_;
    QX::Application application_{QX::ApplicationInitialiser{reinterpret_cast<HINSTANCE>(0x88)}};
    QX::QXWindow window_;
};

// Each failure stops there; what was made until then is released.
TEST_F(ScriptedDevices, are_set_up_in_order_and_released_in_order) {
    std::vector<std::string> const steps = {"i Create", "k Create",   "k Format256", "k Level6",
                                            "m Create", "m Format16", "m Level6"};
    std::string sofar;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        failures.push_back({steps[i], E_FAIL});
        EXPECT_FALSE(acquire_all());
        EXPECT_EQ(trace, sofar += steps[i] + ", ");
        EXPECT_FALSE(QX::set_mouse_cooperative_level(true));
        trace.clear();
        QX::release_hardware_controllers();
        std::string const released = std::string(i > 1 ? "k Release, " : "") +
                                     (i > 4 ? "m Release, " : "") + (i > 0 ? "i Release, " : "");
        EXPECT_EQ(trace, released);
    }
    EXPECT_TRUE(acquire_all());
    EXPECT_EQ(trace, sofar);
}

// The system's own codes, under its own names.
TEST_F(ScriptedDevices, every_scan_code_holds_the_key_of_its_name) {
    struct Row {
        char const* name;
        unsigned char code;
    };
    // clang-format off
#define K(name) {#name, DIK_##name},
    constexpr Row rows[] = {
        K(ESCAPE) K(1) K(2) K(3) K(4) K(5) K(6) K(7) K(8) K(9) K(0) K(MINUS) K(EQUALS) K(BACK)
        K(TAB) K(Q) K(W) K(E) K(R) K(T) K(Y) K(U) K(I) K(O) K(P) K(LBRACKET) K(RBRACKET) K(RETURN)
        K(LCONTROL) K(A) K(S) K(D) K(F) K(G) K(H) K(J) K(K) K(L) K(SEMICOLON) K(APOSTROPHE) K(GRAVE)
        K(LSHIFT) K(BACKSLASH) K(Z) K(X) K(C) K(V) K(B) K(N) K(M) K(COMMA) K(PERIOD) K(SLASH)
        K(RSHIFT) K(MULTIPLY) {"LALT", DIK_LMENU}, K(SPACE) K(CAPITAL) K(F1) K(F2) K(F3) K(F4) K(F5)
        K(F6) K(F7) K(F8) K(F9) K(F10) K(NUMLOCK) K(SCROLL) K(NUMPAD7) K(NUMPAD8) K(NUMPAD9)
        K(SUBTRACT) K(NUMPAD4) K(NUMPAD5) K(NUMPAD6) K(ADD) K(NUMPAD1) K(NUMPAD2) K(NUMPAD3)
        K(NUMPAD0) K(DECIMAL) K(OEM_102) K(F11) K(F12) K(F13) K(F14) K(F15) K(KANA) K(ABNT_C1)
        K(CONVERT) K(NOCONVERT) K(YEN) K(ABNT_C2) K(NUMPADEQUALS) {"PREVTRACK", DIK_CIRCUMFLEX},
        K(AT) K(COLON) K(UNDERLINE) K(KANJI) K(STOP) K(AX) K(NEXTTRACK) K(NUMPADENTER) K(RCONTROL)
        K(MUTE) K(CALCULATOR) K(PLAYPAUSE) K(MEDIASTOP) K(VOLUMEDOWN) K(VOLUMEUP) K(WEBHOME)
        K(NUMPADCOMMA) K(DIVIDE) K(SYSRQ) {"RALT", DIK_RMENU}, K(PAUSE) K(HOME) K(UP)
        {"PAGE_UP", DIK_PRIOR}, K(LEFT) K(RIGHT) K(END) K(DOWN) {"PAGE_DOWN", DIK_NEXT}, K(INSERT)
        K(DELETE) K(LWIN) K(RWIN) K(APPS) K(POWER) K(SLEEP) K(WAKE) K(WEBSEARCH) K(WEBFAVORITES)
        K(WEBREFRESH) K(WEBSTOP) K(WEBFORWARD) K(WEBBACK) K(MYCOMPUTER) K(MAIL) K(MEDIASELECT)
    };
#undef K
    // clang-format on
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

TEST_F(ScriptedDevices, key_that_changes_shows_for_one_frame_and_with_the_focus_alone) {
    ASSERT_TRUE(acquire_all());
    for (auto const& [pressed, shown] : std::initializer_list<std::pair<bool, char const*>>{
             {false, ""}, {true, "hd"}, {true, "h"}, {false, "u"}, {false, ""}, {true, "hd"}})
        EXPECT_EQ(frame_of_w(pressed), shown);
    QX::on_app_focus_change(false);
    EXPECT_EQ(shown_of_w(), "");
    EXPECT_EQ(frame_of_w(false), "");
    QX::on_app_focus_change(true);
    EXPECT_EQ(shown_of_w(), "u");

    // Once released, a read fails but ages the keys.
    EXPECT_EQ(frame_of_w(true), "hd");
    QX::release_hardware_controllers();
    EXPECT_FALSE(read());
    EXPECT_EQ(shown_of_w(), "h");
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

    failures.push_back({"m State16", DIERR_GENERIC});
    EXPECT_FALSE(read());
    EXPECT_EQ(motion().delta_x, 0.0f);
    EXPECT_FALSE(motion().raw_left_button);
}

TEST_F(ScriptedDevices, lost_device_is_acquired_and_asked_once_more) {
    ASSERT_TRUE(acquire_all());
    constexpr HRESULT lost = DIERR_INPUTLOST, not_acquired = DIERR_NOTACQUIRED;
    struct Row {
        std::vector<Failure> failures;
        bool works;
        char const* trace;
    };
    std::vector<Row> const rows = {
        {{}, true, "k State256, m State16, "},
        {{{"k State256", lost}}, true, "k State256, k Acquire, k State256, m State16, "},
        {{{"k State256", not_acquired}, {"k Acquire", S_FALSE}},
         true,
         "k State256, k Acquire, k State256, m State16, "},
        {{{"k State256", lost}, {"k Acquire", E_FAIL}}, false, "k State256, k Acquire, "},
        {{{"k State256", lost}, {"k State256", lost}},
         false,
         "k State256, k Acquire, k State256, k Unacquire, "},
        {{{"k State256", DIERR_GENERIC}}, false, "k State256, "},
        {{{"m State16", not_acquired}}, true, "k State256, m State16, m Acquire, m State16, "},
        {{{"m State16", lost}, {"m State16", E_FAIL}},
         false,
         "k State256, m State16, m Acquire, m State16, m Unacquire, "},
        {{{"m State16", E_PENDING}}, false, "k State256, m State16, "},
    };
    for (Row const& row : rows) {
        for (Failure const& failure : row.failures) failures.push_back(failure);
        EXPECT_EQ(read(), row.works) << row.trace;
        EXPECT_EQ(trace, row.trace);
    }
}

TEST_F(ScriptedDevices, exclusive_mouse_is_taken_anew) {
    EXPECT_FALSE(QX::set_mouse_cooperative_level(true));
    ASSERT_TRUE(acquire_all());
    struct Row {
        bool exclusive;
        char const* failing;
        bool works, stored;
        char const* trace;
    };
    constexpr Row rows[] = {
        {true, "", true, true, "m Unacquire, m Level5, m Acquire, "},
        {false, "", true, false, "m Unacquire, m Level6, m Acquire, "},
        {true, "m Level5", false, false, "m Unacquire, m Level5, "},
        {true, "m Acquire", false, true, "m Unacquire, m Level5, m Acquire, "},
    };
    for (Row const& row : rows) {
        if (*row.failing) failures.push_back({row.failing, E_FAIL});
        trace.clear();
        EXPECT_EQ(QX::set_mouse_cooperative_level(row.exclusive), row.works);
        EXPECT_EQ(trace, row.trace);
        EXPECT_EQ(QX::mouse_cooperative_level_is_exclusive(), row.stored);
    }
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
    trace.clear();
    EXPECT_EQ(std::wstring(QX::localised_key_name(QX::KEY_HOME).c_str()), L"\u00C4");
    EXPECT_EQ(trace, "k Name199, ");
    failures.push_back({"k Name1", E_FAIL});
    state_readable = false;
    EXPECT_EQ(QX::localised_key_name(QX::KEY_ESCAPE).length(), 0u);
    EXPECT_EQ(state_writes, 2);
    EXPECT_EQ(QX::localised_key_name(static_cast<QX::KEY_TYPE>(143)).length(), 0u);
    EXPECT_EQ(QX::localised_key_name(static_cast<QX::KEY_TYPE>(-1)).length(), 0u);
    EXPECT_EQ(state_reads, 3);
}

// --- The optional extension ----------------------------------------------------------------------

constexpr char const* extension_names =
    "QXLibsWinExt.zintelunityrelease.x64.dll InitialiseGesturesExt TouchEventsFromLParamExt "
    "GestureEventFromLParamExt GestureEventFromDWordExt GestureEventsFromLParamExt "
    "OnGestureNotifyExt ";

DWORD minor_version = 1;
std::string asked(400, ' ');
HWND prepared = nullptr;

BOOL WINAPI give_version(OSVERSIONINFOW* version) {
    version->dwMajorVersion = 6;
    version->dwMinorVersion = minor_version;
    return TRUE;
}

HMODULE WINAPI load_extension(char const* name) {
    asked += std::string(name) + " ";
    return LoadLibraryW(L"version.dll");
}

void prepare(HWND window) {
    prepared = window;
}

FARPROC WINAPI give_entry(HMODULE, char const* name) {
    asked += std::string(name) + " ";
    if (std::strcmp(name, "InitialiseGesturesExt") != 0) return nullptr;
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(prepare));
}

TEST_F(ScriptedDevices, look_once_for_the_extension_and_give_it_the_window) {
    test::StandIn const version("GetVersionExW", give_version);
    test::StandIn const load("LoadLibraryA", load_extension);
    test::StandIn const entry("GetProcAddress", give_entry);
    ASSERT_TRUE(version.found() && load.found() && entry.found());
    for (char const* first : {extension_names, ""}) {
        asked.clear();
        prepared = nullptr;
        acquire_all();
        EXPECT_EQ(asked, first);
        EXPECT_EQ(prepared, reinterpret_cast<HWND>(0x99));
    }
}

TEST_F(ScriptedDevices, look_for_no_extension_before_touch_came) {
    test::StandIn const version("GetVersionExW", give_version);
    test::StandIn const load("LoadLibraryA", load_extension);
    minor_version = 0;
    asked.clear();
    acquire_all();
    EXPECT_EQ(asked, "");
}

// --- The system's devices ------------------------------------------------------------------------

// Reads frames until one shows what is looked for.
bool read_until(std::function<bool()> const& shown) {
    return test::pump_until([&] { return QX::read_hardware_controllers() && shown(); });
}

class SystemDevices : public testing::Test {
protected:
    // The system keeps a thread for its devices from their first use on.
    static void SetUpTestSuite() {
        test::Host host;
        host.open();
        acquire(host);
        QX::read_hardware_controllers();
        QX::release_hardware_controllers();
    }

    static bool acquire(test::Host& host) {
        QX::Application application(QX::ApplicationInitialiser{GetModuleHandleW(nullptr)});
        return QX::acquire_hardware_controllers(application, host.window);
    }
};

TEST_F(SystemDevices, show_synthetic_keys) {
    test::Host host;
    ASSERT_TRUE(host.open_in_front());
    ASSERT_TRUE(acquire(host));
    ASSERT_TRUE(read_until([] { return true; }));
    QX::on_app_focus_change(true);
    EXPECT_GT(QX::localised_key_name(QX::KEY_SPACE).length(), 0u);
    for (unsigned short code : {0x11, 0x39, 0x148, 0x11C}) {
        QX::KEY_TYPE const key = QX::key_event({nullptr, 0, 0, code << 16}).key;
        test::send_key(code, true);
        EXPECT_TRUE(read_until([&] { return HARDWARE_CONTROLLER_STATE().is_key_down(key); }));
        EXPECT_TRUE(read_until([&] { return !HARDWARE_CONTROLLER_STATE().is_key_down(key); }));
        EXPECT_TRUE(HARDWARE_CONTROLLER_STATE().is_key_held(key));
        test::send_key(code, false);
        EXPECT_TRUE(read_until([&] { return HARDWARE_CONTROLLER_STATE().is_key_up(key); }));
        EXPECT_FALSE(HARDWARE_CONTROLLER_STATE().is_key_held(key));
    }
    EXPECT_TRUE(QX::set_mouse_cooperative_level(true));
    test::Host other;
    ASSERT_TRUE(other.open_in_front());
    EXPECT_FALSE(QX::read_hardware_controllers());
    ASSERT_TRUE(host.come_to_front());
    EXPECT_TRUE(read_until([] { return true; }));
    QX::release_hardware_controllers();
}

}  // namespace
