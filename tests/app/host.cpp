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

}  // namespace

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

void send_key(unsigned short scan_code, bool down) {
    INPUT input = {};
    input.type = INPUT_KEYBOARD;
    input.ki.wScan = scan_code & 0xFF;
    input.ki.dwFlags = KEYEVENTF_SCANCODE;
    if (scan_code & 0x100) input.ki.dwFlags |= KEYEVENTF_EXTENDEDKEY;
    if (!down) input.ki.dwFlags |= KEYEVENTF_KEYUP;
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
