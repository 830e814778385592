#include "qx/memory/memory_tracking.h"

#include <gtest/gtest.h>

#include "qx/base/compiler.h"
#include "qx/base/windows.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace {

namespace tracking = MEMORY_TRACKING;

std::string reported;

void WINAPI note_report(char const* text) {
    reported += text;
}

// What is printed by `work`.
template <typename Work>
std::string printed_by(Work work) {
    test::StandIn const debugger("OutputDebugStringA", note_report);
    reported.clear();
    work();
    return reported;
}

std::string live_dump(void* object) {
    return printed_by([=] { tracking::dump_live_object(object); });
}

std::string dead_dump(void* object) {
    return printed_by([=] { tracking::dump_dead_object(object); });
}

std::string removal(void* object) {
    return printed_by([=] { tracking::remove_live_object(object); });
}

char objects[500];

// Callers that a stack can name.
__attribute__((noinline, noipa)) void add_from_here(void* object) {
    tracking::add_live_object(object);
    QX_KEEP_FRAME();
}
__attribute__((noinline, noipa)) void add_from_there(void* object) {
    tracking::add_live_object(object);
    QX_KEEP_FRAME();
}
__attribute__((noinline, noipa)) void remove_from_here(void* object) {
    tracking::remove_live_object(object);
    QX_KEEP_FRAME();
}

bool names(std::string const& line, char const* function) {
    return line.find(function) != std::string::npos;
}

bool begins_in(std::string const& dump, char const* function) {
    std::string const line = dump.substr(0, dump.find('\n'));
    return names(line, function) && names(line, "memory_tracking_test.cpp:");
}

TEST(MemoryTracking, stack_of_a_live_object_begins_with_the_caller) {
    add_from_here(objects);
    EXPECT_TRUE(begins_in(live_dump(objects), "add_from_here")) << live_dump(objects);
    EXPECT_EQ(dead_dump(objects), "");
    add_from_there(objects);
    EXPECT_TRUE(begins_in(live_dump(objects), "add_from_there"));
    tracking::remove_live_object(objects);
}

TEST(MemoryTracking, second_removal_is_reported_with_the_stack_of_the_first) {
    add_from_here(objects);
    EXPECT_EQ(printed_by([] { remove_from_here(objects); }), "");
    EXPECT_EQ(live_dump(objects), "");
    std::string const dump = dead_dump(objects);
    EXPECT_TRUE(begins_in(dump, "remove_from_here")) << dump;
    EXPECT_EQ(removal(objects), "Possible double deletion:\n" + dump + "\n");
    EXPECT_EQ(removal(&reported), "Possible double deletion:\n\n");
    add_from_here(objects);
    EXPECT_EQ(dead_dump(objects), "");
    EXPECT_EQ(removal(objects), "");
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
            ASSERT_EQ(removal(object).empty(), alive[object]);
            alive[object] = false;
        }
        ASSERT_EQ(tracking::contains_live_object(object), alive[object]);
    }
    for (auto const& [object, is_alive] : alive) {
        ASSERT_EQ(tracking::contains_live_object(object), is_alive);
        if (is_alive) tracking::remove_live_object(object);
    }
}

TEST(MemoryTracking, exhaustion_leaves_an_object_untracked) {
    test::FailingAllocation const failing(1);
    EXPECT_THROW(tracking::add_live_object(&reported), std::bad_alloc);
    EXPECT_FALSE(tracking::contains_live_object(&reported));
}

// --- The end, in a process of its own ------------------------------------------------------------

int end_with_a_report() {
    add_from_there(objects + 1);
    add_from_here(objects);
    tracking::add_live_object(objects + 2);
    tracking::remove_live_object(objects + 2);
    std::string const stacks = live_dump(objects + 1) + live_dump(objects);
    std::string const report =
        printed_by([] { tracking::dump_all_live_objects_and_delete_cache(); });
    std::fputs(report.c_str(), stderr);
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
    std::string const said = removal(objects) + live_dump(objects) + dead_dump(objects);
    tracking::delete_live_objects_cache();
    tracking::dump_all_live_objects_and_delete_cache();
    return said.empty() && reported.empty() ? 0 : 1;
}

TEST(MemoryTrackingDeathTest, nothing_happens_once_the_maps_are_gone) {
    EXPECT_EXIT(std::exit(use_after_the_end()), testing::ExitedWithCode(0), "");
}

// --- Counters and settings -----------------------------------------------------------------------

TEST(TrackingCounters, stay_0_however_much_is_allocated) {
    QX::custom_free(QX::custom_malloc(1000, QX::HEAP_GENERAL));
    for (unsigned int heap = 0; heap <= QX::HEAP_ALL; ++heap) {
        auto const id = static_cast<QX::HEAPS>(heap);
        EXPECT_EQ(tracking::cumulative_alloc_count(id) + tracking::cumulative_alloc_size(id), 0u);
        EXPECT_EQ(tracking::current_alloc_count(id) + tracking::current_alloc_size(id), 0u);
    }
}

TEST(TrackingSettings, are_kept_and_feedback_comes_with_an_identifier) {
    EXPECT_FALSE(tracking::enable_AS_feedback(false));
    tracking::register_thread_identifier_fn(nullptr);
    EXPECT_TRUE(tracking::enable_AS_feedback(true));
    EXPECT_TRUE(tracking::enable_AS_feedback(false));
    EXPECT_FALSE(tracking::enable_AS_feedback(false));
    EXPECT_TRUE(tracking::track_allocation_count_and_callstacks());
}

}  // namespace
