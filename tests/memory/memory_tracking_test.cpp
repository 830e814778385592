#include "qx/memory/memory_tracking.h"

#include <gtest/gtest.h>

#include "qx/base/compiler.h"
#include "qx/base/windows.h"
#include "qx/images/image.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace {

namespace tracking = MEMORY_TRACKING;

std::string reported;

void WINAPI note_report(char const* text) {
    reported += text;
}

class MemoryTracking : public testing::Test {
protected:
    MemoryTracking() { reported.clear(); }

    static std::string live_dump(void* object) {
        reported.clear();
        tracking::dump_live_object(object);
        return reported;
    }
    static std::string dead_dump(void* object) {
        reported.clear();
        tracking::dump_dead_object(object);
        return reported;
    }

private:
    test::StandIn debugger_{"OutputDebugStringA", note_report};
};

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

std::string first_line(std::string const& text) {
    return text.substr(0, text.find('\n'));
}

bool names(std::string const& line, char const* function) {
    return line.find(function) != std::string::npos;
}

TEST_F(MemoryTracking, stack_of_a_live_object_begins_with_the_caller) {
    EXPECT_FALSE(tracking::contains_live_object(objects));
    add_from_here(objects);
    EXPECT_TRUE(tracking::contains_live_object(objects));
    std::string const dump = live_dump(objects);
    EXPECT_TRUE(names(first_line(dump), "add_from_here")) << dump;
    EXPECT_TRUE(names(first_line(dump), "memory_tracking_test.cpp:")) << dump;
    EXPECT_EQ(live_dump(objects), dump);
    EXPECT_EQ(dead_dump(objects), "");
    add_from_there(objects);
    EXPECT_TRUE(names(first_line(live_dump(objects)), "add_from_there"));
    tracking::remove_live_object(objects);
}

TEST_F(MemoryTracking, second_removal_is_reported_with_the_stack_of_the_first) {
    add_from_here(objects);
    remove_from_here(objects);
    EXPECT_EQ(reported, "");
    EXPECT_FALSE(tracking::contains_live_object(objects));
    EXPECT_EQ(live_dump(objects), "");
    std::string const dump = dead_dump(objects);
    EXPECT_TRUE(names(first_line(dump), "remove_from_here")) << dump;
    reported.clear();
    tracking::remove_live_object(objects);
    EXPECT_EQ(reported, "Possible double deletion:\n" + dump + "\n");
}

TEST_F(MemoryTracking, address_used_again_is_silent_when_it_is_removed_once) {
    add_from_here(objects);
    tracking::remove_live_object(objects);
    add_from_here(objects);
    EXPECT_EQ(dead_dump(objects), "");
    tracking::remove_live_object(objects);
    EXPECT_EQ(reported, "");
}

TEST_F(MemoryTracking, removing_what_was_never_there_reports_without_a_stack) {
    tracking::remove_live_object(&reported);
    EXPECT_EQ(reported, "Possible double deletion:\n\n");
}

TEST_F(MemoryTracking, follows_a_model_through_random_steps) {
    test::Random random;
    std::map<void*, bool> alive;  // false: dead
    for (int step = 0; step < 20000; ++step) {
        void* const object = objects + random.below(random.chance(3) ? 500 : 40);
        auto const known = alive.find(object);
        bool const is_alive = known != alive.end() && known->second;
        reported.clear();
        if (random.chance(2)) {
            tracking::add_live_object(object);
            alive[object] = true;
            EXPECT_EQ(reported, "");
        } else if (is_alive || random.chance(50)) {
            tracking::remove_live_object(object);
            EXPECT_EQ(reported.empty(), is_alive);
            if (is_alive) alive[object] = false;
        }
        EXPECT_EQ(tracking::contains_live_object(object), alive.count(object) && alive[object]);
    }
    for (char& object : objects) {
        bool const is_alive = alive.count(&object) && alive[&object];
        ASSERT_EQ(tracking::contains_live_object(&object), is_alive);
        if (is_alive) tracking::remove_live_object(&object);
    }
}

TEST_F(MemoryTracking, exhaustion_leaves_an_object_untracked) {
    static char fresh;
    test::FailingAllocation const failing(1);
    EXPECT_THROW(tracking::add_live_object(&fresh), std::bad_alloc);
    EXPECT_FALSE(tracking::contains_live_object(&fresh));
}

