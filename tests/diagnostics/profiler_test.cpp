#include "qx/diagnostics/profiler.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "qx/diagnostics/message_box.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
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
    for (unsigned int i = 0; i < text.length(); ++i) written += static_cast<char>(text[i]);
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

    void SetUp() override { ASSERT_TRUE(counter_.found()); }

    static void enter(Profiler& profiler, long long ticks, char const* name) {
        now += ticks;
        profiler.enter(name);
    }

    static void leave(Profiler& profiler, long long ticks) {
        now += ticks;
        profiler.leave();
    }

    static std::string dump(Profiler& profiler) {
        written.clear();
        profiler.dump("profile.txt");
        return written;
    }

private:
    test::StandIn counter_{"QueryPerformanceCounter", give_now};
};

constexpr char heading[] = "\nTime     \tEnter / Leave\n";

#define COLUMNS                                                                                    \
    " inclusive in%% exclusive ex%% called func\n"                                                 \
    " ~~~~~~~~~ ~~~ ~~~~~~~~~ ~~~ ~~~~~~ ~~~~\n"
constexpr char inclusive_heading[] = "\nProfiling by Inclusive time (us)\n" COLUMNS;
constexpr char exclusive_heading[] = "\nProfiling by Exclusive time (us)\n" COLUMNS;
constexpr char function_heading[] = "\nProfiling by Function time (us)\n" COLUMNS;

std::string const no_events =
    std::string(heading) + inclusive_heading + exclusive_heading + function_heading;

TEST_F(ProfilerRun, writes_the_time_line_and_three_ascending_tables) {
    Profiler profiler;
    profiler.reset(8);
    char other_walk[] = "walk";
    enter(profiler, 100, "update");
    enter(profiler, 300, "walk");     // 300 of update's own
    leave(profiler, 40);              // 40 of walk's own
    enter(profiler, 60, other_walk);  // 60 of nobody's
    leave(profiler, 200);             // 200 of walk's own, told apart by text alone
    leave(profiler, 50);              // 50 of update's own
    enter(profiler, 0, "klaw");       // the same letters, the same sums
    enter(profiler, 10, "idle");
    now += 241;
    EXPECT_EQ(
        dump(profiler), std::string(heading) +
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
                            inclusive_heading +
                            "       240  23       240  23      2 walk\n"
                            "       241  24         0   0      1 idle\n"
                            "       251  25        10   0      1 klaw\n"
                            "       650  64       350  34      1 update\n" +
                            exclusive_heading +
                            "       241  24         0   0      1 idle\n"
                            "       251  25        10   0      1 klaw\n"
                            "       240  23       240  23      2 walk\n"
                            "       650  64       350  34      1 update\n" +
                            function_heading +
                            "       241  24         0   0      1 idle\n"
                            "       251  25        10   0      1 klaw\n"
                            "       650  64       350  34      1 update\n"
                            "       240  23       240  23      2 walk\n");
}

TEST_F(ProfilerRun, prints_long_times_whole_and_wraps_exclusive_ones) {
    Profiler profiler;
    profiler.reset(2);
    enter(profiler, 0, "a");
    leave(profiler, (3ll << 32) + 7);
    now += 3ll << 32;
    std::string const row = "12884901895  50         7   0      1 a\n";
    EXPECT_EQ(
        dump(profiler), std::string(heading) + "        0\tEnter\ta\n12884901895\tLeave\ta\n" +
                            inclusive_heading + row + exclusive_heading + row + function_heading +
                            row);
}

TEST_F(ProfilerRun, without_events_writes_headings_alone) {
    Profiler profiler;
    EXPECT_EQ(dump(profiler), no_events);
    profiler.reset(3);
    enter(profiler, 1, "a");
    profiler.reset(3);
    EXPECT_EQ(dump(profiler), no_events);
}

TEST_F(ProfilerRun, a_run_of_no_time_has_no_percentages) {
    Profiler profiler;
    profiler.reset(1);
    profiler.enter("a");
    EXPECT_NE(dump(profiler).find("         0   0         0   0      1 a\n"), std::string::npos);
}

TEST_F(ProfilerRun, a_dump_begins_anew_and_passes_over_leaves_from_before_it) {
    Profiler profiler;
    profiler.reset(4);
    enter(profiler, 5, "old");
    dump(profiler);
    EXPECT_EQ(profiler.event_count(), 0u);
    EXPECT_EQ(profiler.start(), 1005);
    leave(profiler, 5);
    enter(profiler, 5, "new");
    leave(profiler, 5);
    std::string const row = "         5  33         5  33      1 new\n";
    EXPECT_EQ(
        dump(profiler), std::string(heading) + "       10\tEnter\tnew\n       15\tLeave\tnew\n" +
                            inclusive_heading + row + exclusive_heading + row + function_heading +
                            row);
}

