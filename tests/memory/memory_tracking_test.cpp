#include "qx/memory/memory_tracking.h"

#include <gtest/gtest.h>

#include "qx/base/compiler.h"
#include "qx/base/windows.h"
#include "qx/memory/heap.h"
#include "qx/memory/report.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <cstdlib>
#include <regex>
#include <string>

namespace {

namespace tracking = MEMORY_TRACKING;

std::string printed;

// What a call prints to the debugger.
template <typename Call, typename... Arguments>
std::string told(Call call, Arguments... arguments) {
    test::StandIn const debugger(
        "OutputDebugStringA", +[](char const* text) { printed += text; });
    call(arguments...);
    return std::exchange(printed, {});
}

char objects[500];

// Callers that a stack can name.
__attribute__((noinline, noipa)) void add_from_here(void* object) {
    tracking::add_live_object(object);
    QX_KEEP_FRAME();
}
__attribute__((noinline, noipa)) void remove_from_here(void* object) {
    tracking::remove_live_object(object);
    QX_KEEP_FRAME();
}

bool begins_in(std::string const& dump, std::string const& function) {
    std::string const first = dump.substr(0, dump.find('\n'));
    std::size_t const place = first.find("memory_tracking_test.cpp:");
    return place != std::string::npos && first.find(function) < place;
}

TEST(MemoryTracking, second_removal_is_reported_with_the_stack_of_the_first) {
    add_from_here(objects);
    EXPECT_TRUE(begins_in(told(tracking::dump_live_object, objects), "add_from_here"))
        << told(tracking::dump_live_object, objects);
    EXPECT_EQ(told(tracking::dump_dead_object, objects), "");
    EXPECT_EQ(told(remove_from_here, objects), "");
    EXPECT_EQ(told(tracking::dump_live_object, objects), "");
    std::string const dump = told(tracking::dump_dead_object, objects);
    EXPECT_TRUE(begins_in(dump, "remove_from_here")) << dump;
    EXPECT_EQ(
        told(tracking::remove_live_object, objects), "Possible double deletion:\n" + dump + "\n");
    EXPECT_EQ(told(tracking::remove_live_object, &printed), "Possible double deletion:\n\n");
    add_from_here(objects);
    for (auto const call : {tracking::dump_dead_object, tracking::remove_live_object})
        EXPECT_EQ(told(call, objects), "");
}

TEST(MemoryTracking, follows_a_model_through_random_steps) {
    test::Random random;
    bool alive[500] = {};
    for (int step = 0; step < 20000; ++step) {
        unsigned int const i = random.below(random.chance(3) ? 500 : 40);
        if (random.chance(2)) {
            tracking::add_live_object(objects + i);
            alive[i] = true;
        } else if (alive[i] || random.chance(50)) {
            ASSERT_EQ(told(tracking::remove_live_object, objects + i).empty(), alive[i]);
            alive[i] = false;
        }
        ASSERT_EQ(tracking::contains_live_object(objects + i), alive[i]);
    }
    for (int i = 0; i < 500; ++i)
        if (alive[i]) tracking::remove_live_object(objects + i);
    test::FailingAllocation const failing(1);
    EXPECT_THROW(tracking::add_live_object(&printed), std::bad_alloc);
    EXPECT_FALSE(tracking::contains_live_object(&printed));
}

// --- The end, in a process of its own ------------------------------------------------------------

TEST(MemoryTrackingDeathTest, last_report_shows_what_is_alive_in_order) {
    auto const body = [] {
        add_from_here(objects + 1);
        add_from_here(objects);
        std::string const stacks = told(tracking::dump_live_object, objects + 1) +
                                   told(tracking::dump_live_object, objects);
        std::string const line = "/////////////////////////////////////////////\n";
        EXPECT_EQ(
            told(tracking::dump_all_live_objects_and_delete_cache),
            line + "Tracked live objects:\n" + stacks + "End of tracked live objects report.\n" +
                line);
        std::exit(testing::Test::HasFailure());
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST(MemoryTrackingDeathTest, nothing_happens_once_the_maps_are_gone) {
    auto const body = [] {
        tracking::add_live_object(objects);
        tracking::delete_live_objects_cache();
        tracking::add_live_object(objects);
        EXPECT_FALSE(tracking::contains_live_object(objects));
        for (auto const call :
             {tracking::remove_live_object, tracking::dump_live_object, tracking::dump_dead_object})
            EXPECT_EQ(told(call, objects), "");
        tracking::delete_live_objects_cache();
        EXPECT_EQ(told(tracking::dump_all_live_objects_and_delete_cache), "");
        std::exit(testing::Test::HasFailure());
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

// --- Other texts ---------------------------------------------------------------------------------

TEST(VerifyHeaps, prints_the_banner_and_for_all_but_banners_the_duration) {
    for (int option : {0, 1, 2, 3, -1}) {
        auto const verify = [=] {
            EXPECT_TRUE(QX::verify_heaps(static_cast<QX::VERIFY_HEAP_OPTIONS>(option)));
        };
        std::string const rest = option == 1 || option == 2 ? "" : " : duration [0-9]+ms\n";
        std::regex const all("Verifying heaps..." + rest);
        EXPECT_TRUE(std::regex_match(told(verify), all)) << option;
    }
}

TEST(ReportMessageTxt, formats_any_length) {
    for (unsigned int length : {0u, 16u, 200000u}) {
        std::string const text(length, 'y');
        EXPECT_EQ(told(tracking::report_message_txt, "%s %d", text.c_str(), -5), text + " -5");
    }
}

// --- Counters -----------------------------------------------------------------------

TEST(TrackingCounters, stay_0_however_much_is_allocated) {
    QX::custom_free(QX::custom_malloc(1000, QX::HEAP_GENERAL));
    for (QX::HEAPS id : {QX::HEAP_GENERAL, QX::HEAP_ALL}) {
        EXPECT_TRUE(!tracking::cumulative_alloc_count(id) && !tracking::current_alloc_count(id));
        EXPECT_TRUE(!tracking::cumulative_alloc_size(id) && !tracking::current_alloc_size(id));
    }
}

}  // namespace
