#include "qx/diagnostics/mini_profile.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "tests/harness/stand_in.h"

#include <cstring>
#include <deque>
#include <string>
#include <thread>

namespace {

using Block = QX::MINI_PROFILE_BLOCK;
using Manager = QX::MINI_PROFILE_MGR;

DWORD pretended_thread;
long long now = 1000999;  // as a frequency: a thousand ticks are a millisecond

void give_now(LARGE_INTEGER* ticks) {
    ticks->QuadPart = (1ll << 32) + now;
}

void call(Block& block, long ms) {
    block.starting();
    block.callEnd(1000 * ms);
}

std::string dump(int threshold, bool flat) {
    return Manager::slow_dump(threshold, flat);
}

// A table of free stacks, as at load, before and after.
class MiniProfile : public testing::Test {
protected:
    MiniProfile() {
        EXPECT_EQ(Manager::m_StacksRoot[63].thread_id, 0xFFFFFFFF);
        Manager::reset("title");
    }
    ~MiniProfile() {
        std::memset(Manager::m_StacksRoot, 0, sizeof Manager::m_StacksRoot);
        for (QX::sStackByThread& stack : Manager::m_StacksRoot) stack.thread_id = 0xFFFFFFFF;
    }

private:
    test::StandIn frequency_{"QueryPerformanceFrequency", give_now};
};

TEST_F(MiniProfile, tells_what_took_longer_as_a_list_and_as_a_tree) {
    Block leaf("leaf"), update("update"), quick("quick"), late("late");
    update.starting();
    quick.starting();
    call(leaf, 3);
    call(leaf, 4);
    quick.callEnd(1999);
    call(late, 2);
    update.callEnd(20000);
    call(leaf, 1);  // the parent stays that of the first start
    EXPECT_EQ(dump(1, true), "--------\ntitle\nleaf: 8 (3)\nupdate: 20 (1)\nlate: 2 (1)\n");
    EXPECT_EQ(dump(1, false), "--------\ntitle\nupdate: 20 (1)\n    leaf: 8 (3)\n  late: 2 (1)\n");
    Manager::reset("again");
    EXPECT_EQ(
        dump(-1, false), "--------\nagain\nupdate: 0 (0)\n  quick: 0 (0)\n    leaf: 0 (0)\n"
                         "  late: 0 (0)\n");
}

TEST_F(MiniProfile, counts_the_outermost_call_alone_and_keeps_a_recursion_running) {
    Block caller("caller"), block("block"), next("next");
    caller.starting();
    block.starting();
    block.starting();
    EXPECT_EQ(block.depth(), 2);
    block.callEnd(70);
    EXPECT_EQ(block.call_count() + block.elapsed(), 0);
    block.callEnd(-7);
    EXPECT_EQ(block.parent(), &caller);
    EXPECT_EQ(block.stack()->current, &block) << "what ran before its second start is forgotten";
    call(next, 0);
    EXPECT_EQ(next.parent(), &block);
    call(block, 1);
    EXPECT_EQ(block.elapsed(), 993) << "times wrap";
    EXPECT_EQ(block.call_count(), 2) << "and leave the calls alone";
}

// As deep as a tree can be: each block is the child of the one before.
TEST_F(MiniProfile, a_threads_1025th_block_works_unlisted) {
    std::deque<Block> blocks;
    for (int i = 0; i < 1025; ++i) blocks.emplace_back("block").starting();
    for (int i : {1024, 1023}) blocks[i].callEnd(2000);
    EXPECT_EQ(blocks[1024].call_count(), 1);
    EXPECT_EQ(dump(0, false), "--------\ntitle\n" + std::string(2046, ' ') + "block: 2 (1)\n");
    EXPECT_EQ(dump(-1, true).size(), 7999u);
}

TEST_F(MiniProfile, the_threads_beyond_64_share_an_unlisted_stack) {
    test::StandIn const thread(
        "GetCurrentThreadId", +[] { return pretended_thread; });
    std::deque<Block> blocks;
    for (int i = 0; i < 140; ++i) {
        pretended_thread = static_cast<DWORD>(i % 70);
        Block& block = blocks.emplace_back("block");
        EXPECT_EQ(block.stack(), i % 70 < 64 ? Manager::m_StacksRoot + i % 70 : blocks[64].stack());
        call(block, 1);
    }
    EXPECT_NE(blocks[64].stack(), &Manager::m_StacksRoot[64]);
    EXPECT_EQ(dump(0, true).size(), 15u + 128 * 13);
}

TEST_F(MiniProfile, one_block_on_many_threads_loses_no_end_of_a_call) {
    Block block("shared");
    std::thread threads[4];
    for (std::thread& thread : threads)
        thread = std::thread([&block] {
            for (int i = 0; i < 20000; ++i) block.starting(), block.callEnd(3);
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(block.depth(), 0);
    EXPECT_GT(block.call_count(), 0);
    EXPECT_EQ(block.elapsed(), 3 * block.call_count());
}

TEST_F(MiniProfile, a_scope_measures_by_the_performance_counter) {
    test::StandIn const counter("QueryPerformanceCounter", give_now);
    now = 0xFFFFFF00;  // the low word wraps within the first call
    for (int i = 0; i < 2; ++i) {
        QX_MINI_PROFILE("profiled");
        now += 3750;
    }
    now = 1000999;
    EXPECT_EQ(dump(0, true), "--------\ntitle\nprofiled: 7 (2)\n");
}

}  // namespace
