#include "qx/diagnostics/watch.h"

#include <gtest/gtest.h>

#include "qx/diagnostics/database_log.h"

#include <climits>
#include <type_traits>

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
    {"a.b.c",           -5, "a",       "b.c",    untouched, -5},
    {".",                2, "",        "",       untouched, 2},
    {"units",           -1, "units",   "",       untouched, 1},
    {"units",            6, "units",   "",       untouched, 6},
    {"units",           -5, "units",   "",       untouched, -5},
    {"units",           -4, "units",   "",       untouched, -4},
    {"units",           -3, "units",   "",       untouched, 3},
    {"units",           -6, "units",   "",       untouched, 6},
    {"units",      INT_MIN, "units",   "",       untouched, INT_MIN},
    {"",                -5, "",        "",       untouched, 5},
    {"",                -4, "",        "",       untouched, 4},
    {"",                -2, "",        "",       untouched, 2},
    {"a[x]",             0, "a",       "",       0,         0},
    {"a[12x4]",          0, "a",       "",       12,        0},
    {"a[12",             0, "a",       "",       1,         0},
    {"a[",               0, "a",       "",       0,         0},
    {"[8]",              0, "",        "",       8,         0},
    {"a[1][2]",          0, "a",       "",       1,         0},
    {"a[4]b",            0, "a",       "",       4,         0},
    {"a[15.5]",         -1, "a",       "5]",     1,         -1},
    {"a.b[9]",           0, "a",       "b[9]",   untouched, 0},
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
    String head, tail("army[2].units[30].morale");
    QX_WATCH::parse(kind, tail, head, tail, index);
    QX_WATCH::parse(kind, tail, head, tail, index);
    EXPECT_STREQ(head.c_str(), "units");
    EXPECT_EQ(index, 30u);
    EXPECT_STREQ(tail.c_str(), "morale");
    QX_WATCH::parse(kind, tail, head, tail, index);
    EXPECT_STREQ(head.c_str(), "morale");
    EXPECT_EQ(kind, 2);
    head = "left.right";
    QX_WATCH::parse(kind, head, head, tail, index);
    EXPECT_STREQ(head.c_str(), "left");
    EXPECT_STREQ(tail.c_str(), "right");
}

TEST(DatabaseLog, keeps_nothing) {
    static_assert(std::is_empty_v<QX::DBLOG_CORE>);
    static_assert(sizeof(QX::DBLOG_VALUE_INPUT) == sizeof(void*));
    QX::DBLOG_CORE log("battles");
    QX::DBLOG_CORE copy(log);
    copy = log;
    EXPECT_EQ((copy << "text").core(), &copy);
    EXPECT_EQ((log << nullptr).core(), &log);
    EXPECT_EQ(log.uid(), 0u);
    EXPECT_EQ(QX::DBLOG_UID::s_session_uid, 0u);
}

}  // namespace
