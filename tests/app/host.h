// host.h - what a host of the library brings: a window class, a procedure and an event handler.
#pragma once

#include "qx/app/window.h"
#include "qx/base/windows.h"

#include <functional>
#include <string>
#include <vector>

namespace test {

// Notes each call as text ("resize 2") and answers the bool ones with `answer`.
class RecordingHandler final : public QX::QXWindow::EventHandler {
public:
    void get_min_max_info(QX::QXWindow const& window, int& height, int& track_height) override;
    void activate_app(QX::QXWindow const& window, bool active) override;
    void activate(QX::QXWindow const& window, bool active) override;
    bool resize(QX::QXWindow const& window, unsigned int kind) override;
    void pause_rendering(QX::QXWindow const& window, bool pause) override;
    bool nc_hit_test(QX::QXWindow const& window) override;
    bool sys_command(QX::QXWindow const& window, unsigned int message, unsigned int id) override;
    void debug_key(QX::QXWindow const& window, unsigned int key, bool control) override;
    void lock_workstation(QX::QXWindow const& window, bool locked) override;

    // How many calls read exactly so.
    int count(std::string const& call) const;

    std::vector<std::string> calls;
    QX::QXWindow const* last_window = nullptr;
    bool answer = false;
    int max_height = 700;
    int max_track_height = 800;

private:
    void note(QX::QXWindow const& window, std::string const& call);
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

// One synthetic key by scan code (and by virtual key, where its message counts), or one mouse
// action.
void send_key(unsigned short scan_code, bool down, unsigned short virtual_key = 0);
void send_mouse(unsigned long flags, int x = 0, int y = 0, int data = 0);

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
