// floating_point.h - the floating-point state that the whole engine runs in.
//
// The state: all exceptions masked, rounding to nearest, results that are too small for the format
// flushed to zero, but such operands taken as they are; the older unit computes in single
// precision, and the C run-time's functions use no fused multiply-add. So one computation gives one
// result on every processor and thread.
//
//     set_fp_state(true);
//     check_fp_state(true)   =>  true, until something on this thread changes the state
//
// Threads: the state belongs to the calling thread, and each that computes sets its own.
#pragma once

#include "qx/base/export.h"

namespace QX {

// Sets the state and clears the flags of past exceptions. Always true. The argument has no effect.
QX_API bool set_fp_state(bool);

// Whether the calling thread is in that state. The argument has no effect.
QX_API bool check_fp_state(bool);

// Kept so that client code links: sets the state as set_fp_state does. All exceptions stay masked.
QX_API void enable_fp_exceptions();

// The magnitude of the first with the sign of the second.
QX_API float CopySign(float magnitude, float sign);

}  // namespace QX
