#include "qx/app/window.h"

#include <gtest/gtest.h>

#include "tests/app/host.h"
#include "tests/harness/stand_in.h"

#include <cstring>
#include <string>
#include <vector>

namespace {

using test::Host;

// Notes each call as text ("resize 2") and answers the bool ones with `answer`.
class RecordingHandler final : public QX::QXWindow::EventHandler {
public:
    using Window = QX::QXWindow;

    void get_min_max_info(Window const&, int& height, int& track_height) override {
        note("get_min_max_info");
        height = 700;
        track_height = 800;
    }
    void activate_app(Window const&, bool on) override { note("activate_app", on); }
    void activate(Window const&, bool on) override { note("activate", on); }
    bool resize(Window const&, unsigned kind) override { return note("resize", kind); }
    void pause_rendering(Window const&, bool on) override { note("pause", on); }
    bool nc_hit_test(Window const&) override { return note("nc_hit_test"); }
    bool sys_command(Window const&, unsigned message, unsigned id) override {
        return note("sys_command", message, id);
    }
    void debug_key(Window const&, unsigned key, bool control) override {
        note("debug_key", key, control);
    }
    void lock_workstation(Window const&, bool on) override { note("lock", on); }

    std::vector<std::string> calls;
    bool answer = false;

private:
    template <typename... Values>
    bool note(std::string call, Values... values) {
        ((call += ' ' + std::to_string(values)), ...);
        calls.push_back(call);
        return answer;
    }
};

TEST(WindowInitialiser, default_style_never_has_the_system_menu) {
    auto const style = [](bool fixed, bool windowed, bool bordered) {
        QX::WindowInitialiser initialiser;
        initialiser.fixed_style = fixed;
        initialiser.set_default_window_style(windowed, bordered);
        return initialiser.style;
    };
    EXPECT_EQ(style(false, true, true), 0x00C70000u);
    EXPECT_EQ(style(true, true, true), 0x14C20000u);
    EXPECT_EQ(style(true, true, false), 0x90000000u);
    EXPECT_EQ(style(false, false, true), 0x90000000u);
}

// --- Dispatch ------------------------------------------------------------------------------------

struct Dispatch {
    unsigned int message;
    unsigned long long wparam;
    char const* call;
};

// clang-format off
constexpr Dispatch dispatches[] = {
    {0x005, 2, "resize 2"},   {0x006, 2, "activate 1"},    {0x01C, 0x100000000, "activate_app 1"},
    {0x006, 0, "activate 0"}, {0x01C, 0, "activate_app 0"}, {0x024, 0, "get_min_max_info"},
    {0x084, 0, "nc_hit_test"}, {0x100, 65, "debug_key 65 1"},
    {0x112, 0xF020, "sys_command 274 61472"},
    {0x211, 0, "pause 1"},    {0x212, 0, "pause 0"}, {0x231, 0, "pause 1"}, {0x232, 0, "pause 0"},
    {0x2B1, 7, "lock 1"},     {0x2B1, 8, "lock 0"},
};
// clang-format on

SHORT WINAPI state_control(int key) {
    return key == VK_CONTROL ? -1 : 0;
}

// A handler is told once, and of the answers two are passed on. Of the sizes it may set two
// heights.
TEST(Window, every_message_makes_its_one_call_or_none) {
    test::StandIn const keys("GetAsyncKeyState", state_control);
    MINMAXINFO const expected = {{1, 2}, {3, 700}, {5, 6}, {7, 8}, {9, 800}};
    MINMAXINFO info = {{1, 2}, {3, 4}, {5, 6}, {7, 8}, {9, 10}};
    RecordingHandler handler;
    QX::QXWindow window;
    auto const handles = [&](unsigned int message, unsigned long long wparam) {
        handler.calls.clear();
        return window.process_wnd_proc(message, wparam, reinterpret_cast<long long>(&info));
    };
    for (Dispatch const& row : dispatches) EXPECT_FALSE(handles(row.message, row.wparam));
    EXPECT_TRUE(info.ptMaxSize.y == 4 && info.ptMaxTrackSize.y == 10);
    window.set_event_handler(handler);
    for (Dispatch const& row : dispatches) {
        bool const answers = row.message == WM_NCHITTEST || row.message == WM_SYSCOMMAND;
        for (bool answer : {false, true}) {
            handler.answer = answer;
            EXPECT_EQ(handles(row.message, row.wparam), answers && answer) << row.message;
            EXPECT_EQ(handler.calls, std::vector<std::string>{row.call});
        }
    }
    EXPECT_EQ(std::memcmp(&info, &expected, sizeof info), 0);
    std::size_t calls = 0;
    for (unsigned int message = 0; message <= 0xFFFF; ++message, calls += handler.calls.size())
        handles(message, 0x10007);
    EXPECT_EQ(calls, 11u);  // of the session's changes the locks alone count
}

std::string debug_line;

void WINAPI note_line(char const* line) {
    debug_line = line;
}

// 164 rows, seven names given twice, and WM_WININICHANGE and WM_SETTINGCHANGE of one value.
TEST(MessageNames, first_row_of_a_value_names_it) {
    test::StandIn const output("OutputDebugStringA", note_line);
    auto const line_of = [](unsigned int message, unsigned long long wparam = 0) {
        QX::QXWindow().process_wnd_proc(message, wparam, 0);  // no message needs its record
        return std::exchange(debug_line, "").substr(0, 38);
    };
    EXPECT_EQ(line_of(WM_MOVE), "");
    QX::debug_log_windows_messages = true;
    EXPECT_EQ(line_of(0x1A, 0x1234567890), "Window Message WM_WININICHANGE 0x34567");
    EXPECT_EQ(line_of(0x231), "Window Message 0x00000231 0x00000000 0");
    int named = 0;
    for (unsigned int message = 0; message <= 0xFFFF; ++message)
        named += line_of(message).starts_with("Window Message WM_");
    EXPECT_EQ(named, 156);
    QX::debug_log_windows_messages = false;
}

// --- Real windows --------------------------------------------------------------------------------

// The one style whose rectangle is the whole window's; others give the client's and stay in sight.
constexpr unsigned int placed_as_given = 0x00CF0000;

// Far edges of the work area count as inside.
TEST(WindowCreation, any_other_style_takes_a_client_rectangle) {
    RECT work;
    SystemParametersInfoW(SPI_GETWORKAREA, 0, &work, 0);
    for (unsigned int style : {placed_as_given, 0x00C70000u, 0x04C20000u, 0x80000000u}) {
        for (LONG left : {-1L, 0L, work.right, work.right + 1}) {
            for (LONG top : {-1L, 0L, work.bottom, work.bottom + 1}) {
                HMENU const menu = left == top ? CreateMenu() : nullptr;
                RECT expected = {left, top, left + 300, top + 200};
                QX::QXWindow window;
                window.create(
                    std::bit_cast<QX::Rectangle>(expected),
                    {menu, L"STATIC", L"", nullptr, false, style}, menu);
                bool const inside =
                    left >= 0 && left <= work.right && top >= 0 && top <= work.bottom;
                if (style != placed_as_given) {
                    AdjustWindowRect(&expected, style, menu != nullptr);
                    OffsetRect(&expected, -expected.left, -expected.top);
                    if (inside) OffsetRect(&expected, left, top);
                }
                RECT placed;
                GetWindowRect(window.get_hwnd(), &placed);
                EXPECT_TRUE(EqualRect(&placed, &expected)) << style << ' ' << left << ' ' << top;
                EXPECT_EQ(GetMenu(window.get_hwnd()), menu);
                window.destroy();
            }
        }
    }
}

TEST(Window, lives_from_create_to_destroy) {
    Host host;
    ASSERT_TRUE(host.come_to_front());
    EXPECT_TRUE(host.window.is_focused() && host.window.valid());
    EXPECT_FALSE(QX::QXWindow().is_focused() || QX::QXWindow().valid());
    host.window.destroy();
    EXPECT_TRUE(!host.window.valid() && host.window.QXWindowPlatform::valid());

    QX::QXWindow foreign;
    foreign.set_hwnd(GetDesktopWindow());
    EXPECT_FALSE(foreign.valid());
}

TEST(Window, copies_share_window_and_handler_but_not_the_style) {
    RecordingHandler handler;
    Host host;
    host.window.set_event_handler(handler);
    host.window.set_windowed_style(true);
    QX::QXWindow copy(host.window);
    EXPECT_TRUE(copy == host.window && copy.event_handler() == &handler);
    EXPECT_TRUE(host.window.style() == 0x14C20000 && copy.style() == 0);
    EXPECT_FALSE(copy == QX::QXWindow(&handler));
}

// The test is of one bit, which the maximised state has too.
TEST(Window, restoring_ends_both_the_minimised_and_the_maximised_state) {
    Host host(0x10CF0000);
    for (int command : {SW_MINIMIZE, SW_MAXIMIZE}) {
        host.window.show_window(command);
        EXPECT_EQ(host.window.is_iconic(), command == SW_MINIMIZE);
        host.window.restore_window();
        EXPECT_FALSE(host.window.is_iconic() || IsZoomed(host.window.get_hwnd()));
    }
}

}  // namespace
