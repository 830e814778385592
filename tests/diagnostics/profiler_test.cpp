#include "qx/diagnostics/profiler.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "qx/diagnostics/message_box.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <map>
#include <string>
#include <vector>

namespace {

using QX::Profiler;

long long now;
std::string written;

bool keep_text(QX::UniString const& text) {
    written.append(text.begin(), text.end());
    return false;
}

// The counter stands where a case puts it, and what is written is kept.
class ProfilerRun : public testing::Test {
protected:
    ProfilerRun() { QX::qx_message_txt_hook = keep_text; }
    ~ProfilerRun() {
        QX::qx_message_txt_hook = nullptr;
        std::string().swap(written);
    }

    // A null name leaves.
    void record(long long ticks, char const* name) {
        now += ticks;
        name != nullptr ? profiler_.enter(name) : profiler_.leave();
    }

    test::StandIn counter_{
        "QueryPerformanceCounter", +[](LARGE_INTEGER* ticks) { ticks->QuadPart = now; }};
    Profiler profiler_;
};

std::string heading(std::string const& table) {
    return "\nProfiling by " + table +
           " time (us)\n inclusive in%% exclusive ex%% called func\n"
           " ~~~~~~~~~ ~~~ ~~~~~~~~~ ~~~ ~~~~~~ ~~~~\n";
}

TEST_F(ProfilerRun, writes_the_time_line_and_three_ascending_tables) {
    profiler_.enter("without room");
    profiler_.reset(8);
    char other_walk[] = "walk";
    record(100, "update");
    record(300, "walk");     // 300 of update's own
    record(40, nullptr);     // 40 of walk's own
    record(60, other_walk);  // 60 of nobody's
    record(200, nullptr);    // 200 of walk's own, told apart by text alone
    record(50, nullptr);     // 50 of update's own
    record(10, "idle");
    now += 241;
    profiler_.dump("profile.txt");
    std::string const walk = "       240  23       240  23      2 walk\n";
    std::string const idle = "       241  24         0   0      1 idle\n";
    std::string const update = "       650  64       350  34      1 update\n";
    std::string const line = "\nTime     \tEnter / Leave\n      100\tEnter\tupdate\n"
                             "      400\tEnter\twalk\n      440\tLeave\twalk\n"
                             "      500\tEnter\twalk\n      700\tLeave\twalk\n"
                             "      750\tLeave\tupdate\n      760\tEnter\tidle\n"
                             "truncating leave time for: idle\n";
    EXPECT_EQ(
        written, line + heading("Inclusive") + walk + idle + update + heading("Exclusive") + idle +
                     walk + update + heading("Function") + idle + update + walk);
    EXPECT_EQ(profiler_.start(), now);
    test::FailingAllocation const failing(1);
    EXPECT_THROW(profiler_.reset(8), std::bad_alloc);
    EXPECT_EQ(profiler_.events(), nullptr);
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
    long long inclusive = 0;
    unsigned int exclusive = 0;
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
    long long const whole = total != 0 ? total : 1;  // in no time everything takes no time
    for (auto const& [name, own] : sums) {
        char row[100];
        std::sprintf(
            row, "%10lld %3lld%10u %3lld%7d %s\n", own.inclusive, own.inclusive * 100 / whole,
            own.exclusive, own.exclusive * 100ll / whole, own.called, name.c_str());
        rows += row;
    }
    return rows;
}

// With leaves from before the reset, and times past 32 bits.
TEST_F(ProfilerRun, random_streams_sum_up_as_a_plain_count_of_them_does) {
    // In number and likeness enough to meet in one slot.
    char const* const names[] = {"ab", "cb", "abc", "cba", "bb", "", "a", "abcd", "cdab"};
    test::Random random;
    for (int round = 0; round < 300; ++round) {
        profiler_.reset(100);  // often too few
        for (unsigned int i = random.below(200); i-- != 0;) {
            long long const ticks = random.chance(30) ? 3ll << 31 : random.below(1000);
            record(round % 9 ? ticks : 0, random.chance(2) ? names[random.below(9)] : nullptr);
        }
        EXPECT_LE(profiler_.event_count(), 101u);
        std::vector<Profiler::Event> const kept(
            profiler_.events(), profiler_.events() + profiler_.event_count());
        std::string const rows = rows_of(kept, now - profiler_.start());
        written.clear();
        profiler_.dump("profile.txt");
        EXPECT_EQ(written.substr(written.find(heading("Function"))), heading("Function") + rows);
    }
}

}  // namespace
