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
int other_ticks = 0;

void note_tick(QX::QXWindow* window, unsigned int message, unsigned int id, unsigned int time) {
    bool const has_handler = window->event_handler() != nullptr;
    ticks.push_back({window->get_hwnd(), has_handler, message, id, time});
}

void note_other(QX::QXWindow*, unsigned int, unsigned int, unsigned int) {
    ++other_ticks;
}

void end_itself(QX::QXWindow*, unsigned int, unsigned int id, unsigned int) {
    ++other_ticks;
    QX::kill_timer(id);
}

bool rest(unsigned int ms) {
    return test::pump_until([] { return false; }, ms);
}

TEST(Timers, call_back_within_the_pump_until_killed) {
    int const id = QX::set_timer(note_tick, 0, 15);
    ASSERT_NE(id, 0);
    ASSERT_TRUE(test::pump_until([] { return ticks.size() >= 3; }));
    EXPECT_EQ(ticks[0].window, nullptr);
    EXPECT_FALSE(ticks[0].has_handler);
    EXPECT_EQ(ticks[0].message, unsigned{WM_TIMER});
    EXPECT_EQ(ticks[0].id, static_cast<unsigned>(id));
    EXPECT_LT(GetTickCount() - ticks[2].time, 3000u);

    QX::kill_timer(id);
    ticks.clear();
    rest(80);
    EXPECT_EQ(ticks.size(), 0u);
}

TEST(Timers, setting_a_running_timer_again_replaces_it) {
    int const first = QX::set_timer(note_tick, 0, 15);
    int const second = QX::set_timer(note_other, first, 15);
    ASSERT_TRUE(test::pump_until([] { return other_ticks >= 3; }));
    EXPECT_EQ(ticks.size(), 0u);
    QX::kill_timer(second);
}

TEST(Timers, callback_may_kill_its_own_timer) {
    QX::set_timer(end_itself, 0, 10);
    ASSERT_TRUE(test::pump_until([] { return other_ticks > 0; }));
    rest(60);
    EXPECT_EQ(other_ticks, 1);
}

// --- The table against a model, with the system's half stood in for ------------------------------

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

// Which callback ran last: the model tells callbacks apart by number.
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

// The table as it is told: which slots are taken, marked or free decides when it is rebuilt.
class Model {
public:
    bool has(unsigned int key) const { return callbacks_.count(key) != 0; }

    void insert(unsigned int key, int callback) {
        while (!try_insert(key, callback)) rebuild(key);
    }

    bool remove(unsigned int key) {
        if (!has(key)) return false;
        callbacks_.erase(key);
        unsigned int const at = place_of(key);
        unsigned int const next = (at + 1) % capacity();
        slots_[at] = slots_[next] == free ? free : mark;
        return true;
    }

    std::map<unsigned int, int> const& callbacks() const { return callbacks_; }
    std::vector<unsigned int> capacities;  // of each rebuild

private:
    static constexpr long long free = -1;
    static constexpr long long mark = -2;

    unsigned int capacity() const { return static_cast<unsigned int>(slots_.size()); }

    unsigned int place_of(unsigned int key) const {
        unsigned int at = 0;
        while (slots_[at] != key) ++at;
        return at;
    }

    bool try_insert(unsigned int key, int callback) {
        for (unsigned int step = 0; step < capacity() && !has(key); ++step) {
            long long& slot = slots_[(key % capacity() + step) % capacity()];
            if (slot != free) continue;
            slot = key;
            callbacks_[key] = callback;
            return true;
        }
        if (!has(key)) return false;
        callbacks_[key] = callback;
        return true;
    }

    void rebuild(unsigned int key) {
        bool swept = false;
        for (unsigned int i = 0; i < key % capacity(); ++i) swept |= slots_[i] == mark;
        std::vector<long long> const old = slots_;
        slots_.assign(swept ? old.size() : 2 * old.size() + 1, free);
        capacities.push_back(capacity());
        auto const kept = callbacks_;
        callbacks_.clear();
        for (long long slot : old) {
            if (slot >= 0)
                insert(static_cast<unsigned>(slot), kept.at(static_cast<unsigned>(slot)));
        }
    }

    std::vector<long long> slots_ = {free, free};
    std::map<unsigned int, int> callbacks_;
};

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
        EXPECT_EQ(killed.size(), model_.has(asked) ? 1u : 0u);
        model_.remove(asked);
        model_.insert(given, callback);
    }

    void kill(unsigned int id) {
        killed.clear();
        QX::kill_timer(id);
        EXPECT_EQ(killed, std::vector<unsigned int>{id});  // known or not
        model_.remove(id);
    }

    Model model_;
    std::vector<unsigned int> blocks_;

private:
    test::StandIn set_;
    test::StandIn kill_;
};

TEST_F(TimerTable, follows_the_model_under_random_sets_and_kills) {
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
            auto const found = model_.callbacks().find(known);
            ASSERT_EQ(call_of(known), found == model_.callbacks().end() ? -1 : found->second);
        }
    }
    EXPECT_GT(model_.capacities.size(), 10u);
    EXPECT_EQ(blocks_, sizes_of_tables(model_.capacities));
}

// Only a mark before the home slot lets the table keep its size.
TEST_F(TimerTable, deletion_marks_save_growth_only_before_the_home_slot) {
    set(0, 2, 0);
    set(0, 3, 0);
    kill(2);
    set(0, 5, 0);  // home slot 1, the mark in slot 0: swept
    EXPECT_EQ(blocks_, sizes_of_tables({2}));

    blocks_.clear();
    kill(3);
    set(0, 4, 0);  // home slot 0, the mark in slot 1: grown
    EXPECT_EQ(blocks_, sizes_of_tables({5}));
    for (unsigned int id : {4, 5}) EXPECT_EQ(call_of(id), 0);
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
