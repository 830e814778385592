#include "qx/app/window.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "tests/app/host.h"
#include "tests/harness/stand_in.h"

#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

using Calls = std::vector<std::string>;
using test::Host;
using test::RecordingHandler;

constexpr unsigned int caption_style = 0x14C20000;
constexpr int use_default = CW_USEDEFAULT;

// --- Styles --------------------------------------------------------------------------------------

TEST(WindowInitialiser, default_style_never_has_the_system_menu) {
    struct Row {
        bool fixed, windowed, bordered;
        unsigned int style;
    };
    // clang-format off
    constexpr Row rows[] = {
        {false, false, false, 0x90000000}, {false, false, true, 0x90000000},
        {false, true,  false, 0x00C70000}, {false, true,  true, 0x00C70000},
        {true,  false, true,  0x90000000}, {true,  true,  true, 0x14C20000},
        {true,  true,  false, 0x90000000},
    };
    // clang-format on
    for (Row const& row : rows) {
        QX::WindowInitialiser initialiser;
        initialiser.fixed_style = row.fixed;
        initialiser.set_default_window_style(row.windowed, row.bordered);
        EXPECT_EQ(initialiser.style, row.style) << row.fixed << row.windowed << row.bordered;
    }
}

// --- Dispatch ------------------------------------------------------------------------------------

struct Dispatch {
    unsigned int message;
    unsigned long long wparam;
    std::string call;      // empty: none
    bool answers = false;  // passes the handler's answer on
};

std::vector<Dispatch> dispatches() {
    return {
        {0x005, 2, "resize 2"},
        {0x006, 2, "activate 1"},
        {0x006, 0, "activate 0"},
        {0x01C, 0x100000000, "activate_app 1"},
        {0x01C, 0, "activate_app 0"},
        {0x024, 0, "get_min_max_info"},
        {0x084, 0, "nc_hit_test", true},
        {0x100, 65, "debug_key 65 1"},
        {0x112, 0xF020, "sys_command 274 61472", true},
        {0x211, 0, "pause_rendering 1"},
        {0x212, 0, "pause_rendering 0"},
        {0x231, 0, "pause_rendering 1"},
        {0x232, 0, "pause_rendering 0"},
        {0x2B1, 7, "lock_workstation 1"},
        {0x2B1, 8, "lock_workstation 0"},
        {0x2B1, 6, ""},
        {0x2B1, 9, ""},
        {0x2B1, 0x10007, ""},
    };
}

unsigned short key_state = 0x8000;  // down; 1: was pressed before

SHORT WINAPI give_key_state(int key) {
    EXPECT_EQ(key, VK_CONTROL);
    return static_cast<SHORT>(key_state);
}

TEST(Window, every_message_makes_its_one_call_or_none) {
    test::StandIn const keys("GetAsyncKeyState", give_key_state);
    MINMAXINFO info = {};
    auto const lparam = reinterpret_cast<long long>(&info);
    for (bool answer : {false, true}) {
        RecordingHandler handler;
        handler.answer = answer;
        QX::QXWindow window(&handler);
        std::set<unsigned int> known;
        for (Dispatch const& row : dispatches()) {
            known.insert(row.message);
            handler.calls.clear();
            bool const handled = window.process_wnd_proc(row.message, row.wparam, lparam);
            EXPECT_EQ(handled, row.answers && answer) << row.message;
            EXPECT_EQ(handler.calls, row.call.empty() ? Calls{} : Calls{row.call}) << row.message;
        }
        EXPECT_EQ(handler.last_window, &window);
        handler.calls.clear();
        for (unsigned int message = 0; message <= 0xFFFF; ++message)
            ASSERT_FALSE(!known.count(message) && window.process_wnd_proc(message, 1, lparam));
        EXPECT_EQ(handler.calls, Calls{});
    }
    RecordingHandler handler;
    key_state = 1;
    QX::QXWindow(&handler).process_wnd_proc(WM_KEYDOWN, VK_F5, 0);
    EXPECT_EQ(handler.calls, Calls{"debug_key 116 0"});
}

TEST(Window, min_max_info_takes_the_two_heights_alone) {
    MINMAXINFO info = {{1, 2}, {3, 4}, {5, 6}, {7, 8}, {9, 10}};
    RecordingHandler handler;
    QX::QXWindow window(&handler);
    window.process_wnd_proc(WM_GETMINMAXINFO, 0, reinterpret_cast<long long>(&info));
    MINMAXINFO const expected = {{1, 2}, {3, 700}, {5, 6}, {7, 8}, {9, 800}};
    EXPECT_EQ(std::memcmp(&info, &expected, sizeof info), 0);
}

