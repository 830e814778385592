// input.h - keyboard, mouse and controllers: one snapshot a frame, and window messages as events.
//
//     acquire_hardware_controllers(application, window);   // once, after `create`
//     ...
//     read_hardware_controllers();                         // each frame
//     HARDWARE_CONTROLLER_STATE const now;
//     if (now.is_key_down(KEY_ESCAPE)) QXWindow::post_quit_message();
//     if (MOUSE_STATE const* mouse = now.mouse_state()) turn(mouse->delta_x, mouse->delta_y);
//     ...
//     release_hardware_controllers();
//
// Keys are polled from the device. Position and buttons of the mouse come from the messages that
// the host's window procedure hands to mouse_event, relative motion from the device. Keys answer
// only while the process has the focus, as on_app_focus_change was told.
// Threads: the window procedure and the reads are one thread, the main one. Nothing is locked.
#pragma once

#include "qx/app/key_table.h"
#include "qx/base/export.h"
#include "qx/text/string.h"

struct HWND__;

namespace QX {

class Application;
class QXWindow;

// One window message as the window procedure got it.
struct HardwareEvent {
    HWND__* window;
    unsigned int message;
    unsigned long long wparam;
    long long lparam;
};

// What a key message says.
struct KEY_EVENT_DETAILS {
    int state;     // 1 down, 0 up, -1 no key message
    KEY_TYPE key;  // decoded whatever the message is
};

struct MOUSE_STATE {
    float x;  // fractions of the width and height given to mouse_event
    float y;
    float wheel;           // the sum of all wheel motion, 0 to 65535, going round
    float previous_wheel;  // `wheel` before the last wheel message
    bool left_button;
    bool right_button;
    bool middle_button;
    bool control_key;
    bool shift_key;
    bool inside_window;     // from the first message until the mouse leaves
    bool use_message_keys;  // as told to mouse_event: is_key_held also takes the keys from here
    bool escape_key;        // set only by a client's own state
    float delta_x;          // motion of this frame in device units
    float delta_y;          // upward is positive
    float delta_wheel;      // towards the user is positive
    bool raw_left_button;
    bool raw_middle_button;
    bool raw_right_button;
};

// A touch gesture. The types -1 and 5 mean that there is none to report.
struct GestureEventDetails {
    int type;
    int details[11];  // the touch code's own
};

// Sets up the devices for a window. False at the first failure; what was made until then is
// given back by release_hardware_controllers.
QX_API bool acquire_hardware_controllers(Application& application, QXWindow& window);

// Takes this frame's state of keyboard and mouse, acquiring a device again that was lost. False
// if that failed (the window has no focus, say) or nothing is acquired: the motion of the frame
// is then 0. The next call tries again.
QX_API bool read_hardware_controllers();

// Gives the devices back. More calls than one do no harm.
QX_API void release_hardware_controllers();

// Exclusive: the system shows no cursor and no other program sees the mouse. False without a
// device or where the system refuses; a refusal leaves the mouse unacquired until the next read.
QX_API bool set_mouse_cooperative_level(bool exclusive);
QX_API bool mouse_cooperative_level_is_exclusive();

// The key of a key message, by its scan code (bits 16 to 24 of lparam). The two keys beside the
// shift keys, 0x2B and 0x56, change places with the keyboard layout; the applications key counts
// as "RWIN".
QX_API KEY_EVENT_DETAILS key_event(HardwareEvent const& event);

// Takes a mouse message into the mouse's state and tells what it was. `width` and `height` are the
// size that positions are fractions of, `y_offset` is added to the vertical position first.
//
// The upper word of wparam adds to the wheel with any message. Leaving pulls the position into
// 0.05 to 0.95.
QX_API HW_MOUSE_EVENT mouse_event(
    HardwareEvent const& event, unsigned int width, unsigned int height, unsigned int y_offset,
    bool use_message_keys);

// The key's name in the user's language and layout; empty where there is none or no keyboard.
QX_API UniString localised_key_name(KEY_TYPE key);

// The shorter signed way from b to a on the wheel's circle of 65535:
//
//     (5, 3)       =>  2
//     (10, 65530)  =>  15
//     (65530, 10)  =>  -15
QX_API float mouse_wheel_cyclical_difference(float a, float b);

// A snapshot of mouse and gesture, freely copied. The keys are asked of the process's last two
// reads: a key that changes between two reads shows as down or up for exactly one frame.
class HARDWARE_CONTROLLER_STATE {
public:
    // The state as it is now.
    QX_API HARDWARE_CONTROLLER_STATE();

    // Replaces the process's mouse state by this one, and forgets the gesture.
    QX_API HARDWARE_CONTROLLER_STATE(MOUSE_STATE const& mouse);

    // A gesture takes the mouse's place: mouse_state answers null until the next mouse event.
    QX_API HARDWARE_CONTROLLER_STATE(GestureEventDetails const& gesture);

    // Null if the last event of the process was a gesture.
    QX_API MOUSE_STATE const* mouse_state() const;

    // Null if there is no gesture to report.
    QX_API GestureEventDetails const* gesture_details() const;

    QX_API bool is_key_held(KEY_TYPE key) const;
    QX_API bool is_key_down(KEY_TYPE key) const;  // pressed since the read before
    QX_API bool is_key_up(KEY_TYPE key) const;    // released since the read before

private:
    MOUSE_STATE mouse_;
    GestureEventDetails gesture_;
};

}  // namespace QX
