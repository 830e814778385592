// host.h - what a host of the library brings: a window, and frames of the pump.
#pragma once

#include "qx/app/application.h"
#include "qx/app/window.h"
#include "qx/base/windows.h"

#include <functional>

namespace test {

// Runs the library's pump for at most `ms` or until `done`; whether it was done.
inline bool pump_until(std::function<bool()> const& done, unsigned int ms = 3000) {
    for (DWORD const start = GetTickCount(); GetTickCount() - start < ms; Sleep(2)) {
        QX::Application::process_message_queue();
        if (done()) return true;
    }
    return false;
}

// One window of a class of the system's.
struct Host {
    QX::QXWindow window;

    explicit Host(unsigned int style = 0x14C20000) {
        QX::WindowInitialiser initialiser;
        initialiser.class_name = L"STATIC";
        initialiser.style = style;
        window.create({50, 60, 450, 360}, initialiser, false);
    }
    ~Host() { window.destroy(); }

    // Shows the window and waits until it is the active one.
    bool come_to_front() {
        HWND const hwnd = window.get_hwnd();
        window.show_window(SW_SHOWNORMAL);
        SetForegroundWindow(hwnd);
        window.set_focus();
        return pump_until([hwnd] { return GetForegroundWindow() == hwnd && GetFocus() == hwnd; });
    }
};

}  // namespace test
