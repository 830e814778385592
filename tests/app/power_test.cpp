#include "qx/app/power.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "tests/harness/stand_in.h"

#include <functional>
#include <string>

namespace {

SYSTEM_POWER_STATUS stated = {};
bool answers = true;

BOOL WINAPI state_power(SYSTEM_POWER_STATUS* out) {
    *out = stated;
    return answers;
}

struct Row {
    BYTE line;
    BYTE flags;
    DWORD seconds;
    QX::POWER::PowerStatus status;
};

// clang-format off
constexpr Row rows[] = {
    {0,   0,          7200,       {1, 1, 0, 7200}},
    {1,   1,          0,          {0, 0, 0, 0}},
    {255, 2,          0xFFFFFFFF, {-1, 1, 0, -1}},
    {2,   4,          5,          {0, 2, 0, 5}},
    {1,   8,          5,          {0, -1, 1, 5}},
    {1,   8 + 1,      5,          {0, 0, 1, 5}},
    {1,   1 + 2 + 4,  5,          {0, 2, 0, 5}},
    {1,   128 + 4,    5,          {0, 3, 0, 5}},
    {1,   255,        5,          {0, 3, 1, 5}},
    {1,   16 + 32,    5,          {0, -1, 0, 5}},
};
// clang-format on

bool same(QX::POWER::PowerStatus const& a, QX::POWER::PowerStatus const& b) {
    return a.power_source == b.power_source && a.battery_level == b.battery_level &&
           a.charging == b.charging && a.seconds_left == b.seconds_left;
}

TEST(Power, status_is_read_from_the_systems_flags) {
    test::StandIn const query("GetSystemPowerStatus", state_power);
    ASSERT_TRUE(query.found());
    for (auto const& row : rows) {
        stated.ACLineStatus = row.line;
        stated.BatteryFlag = row.flags;
        stated.BatteryLifeTime = row.seconds;
        answers = true;
        EXPECT_TRUE(same(QX::POWER::get_power_status(), row.status))
            << int{row.line} << ' ' << int{row.flags};
        answers = false;
        EXPECT_TRUE(same(QX::POWER::get_power_status(), {0, 0, 0, 0}));
    }
}

// One life of the list, which has one only.
TEST(Power, callbacks_run_in_order_until_the_list_is_released_for_good) {
    using namespace QX::POWER;
    test::StandIn const query("GetSystemPowerStatus", state_power);
    stated = {0, 4, 0, 0, 30, 0};
    answers = true;
    deallocate_callback_data_structures();  // nothing yet
    std::string calls;
    calls.reserve(100);
    register_status_change_callback(
        [&](PowerStatus const& now) { calls += '0' + static_cast<char>(now.battery_level); });
    register_status_change_callback([&](PowerStatus const&) {
        calls += 'b';
        if (calls.size() < 4)
            register_status_change_callback([&](PowerStatus const&) { calls += 'c'; });
    });
    notify_power_status_change();
    EXPECT_EQ(calls, "2bc");
    stated.BatteryFlag = 2;
    notify_power_status_change();
    EXPECT_EQ(calls, "2bc1bc");

    register_status_change_callback({});
    register_status_change_callback([&](PowerStatus const&) { calls += 'd'; });
    EXPECT_THROW(notify_power_status_change(), std::bad_function_call);
    EXPECT_EQ(calls, "2bc1bc1bc");

    deallocate_callback_data_structures();
    register_status_change_callback([&](PowerStatus const&) { calls += 'e'; });
    notify_power_status_change();
    deallocate_callback_data_structures();
    EXPECT_EQ(calls, "2bc1bc1bc");
}

}  // namespace
