#include "qx/text/format.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <string>
#include <type_traits>
#include <utility>

#include "qx/text/convert.h"
#include "tests/harness/failing_allocation.h"

namespace {

using QX::String;
using QX::UniString;

// Wide results of these tests are ASCII.
std::string text(auto const& string) {
    return {string.begin(), string.end()};
}

// The typed form in both widths, which must agree.
template <typename... Arguments>
std::string both(char const* format, Arguments const&... arguments) {
    std::string const narrow = text(String::format(format, arguments...));
    EXPECT_EQ(text(UniString::format(QX::must_fix_string_widen(format), arguments...)), narrow)
        << format;
    return narrow;
}

template <typename Unit, typename... Arguments>
std::string untyped(Unit const* format, Arguments... arguments) {
    using Text = std::conditional_t<sizeof(Unit) == 1, String, UniString>;
    return text(Text::format_unsafe(format, arguments...));
}

using Rows = std::pair<std::string, std::string> const[];

void check(auto const& rows) {
    for (auto const& [result, expected] : rows) EXPECT_EQ(result, expected);
}

// What flags, letters and types make of each other is checked at random by the grammar's model;
// here is what callers rely on.
TEST(Format, follows_its_rows) {
    String const ab("ab");
    void const* const pointer = reinterpret_cast<void*>(0x1234ABCDEFll);
    check(Rows{
        {both("%5d|%-5d|%05d|%05d|%-05d", 42, 42, 42, -42, 42), "   42|42   |00042|00-42|42000"},
        {both("%+d % d %+d|%+08.2f", 5, 5, -5, 0.25f), "+5  5 -5|000+0.25"},
        {both("%l%%lld%ld", 5, 6), "%56"},
        {both("a", 1) + both("b%-+05", 1), "ab"},
        {both("%d %d %%|%s", 1), "1 %d %|%s"},
        {text(String::format("100%%%")), "100%%"},
        {text(UniString::format(L"%d%%l%l%")), "%d%l%l%"},
        {both("a%dx", 1.5f) + both("b%dx", "text") + both("c%sx", 'c'), "abc"},
        {both("%d %u %x %i", INT_MIN, -3, -1, LLONG_MIN),
         "-2147483648 -3 ffffffff -9223372036854775808"},
        {both("%d%d%d%d", short{1}, true, static_cast<unsigned char>(2), 3l), "1123"},
        {both("%c%10c|%s%10s%-10S%C", 'x', 'y', "a", "b", "c", "d"), "xy|abcd"},
        {both("%p|%x|%-40X|%p", pointer, pointer, pointer, nullptr),
         "0000001234abcdef|0000001234abcdef|0000001234ABCDEF|0000000000000000"},
        {text(String::format("%4s|%-4S|%03s|%.1s", ab, ab, ab, ab)), "  ab|ab  | ab|ab"},
        {text(UniString::format(L"%-3s|%9s|%c", UniString(L"ab"), L"c", L'd')), "ab |c|d"},
        {text(String::format("%x", 0x123456789ABCDEFll)), "89abcdef"},
        {text(UniString::format(L"%x", 0x123456789ABCDEFll)), "123456789abcdef"},
        {both("%300d", 1) + both("|%.200f", 1.5f), std::string(43, ' ') + "1|2."},  // 44 and -56
        {both("%f %f %f %.6f", 0.0f, -0.5f, 1e20, 2.0f),
         "0.0 -0.5 100000002004087734272.0 2.000000"},
        {both("%.2f %.2f %+.1f %.0f", 1.0f, -0.001f, -0.0f, 3.0f), "1.00 -0.00 +-0.0 3.0"},
        {both("%f %.2f %.3f", HUGE_VALF, -HUGE_VALF, std::nanf("")), "1.#INF -1.#J 1.#QO"},
    });
    EXPECT_TRUE(UniString::format(L"<%s>", "\xE2\x82\xAC\xC3\xA9") == L"<\x20AC\xE9>");
}

TEST(Format, a_bad_letter_ends_the_typed_text_and_drops_the_untyped_one) {
    for (char const* const rest :
         {"%sxy", "%fxy", "%cxy", "%qxy", "%+-5d", "%0-5d", "%--d", "%.5.d", "%5ld", "%", "%5.3"}) {
        std::string const format = std::string("ab") + rest;
        std::wstring const wide(format.begin(), format.end());
        EXPECT_EQ(both(format.c_str(), 5), "ab") << format;
        if (rest[1] == 's' || rest[1] == 'f' || rest[1] == 'c') continue;  // letters in a list
        EXPECT_EQ(untyped(format.c_str(), 1) + untyped(wide.c_str(), 1), "") << format;
    }
}

TEST(Format, messages_replace_the_text_only_where_they_are_wanted) {
    EXPECT_FALSE(QX::show_format_errors);
    QX::show_format_errors = true;
    std::string const start = "Unexpected format %q used with type ";
    auto const expect = [&](auto const& value, char const* narrow, char const* wide) {
        EXPECT_EQ(text(String::format("ab%q", value)), start + narrow);
        EXPECT_EQ(text(UniString::format(L"ab%q", value)), start + wide);
    };
    expect(1, "int32", "int32");
    expect(1u, "card32", "card32");
    expect(1ll, "card64", "int64");
    expect(1ull, "card64", "card64");
    expect(nullptr, "void*", "void*");
    expect(1.0f, "float32", "float32");
    expect('c', "char", "char");
    expect("t", "const char*", "const char*");
    EXPECT_EQ(text(String::format("ab%q", String())), start + "const String&");
    EXPECT_EQ(text(UniString::format(L"ab%q", UniString())), start + "const UniString&");
    EXPECT_EQ(text(UniString::format(L"ab%q", L"t")), start + "const UniChar16*");
    EXPECT_EQ(text(UniString::format(L"ab%q", L't')), start + "UniChar16");
    QX::show_format_errors = false;
}

// Everything that parsing sets, in the order of its outputs.
template <typename Text>
std::string parsed(Text const& format) {
    typename Text::value_type letter = 'z';
    unsigned short position = 1, width = 99;
    short precision = 99;
    char sign = 'z', pad = 'z';
    bool left = true;
    Text::parse_format_arguments(format, letter, position, precision, sign, width, left, pad);
    return both("%d %d %d %d %d %d %d", +letter, position, precision, +sign, width, left, +pad);
}

TEST(Format, parsing_sets_every_output_and_steps_over_the_letter) {
    for (auto const& [format, expected] :
         std::initializer_list<std::pair<char const*, char const*>>{
             {"%d", "100 2 0 0 0 0 32"},
             {"%-+07.3fxx", "102 8 3 43 7 1 48"},
             {"%5", "0 3 0 0 5 0 32"},
             {"% 0300.200f", "102 11 -56 32 44 0 48"},
             {"%+-d", "45 3 0 43 0 0 32"}}) {
        EXPECT_EQ(parsed(String(format)), expected) << format;
        EXPECT_EQ(parsed(QX::must_fix_string_widen(format)), expected) << format;
    }
}

TEST(Format, single_steps_append_to_what_is_there) {
    String out("<");
    char letter = 'd';
    EXPECT_TRUE(String::append_formatted_type(-7, letter, out, 0, '+', 5, true, '*'));
    letter = 's';
    EXPECT_TRUE(String::append_formatted_type(out, letter, out, 0, 0, 8, false, '*'));
    EXPECT_FALSE(String::append_formatted_type(1.0f, letter, out, 0, 0, 0, false, ' '));
    EXPECT_TRUE(String::append_formatted_type(out.c_str() + 8, letter, out, 0, 0, 0, false, ' '));
    unsigned short position = 3;
    EXPECT_TRUE(String::append_rest(out, "%d %%%", position));
    EXPECT_EQ(position, 6);
    EXPECT_EQ(text(out), "<-7***  <-7***<-7***%%");
}

TEST(Format, a_format_is_taken_up_to_its_65535th_character) {
    std::string const longest(65533, 'x');
    EXPECT_EQ(both((longest + "y%d").c_str(), 5), longest + "y");
    EXPECT_EQ(text(String::format(String((longest + "yzz").c_str()))), longest + "yz");
}

TEST(UntypedFormat, follows_its_rows) {
    String const string("str");
    long long slots[] = {5, 0x7F00000006};
    char* const list = reinterpret_cast<char*>(slots);
    check(Rows{
        {untyped("%05d|%i|%X|%P", -42, 5, 255, 0xABll), "00-42|5|ff|00000000000000ab"},
        {untyped("%f|%.2f|%c%9c%%", 1.5, 0.1f, 'a', 'b'), "1.5|0.10|ab%"},
        {untyped("%-5s|%05s|%5S|", "ab", "ab", &string), "ab   |   ab|  str|"},
        {untyped("%30llu|%llx|%llx", ~0ull, 0xFFull, 0x1000000FFull),
         "18446744073709551615|0ff|1ff"},
        {untyped("%65540d|%.65537f", 1, 1.0), "   1|1.0"},
        {untyped("<%9C>", L"\x20AC\xE9"), "<\xE2\x82\xAC\xC3\xA9>"},
        {untyped(L"%x|%X|%p|%P", 171, 171, 171ll, 171ll),
         "ab|AB|00000000000000ab|00000000000000AB"},
        {untyped(L"%c|%9C|%-4S|%4s", L'w', L"ab", L"ab", "cd"), "w|ab|ab  |  cd"},
        {untyped(L"%llu|%llx", 0xFFull, 0x1000000FFull), "0ff|1ff"},
        {untyped(L"text%i", 1), ""},
        // An argument pointer is exactly a char*.
        {untyped("%d %d", list) + untyped(L"|%d %d", list), "5 6|5 6"},
        {untyped("%d", 0) + untyped("%s", "0") + untyped("no conversion"), "00no conversion"},
    });
    EXPECT_TRUE(UniString::format_unsafe(L"<%-4s>", "\xC3\xA9") == L"<\xE9   >");
}

TEST(NumberText, has_a_form_for_each_radix) {
    check(Rows{
        {text(String::format(4294967295u)) + text(UniString::format(0u)), "42949672950"},
        {text(String::format(0xFFFFFFFFu, 10)), "-1"},
        {text(UniString::format(0xFFFFFFFFu, 2)), std::string(32, '1')},
        {text(String::format(35u, 36)) + text(String::format(255u, 16)), "zff"},
        {text(String::format_signed(INT_MIN)), "-2147483648"},
        {text(String::format64(~0ull)), "18446744073709551615"},
        {text(String::format(5u, 1u, "ab")), std::string(32, 'a')},
        {text(String::format(5u, 0u, "ab")) + text(String::format(0u, 16, "ab")), "0"},
        {text(UniString::format64(~0ull, 2, L"01")), std::string(32, '1')},
        {text(UniString::format64(1ull << 40, 16, L"0123456789ABCDEF")), "10000000000"},
        {text(UniString::format(2.0f, 3, true)), "2.000"},
        {text(UniString::format(1.5f, 2, false)), "1.5"},
        {text(UniString::format(100.0f, 0, false)) + text(UniString::format(12.0f, 0)), "10012."},
        {text(UniString::format(-1e20f, 200, false)), "-100000002004087734272"},
    });
    for (int const radix : {-1, 0, 1, 37})
        EXPECT_EQ(text(String::format(5u, radix)) + text(String::format(0u, radix)), "0");
}

unsigned int blocks = 0;
void count_blocks(void const*, unsigned int size) {
    if (size != 0) ++blocks;
}

TEST(Format, takes_one_block_for_64_characters_and_grows_append_by_append) {
    QX::allocation_hook = count_blocks;
    String const narrow = String::format("%s %d %.2f %20x", "text", 5, 1.5f, 7u);
    UniString const wide = UniString::format(L"%s %d %.2f %p", "text", 5, 1.5f, "p" + 0);
    EXPECT_EQ(blocks, 2u);
    String const grown = String::format("%60d%c%c%c%c%c", 1, 'a', 'b', 'c', 'd', 'e');
    String const leap = String::format("%d%s", 1, std::string(300, 'x').c_str());
    QX::allocation_hook = nullptr;
    EXPECT_EQ(narrow.capacity() + wide.capacity(), 128u);
    EXPECT_EQ(grown.capacity(), 128u);
    EXPECT_EQ(leap.capacity(), 301u);
}

TEST(Format, leaves_strings_valid_when_memory_runs_out) {
    String out("kept");
    bool fired = true;
    for (unsigned int nth = 1; fired; ++nth) {
        String const before(out);
        test::FailingAllocation failing(nth);
        try {
            char letter = 'd';
            String::append_formatted_type(1, letter, out, 0, 0, 200, false, ' ');
            String::format("%100d %100s %200d", 1, "text", 2);
            String::format_unsafe("%100d %200s", 1, "text");
        } catch (std::bad_alloc const&) {
            EXPECT_TRUE(nth != 1 || text(out) == text(before));
        }
        fired = failing.fired();
        ASSERT_LT(nth, 50u);
        EXPECT_EQ(out.c_str()[out.length()], 0);
    }
}

}  // namespace
