// What the application's rooms make of memory that is not to be had.
#include "qx/app/clipboard.h"
#include "qx/app/debug_menu.h"
#include "qx/app/input.h"
#include "qx/app/timers.h"
#include "tests/app/host.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/stand_in.h"

#include <gtest/gtest.h>

#include <optional>

using test::Attempt;

namespace {

void create_a_window(Attempt const& attempt) {
    QX::QXWindow window;
    bool const created = attempt([&] {
        window.create({}, {nullptr, L"STATIC", L"a title", nullptr, false, 0x00CF0000}, false);
    });
    EXPECT_EQ(window.valid(), created);
    window.destroy();
}

unsigned int last_id = 0;
int running = 0;

UINT_PTR WINAPI give_next_id(HWND, UINT_PTR, UINT, TIMERPROC) {
    ++running;
    return ++last_id;
}

BOOL WINAPI note_end(HWND, UINT_PTR) {
    --running;
    return TRUE;
}

// The caller can end no timer whose id it was not told.
void set_timers(Attempt const& attempt) {
    int told = running = 0;
    test::StandIn const set("SetTimer", give_next_id), kill("KillTimer", note_end);
    attempt([&] {
        for (; told < 40; ++told) QX::set_timer([](auto...) {}, 0, 10);
    });
    EXPECT_EQ(running, told);
    for (; told > 0; --told) QX::kill_timer(last_id + 1 - told);
}

void name_a_key(Attempt const& attempt) {
    test::Host host;
    QX::Application application(QX::ApplicationInitialiser{GetModuleHandleW(nullptr)});
    attempt([&] {
        ASSERT_TRUE(QX::acquire_hardware_controllers(application, host.window));
        EXPECT_FALSE(QX::localised_key_name(QX::KEY_SPACE).empty());
    });
    QX::release_hardware_controllers();
}

// An item hangs in the tree or does not know of it.
void fill_the_debug_menu(Attempt const& attempt) {
    QX::DebugMenuManager::m_instance = nullptr;
    std::optional<QX::DebugMenuItem> items[3];
    attempt([&] {
        QX::DebugMenuManager::create(QX::QXWindow(), true);
        QX::DebugMenuItem& root = *QX::DebugMenuManager::instance();
        for (auto& item : items) {
            item.emplace(QX::String("a/longer menu's name/an item's long name"), nullptr);
            root.add(*item, item->path());
        }
    });
    QX::DebugMenuManager* const root = QX::DebugMenuManager::instance();
    for (auto& item : items) item.reset();
    while (root && root->update() != QX::UPDATE_UNCHANGED) {}
    EXPECT_TRUE(!root || root->children().empty());
    QX::DebugMenuManager::destroy();
}

void copy_and_paste(Attempt const& attempt) {
    attempt([] {
        QX::copy_to_clipboard(L"a text of some length");
        QX::paste_from_clipboard();
    });
    EXPECT_TRUE(OpenClipboard(nullptr));
    CloseClipboard();
}

TEST(Exhaustion, leaves_nothing_half_made_by_windows_timers_devices_menu_and_clipboard) {
    test::walk_allocations(
        {{"window", create_a_window},
         {"timers", set_timers},
         {"input devices", name_a_key},
         {"debug menu", fill_the_debug_menu},
         {"clipboard", copy_and_paste}},
        [] { QX::kill_timer(0); });  // makes the timers' table, which lasts
}

}  // namespace
