// message_loop_platform.cpp - the pump declared in application.h.
#include "qx/app/application.h"

#include "qx/base/windows.h"

namespace QX {

namespace {

constexpr UINT gesture_message = 0x119;

}  // namespace

bool ApplicationPlatform::process_message_queue() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
        if (message.message == WM_QUIT) return true;
        // A gesture may change what the frame shows, so the frame runs before what follows it.
        if (message.message == gesture_message) return false;
    }
    return false;
}

void ApplicationPlatform::clear_message_queue() {
    while (PeekMessageW(nullptr, nullptr, 0, 0, PM_REMOVE)) {}
}

}  // namespace QX