TEST(Window, without_a_handler_every_call_answers_false) {
    QX::QXWindow window;
    MINMAXINFO info = {};
    info.ptMaxSize.y = 5;
    auto const lparam = reinterpret_cast<long long>(&info);
    for (Dispatch const& row : dispatches())
        EXPECT_FALSE(window.process_wnd_proc(row.message, row.wparam, lparam));
    EXPECT_EQ(info.ptMaxSize.y, 5);

    RecordingHandler handler;
    handler.answer = true;
    window.set_event_handler(handler);
    EXPECT_TRUE(window.process_wnd_proc(WM_NCHITTEST, 0, 0));
}

// The slot of a virtual operation in its class's table.
template <typename Member>
long long slot_of(Member member) {
    long long words[2];
    static_assert(sizeof member == sizeof words);
    std::memcpy(words, &member, sizeof words);
    return (words[0] - 1) / static_cast<long long>(sizeof(void*));
}

TEST(Window, virtual_operations_stand_in_fixed_slots) {
    using Window = QX::QXWindow;
    using Handler = QX::QXWindow::EventHandler;
    using Slots = std::vector<std::pair<long long, long long>>;
#define SLOTS(operation) std::pair(slot_of(&Window::operation), slot_of(&Handler::operation))
    Slots const slots = {SLOTS(get_min_max_info), SLOTS(activate_app), SLOTS(activate),
                         SLOTS(pause_rendering),  SLOTS(resize),       SLOTS(nc_hit_test),
                         SLOTS(sys_command),      SLOTS(debug_key),    SLOTS(lock_workstation)};
#undef SLOTS
    Slots const expected = {{0, 1}, {1, 2}, {2, 3}, {3, 5}, {4, 4}, {5, 6}, {6, 7}, {7, 8}, {8, 9}};
    EXPECT_EQ(slots, expected);
    EXPECT_EQ(slot_of(&Handler::reserved), 0);
}

// --- The debugger line ---------------------------------------------------------------------------

std::string debug_line(100, ' ');

void WINAPI note_line(char const* line) {
    debug_line = line;
}

std::string line_of(unsigned int message, unsigned long long wparam = 0, long long lparam = 0) {
    debug_line.clear();
    QX::QXWindow().process_wnd_proc(message, wparam, lparam);
    return debug_line;
}

class MessageNames : public testing::Test {
protected:
    MessageNames() : output_("OutputDebugStringA", note_line) {
        QX::debug_log_windows_messages = true;
    }
    ~MessageNames() override { QX::debug_log_windows_messages = false; }

    static std::string name_of(unsigned int message) {
        MINMAXINFO info = {};
        std::string const line = line_of(message, 0, reinterpret_cast<long long>(&info));
        return line.substr(15, line.find(' ', 15) - 15);
    }

private:
    test::StandIn output_;
};

TEST_F(MessageNames, line_holds_name_and_the_lower_words) {
    EXPECT_EQ(line_of(WM_MOVE, 0x1234567890, -1), "Window Message WM_MOVE 0x34567890 0xffffffff\n");
    EXPECT_EQ(line_of(WM_ENTERSIZEMOVE, 1, 2), "Window Message 0x00000231 0x00000001 0x00000002\n");
    QX::debug_log_windows_messages = false;
    EXPECT_EQ(line_of(WM_MOVE), "");
}

// 164 rows, seven names given twice, and WM_WININICHANGE and WM_SETTINGCHANGE of one value.
TEST_F(MessageNames, first_row_of_a_value_names_it) {
    std::map<unsigned int, char const*> const rows = {
        {0x001, "WM_CREATE"},     {0x01A, "WM_WININICHANGE"}, {0x07C, "WM_STYLECHANGING"},
        {0x109, "WM_KEYLAST"},    {0x119, "0x00000119"},      {0x20A, "WM_MOUSEWHEEL"},
        {0x318, "WM_PRINTCLIENT"}};
    for (auto const& [message, name] : rows) EXPECT_EQ(name_of(message), name);
    int named = 0;
    for (unsigned int message = 0; message <= 0xFFFF; ++message)
        named += name_of(message).starts_with("WM_");
    EXPECT_EQ(named, 156);
}

// --- Creation, with the system's call noted ------------------------------------------------------

struct Creation {
    DWORD style;
    int x, y, width, height;
    HMENU menu;
};

Creation creation;
std::vector<HWND> registered = test::roomy<HWND>();

HWND WINAPI note_creation(
    DWORD extended, wchar_t const* class_name, wchar_t const* title, DWORD style, int x, int y,
    int width, int height, HWND parent, HMENU menu, HINSTANCE instance, void* parameter) {
    EXPECT_EQ(extended, 0u);
    EXPECT_STREQ(class_name, L"Class");
    EXPECT_STREQ(title, L"Title");
    EXPECT_EQ(parent, nullptr);
    EXPECT_EQ(instance, reinterpret_cast<HINSTANCE>(0x77));
    EXPECT_EQ(parameter, nullptr);
    creation = {style, x, y, width, height, menu};
    return nullptr;
}

