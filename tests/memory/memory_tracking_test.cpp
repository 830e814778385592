#include "qx/memory/memory_tracking.h"

#include <gtest/gtest.h>

#include "qx/base/compiler.h"
#include "qx/base/windows.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <cstdlib>
#include <map>
#include <string>

namespace {

namespace tracking = MEMORY_TRACKING;

std::string reported;

void WINAPI note_report(char const* text) {
    reported += text;
}

// What is printed by one of the calls.
std::string told(void (*call)(void*), void* object) {
    test::StandIn const debugger("OutputDebugStringA", note_report);
    reported.clear();
    call(object);
    return reported;
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
    EXPECT_EQ(told(tracking::remove_live_object, &reported), "Possible double deletion:\n\n");
    add_from_here(objects);
    EXPECT_EQ(told(tracking::dump_dead_object, objects), "");
    EXPECT_EQ(told(tracking::remove_live_object, objects), "");
}

TEST(MemoryTracking, follows_a_model_through_random_steps) {
    test::Random random;
    std::map<void*, bool> alive;
    for (char& object : objects) alive[&object] = false;
    for (int step = 0; step < 20000; ++step) {
        void* const object = objects + random.below(random.chance(3) ? 500 : 40);
        if (random.chance(2)) {
            tracking::add_live_object(object);
            alive[object] = true;
        } else if (alive[object] || random.chance(50)) {
            ASSERT_EQ(told(tracking::remove_live_object, object).empty(), alive[object]);
            alive[object] = false;
        }
        ASSERT_EQ(tracking::contains_live_object(object), alive[object]);
    }
    for (auto const& [object, is_alive] : alive)
        if (is_alive) tracking::remove_live_object(object);
    test::FailingAllocation const failing(1);
    EXPECT_THROW(tracking::add_live_object(&reported), std::bad_alloc);
    EXPECT_FALSE(tracking::contains_live_object(&reported));
}

// --- The end, in a process of its own ------------------------------------------------------------

int end_with_a_report() {
    add_from_here(objects + 1);
    add_from_here(objects);
    std::string const stacks =
        told(tracking::dump_live_object, objects + 1) + told(tracking::dump_live_object, objects);
    std::string const report =
        told([](void*) { tracking::dump_all_live_objects_and_delete_cache(); }, nullptr);
    std::string const line = "/////////////////////////////////////////////\n";
    return report == line + "Tracked live objects:\n" + stacks +
                         "End of tracked live objects report.\n" + line
               ? 0
               : 1;
}

TEST(MemoryTrackingDeathTest, last_report_shows_what_is_alive_in_order) {
    EXPECT_EXIT(std::exit(end_with_a_report()), testing::ExitedWithCode(0), "");
}

int use_after_the_end() {
    tracking::add_live_object(objects);
    tracking::delete_live_objects_cache();
    tracking::add_live_object(objects);
    if (tracking::contains_live_object(objects)) return 1;
    std::string const said = told(tracking::remove_live_object, objects) +
                             told(tracking::dump_live_object, objects) +
                             told(tracking::dump_dead_object, objects);
    tracking::delete_live_objects_cache();
    tracking::dump_all_live_objects_and_delete_cache();
    return said.empty() && reported.empty() ? 0 : 1;
}

TEST(MemoryTrackingDeathTest, nothing_happens_once_the_maps_are_gone) {
    EXPECT_EXIT(std::exit(use_after_the_end()), testing::ExitedWithCode(0), "");
}

// --- Counters -----------------------------------------------------------------------

TEST(TrackingCounters, stay_0_however_much_is_allocated) {
    QX::custom_free(QX::custom_malloc(1000, QX::HEAP_GENERAL));
    for (QX::HEAPS id : {QX::HEAP_GENERAL, QX::HEAP_ALL}) {
        EXPECT_EQ(tracking::cumulative_alloc_count(id) + tracking::cumulative_alloc_size(id), 0u);
        EXPECT_EQ(tracking::current_alloc_count(id) + tracking::current_alloc_size(id), 0u);
    }
}

}  // namespace
