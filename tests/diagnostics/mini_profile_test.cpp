#include "qx/diagnostics/mini_profile.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "tests/harness/stand_in.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using QX::MINI_PROFILE_BLOCK;
using Manager = QX::MINI_PROFILE_MGR;
using Stack = QX::sStackByThread;

static_assert(sizeof(MINI_PROFILE_BLOCK) == 48);

constexpr unsigned int no_thread = 0xFFFFFFFF;

// A thousand ticks are a millisecond.
BOOL WINAPI give_frequency(LARGE_INTEGER* frequency) {
    frequency->QuadPart = (1ll << 32) + 1000999;
    return TRUE;
}

long long now;

BOOL WINAPI give_now(LARGE_INTEGER* ticks) {
    ticks->QuadPart = now;
    return TRUE;
}

DWORD pretended_thread;

DWORD WINAPI give_thread() {
    return pretended_thread;
}

// A table of free stacks, before and after.
class MiniProfile : public testing::Test {
protected:
    MiniProfile() {
        free_all();
        Manager::reset("title");
    }
    ~MiniProfile() { free_all(); }

    void SetUp() override { ASSERT_TRUE(frequency_.found()); }

    static void free_all() {
        for (Stack& stack : Manager::m_StacksRoot) {
            std::memset(&stack, 0, sizeof stack);
            stack.thread_id = no_thread;
        }
    }

    static void call(MINI_PROFILE_BLOCK& block, long ms) {
        block.starting();
        block.callEnd(1000 * ms);
    }

private:
    test::StandIn frequency_{"QueryPerformanceFrequency", give_frequency};
};

TEST(MiniProfileTable, is_free_when_the_library_is_loaded) {
    for (Stack const& stack : Manager::m_StacksRoot) {
        EXPECT_EQ(stack.thread_id, no_thread);
        EXPECT_EQ(stack.count, 0);
    }
    EXPECT_STREQ(Manager::slow_dump(0, true), "--------\n\n");
}

TEST_F(MiniProfile, tells_what_took_longer_as_a_list_and_as_a_tree) {
    MINI_PROFILE_BLOCK leaf("leaf"), update("update"), quick("quick"), idle("idle"), late("late");
    update.starting();
    quick.starting();
    call(leaf, 3);
    call(leaf, 4);
    quick.callEnd(1999);
    call(late, 2);
    update.callEnd(20000);
    call(idle, 1);
    call(leaf, 1);  // the parent stays that of the first start
    EXPECT_STREQ(
        Manager::slow_dump(1, true), "--------\ntitle\nleaf: 8 (3)\nupdate: 20 (1)\nlate: 2 (1)\n");
    EXPECT_STREQ(
        Manager::slow_dump(1, false),
        "--------\ntitle\nupdate: 20 (1)\n    leaf: 8 (3)\n  late: 2 (1)\n");
    EXPECT_STREQ(
        Manager::slow_dump(0, false),
        "--------\ntitle\nupdate: 20 (1)\n  quick: 1 (1)\n    leaf: 8 (3)\n  late: 2 (1)\n"
        "idle: 1 (1)\n");
    Manager::reset("again");
    EXPECT_STREQ(
        Manager::slow_dump(-1, true), "--------\nagain\nleaf: 0 (0)\nupdate: 0 (0)\n"
                                      "quick: 0 (0)\nidle: 0 (0)\nlate: 0 (0)\n");
}

TEST_F(MiniProfile, counts_the_outermost_call_alone_and_keeps_a_recursion_running) {
    MINI_PROFILE_BLOCK caller("caller"), block("block"), next("next");
    caller.starting();
    block.starting();
    EXPECT_EQ(block.previous(), &caller);
    block.starting();
    EXPECT_EQ(block.depth(), 2);
    block.callEnd(70);
    EXPECT_EQ(block.call_count(), 0);
    block.callEnd(100);
    EXPECT_EQ(block.elapsed(), 100);
    EXPECT_EQ(block.call_count(), 1);
    EXPECT_EQ(block.parent(), &caller);
    // What ran before it was forgotten at its second start.
    EXPECT_EQ(block.stack()->current, &block);
    call(next, 0);
    EXPECT_EQ(next.parent(), &block);
    caller.callEnd(0);
    EXPECT_EQ(block.stack()->current, nullptr);
}

TEST_F(MiniProfile, a_threads_1025th_block_works_unlisted) {
    std::vector<std::unique_ptr<MINI_PROFILE_BLOCK>> blocks;
    for (int i = 0; i < 1025; ++i)
        blocks.push_back(std::make_unique<MINI_PROFILE_BLOCK>(i == 1024 ? "over" : "in"));
    MINI_PROFILE_BLOCK& over = *blocks.back();
    EXPECT_EQ(over.stack(), &Manager::m_StacksRoot[0]);
    EXPECT_EQ(over.stack()->count, 1024);
    over.starting();
    call(*blocks[0], 7);
    over.callEnd(9000);
    EXPECT_EQ(over.elapsed(), 9000);
    EXPECT_STREQ(Manager::slow_dump(0, true), "--------\ntitle\nin: 7 (1)\n");
    EXPECT_STREQ(Manager::slow_dump(0, false), "--------\ntitle\n");
}

