#include "qx/app/timers.h"

#include <gtest/gtest.h>

#include "qx/app/window.h"
#include "qx/base/windows.h"
#include "qx/memory/heap.h"
#include "tests/app/host.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <iterator>
#include <map>
#include <utility>
#include <vector>

namespace {

// --- Real timers ---------------------------------------------------------------------------------

struct Tick {
    HWND window;
    bool has_handler;
    unsigned int message;
    unsigned int id;
    unsigned int time;
};

std::vector<Tick> ticks = test::roomy<Tick>();
int ended_ticks = 0;

void note_tick(QX::QXWindow* window, unsigned int message, unsigned int id, unsigned int time) {
    bool const has_handler = window->event_handler() != nullptr;
    ticks.push_back({window->get_hwnd(), has_handler, message, id, time});
}

void end_itself(QX::QXWindow*, unsigned int, unsigned int id, unsigned int) {
    ++ended_ticks;
    QX::kill_timer(id);
}

TEST(Timers, call_back_within_the_pump_until_killed) {
    int const id = QX::set_timer(note_tick, 0, 15);
    QX::set_timer(end_itself, 0, 10);
    ASSERT_TRUE(test::pump_until([] { return ticks.size() >= 3 && ended_ticks > 0; }));
    EXPECT_EQ(ticks[0].window, nullptr);
    EXPECT_FALSE(ticks[0].has_handler);
    EXPECT_EQ(ticks[0].message, unsigned{WM_TIMER});
    EXPECT_EQ(ticks[0].id, static_cast<unsigned>(id));
    EXPECT_LT(GetTickCount() - ticks[2].time, 3000u);
    QX::kill_timer(id);
    ticks.clear();
    test::pump_until([] { return false; }, 80);
    EXPECT_EQ(ticks.size(), 0u);
    EXPECT_EQ(ended_ticks, 1);
}

// --- The table against a map, with the system's half stood in for ------------------------------

using Callback = QX::TimerCallback;

unsigned int next_id = 0;                                        // what the system answers
std::vector<unsigned int> killed = test::roomy<unsigned int>();  // what it was told to end
TIMERPROC procedure = nullptr;

UINT_PTR WINAPI give_id(HWND window, UINT_PTR, UINT, TIMERPROC called) {
    EXPECT_EQ(window, nullptr);
    procedure = called;
    return next_id;
}

BOOL WINAPI note_kill(HWND window, UINT_PTR id) {
    EXPECT_EQ(window, nullptr);
    killed.push_back(static_cast<unsigned int>(id));
    return TRUE;
}

// Which callback ran last.
int last_called = -1;

template <int number>
void numbered(QX::QXWindow*, unsigned int, unsigned int, unsigned int) {
    last_called = number;
}

constexpr Callback numbered_callbacks[] = {numbered<0>, numbered<1>, numbered<2>, numbered<3>};

int call_of(unsigned int id) {
    last_called = -1;
    if (procedure) procedure(nullptr, WM_TIMER, id, 0);
    return last_called;
}

// Sizes of the blocks that the library takes, noted without taking any.
unsigned int taken[64];
unsigned int taken_count = 0;

void note_block(void const*, unsigned int size) {
    if (size && taken_count < std::size(taken)) taken[taken_count++] = size;
}

template <typename Call>
std::vector<unsigned int> blocks_of(Call const& call) {
    taken_count = 0;
    QX::allocation_hook = note_block;
    call();
    QX::allocation_hook = nullptr;
    return {taken, taken + taken_count};
}

// The sizes that the heap reports for tables of these capacities.
std::vector<unsigned int> sizes_of_tables(std::vector<unsigned int> const& capacities) {
    return blocks_of([&] {
        for (unsigned int capacity : capacities) {
            void* const slots = QX::malloc_aligned(16 * (capacity + 1ull), 8, QX::HEAP_GENERAL);
            QX::custom_free(static_cast<void**>(slots)[-1]);
        }
    });
}

class TimerTable : public testing::Test {
protected:
    TimerTable() : set_("SetTimer", give_id), kill_("KillTimer", note_kill) {
        QX::kill_timer(0);  // makes the table
        killed.clear();
    }

