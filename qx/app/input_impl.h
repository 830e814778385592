// input_impl.h - what the halves of the input room share: the process's input state.
#pragma once

#include "qx/app/input.h"

namespace QX {

inline constexpr int no_gesture = -1;

// One of each in the process; the main thread's.
struct InputState {
    unsigned char keys[256];           // top bit: pressed at the last read, by scan code
    unsigned char previous_keys[256];  // the same at the read before
    MOUSE_STATE mouse;
    GestureEventDetails gesture;
    bool last_was_mouse;
    unsigned short wheel;  // the sum of wheel motion, going round
};

extern InputState input_state;

}  // namespace QX
