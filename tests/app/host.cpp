#include "tests/app/host.h"

#include "qx/app/application.h"

namespace test {

namespace {

constexpr wchar_t const class_name[] = L"QXAppTest";

Host* current = nullptr;
std::vector<Host*> hosts = roomy<Host*>();

Host* find_host(HWND hwnd) {
    for (Host* host : hosts) {
        if (host->hwnd() == hwnd) return host;
    }
    return current;  // still within CreateWindowExW
}

LRESULT CALLBACK procedure(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
    if (Host* const host = find_host(hwnd)) {
        if (host->on_message) host->on_message(message, wparam, lparam);
        if (host->window.process_wnd_proc(message, wparam, lparam)) return 0;
    }
    return DefWindowProcW(hwnd, message, wparam, lparam);
}

void register_class() {
    WNDCLASSW description = {};
    description.style = CS_DBLCLKS;
    description.lpfnWndProc = procedure;
    description.hInstance = GetModuleHandleW(nullptr);
    description.lpszClassName = class_name;
    RegisterClassW(&description);
}

std::string flag(bool value) {
    return value ? " true" : " false";
}

}  // namespace

void RecordingHandler::note(QX::QXWindow const& window, std::string const& call) {
    last_window = &window;
    calls.push_back(call);
}

int RecordingHandler::count(std::string const& call) const {
    int found = 0;
    for (std::string const& one : calls) found += one == call;
    return found;
}

void RecordingHandler::get_min_max_info(
    QX::QXWindow const& window, int& height, int& track_height) {
    note(window, "get_min_max_info");
    height = max_height;
    track_height = max_track_height;
}

void RecordingHandler::activate_app(QX::QXWindow const& window, bool active) {
    note(window, "activate_app" + flag(active));
}

void RecordingHandler::activate(QX::QXWindow const& window, bool active) {
    note(window, "activate" + flag(active));
}

bool RecordingHandler::resize(QX::QXWindow const& window, unsigned int kind) {
    note(window, "resize " + std::to_string(kind));
    return answer;
}

void RecordingHandler::pause_rendering(QX::QXWindow const& window, bool pause) {
    note(window, "pause_rendering" + flag(pause));
}

bool RecordingHandler::nc_hit_test(QX::QXWindow const& window) {
    note(window, "nc_hit_test");
    return answer;
}

bool RecordingHandler::sys_command(
    QX::QXWindow const& window, unsigned int message, unsigned int id) {
    note(window, "sys_command " + std::to_string(message) + " " + std::to_string(id));
    return answer;
}

void RecordingHandler::debug_key(QX::QXWindow const& window, unsigned int key, bool control) {
    note(window, "debug_key " + std::to_string(key) + flag(control));
}

void RecordingHandler::lock_workstation(QX::QXWindow const& window, bool locked) {
    note(window, "lock_workstation" + flag(locked));
}

Host::Host(unsigned int style) : window(&handler) {
    register_class();
    initialiser.class_name = class_name;
    initialiser.title = L"Test";
    initialiser.instance = GetModuleHandleW(nullptr);
    initialiser.style = style;
    hosts.push_back(this);
}

Host::~Host() {
    window.destroy();
    std::erase(hosts, this);
}

bool Host::open(QX::Rectangle const& rectangle, bool with_menu) {
    current = this;
    window.create(rectangle, initialiser, with_menu);
    current = nullptr;
    return window.valid();
}

bool Host::open_in_front() {
    return open() && come_to_front();
}

bool Host::come_to_front() {
    window.show_window(SW_SHOWNORMAL);
    SetForegroundWindow(hwnd());
    window.set_focus();
    return pump_until([this] { return GetForegroundWindow() == hwnd() && GetFocus() == hwnd(); });
}

bool pump_until(std::function<bool()> const& done, unsigned int ms) {
    DWORD const start = GetTickCount();
    for (;;) {
        QX::Application::process_message_queue();
        if (done()) return true;
        if (GetTickCount() - start >= ms) return false;
        Sleep(2);
    }
}

void send_key(unsigned short scan_code, bool down, unsigned short virtual_key) {
    INPUT input = {};
    input.type = INPUT_KEYBOARD;
    input.ki.wScan = scan_code & 0xFF;
    input.ki.wVk = virtual_key;
    if (!virtual_key) input.ki.dwFlags |= KEYEVENTF_SCANCODE;
    if (scan_code & 0x100) input.ki.dwFlags |= KEYEVENTF_EXTENDEDKEY;
    if (!down) input.ki.dwFlags |= KEYEVENTF_KEYUP;
    SendInput(1, &input, sizeof input);
}

void send_mouse(unsigned long flags, int x, int y, int data) {
    INPUT input = {};
    input.type = INPUT_MOUSE;
    input.mi.dx = x;
    input.mi.dy = y;
    input.mi.mouseData = static_cast<DWORD>(data);
    input.mi.dwFlags = flags;
    SendInput(1, &input, sizeof input);
}

unsigned long run_child(std::string const& name) {
    char program[MAX_PATH];
    GetModuleFileNameA(nullptr, program, MAX_PATH);
    std::string command = std::string("\"") + program + "\" --gtest_filter=" + name +
                          " --gtest_also_run_disabled_tests";
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!CreateProcessA(
            nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
            &process))
        return 0xFFFFFFFF;
    WaitForSingleObject(process.hProcess, 60000);
    DWORD code = 0xFFFFFFFF;
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return code;
}

}  // namespace test