    void set(unsigned int asked, unsigned int given, int callback) {
        next_id = given;
        killed.clear();
        int answer = -1;
        auto const blocks =
            blocks_of([&] { answer = QX::set_timer(numbered_callbacks[callback], asked, 10); });
        blocks_.insert(blocks_.end(), blocks.begin(), blocks.end());
        EXPECT_EQ(answer, static_cast<int>(given));
        EXPECT_EQ(killed.size(), model_.count(asked));
        model_.erase(asked);
        model_[given] = callback;
    }

    void kill(unsigned int id) {
        killed.clear();
        QX::kill_timer(id);
        EXPECT_EQ(killed, std::vector<unsigned int>{id});  // known or not
        model_.erase(id);
    }

    std::map<unsigned int, int> model_;  // callbacks by id
    std::vector<unsigned int> blocks_;

private:
    test::StandIn set_;
    test::StandIn kill_;
};

TEST_F(TimerTable, follows_a_map_under_random_sets_and_kills) {
    test::Random random;
    for (int step = 0; step < 20000; ++step) {
        // Few ids collide and are met again; now and then there are many.
        unsigned int const range = step % 4000 < 200 ? 400 : 24;
        unsigned int const id = 1 + random.below(range);
        if (random.chance(2))
            set(random.below(range), id, static_cast<int>(random.below(4)));
        else
            kill(id);
        if (step % 50 != 0) continue;
        for (unsigned int known = 0; known <= 400; ++known) {
            auto const found = model_.find(known);
            ASSERT_EQ(call_of(known), found == model_.end() ? -1 : found->second);
        }
    }
    EXPECT_GT(blocks_.size(), 10u);  // rebuilt often
}

// Only a mark before the home slot lets the table keep its size.
TEST_F(TimerTable, deletion_marks_save_growth_only_before_the_home_slot) {
    set(0, 2, 0);
    set(0, 3, 0);
    kill(2);
    set(0, 5, 0);  // home slot 1, the mark in slot 0: swept
    EXPECT_EQ(blocks_, sizes_of_tables({2}));

    kill(3);
    set(0, 4, 0);  // home slot 0, the mark in slot 1: grown
    EXPECT_EQ(blocks_, sizes_of_tables({2, 5}));
    for (unsigned int id : {4, 5}) EXPECT_EQ(call_of(id), 0);
}

TEST_F(TimerTable, end_of_a_run_is_freed_and_its_middle_marked) {
    for (unsigned int id : {5, 6, 7, 8}) set(0, id, 0);
    EXPECT_EQ(blocks_, sizes_of_tables({5}));
    kill(8);        // slot 3, with nothing behind it
    set(0, 9, 0);   // slot 4
    set(0, 10, 0);  // from slot 0 on to the freed slot
    EXPECT_EQ(blocks_, sizes_of_tables({5}));
    kill(9);  // slot 4, before slot 0: a mark, which is not used again
    set(0, 14, 0);
    EXPECT_EQ(blocks_, sizes_of_tables({5, 11}));
}

TEST_F(TimerTable, failed_timer_answers_zero_and_leaves_an_entry_under_it) {
    set(0, 0, 2);
    EXPECT_EQ(call_of(0), 2);
    set(0, 7, 1);  // the entry under 0 counts as running
    EXPECT_EQ(call_of(0), -1);
}

TEST_F(TimerTable, once_released_it_never_comes_back) {
    set(0, 7, 1);
    QX::deallocate_timers_data_structures();
    EXPECT_EQ(call_of(7), -1);
    killed.clear();
    EXPECT_EQ(QX::set_timer(numbered<0>, 7, 10), 0);
    EXPECT_TRUE(killed.empty());
    QX::kill_timer(7);
    EXPECT_EQ(killed, std::vector<unsigned int>{7});
    QX::deallocate_timers_data_structures();
}

}  // namespace
