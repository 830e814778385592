// parse_test.cpp - numbers read from strings, as rows.
#include "qx/text/parse.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <concepts>

#include "qx/text/convert.h"

namespace {

using QX::String;

template <typename T>
struct Row {
    char const* text;
    bool ok;
    T value;
};

template <typename T, typename Text, std::same_as<int>... Radix>
void check(Text const& text, Row<T> const& row, Radix... radix) {
    T value = 77;
    EXPECT_EQ(text.parse(value, static_cast<unsigned short>(radix)...), row.ok) << row.text;
    EXPECT_EQ(value, row.value) << row.text;
}

auto const wide = [](char const* text) { return QX::must_fix_string_widen(text); };

void check_both(auto const& rows) {
    for (auto const& row : rows) {
        check(String(row.text), row);
        check(wide(row.text), row);
    }
}

TEST(Parse, reads_whole_numbers_as_told) {
    constexpr Row<int> rows[] = {
        {"", true, 0},     {"-", true, 0},   {"-007", true, -7},
        {"+5", false, 0},  {" 1", false, 0}, {"-12a", false, -12},
        {"--1", false, 0}, {"1 ", false, 1}, {"2147483648", true, INT_MIN}};
    constexpr Row<unsigned int> natural[] = {
        {"", true, 0}, {"-5", false, 0}, {"9.", false, 9}, {"4294967297", true, 1}};
    check_both(rows);
    check_both(natural);
    check(wide("-9223372036854775809"), Row<long long>{"wraps", true, LLONG_MAX});
    String const text("123456789ABCDEF01");
    check(text, Row<unsigned char>{"8 bits", true, 0x01}, 16);
    check(text, Row<unsigned long long>{"64 bits", true, 0x23456789ABCDEF01}, 16);
    // By length and not by the terminator.
    check(String("1\0", 2), Row<int>{"1 and a terminator", false, 1});
    check(String("1.\0", 3), Row<float>{"1. and a terminator", false, 1.0f});
}

TEST(Parse, lets_capitals_through_further_than_small_letters) {
    constexpr Row<unsigned int> rows[] = {{"", true, 0},       {"FF", true, 255}, {"ff", true, 255},
                                          {"G", true, 16},     {"_", true, 40},   {"`", false, 0},
                                          {"@", false, 0},     {"1g", false, 16}, {"-1", false, 0},
                                          {"1\xE9", false, 16}};
    for (auto const& row : rows) check(String(row.text), row, 16);
    check(wide("1_g"), Row<unsigned int>{"1_g", false, 0x380}, 16);
    check(String("9"), Row<unsigned int>{"9", true, 9}, 2);
}

TEST(Parse, narrow_floats_need_a_point_and_know_no_exponent) {
    constexpr Row<float> rows[] = {
        {"", false, 0},     {"5", false, 5},       {"5.", true, 5},
        {".5", true, 0.5f}, {".", true, 0},        {"-", false, 0},
        {"-5", false, -5},  {"-2.5", true, -2.5f}, {"1.0e3", false, 1},
        {"+1.", false, 0},  {"1.5x", false, 1.5f}, {"16777217.", true, 16777216}};
    for (auto const& row : rows) check(String(row.text), row);
}

TEST(Parse, wide_floats_need_no_point_and_know_exponents) {
    constexpr float hundredth = 1.0f * 0.1f * 0.1f;
    constexpr Row<float> rows[] = {
        {"", true, 0},          {"5", true, 5},      {"-", true, 0},
        {"-2.5", true, -2.5f},  {"1e3", true, 1000}, {"1E3", true, 1000},
        {"1.5e1", true, 15},    {"1e+3", false, 1},  {"1e", true, 1},
        {"-1e2x", false, -100}, {"e2", true, 0},     {"1e-2", true, hundredth}};
    check(wide("1e4000000000"), Row<float>{"endless", true, HUGE_VALF});
    check(wide("1e-4000000000"), Row<float>{"at once", true, 0});
    for (auto const& row : rows) check(wide(row.text), row);
}

}  // namespace
