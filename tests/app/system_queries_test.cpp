// Identifiers, calendar time and what the system says of itself.
#include "qx/app/system_info.h"
#include "qx/app/time_date.h"
#include "qx/app/uuid.h"
#include "qx/base/windows.h"
#include "tests/app/host.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <gtest/gtest.h>

#include <rpc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <time.h>

namespace {

// --- Identifiers ---------------------------------------------------------------------------------

std::string written_by_hand(QX::Uuid const& id) {
    auto const* const tail = id.data4;
    char text[64];
    std::snprintf(
        text, sizeof text, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", id.data1, id.data2,
        id.data3, tail[0], tail[1], tail[2], tail[3], tail[4], tail[5], tail[6], tail[7]);
    return text;
}

TEST(Uuid, text_goes_both_ways) {
    test::Random random;
    for (int i = 0; i < 300; ++i) {
        QX::Uuid id;
        auto* const bytes = reinterpret_cast<unsigned char*>(&id);
        for (unsigned int k = 0; k < sizeof id; ++k)
            bytes[k] = static_cast<unsigned char>(random.below(256));
        std::string const text = written_by_hand(id);
        EXPECT_STREQ(QX::uuid_to_string(id).c_str(), text.c_str());
        EXPECT_EQ(QX::uuid_from_string(QX::String(text.c_str())), id);
    }
    QX::Uuid const known = {
        0x7D444840, 0x9DC0, 0x11D1, {0xB2, 0x45, 0x5F, 0xFD, 0xCE, 0x74, 0xFA, 0xD2}};
    EXPECT_EQ(QX::uuid_from_string("7D444840-9DC0-11D1-B245-5FFDCE74FAD2"), known);
}

TEST(Uuid, malformed_text_gives_what_the_system_leaves) {
    for (char const* const text :
         {"", "x", "7d444840", "{7d444840-9dc0-11d1-b245-5ffdce74fad2}",
          "7d444840-9dc0-11d1-b245-5ffdce74fad", "7d444840-9dc0-11d1-b245-5ffdce74fadg"}) {
        UUID system = {};
        std::string copy = text;
        UuidFromStringA(reinterpret_cast<RPC_CSTR>(copy.data()), &system);
        QX::Uuid const id = QX::uuid_from_string(text);
        EXPECT_EQ(std::memcmp(&id, &system, sizeof id), 0) << text;
    }
}

TEST(Uuid, new_ones_differ_and_are_of_the_random_kind) {
    std::set<std::string> seen;
    for (int i = 0; i < 200; ++i) {
        QX::Uuid const id = QX::create_uuid();
        EXPECT_EQ(id.data3 >> 12, 4);
        EXPECT_EQ(id.data4[0] >> 6, 2);
        seen.insert(QX::uuid_to_string(id).c_str());
    }
    EXPECT_EQ(seen.size(), 200u);
}

// --- Calendar time -------------------------------------------------------------------------------

std::string shown(QX::TimeDate const& date) {
    EXPECT_EQ(date.month, date.month_index + 1);
    EXPECT_EQ(date.day, date.day_index + 1);
    char text[100];
    std::snprintf(
        text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d %d %d", date.year, date.month, date.day,
        date.hour, date.minute, date.second, date.weekday, date.year_day);
    return text;
}

struct DateRow {
    unsigned int seconds;
    char const* universal;
    char const* local;  // five and a half hours ahead
};

// clang-format off
constexpr DateRow dates[] = {
    {0,          "1970-01-01 00:00:00 4 0",   "1970-01-01 05:30:00 4 0"},
    {951782399,  "2000-02-28 23:59:59 1 58",  "2000-02-29 05:29:59 2 59"},
    {951868800,  "2000-03-01 00:00:00 3 60",  "2000-03-01 05:30:00 3 60"},
    {1234567890, "2009-02-13 23:31:30 5 43",  "2009-02-14 05:01:30 6 44"},
    {1735689599, "2024-12-31 23:59:59 2 365", "2025-01-01 05:29:59 3 0"},
    {2147483648, "2038-01-19 03:14:08 2 18",  "2038-01-19 08:44:08 2 18"},
    {4294967295, "2106-02-07 06:28:15 0 37",  "2106-02-07 11:58:15 0 37"},
};
// clang-format on

TEST(TimeDate, breaks_seconds_down_in_universal_time) {
    for (auto const& row : dates) {
        QX::TimeDate date;
        date.set(row.seconds);
        EXPECT_EQ(shown(date), row.universal);
    }
}

TEST(TimeDate, breaks_seconds_down_in_the_run_times_zone) {
    _putenv("TZ=QXT-5:30");
    _tzset();
    for (auto const& row : dates) {
        QX::TimeDate date;
        date.set_local(row.seconds);
        EXPECT_EQ(shown(date), row.local);
    }
    _putenv("TZ=");
    _tzset();
}

TEST(TimeDate, agrees_with_the_systems_calendar) {
    test::Random random;
    for (int i = 0; i < 5000; ++i) {
        auto const seconds = static_cast<unsigned int>(random.next());
        ULARGE_INTEGER ticks;
        ticks.QuadPart = (seconds + 11644473600ull) * 10000000;
        FILETIME const time = {ticks.LowPart, ticks.HighPart};
        SYSTEMTIME system;
        FileTimeToSystemTime(&time, &system);
        QX::TimeDate date;
        date.set(seconds);
        ASSERT_EQ(date.year, system.wYear) << seconds;
        ASSERT_EQ(date.month, system.wMonth) << seconds;
        ASSERT_EQ(date.day, system.wDay) << seconds;
        ASSERT_EQ(date.weekday, system.wDayOfWeek) << seconds;
        ASSERT_EQ(
            date.hour * 3600 + date.minute * 60 + date.second,
            system.wHour * 3600 + system.wMinute * 60 + system.wSecond);
    }
}

TEST(TimeDate, now_is_the_systems_now) {
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    ULARGE_INTEGER const ticks = {{time.dwLowDateTime, time.dwHighDateTime}};
    unsigned int const now = QX::TimeDate::gmt();
    EXPECT_LE(now - static_cast<unsigned int>(ticks.QuadPart / 10000000 - 11644473600ull), 5u);
}

// --- The system ----------------------------------------------------------------------------------

TEST(SystemInfo, version_is_all_zeros) {
    QX::OS_INFO const& info = QX::os_info();
    EXPECT_EQ(&info, &QX::os_info());
    OSVERSIONINFOEXW const zeros = {};
    EXPECT_EQ(std::memcmp(&info, &zeros, sizeof zeros), 0);
    EXPECT_TRUE(info.ready);
}

constexpr DWORD plain_mark = 77;
constexpr DWORD native_mark = 88;
BOOL emulated = FALSE;
BOOL query_works = TRUE;

void WINAPI give_plain(SYSTEM_INFO* info) {
    info->dwPageSize += plain_mark;
}

void WINAPI give_native(SYSTEM_INFO* info) {
    info->dwPageSize += native_mark;
}

BOOL WINAPI say_emulated(HANDLE, BOOL* answer) {
    *answer = emulated;
    return query_works;
}

FARPROC WINAPI find_query(HMODULE module, char const* name) {
    EXPECT_EQ(module, GetModuleHandleW(L"kernel32"));
    EXPECT_STREQ(name, "IsWow64Process");
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(say_emulated));
}

