// host.h - what a host of the library brings: a window class, a procedure and an event handler.
#pragma once

#include "qx/app/window.h"
#include "qx/base/windows.h"

#include <algorithm>
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
        height = max_height;
        track_height = max_track_height;
    }
    void activate_app(Window const& from, bool on) override { note(from, "activate_app", on); }
    void activate(Window const& from, bool on) override { note(from, "activate", on); }
    bool resize(Window const& from, unsigned int kind) override {
        return note(from, "resize", kind);
    }
    void pause_rendering(Window const& from, bool on) override {
        note(from, "pause_rendering", on);
    }
    bool nc_hit_test(Window const& from) override { return note(from, "nc_hit_test"); }
    bool sys_command(Window const& from, unsigned int message, unsigned int id) override {
        return note(from, "sys_command", message, id);
    }
    void debug_key(Window const& from, unsigned int key, bool control) override {
        note(from, "debug_key", key, control);
    }
    void lock_workstation(Window const& from, bool on) override {
        note(from, "lock_workstation", on);
    }

    // How many calls read exactly so.
    int count(std::string const& call) const {
        return static_cast<int>(std::count(calls.begin(), calls.end(), call));
    }

    std::vector<std::string> calls;
    Window const* last_window = nullptr;
    bool answer = false;
    int max_height = 700;
    int max_track_height = 800;

private:
    template <typename... Values>
    bool note(Window const& from, std::string call, Values... values) {
        ((call += ' ' + std::to_string(values)), ...);
        last_window = &from;
        calls.push_back(call);
        return answer;
    }
};

// One window whose procedure hands every message to the library and then to the system.
class Host {
public:
    explicit Host(unsigned int style = 0x14C20000);
    ~Host();

    Host(Host const&) = delete;
    Host& operator=(Host const&) = delete;

    // Creates the window; false if the system has none.
    bool open(QX::Rectangle const& rectangle = {50, 60, 450, 360}, bool with_menu = false);

    // Opens, comes to the front and waits until the window is active there.
    bool open_in_front();
    bool come_to_front();

    HWND hwnd() const { return window.get_hwnd(); }

    RecordingHandler handler;
    QX::QXWindow window;
    QX::WindowInitialiser initialiser;
    std::function<void(UINT, WPARAM, LPARAM)> on_message;  // sees each message first
};

// Runs the library's pump for at most `ms` or until `done`; whether it was done.
bool pump_until(std::function<bool()> const& done, unsigned int ms = 3000);

// One synthetic key by scan code.
void send_key(unsigned short scan_code, bool down);

// A list that a case may fill without leaving a block behind.
template <typename T>
std::vector<T> roomy() {
    std::vector<T> list;
    list.reserve(200);
    return list;
}

// Runs one disabled case of this program in a process of its own; its exit code.
unsigned long run_child(std::string const& name);

}  // namespace test
