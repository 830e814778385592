// main.cpp - the runner of every test program: GoogleTest, with the balance of blocks, handles,
// windows and threads checked after each case.
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <thread>

#include "qx/base/windows.h"
#include "qx/memory/heap.h"
#include "qx/tasks/thread.h"
#include "tests/harness/balance.h"

namespace {

// The system, the library and the test library open some handles at their first exception or
// thread; no case shall be blamed for them.
void warm_up() {
    try {
        QX::custom_malloc(~0ull, QX::HEAP_GENERAL);
    } catch (std::bad_alloc const&) {}
    QX::Thread thread;
    QX::run_in_native_thread(
        0, -1, QX::ThreadPriority::normal, [](void*) { return 0u; }, nullptr, &thread, "warm up");
    QX::wait_for_thread(thread);
    std::thread([] {}).join();
    CloseHandle(CreateSemaphoreA(nullptr, 0, 1, "qxlibs test warm up"));
    OutputDebugStringA("");
    SCOPED_TRACE("warm up");
    // What the last child of a death test said is kept, in a block that then need not grow.
    testing::internal::DeathTest::set_last_death_test_message(std::string(1 << 16, ' '));
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(test::new_balance_listener());
    warm_up();
    return RUN_ALL_TESTS();
}
