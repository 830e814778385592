// input_touch_impl.h - the optional library for touch and gestures, looked for at run time.
#pragma once

struct HWND__;

namespace QX {

// Prepares a window for gestures if the extension is there; else does nothing. The first call
// looks for the library.
void initialise_gestures(HWND__* window);

}  // namespace QX
