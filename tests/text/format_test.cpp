#include "qx/text/format.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <string>
#include <type_traits>
#include <utility>

#include "qx/text/convert.h"

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
    check(Rows{
        {both("%5d|%-5d|%05d", 42, 42, 42), "   42|42   |00042"},
        {both("%05d", -42) + both("|%-05d", 42), "00-42|42000"},
        {both("%+d % d", 5, 5) + both("%+-5d", 5), "+5  5"},
        {both("ab%sxy", 5) + text(String::format("%d")), "ab%d"},
        {both("%f %.2f", 1.5f, 1.0f), "1.5 1.00"},
        {both("%5p", reinterpret_cast<void*>(0xAB)), "00000000000000ab"},
        {both("%l%%lld%ld", 5, 6) + both("%+08.2f", 0.25f), "%56000+0.25"},
        {both("%d%d%d", short{1}, true, 3l), "113"},
        {text(String::format("%4s|%-4S|%03s|%.1s", ab, ab, ab, ab)), "  ab|ab  | ab|ab"},
        {text(UniString::format(L"%-3s|%9s|%c", UniString(L"ab"), L"c", L'd')), "ab |c|d"},
        {text(String::format("%x", 0x123456789ABCDEFll)), "89abcdef"},
        {both("%300d", 1) + both("|%.200f", 1.5f), std::string(43, ' ') + "1|2."},  // 44 and -56
        {both("%f %.6f %.0f", -0.5f, 2.0f, 3.0f), "-0.5 2.000000 3.0"},
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
    check(Rows{
        {text(String::format("ab%q", 1ll)), start + "card64"},
        {text(UniString::format(L"ab%q", 1ll)), start + "int64"},
        {both("ab%q", "t"), start + "const char*"},
        {text(String::format("ab%q", String())), start + "const String&"},
        {text(UniString::format(L"ab%q", L't')), start + "UniChar16"},
    });
    QX::show_format_errors = false;
}

TEST(Format, parsing_sets_every_output_and_steps_over_the_letter) {
    char letter = 'z', sign = 'z', pad = 'z';
    unsigned short position = 1, width = 99;
    short precision = 99;
    bool left = true;
    String::parse_format_arguments("%5", letter, position, precision, sign, width, left, pad);
    EXPECT_EQ(position + 10 * (letter + sign + precision + left), 3);
    EXPECT_EQ(width + pad, 5 + ' ');
}

TEST(Format, single_steps_append_to_what_is_there) {
    String out("<");
    char letter = 'd';
    EXPECT_TRUE(String::append_formatted_type(-7, letter, out, 0, '+', 5, true, '*'));
    letter = 's';
    EXPECT_TRUE(String::append_formatted_type(out, letter, out, 0, 0, 8, false, '*'));
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
        {untyped("%X|%P|%5S|", 255, 0xABll, &string), "ff|00000000000000ab|  str|"},
        {untyped("%30llu|%llx|%llx", ~0ull, 0xFFull, 0x1000000FFull),
         "18446744073709551615|0ff|1ff"},
        {untyped("%65540d|%.65537f", 1, 1.0), "   1|1.0"},
        {untyped("<%9C>", L"\x20AC\xE9"), "<\xE2\x82\xAC\xC3\xA9>"},
        {untyped(L"%X|%P", 171, 171ll), "AB|00000000000000AB"},
        {untyped(L"%llu|%llx", 0xFFull, 0x1000000FFull), "0ff|1ff"},
        {untyped(L"%c|%9C|%-4S|%4s", L'w', L"ab", L"ab", "cd"), "w|ab|ab  |  cd"},
        // An argument pointer is exactly a char*.
        {untyped("%d %d", list) + untyped(L"|%d %d", list), "5 6|5 6"},
        {untyped("%d", 0) + untyped("%s", "0") + untyped("none") + untyped(L"a%i", 1), "00none"},
    });
    EXPECT_TRUE(UniString::format_unsafe(L"<%-4s>", "\xC3\xA9") == L"<\xE9   >");
}

TEST(NumberText, has_a_form_for_each_radix) {
    check(Rows{
        {text(String::format(4294967295u)) + text(UniString::format(0u)), "42949672950"},
        {text(String::format(255u)) + text(String::format(255u, 16)), "255ff"},
        {text(String::format(0xFFFFFFFFu, 10)) + text(String::format_signed(-5)), "-1-5"},
        {text(String::format(5u, 2, "ab")) + text(String::format64(1ull << 40)),
         "bab1099511627776"},
        {text(String::format(1.005f, 2)) + text(String::format(12.0f, 0)), "1.0012."},
        {text(UniString::format(1.5f, 3, false)) + text(UniString::format(2.0f, 3, false)), "1.52"},
        {text(String::format(35u, 36)) + text(String::format(255u, 16)), "zff"},
        // Plain literals choose between a radix and decimals.
        {text(String::format(-1, 16)) + text(String::format(1.5, 2)), "ffffffff1.50"},
        {text(UniString::format(255, 16)) + text(UniString::format(1.5, 2)), "ff1.50"},
        {text(String::format_signed(INT_MIN)) + text(String::format64(1)), "-21474836481"},
        {text(String::format(5u, 1u, "ab")), std::string(32, 'a')},
        {text(String::format(5u, 0u, "ab")) + text(String::format(0u, 16, "ab")), "0"},
        {text(UniString::format64(~0ull, 2, L"01")), std::string(32, '1')},
        {text(UniString::format64(1ull << 40, 16, L"0123456789ABCDEF")), "10000000000"},
        {text(UniString::format(2.0f, 3, true)) + text(UniString::format(1.5f, 2, false)),
         "2.0001.5"},
        {text(UniString::format(100.0f, 0, false)) + text(UniString::format(12.0f, 0)), "10012."},
    });
    for (int const radix : {-1, 0, 1, 37})
        EXPECT_EQ(text(String::format(5u, radix)) + text(String::format(0u, radix)), "0");
}

TEST(Format, has_room_for_64_characters_and_grows_append_by_append) {
    EXPECT_EQ(String::format("%s %d %.2f %20x", "text", 5, 1.5f, 7u).capacity(), 64u);
    EXPECT_EQ(UniString::format(L"%60d%c%c%c%c%c", 1, 'a', 'b', 'c', 'd', 'e').capacity(), 128u);
    EXPECT_EQ(String::format("%d%s", 1, std::string(300, 'x').c_str()).capacity(), 301u);
}

}  // namespace
