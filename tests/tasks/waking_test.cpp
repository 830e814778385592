// When sleeping workers are woken, and when they are spared.
#include "tests/tasks/scheduler_fixture.h"

using namespace test;

namespace {

std::atomic<int> broadcasts;
void WINAPI count_broadcast(CONDITION_VARIABLE* condition) {
    ++broadcasts;
    WakeAllConditionVariable(condition);
}

std::atomic<int> asleep;
std::atomic<int> risen;
std::atomic<bool> may_rise = true;
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

// Two workers whose sleep and waking are seen.
class Waking : public testing::Test {
protected:
    void fall_asleep() {
        may_rise = true;
        await([] { return asleep == 2; });
        broadcasts = risen = ran = 0;
    }
    void SetUp() override { ASSERT_TRUE(counted_.found() && sleepers_.found()); }
    std::atomic<int> ran = 0;

private:
    StandIn counted_{"WakeAllConditionVariable", count_broadcast};
    StandIn sleepers_{"SleepConditionVariableSRW", rise_late};
    Library library_{2};
};

TEST_F(Waking, tells_sleepers_once_however_long_they_take_to_rise) {
    for (int round = 0; round < 5; ++round) {
        fall_asleep();
        may_rise = false;
        for (int i = 0; i < 10; ++i) task::spawn(fiberless, any_thread, normal, [&] { ++ran; });
        EXPECT_EQ(broadcasts, 1);
        may_rise = true;
        await([&] { return ran == 10 && risen == 2; });
    }
}

TEST_F(Waking, spares_a_lone_push_to_the_pushers_own_queue) {
    struct {
        ThreadMask mask;
        bool known;  // pushed by the main thread
        int tasks, broadcasts;
    } const rows[] = {{any_thread, true, 1, 1},   {pinned_to(1), true, 1, 1},
                      {main_thread, true, 1, 0},  {main_thread, true, 2, 1},
                      {any_thread, false, 1, 0},  {any_thread, false, 2, 1},
                      {pinned_to(0), false, 1, 1}};
    for (auto const& row : rows) {
        fall_asleep();
        auto const push = [&] {
            task::Batch batch(row.mask, normal);
            for (int i = 0; i < row.tasks; ++i) batch.spawn(fiberless, [&] { ++ran; });
            batch.submit();
        };
        row.known ? push() : std::thread(push).join();
        EXPECT_EQ(broadcasts, row.broadcasts) << &row - rows;
        task::run_main_thread_tasks();
        task::spawn(fiberless, worker_threads, normal, [&] { ++ran; });
        await([&] { return ran == row.tasks + 1; });
    }
}

}  // namespace
