#include "qx/app/input.h"

#include <cfloat>
#include <cmath>

#include "qx/app/application_impl.h"
#include "qx/app/input_impl.h"
#include "qx/app/key_table_impl.h"

namespace QX {

static_assert(sizeof(GestureEventDetails) == 48);

InputState input_state = {{}, {}, {}, {no_gesture, {}}, true, 0};

namespace {

constexpr unsigned char pressed_bit = 0x80;
constexpr int gesture_without_report = 5;

bool pressed(unsigned char const (&keys)[256], KEY_TYPE key) {
    return is_table_key(key) && (keys[scan_code_from_key(key)] & pressed_bit) != 0;
}

bool held_by_message(MOUSE_STATE const& mouse, KEY_TYPE key) {
    if (!mouse.use_message_keys) return false;
    switch (key) {
    case KEY_ESCAPE: return mouse.escape_key;
    case KEY_LCONTROL: return mouse.control_key;
    case KEY_LSHIFT: return mouse.shift_key;
    default: return false;
    }
}

}  // namespace

HARDWARE_CONTROLLER_STATE::HARDWARE_CONTROLLER_STATE()
    : mouse_(input_state.mouse), gesture_(input_state.gesture) {}

HARDWARE_CONTROLLER_STATE::HARDWARE_CONTROLLER_STATE(MOUSE_STATE const& mouse) : mouse_(mouse) {
    input_state.mouse = mouse;
    input_state.last_was_mouse = true;
    input_state.gesture.type = no_gesture;
    gesture_ = input_state.gesture;
}

HARDWARE_CONTROLLER_STATE::HARDWARE_CONTROLLER_STATE(GestureEventDetails const& gesture)
    : mouse_(), gesture_(gesture) {
    mouse_.previous_wheel = FLT_MAX;
    input_state.last_was_mouse = false;
}

MOUSE_STATE const* HARDWARE_CONTROLLER_STATE::mouse_state() const {
    return input_state.last_was_mouse ? &mouse_ : nullptr;
}

GestureEventDetails const* HARDWARE_CONTROLLER_STATE::gesture_details() const {
    bool const none = gesture_.type == no_gesture || gesture_.type == gesture_without_report;
    return none ? nullptr : &gesture_;
}

// The keys of the message answer even without the focus.
bool HARDWARE_CONTROLLER_STATE::is_key_held(KEY_TYPE key) const {
    if (held_by_message(mouse_, key)) return true;
    return app_has_focus() && pressed(input_state.keys, key);
}

bool HARDWARE_CONTROLLER_STATE::is_key_down(KEY_TYPE key) const {
    return app_has_focus() && pressed(input_state.keys, key) &&
           !pressed(input_state.previous_keys, key);
}

bool HARDWARE_CONTROLLER_STATE::is_key_up(KEY_TYPE key) const {
    return app_has_focus() && !pressed(input_state.keys, key) &&
           pressed(input_state.previous_keys, key);
}

float mouse_wheel_cyclical_difference(float a, float b) {
    if (a == b) return 0.0f;  // infinities too
    float const straight = a - b;
    float const round = 65535.0f - std::fabs(straight);
    if (std::fabs(straight) <= round) return straight;
    return straight > 0.0f ? -round : round;
}

}  // namespace QX
