// An hour of frames at 60 a second, run at full speed: what the process holds does not grow.
#include "qx/app/application.h"
#include "qx/app/input.h"
#include "qx/app/timers.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "tests/app/host.h"
#include "tests/harness/balance.h"

#include <cstdlib>

namespace {

constexpr int warm_up = 2000;
constexpr unsigned long long allowed_growth = 64 * 1024;

int frames_wanted() {
    char const* const text = std::getenv("QX_TEST_FRAMES");
    return text ? std::atoi(text) : 10000;
}

void run_frames(HWND hwnd, int count) {
    for (int i = 0; i < count; ++i) {
        if (i % 4 == 0) PostMessageW(hwnd, WM_MOUSEMOVE, 0, MAKELPARAM(i % 300, i % 200));
        QX::Application::process_message_queue();
        QX::read_hardware_controllers();
    }
}

// The whole hour: QX_TEST_FRAMES=216000.
TEST(Frames, leave_handles_windows_and_memory_as_they_were) {
    test::Host host;
    ASSERT_TRUE(host.open_in_front());
    QX::Application application(QX::ApplicationInitialiser{GetModuleHandleW(nullptr)});
    ASSERT_TRUE(QX::acquire_hardware_controllers(application, host.window));

    run_frames(host.hwnd(), warm_up);
    host.handler.calls.clear();
    test::Holdings const before = test::current_holdings();
    run_frames(host.hwnd(), frames_wanted());
    test::Holdings const after = test::current_holdings();

    EXPECT_LE(after.handles, before.handles);
    EXPECT_LE(after.windows, before.windows);
    EXPECT_LE(after.blocks, before.blocks);
    EXPECT_LE(after.private_bytes, before.private_bytes + allowed_growth);
    RecordProperty("private_growth", static_cast<int>(after.private_bytes - before.private_bytes));
    QX::release_hardware_controllers();
}

}  // namespace