BOOL WINAPI note_registration(HWND window, DWORD flags) {
    EXPECT_EQ(flags, 0u);  // this session only
    registered.push_back(window);
    return FALSE;
}

BOOL WINAPI smaller_work_area(HMONITOR, MONITORINFO* info) {
    info->rcWork = {100, 40, 900, 700};
    return TRUE;
}

class WindowCreation : public testing::Test {
protected:
    WindowCreation()
        : create_("CreateWindowExW", note_creation), monitor_("GetMonitorInfoW", smaller_work_area),
          session_("WTSRegisterSessionNotification", note_registration) {
        initialiser.class_name = L"Class";
        initialiser.title = L"Title";
        initialiser.instance = reinterpret_cast<HINSTANCE>(0x77);
        initialiser.set_menu(reinterpret_cast<HMENU>(0x55));
    }

    Creation create(QX::Rectangle const& rectangle, unsigned int style, bool menu = false) {
        initialiser.style = style;
        registered.clear();
        QX::QXWindow window;
        window.create(rectangle, initialiser, menu);
        EXPECT_EQ(registered, std::vector<HWND>{nullptr});  // even after failure
        EXPECT_EQ(window.style(), style);
        EXPECT_EQ(creation.style, style);
        return creation;
    }

    QX::WindowInitialiser initialiser;

private:
    test::StandIn create_;
    test::StandIn monitor_;
    test::StandIn session_;
};

TEST_F(WindowCreation, overlapped_style_takes_the_rectangle_as_given) {
    struct Row {
        QX::Rectangle given;
        int width, height;
    };
    constexpr Row rows[] = {
        {{-50, 3000, 250, 3200}, 300, 200},
        {{use_default, 10, 300, 200}, use_default, 190},
        {{10, use_default, 300, 200}, 290, use_default},
    };
    for (Row const& row : rows) {
        Creation const made = create(row.given, 0x00CF0000);
        EXPECT_EQ(made.x, row.given.left);
        EXPECT_EQ(made.y, row.given.top);
        EXPECT_EQ(made.width, row.width);
        EXPECT_EQ(made.height, row.height);
    }
}

TEST_F(WindowCreation, any_other_style_takes_a_client_rectangle) {
    for (unsigned int style : {0x00C70000u, 0x14C20000u, 0x90000000u, 0x10CF0000u}) {
        for (bool menu : {false, true}) {
            RECT outer = {200, 100, 520, 340};
            AdjustWindowRect(&outer, style, menu);
            Creation const made = create({200, 100, 520, 340}, style, menu);
            EXPECT_EQ(made.x, 200);
            EXPECT_EQ(made.y, 100);
            EXPECT_EQ(made.width, outer.right - outer.left);
            EXPECT_EQ(made.height, outer.bottom - outer.top);
            EXPECT_EQ(made.menu, menu ? initialiser.menu : nullptr);
        }
    }
}

// The work area is 100, 40 to 900, 700; all four edges count as inside.
TEST_F(WindowCreation, corner_outside_the_work_area_goes_to_its_corner) {
    struct Row {
        int left, top;
        bool inside;
    };
    constexpr Row rows[] = {
        {100, 40, true},
        {900, 700, true},
        {99, 40, false},
        {901, 40, false},
        {100, 39, false},
        {100, 701, false},
        {use_default, 9000, false},
    };
    for (Row const& row : rows) {
        Creation const made =
            create({row.left, row.top, row.left + 64, row.top + 48}, caption_style);
        EXPECT_EQ(made.x, row.inside ? row.left : 100) << row.left;
        EXPECT_EQ(made.y, row.inside ? row.top : 40) << row.top;
    }
}

// --- Real windows --------------------------------------------------------------------------------

TEST(Window, lives_from_create_to_destroy) {
    Host host;
    EXPECT_FALSE(host.window.valid());
    EXPECT_FALSE(host.window.QXWindowPlatform::valid());
    ASSERT_TRUE(host.open({50, 60, 450, 360}));
    QX::Rectangle client;
    host.window.get_client_rect(client);
    EXPECT_EQ(client.right, 400);
    EXPECT_EQ(client.bottom, 300);
    EXPECT_TRUE(host.window.is_visible());
    EXPECT_FALSE(host.window.is_iconic());

    host.window.destroy();
    EXPECT_FALSE(host.window.valid());
    EXPECT_TRUE(host.window.QXWindowPlatform::valid());
    host.window.destroy();
}

int destroyed = 0;

BOOL WINAPI note_destroy(HWND) {
    ++destroyed;
    return TRUE;
}

