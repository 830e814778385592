#include "qx/diagnostics/profiler.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "qx/diagnostics/message_box.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace {

using QX::Profiler;

long long now;

BOOL WINAPI give_now(LARGE_INTEGER* ticks) {
    ticks->QuadPart = now;
    return TRUE;
}

std::string written;

bool keep_text(QX::UniString const& text) {
    written.append(text.begin(), text.end());
    return false;
}

// The counter stands where a case puts it, and what is written is kept.
class ProfilerRun : public testing::Test {
protected:
    ProfilerRun() {
        QX::qx_message_txt_hook = keep_text;
        now = 1000;
    }
    ~ProfilerRun() {
        QX::qx_message_txt_hook = nullptr;
        std::string().swap(written);
    }

    // A null name leaves.
    void enter(long long ticks, char const* name) {
        now += ticks;
        name != nullptr ? profiler_.enter(name) : profiler_.leave();
    }

    std::string dump() {
        written.clear();
        profiler_.dump("profile.txt");
        return written;
    }

    test::StandIn counter_{"QueryPerformanceCounter", give_now};
    Profiler profiler_;
};

std::string const start = "\nTime     \tEnter / Leave\n";

std::string heading(std::string const& table) {
    return "\nProfiling by " + table +
           " time (us)\n inclusive in%% exclusive ex%% called func\n"
           " ~~~~~~~~~ ~~~ ~~~~~~~~~ ~~~ ~~~~~~ ~~~~\n";
}

std::string tables(std::string const& row) {
    return heading("Inclusive") + row + heading("Exclusive") + row + heading("Function") + row;
}

TEST_F(ProfilerRun, writes_the_time_line_and_three_ascending_tables) {
    profiler_.reset(8);
    char other_walk[] = "walk";
    enter(100, "update");
    enter(300, "walk");     // 300 of update's own
    enter(40, nullptr);     // 40 of walk's own
    enter(60, other_walk);  // 60 of nobody's
    enter(200, nullptr);    // 200 of walk's own, told apart by text alone
    enter(50, nullptr);     // 50 of update's own
    enter(0, "klaw");       // the same letters, the same sums
    enter(10, "idle");
    now += 241;
    std::string const walk = "       240  23       240  23      2 walk\n";
    std::string const idle = "       241  24         0   0      1 idle\n";
    std::string const klaw = "       251  25        10   0      1 klaw\n";
    std::string const update = "       650  64       350  34      1 update\n";
    EXPECT_EQ(
        dump(), start +
                    "      100\tEnter\tupdate\n"
                    "      400\tEnter\twalk\n"
                    "      440\tLeave\twalk\n"
                    "      500\tEnter\twalk\n"
                    "      700\tLeave\twalk\n"
                    "      750\tLeave\tupdate\n"
                    "      750\tEnter\tklaw\n"
                    "      760\tEnter\tidle\n"
                    "truncating leave time for: idle\n"
                    "truncating leave time for: klaw\n" +
                    heading("Inclusive") + walk + idle + klaw + update + heading("Exclusive") +
                    idle + klaw + walk + update + heading("Function") + idle + klaw + update +
                    walk);
}

TEST_F(ProfilerRun, prints_long_times_whole_and_wraps_exclusive_ones) {
    profiler_.reset(2);
    enter(0, "a");
    enter((3ll << 32) + 7, nullptr);
    now += 3ll << 32;
    EXPECT_EQ(
        dump(), start + "        0\tEnter\ta\n12884901895\tLeave\ta\n" +
                    tables("12884901895  50         7   0      1 a\n"));
}

TEST_F(ProfilerRun, a_dump_begins_anew_and_passes_over_leaves_from_before_it) {
    EXPECT_EQ(dump(), start + tables(""));
    profiler_.reset(4);
    profiler_.enter("no time");
    EXPECT_NE(dump().find("         0   0         0   0      1 no time\n"), std::string::npos);
    enter(5, nullptr);
    enter(5, "new");
    enter(5, nullptr);
    EXPECT_EQ(
        dump(), start + "       10\tEnter\tnew\n       15\tLeave\tnew\n" +
                    tables("         5  33         5  33      1 new\n"));
    EXPECT_EQ(profiler_.start(), 1015);
}

TEST_F(ProfilerRun, drops_events_without_room) {
    profiler_.enter("before");
    EXPECT_EQ(profiler_.event_count(), 0u);
    profiler_.reset(2);
    for (char const* name : {"a", "b", "c", "d"}) enter(1, name);
    ASSERT_EQ(profiler_.event_count(), 3u);
    EXPECT_EQ(profiler_.events()[2].time, 3);
    test::FailingAllocation const failing(1);
    EXPECT_THROW(profiler_.reset(8), std::bad_alloc);
    profiler_.enter("after");
    EXPECT_EQ(profiler_.event_count(), 0u);
}

// The file is named by the dump at the end and never made.
TEST(ProfilerDeathTest, the_global_one_dumps_at_the_end_of_the_process) {
    EXPECT_EXIT(
        {
            Profiler::profiler.reset(1);
            Profiler::profiler.enter("to the end");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "truncating leave time for: to the end");
    EXPECT_EQ(GetFileAttributesA("profile.txt"), INVALID_FILE_ATTRIBUTES);
}

// --- Random streams ------------------------------------------------------------------------------

struct Sums {
    long long inclusive = 0, exclusive = 0;
    int called = 0;
};

// What the table by name should hold, by looking for each enter's leave.
std::string rows_of(std::vector<Profiler::Event> const& events, long long total) {
    std::map<std::string, Sums> sums;
    for (std::size_t i = 0; i < events.size(); ++i) {
        if (events[i].name == nullptr) continue;
        std::size_t end = i;
        for (int depth = 0; end < events.size(); ++end)
            if ((depth += events[end].name != nullptr ? 1 : -1) == 0) break;
        bool const left = end < events.size();
        Sums& own = sums[events[i].name];
        ++own.called;
        own.inclusive += (left ? events[end].time : total) - events[i].time;
        if (left) own.exclusive += events[end].time - events[end - 1].time;
        if (i + 1 < events.size() && events[i + 1].name != nullptr)
            own.exclusive += events[i + 1].time - events[i].time;
    }
    std::string rows;
    for (auto const& [name, own] : sums) {
        char row[100];
        std::sprintf(
            row, "%10lld %3lld%10lld %3lld%7d %s\n", own.inclusive, own.inclusive * 100 / total,
            own.exclusive, own.exclusive * 100 / total, own.called, name.c_str());
        rows += row;
    }
    return rows;
}

TEST_F(ProfilerRun, random_streams_sum_up_as_a_plain_count_of_them_does) {
    // In number and likeness enough to meet in one slot.
    char const* const names[] = {"ab", "cb", "abc", "cba", "bb", "", "a", "abcd", "cdab"};
    test::Random random;
    for (int round = 0; round < 200; ++round) {
        profiler_.reset(200);
        unsigned int const events = 1 + random.below(200);
        for (unsigned int i = 0, open = 0; i < events; ++i) {
            bool const enters = open == 0 || random.chance(2);
            enter(random.below(1000), enters ? names[random.below(9)] : nullptr);
            enters ? ++open : --open;
        }
        std::vector<Profiler::Event> const kept(profiler_.events(), profiler_.events() + events);
        long long const total = (now += 1 + random.below(100)) - profiler_.start();
        std::string const text = dump();
        EXPECT_EQ(
            text.substr(text.find(heading("Function"))),
            heading("Function") + rows_of(kept, total));
    }
}

}  // namespace
