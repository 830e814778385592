#include "qx/app/window.h"

#include <gtest/gtest.h>

#include "tests/app/host.h"
#include "tests/harness/stand_in.h"

#include <cstring>

namespace {

using Calls = std::vector<std::string>;
using test::Host;

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

SHORT key_state = static_cast<SHORT>(0x8000);

SHORT WINAPI state_control(int key) {
    return key == VK_CONTROL ? key_state : 0;
}

TEST(Window, every_message_makes_its_one_call_or_none) {
    test::StandIn const keys("GetAsyncKeyState", state_control);
    MINMAXINFO info = {};
    test::RecordingHandler handler;
    QX::QXWindow window(&handler);
    auto const handles = [&](unsigned int message, unsigned long long wparam) {
        return window.process_wnd_proc(message, wparam, reinterpret_cast<long long>(&info));
    };
    for (Dispatch const& row : dispatches) {
        bool const answers = row.message == WM_NCHITTEST || row.message == WM_SYSCOMMAND;
        for (bool answer : {false, true}) {
            handler.calls.clear();
            handler.answer = answer;
            EXPECT_EQ(handles(row.message, row.wparam), answers && answer) << row.message;
            EXPECT_EQ(handler.calls, Calls{row.call});
        }
    }
    EXPECT_EQ(handler.last_window, &window);
    handler.calls.clear();
    for (unsigned int message = 0; message <= 0xFFFF; ++message) {
        auto const is_of = [=](Dispatch const& row) { return row.message == message; };
        bool const known = std::any_of(std::begin(dispatches), std::end(dispatches), is_of);
        if (known && message != WM_WTSSESSION_CHANGE) continue;  // of which the locks alone count
        ASSERT_FALSE(handles(message, 0x10007)) << message;
    }
    EXPECT_EQ(handler.calls, Calls{});
    key_state = 1;  // was pressed before
    handles(WM_KEYDOWN, VK_F5);
    EXPECT_EQ(handler.calls, Calls{"debug_key 116 0"});
}

TEST(Window, min_max_info_takes_the_two_heights_alone) {
    MINMAXINFO const given = {{1, 2}, {3, 4}, {5, 6}, {7, 8}, {9, 10}};
    MINMAXINFO const expected = {{1, 2}, {3, 700}, {5, 6}, {7, 8}, {9, 800}};
    MINMAXINFO info = given;
    auto const lparam = reinterpret_cast<long long>(&info);
    QX::QXWindow window;
    for (Dispatch const& row : dispatches)  // nothing answers without a handler
        EXPECT_FALSE(window.process_wnd_proc(row.message, row.wparam, lparam));
    EXPECT_EQ(std::memcmp(&info, &given, sizeof info), 0);
    test::RecordingHandler handler;
    window.set_event_handler(handler);
    window.process_wnd_proc(WM_GETMINMAXINFO, 0, lparam);
    EXPECT_EQ(std::memcmp(&info, &expected, sizeof info), 0);
}

// --- The debugger line ---------------------------------------------------------------------------

std::string debug_line;

void WINAPI note_line(char const* line) {
    debug_line = line;
}

std::string line_of(unsigned int message, unsigned long long wparam = 0, long long lparam = 0) {
    MINMAXINFO info = {};
    if (message == WM_GETMINMAXINFO) lparam = reinterpret_cast<long long>(&info);
    QX::QXWindow().process_wnd_proc(message, wparam, lparam);
    return std::exchange(debug_line, "");
}

// 164 rows, seven names given twice, and WM_WININICHANGE and WM_SETTINGCHANGE of one value.
TEST(MessageNames, first_row_of_a_value_names_it) {
    test::StandIn const output("OutputDebugStringA", note_line);
    EXPECT_EQ(line_of(WM_MOVE), "");
    QX::debug_log_windows_messages = true;
    EXPECT_EQ(
        line_of(0x1A, 0x1234567890), "Window Message WM_WININICHANGE 0x34567890 0x00000000\n");
    EXPECT_EQ(line_of(0x109, 0, -1), "Window Message WM_KEYLAST 0x00000000 0xffffffff\n");
    EXPECT_EQ(line_of(0x231), "Window Message 0x00000231 0x00000000 0x00000000\n");
    int named = 0;
    for (unsigned int message = 0; message <= 0xFFFF; ++message)
        named += line_of(message).starts_with("Window Message WM_");
    EXPECT_EQ(named, 156);
    QX::debug_log_windows_messages = false;
}

// --- Creation, with the system's calls noted -----------------------------------------------------

constexpr int use_default = CW_USEDEFAULT;
RECT creation;  // left, top, width, height
HMENU menu_used;

HWND WINAPI note_creation(
    DWORD, wchar_t const* name, wchar_t const* title, DWORD, int x, int y, int width, int height,
    HWND, HMENU menu, HINSTANCE, void*) {
    EXPECT_EQ(std::wstring(name) + title, L"NameTitle");
    creation = {x, y, width, height};
    menu_used = menu;
    return nullptr;
}

BOOL WINAPI note_registration(HWND, DWORD flags) {
    creation.bottom += flags == 0 ? 1000 : 0;  // this session only, and after the creation
    return FALSE;
}

BOOL WINAPI smaller_work_area(HMONITOR, MONITORINFO* info) {
    info->rcWork = {100, 40, 900, 700};
    return TRUE;
}

// An expected width of 0 is that of the style's outer rectangle.
void expect_created(QX::Rectangle const& given, unsigned int style, RECT expected) {
    test::StandIn const create("CreateWindowExW", note_creation);
    test::StandIn const monitor("GetMonitorInfoW", smaller_work_area);
    test::StandIn const session("WTSRegisterSessionNotification", note_registration);
    auto const menu = reinterpret_cast<HMENU>(0x55);
    for (bool with_menu : {false, true}) {
        RECT outer = {given.left, given.top, given.right, given.bottom};
        AdjustWindowRect(&outer, style, with_menu);
        OffsetRect(&outer, -outer.left, -outer.top);
        RECT placed = {expected.left, expected.top, outer.right, outer.bottom};
        if (expected.right != 0) placed = expected;
        placed.bottom += 1000;
        QX::QXWindow().create(given, {menu, L"Name", L"Title", nullptr, false, style}, with_menu);
        EXPECT_TRUE(EqualRect(&creation, &placed))
            << given.left << ' ' << given.top << ' ' << style;
        EXPECT_EQ(menu_used, with_menu ? menu : nullptr);
    }
}

TEST(WindowCreation, overlapped_style_takes_the_rectangle_as_given) {
    expect_created({-50, 3000, 250, 3200}, 0x00CF0000, {-50, 3000, 300, 200});
    expect_created({use_default, 10, 300, 200}, 0x00CF0000, {use_default, 10, use_default, 190});
    expect_created({10, use_default, 300, 200}, 0x00CF0000, {10, use_default, 290, use_default});
}

// All four edges of the work area, 100, 40 to 900, 700, count as inside.
TEST(WindowCreation, any_other_style_takes_a_client_rectangle) {
    for (unsigned int style : {0x00C70000u, 0x14C20000u, 0x90000000u, 0x10CF0000u}) {
        for (auto const& [left, top] : {std::pair(100, 40), {900, 700}, {300, 200}})
            expect_created({left, top, left + 64, top + 48}, style, {left, top, 0, 0});
        for (auto const& [left, top] :
             {std::pair(99, 40), {901, 300}, {300, 39}, {300, 701}, {use_default, 300}})
            expect_created({left, top, left + 64, top + 48}, style, {100, 40, 0, 0});
    }
}

// --- Real windows --------------------------------------------------------------------------------

BOOL WINAPI refuse_destroy(HWND) {
    ADD_FAILURE() << "destroyed another's window";
    return FALSE;
}

TEST(Window, lives_from_create_to_destroy) {
    Host host;
    EXPECT_FALSE(host.window.valid() || host.window.QXWindowPlatform::valid());
    ASSERT_TRUE(host.open());
    host.window.destroy();
    EXPECT_TRUE(!host.window.valid() && host.window.QXWindowPlatform::valid());

    QX::QXWindow foreign;
    foreign.set_hwnd(GetDesktopWindow());
    EXPECT_FALSE(foreign.valid());
    test::StandIn const call("DestroyWindow", refuse_destroy);
    foreign.destroy();
}

TEST(Window, copies_share_window_and_handler_but_not_the_style) {
    Host host;
    ASSERT_TRUE(host.open());
    host.window.set_windowed_style(true);
    QX::QXWindow copy(host.window);
    EXPECT_TRUE(copy == host.window && copy.event_handler() == &host.handler);
    EXPECT_TRUE(host.window.style() == 0x14C20000 && copy.style() == 0);
    EXPECT_FALSE(copy == QX::QXWindow(&host.handler));
}

// The test is of one bit, which the maximised state has too.
TEST(Window, restoring_ends_both_the_minimised_and_the_maximised_state) {
    Host host(0x10CF0000);
    ASSERT_TRUE(host.open());
    for (int command : {SW_MINIMIZE, SW_MAXIMIZE}) {
        host.window.show_window(command);
        EXPECT_EQ(host.window.is_iconic(), command == SW_MINIMIZE);
        host.window.restore_window();
        EXPECT_FALSE(host.window.is_iconic() || IsZoomed(host.window.get_hwnd()));
    }
}

TEST(Window, focus_moves_between_two_windows) {
    Host first, second;
    ASSERT_TRUE(first.come_to_front());
    EXPECT_TRUE(first.window.is_focused());
    first.handler.calls.clear();
    ASSERT_TRUE(second.come_to_front());
    EXPECT_TRUE(second.window.is_focused() && !first.window.is_focused());
    EXPECT_EQ(std::count(first.handler.calls.begin(), first.handler.calls.end(), "activate 0"), 1);
}

}  // namespace