TEST_F(MiniProfile, the_threads_beyond_64_share_an_unlisted_stack) {
    test::StandIn const thread("GetCurrentThreadId", give_thread);
    ASSERT_TRUE(thread.found());
    std::vector<std::unique_ptr<MINI_PROFILE_BLOCK>> blocks;
    for (int round = 0; round < 2; ++round) {
        for (pretended_thread = 1; pretended_thread <= 70; ++pretended_thread)
            blocks.push_back(std::make_unique<MINI_PROFILE_BLOCK>("block"));
    }
    for (int i = 0; i < 64; ++i) {
        EXPECT_EQ(blocks[i]->stack(), &Manager::m_StacksRoot[i]);
        EXPECT_EQ(blocks[70 + i]->stack(), &Manager::m_StacksRoot[i]);
        EXPECT_EQ(Manager::m_StacksRoot[i].count, 2);
    }
    Stack* const shared = blocks[64]->stack();
    EXPECT_TRUE(shared < Manager::m_StacksRoot || shared >= Manager::m_StacksRoot + 64);
    EXPECT_EQ(blocks[139]->stack(), shared);
    call(*blocks[139], 5);
    EXPECT_EQ(blocks[139]->call_count(), 1);
    EXPECT_STREQ(Manager::slow_dump(0, true), "--------\ntitle\n");
}

TEST_F(MiniProfile, a_dump_is_cut_at_7999_characters) {
    std::string const name(3000, 'x');
    MINI_PROFILE_BLOCK a(name.c_str()), b(name.c_str()), c(name.c_str());
    for (MINI_PROFILE_BLOCK* block : {&a, &b, &c}) call(*block, 1);
    std::string const row = name + ": 1 (1)\n";
    std::string const whole = "--------\ntitle\n" + row + row + row;
    EXPECT_EQ(Manager::slow_dump(0, false), whole.substr(0, 7999));
}

// As deep as a stack of blocks can be, each the child of the one before.
TEST_F(MiniProfile, a_tree_may_be_as_deep_as_a_thread_has_blocks) {
    std::vector<std::unique_ptr<MINI_PROFILE_BLOCK>> blocks;
    for (int i = 0; i < 1024; ++i) {
        blocks.push_back(std::make_unique<MINI_PROFILE_BLOCK>("deep"));
        blocks.back()->starting();
    }
    blocks.back()->callEnd(1000);
    std::string const indentation(2046, ' ');
    EXPECT_EQ(Manager::slow_dump(0, false), "--------\ntitle\n" + indentation + "deep: 1 (1)\n");
}

void wait_for(std::atomic<int> const& counter, int value) {
    for (int spins = 0; counter != value; ++spins)
        if (spins > 1000) SwitchToThread();
}

TEST_F(MiniProfile, threads_that_come_at_once_get_a_stack_each) {
    constexpr int rounds = 20000;
    std::atomic<int> gate = 0, done = 0;
    Stack* others = nullptr;
    std::thread other([&] {
        for (int round = 1; round <= rounds; ++round) {
            wait_for(gate, round);
            others = Manager::get_stack_for_current_thread();
            done = round;
        }
    });
    int shared = 0;
    for (int round = 1; round <= rounds; ++round) {
        for (int i = 0; i < 2; ++i) Manager::m_StacksRoot[i].thread_id = no_thread;
        gate = round;
        Stack* const own = Manager::get_stack_for_current_thread();
        wait_for(done, round);
        shared += own == others;
    }
    other.join();
    EXPECT_EQ(shared, 0);
}

TEST_F(MiniProfile, one_block_on_many_threads_loses_no_end_of_a_call) {
    MINI_PROFILE_BLOCK block("shared");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&block] {
            for (int call_number = 0; call_number < 20000; ++call_number) {
                block.starting();
                block.callEnd(3);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(block.depth(), 0);
    EXPECT_GT(block.call_count(), 0);
    EXPECT_EQ(block.elapsed(), 3 * block.call_count());
}

void profiled(int ticks) {
    QX_MINI_PROFILE("profiled");
    now += ticks;
}

TEST_F(MiniProfile, a_scope_measures_by_the_performance_counter) {
    test::StandIn const counter("QueryPerformanceCounter", give_now);
    ASSERT_TRUE(counter.found());
    now = 0xFFFFFF00;  // the low word wraps within the first call
    profiled(5000);
    profiled(2500);
    EXPECT_STREQ(Manager::slow_dump(0, true), "--------\ntitle\nprofiled: 7 (2)\n");
    EXPECT_EQ(Manager::performance_freq(), 1000999);
}

}  // namespace