TEST_F(ProfilerRun, drops_events_without_room) {
    Profiler profiler;
    profiler.enter("before");
    profiler.leave();
    EXPECT_EQ(profiler.event_count(), 0u);
    profiler.reset(2);
    for (char const* name : {"a", "b", "c", "d"}) enter(profiler, 1, name);
    profiler.leave();
    ASSERT_EQ(profiler.event_count(), 3u);
    EXPECT_STREQ(profiler.events()[2].name, "c");
    EXPECT_EQ(profiler.events()[2].time, 3);
    {
        test::FailingAllocation const failing(1);
        EXPECT_THROW(profiler.reset(8), std::bad_alloc);
    }
    profiler.enter("after");
    EXPECT_EQ(profiler.event_count(), 0u);
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

// What the tables should hold, by looking for each enter's leave.
std::map<std::string, Sums> sums_of(std::vector<Profiler::Event> const& events, long long total) {
    std::map<std::string, Sums> sums;
    for (std::size_t i = 0; i < events.size(); ++i) {
        if (events[i].name == nullptr) continue;
        Sums& own = sums[events[i].name];
        ++own.called;
        std::size_t end = i;
        for (int depth = 0; end < events.size(); ++end)
            if ((depth += events[end].name != nullptr ? 1 : -1) == 0) break;
        bool const left = end < events.size();
        own.inclusive += (left ? events[end].time : total) - events[i].time;
        if (left) own.exclusive += events[end].time - events[end - 1].time;
        if (i + 1 < events.size() && events[i + 1].name != nullptr)
            own.exclusive += events[i + 1].time - events[i].time;
    }
    return sums;
}

using Rows = std::vector<std::string>;

Rows rows_behind(std::string const& text, char const* table) {
    Rows rows;
    std::size_t at = text.find(table) + std::strlen(table);
    while (at < text.size() && text[at] != '\n') {
        std::size_t const end = text.find('\n', at);
        rows.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return rows;
}

Rows expected_rows(std::map<std::string, Sums> const& sums, long long total) {
    Rows rows;
    for (auto const& [name, own] : sums) {
        char row[100];
        std::snprintf(
            row, sizeof row, "%10lld %3lld%10lld %3lld%7d %s", own.inclusive,
            own.inclusive * 100 / total, own.exclusive, own.exclusive * 100 / total, own.called,
            name.c_str());
        rows.push_back(row);
    }
    return rows;
}

void expect_ascending(Rows const& rows, std::size_t column) {
    for (std::size_t i = 1; i < rows.size(); ++i)
        EXPECT_LE(std::stoll(rows[i - 1].substr(column)), std::stoll(rows[i].substr(column)));
}

// Names in number and likeness enough to meet in one slot.
char const* random_name(test::Random& random) {
    static char const* const names[] = {"ab", "cb", "abc", "cba", "bb", "", "a", "abcd", "cdab"};
    return names[random.below(9)];
}

TEST_F(ProfilerRun, random_streams_sum_up_as_a_plain_count_of_them_does) {
    test::Random random;
    for (int round = 0; round < 200; ++round) {
        Profiler profiler;
        profiler.reset(200);
        unsigned int const events = 1 + random.below(200);
        for (unsigned int i = 0, open = 0; i < events; ++i) {
            bool const enters = open == 0 || random.chance(2);
            now += random.below(1000);
            enters ? profiler.enter(random_name(random)) : profiler.leave();
            enters ? ++open : --open;
        }
        std::vector<Profiler::Event> const kept(profiler.events(), profiler.events() + events);
        long long const total = (now += 1 + random.below(100)) - profiler.start();
        Rows expected = expected_rows(sums_of(kept, total), total);
        std::string const text = dump(profiler);
        EXPECT_EQ(rows_behind(text, function_heading), expected);
        std::sort(expected.begin(), expected.end());
        for (char const* table : {inclusive_heading, exclusive_heading}) {
            Rows rows = rows_behind(text, table);
            expect_ascending(rows, table == inclusive_heading ? 0 : 15);
            std::sort(rows.begin(), rows.end());
            EXPECT_EQ(rows, expected);
        }
    }
}

}  // namespace
