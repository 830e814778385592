// When sleeping workers are woken, and when they are spared.
#include "tests/tasks/scheduler_fixture.h"

using namespace test;

namespace {

// Both are counted with the wake mutex held.
std::atomic<int> broadcasts, asleep;
std::atomic<bool> may_rise = true;

void WINAPI count_broadcast(CONDITION_VARIABLE* condition) {
    ++broadcasts;
    asleep = 0;
    WakeAllConditionVariable(condition);
}

BOOL WINAPI
rise_late(CONDITION_VARIABLE* condition, SRWLOCK* lock, DWORD timeout, unsigned long flags) {
    ++asleep;
    BOOL const woken = SleepConditionVariableSRW(condition, lock, timeout, flags);
    ReleaseSRWLockExclusive(lock);
    while (!may_rise) Sleep(0);
    AcquireSRWLockExclusive(lock);
    return woken;
}

// Two workers whose sleep and waking are seen.
class Waking : public testing::Test {
protected:
    void fall_asleep() {
        await([] { return asleep == 2; });
        broadcasts = ran = 0;
    }
    void SetUp() override { ASSERT_TRUE(counted_.found() && sleepers_.found()); }
    std::atomic<int> ran = 0;

private:
    StandIn counted_{"WakeAllConditionVariable", count_broadcast};
    StandIn sleepers_{"SleepConditionVariableSRW", rise_late};
    Library library_{2};
};

// Nor are sleepers told twice, however long they take to rise.
TEST_F(Waking, spares_a_lone_push_to_the_pushers_own_queue) {
    struct {
        ThreadMask mask;
        bool known;  // pushed by the main thread
        int pushes, tasks, broadcasts;
    } const rows[] = {{any_thread, true, 1, 1, 1},   {any_thread, true, 10, 1, 1},
                      {pinned_to(1), true, 1, 1, 1}, {main_thread, true, 5, 1, 0},
                      {main_thread, true, 2, 2, 1},  {any_thread, false, 5, 1, 0},
                      {any_thread, false, 2, 2, 1},  {pinned_to(0), false, 2, 1, 1}};
    for (auto const& row : rows) {
        fall_asleep();
        may_rise = false;
        auto const push = [&] {
            for (int i = 0; i < row.pushes; ++i) {
                task::Batch batch(row.mask, normal);
                for (int k = 0; k < row.tasks; ++k) batch.spawn(fiberless, [&] { ++ran; });
                batch.submit();
            }
        };
        row.known ? push() : std::thread(push).join();
        EXPECT_EQ(broadcasts, row.broadcasts) << &row - rows;
        may_rise = true;
        task::run_main_thread_tasks();
        task::spawn(fiberless, worker_threads, normal, [&] { ++ran; });
        await([&] { return ran == row.pushes * row.tasks + 1; });
    }
}

TEST_F(Waking, keeps_workers_up_while_tasks_wait_for_the_main_thread) {
    fall_asleep();
    task::Batch batch(main_thread, normal);
    for (int i = 0; i < 2; ++i) batch.spawn(fiberless, [&] { ++ran; });
    batch.submit();
    Sleep(20);
    EXPECT_EQ(asleep, 0);
    task::run_main_thread_tasks();
    fall_asleep();
}

}  // namespace
