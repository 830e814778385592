#include "qx/app/window.h"

#include "qx/app/window_messages_impl.h"
#include "qx/base/windows.h"

#include <wtsapi32.h>

namespace QX {

bool debug_log_windows_messages = false;

namespace {

constexpr unsigned int sizeable_style = 0x00CF0000;    // WS_OVERLAPPEDWINDOW
constexpr unsigned int caption_style = 0x14C20000;     // visible, clipping, caption, minimise box
constexpr unsigned int borderless_style = 0x90000000;  // WS_POPUP | WS_VISIBLE
constexpr int use_default = CW_USEDEFAULT;

RECT to_system(Rectangle const& rectangle) {
    return {rectangle.left, rectangle.top, rectangle.right, rectangle.bottom};
}

void from_system(RECT const& rect, Rectangle& rectangle) {
    rectangle.left = rect.left;
    rectangle.top = rect.top;
    rectangle.right = rect.right;
    rectangle.bottom = rect.bottom;
}

// These go round: a place may be the system's "use the default", the smallest number.
int sum(int a, int b) {
    return static_cast<int>(static_cast<unsigned int>(a) + static_cast<unsigned int>(b));
}

int difference(int a, int b) {
    return static_cast<int>(static_cast<unsigned int>(a) - static_cast<unsigned int>(b));
}

// Place and size of the whole window, as CreateWindowExW takes them.
struct Placement {
    int x;
    int y;
    int width;
    int height;
};

// A left of "use the default" leaves the width to the system, a top of it the height.
Placement place_as_given(Rectangle const& rectangle) {
    int const width = difference(rectangle.right, rectangle.left);
    int const height = difference(rectangle.bottom, rectangle.top);
    return {
        rectangle.left,
        rectangle.top,
        rectangle.left == use_default ? use_default : width,
        rectangle.top == use_default ? use_default : height,
    };
}

RECT nearest_work_area(Placement const& placement) {
    RECT const rect = {
        placement.x, placement.y, sum(placement.x, placement.width),
        sum(placement.y, placement.height)};
    MONITORINFO info = {};
    info.cbSize = sizeof info;
    GetMonitorInfoW(MonitorFromRect(&rect, MONITOR_DEFAULTTONEAREST), &info);
    return info.rcWork;
}

Placement place_client(Rectangle const& rectangle, unsigned int style, bool menu) {
    RECT outer = to_system(rectangle);
    AdjustWindowRect(&outer, style, menu);
    Placement placement = {
        rectangle.left, rectangle.top, difference(outer.right, outer.left),
        difference(outer.bottom, outer.top)};

    // Only the corner is tested, and the far edges count as inside.
    RECT const work = nearest_work_area(placement);
    bool const beside = placement.x < work.left || placement.x > work.right;
    bool const above_or_below = placement.y < work.top || placement.y > work.bottom;
    if (beside || above_or_below) {
        placement.x = work.left;
        placement.y = work.top;
    }
    return placement;
}

void adjust_rectangle(Rectangle& rectangle, unsigned int style, bool menu) {
    RECT rect = to_system(rectangle);
    AdjustWindowRect(&rect, style, menu);
    from_system(rect, rectangle);
}

bool control_held() {
    return (GetAsyncKeyState(VK_CONTROL) & 0x8000) != 0;
}

// A handler that sets neither height leaves the system's. Without a record only the call is made.
void apply_min_max_info(QXWindowPlatform& window, MINMAXINFO* info) {
    MINMAXINFO unasked = {};
    if (info == nullptr) info = &unasked;
    int max_height = info->ptMaxSize.y;
    int max_track_height = info->ptMaxTrackSize.y;
    window.get_min_max_info(max_height, max_track_height);
    info->ptMaxSize.y = max_height;
    info->ptMaxTrackSize.y = max_track_height;
}

}  // namespace

// --- The initialiser -----------------------------------------------------------------------------

void WindowInitialiser::set_menu(HMENU__* new_menu) {
    menu = new_menu;
}

void WindowInitialiser::set_default_window_style(bool windowed, bool bordered) {
    if (!windowed)
        style = borderless_style;
    else if (!fixed_style)
        style = sizeable_style;
    else
        style = bordered ? caption_style : borderless_style;
    // This keeps the sizeable style from the exact comparison in `create`.
    style &= ~static_cast<unsigned int>(WS_SYSMENU);
}

// --- The handle and the dispatch -----------------------------------------------------------------

QXWindowPlatform::QXWindowPlatform() = default;

bool QXWindowPlatform::valid() const {
    return window_ != nullptr;
}

HWND__* QXWindowPlatform::get_hwnd() const {
    return window_;
}

void QXWindowPlatform::set_hwnd(HWND__* window) {
    window_ = window;
}

void QXWindowPlatform::clone(QXWindowPlatform const& other) {
    window_ = other.window_;
}

bool QXWindowPlatform::test_equality(QXWindowPlatform const& other) const {
    return window_ == other.window_;
}

bool QXWindowPlatform::on_monitor(HMONITOR__* monitor) const {
    RECT rect = {};
    GetWindowRect(window_, &rect);
    return MonitorFromRect(&rect, MONITOR_DEFAULTTONEAREST) == monitor;
}

bool QXWindowPlatform::process_wnd_proc(
    unsigned int message, unsigned long long wparam, long long lparam) {
    if (QX_UNLIKELY(debug_log_windows_messages)) log_window_message(message, wparam, lparam);

    auto const word = static_cast<unsigned int>(wparam);
    switch (message) {
    case WM_SIZE: resize(word); return false;
    case WM_ACTIVATE: activate(wparam != 0); return false;
    case WM_ACTIVATEAPP: activate_app(wparam != 0); return false;
    case WM_GETMINMAXINFO:
        apply_min_max_info(*this, reinterpret_cast<MINMAXINFO*>(lparam));
        return false;
    case WM_NCHITTEST: return nc_hit_test();
    case WM_KEYDOWN: debug_key(word, control_held()); return false;
    case WM_SYSCOMMAND: return sys_command(message, word);
    case WM_ENTERMENULOOP:
    case WM_ENTERSIZEMOVE: pause_rendering(true); return false;
    case WM_EXITMENULOOP:
    case WM_EXITSIZEMOVE: pause_rendering(false); return false;
    case WM_WTSSESSION_CHANGE:
        if (wparam == WTS_SESSION_LOCK || wparam == WTS_SESSION_UNLOCK)
            lock_workstation(wparam == WTS_SESSION_LOCK);
        return false;
    default: return false;
    }
}

// --- The window's life ---------------------------------------------------------------------------

void QXWindow::create(
    Rectangle const& rectangle, WindowInitialiser const& initialiser, bool with_menu) {
    style_ = initialiser.style;
    HMENU const menu = with_menu ? initialiser.menu : nullptr;
    Placement const placement = style_ == sizeable_style
                                    ? place_as_given(rectangle)
                                    : place_client(rectangle, style_, menu != nullptr);
    set_hwnd(CreateWindowExW(
        0, initialiser.class_name.c_str(), initialiser.title.c_str(), style_, placement.x,
        placement.y, placement.width, placement.height, nullptr, menu, initialiser.instance,
        nullptr));
    WTSRegisterSessionNotification(get_hwnd(), NOTIFY_FOR_THIS_SESSION);
}

void QXWindow::destroy() {
    if (valid()) DestroyWindow(get_hwnd());
}

bool QXWindow::valid() const {
    if (!QXWindowPlatform::valid() || !IsWindow(get_hwnd())) return false;
    DWORD process = 0;
    GetWindowThreadProcessId(get_hwnd(), &process);
    return process == GetCurrentProcessId();
}

// --- Style and display ---------------------------------------------------------------------------

void QXWindow::set_windowed_style(bool bordered) {
    style_ = bordered ? caption_style : borderless_style;
    SetWindowLongW(get_hwnd(), GWL_EXSTYLE, 0);
    SetWindowLongW(get_hwnd(), GWL_STYLE, static_cast<LONG>(style_));
    SetWindowPos(get_hwnd(), HWND_NOTOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE);
}

void QXWindow::set_fullscreen_style() {
    style_ = borderless_style;
    SetWindowLongW(get_hwnd(), GWL_STYLE, static_cast<LONG>(style_));
}

void QXWindow::adjust_window_rect_current_style(Rectangle& rectangle, bool menu) const {
    adjust_rectangle(rectangle, style_, menu);
}

void QXWindow::adjust_window_rect_windowed_style(Rectangle& rectangle, bool menu) const {
    adjust_rectangle(rectangle, caption_style, menu);
}

void QXWindow::change_display_settings(unsigned int flags) {
    ChangeDisplaySettingsW(nullptr, flags);
}

// --- Rectangles ----------------------------------------------------------------------------------

void QXWindow::get_client_rect(Rectangle& rectangle) const {
    RECT rect;
    if (GetClientRect(get_hwnd(), &rect)) from_system(rect, rectangle);
}

void QXWindow::get_window_rect(Rectangle& rectangle) const {
    RECT rect;
    if (GetWindowRect(get_hwnd(), &rect)) from_system(rect, rectangle);
}

void QXWindow::get_display_rect(Rectangle& rectangle) const {
    RECT rect;
    if (!GetClientRect(get_hwnd(), &rect)) return;
    OffsetRect(&rect, -rect.left, -rect.top);
    from_system(rect, rectangle);
}

void QXWindow::get_monitor_rect(Rectangle& rectangle) const {
    RECT rect = {};
    GetWindowRect(get_hwnd(), &rect);
    MONITORINFO info = {};
    info.cbSize = sizeof info;
    if (GetMonitorInfoW(MonitorFromRect(&rect, MONITOR_DEFAULTTONEAREST), &info))
        from_system(info.rcMonitor, rectangle);
}

void QXWindow::primary_display_size(unsigned int& width, unsigned int& height) {
    width = static_cast<unsigned int>(GetSystemMetrics(SM_CXSCREEN));
    height = static_cast<unsigned int>(GetSystemMetrics(SM_CYSCREEN));
}

// --- Place and state -----------------------------------------------------------------------------

void QXWindow::move_window(int x, int y, int width, int height, bool repaint) {
    MoveWindow(get_hwnd(), x, y, width, height, repaint);
}

void QXWindow::set_window_pos(bool topmost, int x, int y, int width, int height, int flags) {
    HWND const behind = topmost ? HWND_TOPMOST : HWND_NOTOPMOST;
    SetWindowPos(get_hwnd(), behind, x, y, width, height, static_cast<UINT>(flags));
}

void QXWindow::show_window(int command) {
    ShowWindow(get_hwnd(), command);
}

void QXWindow::update_window() {
    UpdateWindow(get_hwnd());
}

void QXWindow::invalidate() {
    InvalidateRect(get_hwnd(), nullptr, FALSE);
}

bool QXWindow::is_iconic() const {
    return IsIconic(get_hwnd()) > 0;
}

bool QXWindow::is_visible() const {
    return IsWindowVisible(get_hwnd()) > 0;
}

bool QXWindow::is_focused() const {
    HWND focused = GetActiveWindow();
    if (!focused) focused = GetForegroundWindow();
    return focused == get_hwnd();
}

void QXWindow::set_focus() {
    SetFocus(get_hwnd());
    BringWindowToTop(get_hwnd());
}

void QXWindow::flash_notify() {
    FLASHWINFO info = {};
    info.cbSize = sizeof info;
    info.hwnd = get_hwnd();
    info.dwFlags = FLASHW_TRAY | FLASHW_TIMERNOFG;
    FlashWindowEx(&info);
}

void QXWindow::restore_window() {
    WINDOWPLACEMENT placement = {};  // the length stays unset
    if (!GetWindowPlacement(get_hwnd(), &placement)) return;
    if (!(placement.showCmd & SW_SHOWMINIMIZED)) return;
    placement.showCmd = SW_SHOWNORMAL;
    SetWindowPlacement(get_hwnd(), &placement);
}

bool QXWindow::has_menu() const {
    return GetMenu(get_hwnd()) != nullptr;
}

void QXWindow::remove_debug_menu() {
    SetMenu(get_hwnd(), nullptr);
}

void QXWindow::post_quit_message() {
    PostQuitMessage(0);
}

QXWindow QXWindow::window_from_point(int x, int y) {
    QXWindow window;
    window.set_hwnd(WindowFromPoint({x, y}));
    return window;
}

}  // namespace QX
