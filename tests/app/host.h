// host.h - what a host of the library brings: a window class, a procedure and an event handler.
#pragma once

#include "qx/app/application.h"
#include "qx/app/window.h"
#include "qx/base/windows.h"

#include <functional>
#include <string>
#include <vector>

namespace test {

// Notes each call as text ("resize 2") and answers the bool ones with `answer`.
class RecordingHandler final : public QX::QXWindow::EventHandler {
public:
    using Window = QX::QXWindow;

    void get_min_max_info(Window const& from, int& height, int& track_height) override {
        note(from, "get_min_max_info");
        height = 700;
        track_height = 800;
    }
    void activate_app(Window const& from, bool on) override { note(from, "activate_app", on); }
    void activate(Window const& from, bool on) override { note(from, "activate", on); }
    bool resize(Window const& from, unsigned kind) override { return note(from, "resize", kind); }
    void pause_rendering(Window const& from, bool on) override { note(from, "pause", on); }
    bool nc_hit_test(Window const& from) override { return note(from, "nc_hit_test"); }
    bool sys_command(Window const& from, unsigned message, unsigned id) override {
        return note(from, "sys_command", message, id);
    }
    void debug_key(Window const& from, unsigned key, bool control) override {
        note(from, "debug_key", key, control);
    }
    void lock_workstation(Window const& from, bool on) override { note(from, "lock", on); }

    std::vector<std::string> calls;
    Window const* last_window = nullptr;
    bool answer = false;

private:
    template <typename... Values>
    bool note(Window const& from, std::string call, Values... values) {
        ((call += ' ' + std::to_string(values)), ...);
        last_window = &from;
        calls.push_back(call);
        return answer;
    }
};

// Runs the library's pump for at most `ms` or until `done`; whether it was done.
inline bool pump_until(std::function<bool()> const& done, unsigned int ms = 3000) {
    for (DWORD const start = GetTickCount(); GetTickCount() - start < ms; Sleep(2)) {
        QX::Application::process_message_queue();
        if (done()) return true;
    }
    return false;
}

// One window whose procedure hands every message to the library and then to the system.
class Host {
public:
    explicit Host(unsigned int style = 0x14C20000) : window(&handler) {
        WNDCLASSW description = {};
        description.lpfnWndProc = procedure;
        description.lpszClassName = L"QXAppTest";
        RegisterClassW(&description);
        initialiser.class_name = description.lpszClassName;
        initialiser.style = style;
    }
    ~Host() { window.destroy(); }
    Host(Host const&) = delete;
    Host& operator=(Host const&) = delete;

    // Creates the window; false if the system has none.
    bool open(QX::Rectangle const& rectangle = {50, 60, 450, 360}) {
        being_opened = this;
        window.create(rectangle, initialiser, false);
        being_opened = nullptr;
        return window.valid();
    }

    // Shows the window and waits until it is the active one; opens it if need be.
    bool come_to_front() {
        if (!window.valid() && !open()) return false;
        HWND const hwnd = window.get_hwnd();
        window.show_window(SW_SHOWNORMAL);
        SetForegroundWindow(hwnd);
        window.set_focus();
        return pump_until([hwnd] { return GetForegroundWindow() == hwnd && GetFocus() == hwnd; });
    }

    RecordingHandler handler;
    QX::QXWindow window;
    QX::WindowInitialiser initialiser;

private:
    static LRESULT CALLBACK procedure(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
        auto host = reinterpret_cast<Host*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
        if (!host) host = being_opened;
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(host));
        if (host && host->window.process_wnd_proc(message, wparam, lparam)) return 0;
        return DefWindowProcW(hwnd, message, wparam, lparam);
    }

    static inline Host* being_opened = nullptr;
};

}  // namespace test
