// What the scheduler does for speed alone: nobody may see it but by the clock.
#include "tests/tasks/scheduler_fixture.h"

#include <cstring>
#include <vector>

using namespace test;

namespace {

// Each fibre lies elsewhere in its block, but always on 1 MiB of its own.
TEST(FibreStacks, are_whole_and_apart_wherever_they_lie) {
    constexpr unsigned int fibres = 40;
    constexpr unsigned int mark = 256;
    Library const library(1);
    std::vector<unsigned char*> lowest;
    task::Counter gate(1);
    task::Counter left(fibres);
    for (unsigned int i = 0; i < fibres; ++i) {
        task::spawn(fiberful, main_thread, normal, [&, i] {
            auto const* const block = reinterpret_cast<NT_TIB*>(NtCurrentTeb());
            auto* const limit = static_cast<unsigned char*>(block->StackLimit);
            EXPECT_EQ(static_cast<unsigned char*>(block->StackBase) - limit, 1 << 20);
            std::memset(limit, static_cast<int>(i), mark);
            lowest.push_back(limit);
            gate.wait();
            left.internal_decrement();
        });
    }
    task::run_main_thread_tasks();
    EXPECT_TRUE(QX::arena::validate());
    ASSERT_EQ(lowest.size(), fibres);
    for (unsigned int i = 0; i < fibres; ++i)
        EXPECT_EQ(
            std::vector<unsigned char>(lowest[i], lowest[i] + mark),
            std::vector<unsigned char>(mark, static_cast<unsigned char>(i)));
    gate.internal_decrement();
    left.wait();
}

std::atomic<int> broadcasts;
void WINAPI count_broadcast(CONDITION_VARIABLE* condition) {
    ++broadcasts;
    WakeAllConditionVariable(condition);
}

std::atomic<int> asleep;
std::atomic<int> risen;
std::atomic<bool> may_rise;
BOOL WINAPI
rise_late(CONDITION_VARIABLE* condition, SRWLOCK* lock, DWORD timeout, unsigned long flags) {
    ++asleep;
    BOOL const woken = SleepConditionVariableSRW(condition, lock, timeout, flags);
    ReleaseSRWLockExclusive(lock);
    while (!may_rise) Sleep(0);
    AcquireSRWLockExclusive(lock);
    --asleep;
    ++risen;
    return woken;
}

TEST(Waking, tells_sleepers_once_however_long_they_take_to_rise) {
    StandIn const counted("WakeAllConditionVariable", count_broadcast);
    StandIn const sleepers("SleepConditionVariableSRW", rise_late);
    ASSERT_TRUE(counted.found() && sleepers.found());
    Library const library(2);
    for (int round = 0; round < 5; ++round) {
        await([] { return asleep == 2; });
        may_rise = false;
        broadcasts = risen = 0;
        std::atomic<int> ran = 0;
        for (int i = 0; i < 10; ++i) task::spawn(fiberless, any_thread, normal, [&] { ++ran; });
        EXPECT_EQ(broadcasts, 1);
        may_rise = true;
        await([&] { return ran == 10 && risen == 2; });
    }
}

}  // namespace