FARPROC WINAPI find_none(HMODULE, char const*) {
    return nullptr;
}

// The record is filled once a process. Asked twice, for one call of the system.
DWORD page_size_given(FARPROC(WINAPI* finder)(HMODULE, char const*)) {
    test::StandIn const find("GetProcAddress", finder);
    test::StandIn const plain("GetSystemInfo", give_plain);
    test::StandIn const native("GetNativeSystemInfo", give_native);
    EXPECT_TRUE(find.found() && plain.found() && native.found());
    QX::system_info();
    return QX::system_info().dwPageSize;
}

TEST(SystemInfo, DISABLED_child_under_emulation) {
    emulated = TRUE;
    EXPECT_EQ(page_size_given(find_query), native_mark);
}

TEST(SystemInfo, DISABLED_child_not_under_emulation) {
    EXPECT_EQ(page_size_given(find_query), plain_mark);
}

TEST(SystemInfo, DISABLED_child_whose_query_fails) {
    emulated = TRUE;
    query_works = FALSE;
    EXPECT_EQ(page_size_given(find_query), plain_mark);
}

TEST(SystemInfo, DISABLED_child_without_the_query) {
    EXPECT_EQ(page_size_given(find_none), plain_mark);
}

TEST(SystemInfo, is_native_where_the_process_is_emulated) {
    for (char const* const name :
         {"under_emulation", "not_under_emulation", "whose_query_fails", "without_the_query"})
        EXPECT_EQ(test::run_child(std::string("SystemInfo.DISABLED_child_") + name), 0u) << name;
}

TEST(SystemInfo, is_the_systems_record_and_ticks_are_its_ticks) {
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    EXPECT_EQ(std::memcmp(&QX::system_info(), &system, sizeof system), 0);
    EXPECT_LE(::GetTickCount() - QX::GetTickCount(), 2000u);
}

}  // namespace