TEST(Window, of_another_process_is_neither_valid_nor_destroyed) {
    test::StandIn const call("DestroyWindow", note_destroy);
    QX::QXWindow foreign;
    foreign.set_hwnd(GetDesktopWindow());
    EXPECT_TRUE(IsWindow(foreign.get_hwnd()));
    EXPECT_FALSE(foreign.valid());
    foreign.destroy();
    EXPECT_EQ(destroyed, 0);
}

TEST(Window, copies_share_window_and_handler_but_not_the_style) {
    Host host;
    ASSERT_TRUE(host.open());
    QX::QXWindow copy(host.window);
    EXPECT_TRUE(copy == host.window);
    EXPECT_EQ(copy.event_handler(), &host.handler);
    EXPECT_EQ(copy.style(), 0u);
    EXPECT_FALSE(copy == QX::QXWindow(&host.handler));
    QX::QXWindow const from_initialiser(host.initialiser);
    EXPECT_EQ(from_initialiser.get_hwnd(), nullptr);
    EXPECT_EQ(from_initialiser.event_handler(), nullptr);
}

TEST(Window, styles_swap_between_windowed_and_full_screen) {
    Host host;
    ASSERT_TRUE(host.open());
    SetWindowLongW(host.hwnd(), GWL_EXSTYLE, WS_EX_TOOLWINDOW);
    host.window.set_fullscreen_style();
    EXPECT_EQ(GetWindowLongW(host.hwnd(), GWL_STYLE) & WS_CAPTION, 0);
    EXPECT_EQ(host.window.style(), 0x90000000);

    host.window.set_window_pos(true, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE);
    EXPECT_TRUE(GetWindowLongW(host.hwnd(), GWL_EXSTYLE) & WS_EX_TOPMOST);
    host.window.set_windowed_style(true);
    EXPECT_EQ(GetWindowLongW(host.hwnd(), GWL_EXSTYLE) & (WS_EX_TOPMOST | WS_EX_TOOLWINDOW), 0);
    EXPECT_TRUE(GetWindowLongW(host.hwnd(), GWL_STYLE) & WS_CAPTION);
    EXPECT_EQ(host.window.style(), caption_style);
    host.window.set_windowed_style(false);
    EXPECT_EQ(host.window.style(), 0x90000000);
}

TEST(Window, rectangles_are_the_systems) {
    Host host(0x90000000);
    ASSERT_TRUE(host.open({10, 20, 210, 120}));
    host.window.move_window(30, 40, 250, 150, true);
    QX::Rectangle rectangle;
    host.window.get_window_rect(rectangle);
    EXPECT_EQ(rectangle.left, 30);
    EXPECT_EQ(rectangle.bottom, 190);
    host.window.get_display_rect(rectangle);
    EXPECT_EQ(rectangle.left, 0);
    EXPECT_EQ(rectangle.right, 250);

    unsigned int width = 0;
    unsigned int height = 0;
    QX::QXWindow::primary_display_size(width, height);
    host.window.get_monitor_rect(rectangle);
    EXPECT_EQ(rectangle.right - rectangle.left, static_cast<int>(width));
    EXPECT_EQ(rectangle.bottom - rectangle.top, static_cast<int>(height));
    EXPECT_TRUE(host.window.on_monitor(MonitorFromPoint({40, 50}, MONITOR_DEFAULTTONULL)));
    EXPECT_FALSE(host.window.on_monitor(nullptr));
    EXPECT_TRUE(QX::QXWindow::window_from_point(40, 50) == host.window);
}

UINT shown_command(Host const& host) {
    WINDOWPLACEMENT placement = {};
    placement.length = sizeof placement;
    GetWindowPlacement(host.hwnd(), &placement);
    return placement.showCmd;
}

// The test is of one bit, which the maximised state has too.
TEST(Window, restoring_ends_both_the_minimised_and_the_maximised_state) {
    Host host(0x10CF0000);
    ASSERT_TRUE(host.open());
    for (int command : {SW_MINIMIZE, SW_MAXIMIZE}) {
        host.window.show_window(command);
        EXPECT_NE(shown_command(host), UINT{SW_SHOWNORMAL});
        EXPECT_EQ(host.window.is_iconic(), command == SW_MINIMIZE);
        host.window.restore_window();
        EXPECT_EQ(shown_command(host), UINT{SW_SHOWNORMAL});
    }
}

// --- Real events ---------------------------------------------------------------------------------

TEST(WindowEvents, focus_moves_between_two_windows) {
    Host first;
    Host second;
    ASSERT_TRUE(first.open_in_front());
    EXPECT_TRUE(first.window.is_focused());
    ASSERT_TRUE(second.open_in_front());
    EXPECT_EQ(first.handler.count("activate 0"), 1);
    EXPECT_TRUE(second.window.is_focused());
    EXPECT_FALSE(first.window.is_focused());
}

}  // namespace