// --- The end, in a process of its own ------------------------------------------------------------

// The whole report with each stack as its first line alone.
std::string short_report() {
    std::string shortened;
    bool in_stack = false;
    for (std::size_t at = 0; at < reported.size();) {
        std::size_t const end = reported.find('\n', at) + 1;
        std::string const line = reported.substr(at, end - at);
        bool const is_caller = names(line, "add_from_");
        if (is_caller) shortened += names(line, "add_from_here") ? "here\n" : "there\n";
        in_stack = is_caller || (in_stack && line[0] != 'E');
        if (!in_stack) shortened += line;
        at = end;
    }
    return shortened;
}

int end_with_a_report() {
    test::StandIn const debugger("OutputDebugStringA", note_report);
    add_from_there(objects + 1);
    add_from_here(objects);
    tracking::add_live_object(objects + 2);
    tracking::remove_live_object(objects + 2);
    tracking::dump_all_live_objects_and_delete_cache();
    std::string const report = short_report();
    std::fputs(report.c_str(), stderr);
    return report == "/////////////////////////////////////////////\n"
                     "Tracked live objects:\n"
                     "there\n"
                     "here\n"
                     "End of tracked live objects report.\n"
                     "/////////////////////////////////////////////\n"
               ? 0
               : 1;
}

TEST(MemoryTrackingDeathTest, last_report_shows_what_is_alive_in_order) {
    EXPECT_EXIT(std::exit(end_with_a_report()), testing::ExitedWithCode(0), "");
}

int use_after_the_end() {
    test::StandIn const debugger("OutputDebugStringA", note_report);
    tracking::add_live_object(objects);
    tracking::delete_live_objects_cache();
    tracking::add_live_object(objects);
    bool const found = tracking::contains_live_object(objects);
    tracking::remove_live_object(objects);
    tracking::dump_live_object(objects);
    tracking::dump_dead_object(objects);
    tracking::dump_all_live_objects_and_delete_cache();
    tracking::delete_live_objects_cache();
    return !found && reported.empty() ? 0 : 1;
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

TEST(TrackingCounters, of_all_heaps_are_the_exported_row) {
    tracking::s_mt.current_count = 1;
    tracking::s_mt.cumulative_count = 0x200000000;
    tracking::s_mt.current_size = 3;
    tracking::s_mt.cumulative_size = 0x400000000;
    EXPECT_EQ(tracking::current_alloc_count(QX::HEAP_ALL), 1u);
    EXPECT_EQ(tracking::total_alloc_count(), 1u);
    EXPECT_EQ(tracking::cumulative_alloc_count(QX::HEAP_ALL), 0x200000000u);
    EXPECT_EQ(tracking::current_alloc_size(QX::HEAP_ALL), 3u);
    EXPECT_EQ(tracking::cumulative_alloc_size(QX::HEAP_ALL), 0x400000000u);
    EXPECT_EQ(tracking::current_alloc_count(QX::HEAP_GENERAL), 0u);
    tracking::s_mt = {};
}

unsigned int identify() {
    return 7;
}

TEST(TrackingSettings, are_kept_and_feedback_comes_with_an_identifier) {
    EXPECT_FALSE(tracking::enable_AS_feedback(false));
    tracking::register_thread_identifier_fn(identify);
    EXPECT_TRUE(tracking::enable_AS_feedback(true));
    EXPECT_TRUE(tracking::enable_AS_feedback(false));
    tracking::register_thread_identifier_fn(nullptr);
    EXPECT_TRUE(tracking::enable_AS_feedback(false));
    EXPECT_TRUE(tracking::track_allocation_count_and_callstacks());
}

TEST(TrackingSettings, image_memory_is_that_of_both_allocators) {
    unsigned long long const before = tracking::allocated_image_memory();
    QX::ImageDefaultAllocator::mem += 100;
    QX::ImageLargeAllocator::mem += 20;
    EXPECT_EQ(tracking::allocated_image_memory(), before + 120);
    QX::ImageDefaultAllocator::mem -= 100;
    QX::ImageLargeAllocator::mem -= 20;
}

}  // namespace
