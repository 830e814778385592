#include "qx/diagnostics/watch.h"

#include <gtest/gtest.h>

#include "qx/diagnostics/database_log.h"
#include "qx/text/format.h"

#include <climits>

namespace {

using QX::String;

constexpr struct {
    char const* path;
    int kind;
    char const* split;  // kind, head, tail, index: 77 where it is not set
} rows[] = {
    {"units[3].morale", -1, "-1 units morale 3"},
    {".", -5, "-5   77"},
    {"units", -1, "1 units  77"},
    {"units", -4, "-4 units  77"},
    {"", -5, "5   77"},
    {"", -4, "4   77"},
    {"a[x]", 6, "6 a  0"},
    {"a[12x4]", -2, "2 a  12"},
    {"[", 0, "0   0"},
    {"a[1][2]", 0, "0 a  1"},
    {"a[15.5]", -1, "-1 a 5] 1"},
    {"[18446744073709551617]", INT_MIN, "-2147483648   1"}};

// A path may be its own tail.
TEST(Watch, splits_a_path_at_its_first_point_and_bracket) {
    for (auto [path, kind, split] : rows) {
        unsigned long long index = 77;
        String head("before"), tail(path);
        QX_WATCH::parse(kind, tail, head, tail, index);
        EXPECT_STREQ(String::format("%d %s %s %d", kind, head, tail, index).c_str(), split);
    }
}

TEST(DatabaseLog, keeps_nothing) {
    QX::DBLOG_CORE log("battles");
    QX::DBLOG_CORE copy(log);
    EXPECT_EQ((copy << "text").core(), &copy);
    EXPECT_EQ((log << nullptr).core(), &log);
    EXPECT_EQ(log.uid() + QX::DBLOG_UID::s_session_uid, 0u);
}

}  // namespace
