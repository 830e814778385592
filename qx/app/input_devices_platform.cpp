// input_devices_platform.cpp - keyboard and mouse polled through DirectInput 8.
#include "qx/app/application.h"
#include "qx/app/input.h"
#include "qx/app/input_impl.h"
#include "qx/app/input_touch_impl.h"
#include "qx/app/key_table_impl.h"
#include "qx/app/window.h"
#include "qx/base/windows.h"

#define DIRECTINPUT_VERSION 0x0800
#include <dinput.h>

#include <cstring>

namespace QX {

namespace {

constexpr DWORD shared_level = DISCL_NONEXCLUSIVE | DISCL_FOREGROUND;
constexpr DWORD exclusive_level = DISCL_EXCLUSIVE | DISCL_FOREGROUND;

static_assert(sizeof(DIMOUSESTATE) == 16);

// All null before acquiring and after release.
IDirectInput8W* direct_input = nullptr;
IDirectInputDevice8W* keyboard = nullptr;
IDirectInputDevice8W* mouse = nullptr;
HWND acquired_window = nullptr;
bool mouse_is_exclusive = false;

bool set_up_device(
    IDirectInputDevice8W*& device, REFGUID kind, DIDATAFORMAT const& format, HWND window) {
    return SUCCEEDED(direct_input->CreateDevice(kind, &device, nullptr)) &&
           SUCCEEDED(device->SetDataFormat(&format)) &&
           SUCCEEDED(device->SetCooperativeLevel(window, shared_level));
}

bool set_up_keyboard(HWND window) {
    if (!set_up_device(keyboard, GUID_SysKeyboard, c_dfDIKeyboard, window)) return false;
    std::memset(input_state.keys, 0, sizeof input_state.keys);
    std::memset(input_state.previous_keys, 0, sizeof input_state.previous_keys);
    return true;
}

bool set_up_mouse(HWND window) {
    if (!set_up_device(mouse, GUID_SysMouse, c_dfDIMouse, window)) return false;
    mouse_is_exclusive = false;
    return true;
}

bool was_lost(HRESULT result) {
    return result == DIERR_NOTACQUIRED || result == DIERR_INPUTLOST;
}

// A lost device is acquired and asked once more.
bool read_device(IDirectInputDevice8W* device, void* state, DWORD size) {
    if (!device) return false;
    HRESULT const result = device->GetDeviceState(size, state);
    if (SUCCEEDED(result)) return true;
    if (!was_lost(result) || FAILED(device->Acquire())) return false;
    if (SUCCEEDED(device->GetDeviceState(size, state))) return true;
    device->Unacquire();
    return false;
}

bool read_keyboard() {
    std::memcpy(input_state.previous_keys, input_state.keys, sizeof input_state.keys);
    return read_device(keyboard, input_state.keys, sizeof input_state.keys);
}

void clear_motion() {
    MOUSE_STATE& state = input_state.mouse;
    state.delta_x = state.delta_y = state.delta_wheel = 0.0f;
    state.raw_left_button = state.raw_middle_button = state.raw_right_button = false;
}

// The device counts downwards and away from the user.
void take_motion(DIMOUSESTATE const& raw) {
    MOUSE_STATE& state = input_state.mouse;
    state.delta_x = static_cast<float>(raw.lX);
    state.delta_y = -static_cast<float>(raw.lY);
    state.delta_wheel = -static_cast<float>(raw.lZ);
    state.raw_left_button = (raw.rgbButtons[0] & 0x80) != 0;
    state.raw_middle_button = (raw.rgbButtons[2] & 0x80) != 0;
    state.raw_right_button = (raw.rgbButtons[1] & 0x80) != 0;
}

template <typename Interface>
void release(Interface*& object) {
    if (object) object->Release();
    object = nullptr;
}

// The name stays as it is on failure.
bool read_key_name(KEY_TYPE key, DIPROPSTRING& name) {
    name.diph.dwSize = sizeof name;
    name.diph.dwHeaderSize = sizeof name.diph;
    name.diph.dwObj = scan_code_from_key(key);
    name.diph.dwHow = DIPH_BYOFFSET;
    return keyboard && SUCCEEDED(keyboard->GetProperty(DIPROP_KEYNAME, &name.diph));
}

static_assert(sizeof(DIPROPSTRING) == 536 && sizeof(DIPROPHEADER) == 16);

}  // namespace

bool acquire_hardware_controllers(Application& application, QXWindow& window) {
    HWND const hwnd = window.get_hwnd();
    initialise_gestures(hwnd);

    HRESULT const made = DirectInput8Create(
        application.application_instance(), DIRECTINPUT_VERSION, IID_IDirectInput8W,
        reinterpret_cast<void**>(&direct_input), nullptr);
    if (FAILED(made) || !set_up_keyboard(hwnd) || !set_up_mouse(hwnd)) return false;
    acquired_window = hwnd;
    return true;
}

bool read_hardware_controllers() {
    clear_motion();
    if (!read_keyboard()) return false;
    DIMOUSESTATE raw = {};
    if (!read_device(mouse, &raw, sizeof raw)) return false;
    take_motion(raw);
    return true;
}

void release_hardware_controllers() {
    release(keyboard);
    release(mouse);
    release(direct_input);
    acquired_window = nullptr;
}

bool set_mouse_cooperative_level(bool exclusive) {
    if (!acquired_window || !mouse) return false;
    mouse->Unacquire();
    DWORD const level = exclusive ? exclusive_level : shared_level;
    if (FAILED(mouse->SetCooperativeLevel(acquired_window, level))) return false;
    mouse_is_exclusive = exclusive;
    return SUCCEEDED(mouse->Acquire());
}

bool mouse_cooperative_level_is_exclusive() {
    return mouse_is_exclusive;
}

UniString localised_key_name(KEY_TYPE key) {
    if (!is_table_key(key)) return UniString();

    // Asking for the name disturbs the thread's key states on some layouts.
    BYTE states[256];
    bool const have_states = GetKeyboardState(states) != 0;
    DIPROPSTRING name = {};
    bool const have_name = read_key_name(key, name);
    if (have_states) SetKeyboardState(states);
    return have_name ? UniString(name.wsz) : UniString();
}

}  // namespace QX
