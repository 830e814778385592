#include "qx/diagnostics/watch.h"

#include <gtest/gtest.h>

#include "qx/diagnostics/database_log.h"
#include "qx/text/format.h"

#include <climits>

namespace {

using QX::String;

struct Row {
    char const* path;
    int kind;
    char const* head;
    char const* tail;
    unsigned long long index;
    int kind_after;
};

constexpr unsigned long long untouched = 77;

// clang-format off
constexpr Row rows[] = {
    {"units[3].morale", -1, "units",   "morale", 3,         -1},
    {".",               -5, "",        "",       untouched, -5},
    {"units",           -1, "units",   "",       untouched, 1},
    {"units",           -4, "units",   "",       untouched, -4},
    {"units",           -5, "units",   "",       untouched, -5},
    {"units",      INT_MIN, "units",   "",       untouched, INT_MIN},
    {"",                -5, "",        "",       untouched, 5},
    {"",                -4, "",        "",       untouched, 4},
    {"a[x]",             6, "a",       "",       0,         6},
    {"a[12x4]",          0, "a",       "",       12,        0},
    {"[",                0, "",        "",       0,         0},
    {"a[1][2]",          0, "a",       "",       1,         0},
    {"a[15.5]",         -1, "a",       "5]",     1,         -1},
    {"a[18446744073709551617]", 0, "a", "",      1,         0},
};
// clang-format on

TEST(Watch, splits_a_path_at_its_first_point_and_bracket) {
    for (Row const& row : rows) {
        int kind = row.kind;
        unsigned long long index = untouched;
        String head("before"), tail("before");
        QX_WATCH::parse(kind, row.path, head, tail, index);
        EXPECT_STREQ(head.c_str(), row.head) << row.path;
        EXPECT_STREQ(tail.c_str(), row.tail) << row.path;
        EXPECT_EQ(index, row.index) << row.path;
        EXPECT_EQ(kind, row.kind_after) << row.path;
    }
}

TEST(Watch, eats_up_a_path_that_is_its_own_output) {
    int kind = -2;
    unsigned long long index = 0;
    String head, tail("army[2].units[30].morale"), heads;
    while (!tail.empty()) {
        QX_WATCH::parse(kind, tail, head, tail, index);
        heads += head + String::format(" %d ", index);
    }
    EXPECT_STREQ(heads.c_str(), "army 2 units 30 morale 30 ");
}

TEST(DatabaseLog, keeps_nothing) {
    QX::DBLOG_CORE log("battles");
    QX::DBLOG_CORE copy(log);
    EXPECT_EQ((copy << "text").core(), &copy);
    EXPECT_EQ((log << nullptr).core(), &log);
    EXPECT_EQ(log.uid() + QX::DBLOG_UID::s_session_uid, 0u);
}

}  // namespace
