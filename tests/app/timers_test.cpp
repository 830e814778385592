#include <gtest/gtest.h>

#include "qx/app/timers_table_impl.h"
#include "tests/app/host.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <map>

namespace {

// --- The table -----------------------------------------------------------------------------------

TEST(TimerTable, probes_marks_and_grows_by_its_rules) {
    struct Row {
        std::vector<int> keys;  // added; removed if below 0
        unsigned int capacity;
    };
    Row const rows[] = {
        {{2, 3, -2, 5}, 2},     // a mark before the home slot: swept at its size
        {{-3, 4}, 5},           // a mark from the home slot on saves no growth
        {{9, 9, 14, -14}, 5},   // the end of a run leaves no mark
        {{-5, 14, -4, 19}, 5},  // a mark is stepped over and not used again
        {{2, 3, -9, 8}, 11},    // the mark is behind home slot 3
    };
    QX::TimerTable table;
    for (Row const& row : rows) {
        for (int key : row.keys) {
            if (key > 0) table.insert(static_cast<unsigned int>(key), nullptr);
            if (key < 0) table.remove(static_cast<unsigned int>(-key));
        }
        EXPECT_EQ(table.capacity_, row.capacity);
    }
}

TEST(TimerTable, follows_a_map_under_random_insertions_and_removals) {
    test::Random random;
    QX::TimerTable table;
    std::map<unsigned int, QX::TimerCallback> model;
    for (int step = 0; step < 20000; ++step) {
        // Few keys collide and are met again; now and then there are many.
        unsigned int const key = random.below(step % 4000 < 200 ? 400 : 24);
        auto const callback = reinterpret_cast<QX::TimerCallback>(random.next() | 1);
        if (random.chance(2))
            table.insert(key, model[key] = callback);
        else
            ASSERT_EQ(table.remove(key), model.erase(key) == 1);
        unsigned int const asked = random.below(400);
        QX::TimerTable::Slot const* const found = table.find(asked);
        ASSERT_EQ(found ? found->callback : nullptr, model.count(asked) ? model[asked] : nullptr);
    }
}

// --- Timers --------------------------------------------------------------------------------------

std::vector<unsigned int> ticks;

void note_tick(QX::QXWindow* window, unsigned int message, unsigned int id, unsigned int time) {
    EXPECT_TRUE(!window->get_hwnd() && !window->event_handler() && message == WM_TIMER);
    EXPECT_LT(GetTickCount() - time, 3000u);
    ticks.push_back(id);
}

TEST(Timers, call_back_within_the_pump_until_killed) {
    int const id = QX::set_timer(note_tick, 0, 15);
    ASSERT_TRUE(test::pump_until([=] { return ticks.size() == 3 && ticks[2] == unsigned(id); }));
    QX::kill_timer(id);
    EXPECT_FALSE(test::pump_until([] { return ticks.size() > 3; }, 80));
}

unsigned int next_id = 0;  // what the system answers
std::string calls;
TIMERPROC procedure = nullptr;

UINT_PTR WINAPI give_id(HWND, UINT_PTR, UINT, TIMERPROC called) {
    calls += "set ";
    procedure = called;
    return next_id;
}

BOOL WINAPI note_kill(HWND, UINT_PTR id) {
    calls += "kill" + std::to_string(id) + ' ';
    return TRUE;
}

// A timer that the system refuses leaves an entry under the id 0.
TEST(Timers, go_by_the_systems_ids_until_the_table_is_released_for_good) {
    test::StandIn const set("SetTimer", give_id), kill("KillTimer", note_kill);
    for (auto const& [asked, given] : {std::pair(7u, 9u), {7, 5}, {9, 0}, {0, 6}, {6, 6}}) {
        next_id = given;
        EXPECT_EQ(QX::set_timer(note_tick, asked, 10), static_cast<int>(given));
    }
    EXPECT_EQ(calls, "set set kill9 set kill0 set kill6 set ");
    for (unsigned int id : {0, 5, 6, 7, 9}) procedure(nullptr, WM_TIMER, id, GetTickCount());
    EXPECT_EQ(ticks, (std::vector<unsigned int>{5, 6}));
    QX::deallocate_timers_data_structures();
    EXPECT_EQ(QX::set_timer(note_tick, 5, 10), 0);
    QX::kill_timer(5);
    EXPECT_TRUE(ticks.size() == 2 && calls.ends_with("kill6 set kill5 "));
}

}  // namespace
