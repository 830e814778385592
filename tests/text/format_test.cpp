#include "qx/text/format.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>

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

TEST(Format, pads_before_or_behind_a_text_that_already_has_its_sign) {
    EXPECT_EQ(both("%5d|%-5d|%05d", 42, 42, 42), "   42|42   |00042");
    EXPECT_EQ(both("%05d|%-05d|%2d", -42, 42, 12345), "00-42|42000|12345");
    EXPECT_EQ(both("%+d % d %+d % d", 5, 5, -5, 0), "+5  5 -5  0");
    EXPECT_EQ(both("%-8.1f|%+08.2f|%+x", -2.0f, 0.25f, 1), "-2.0    |000+0.25|1");
}

TEST(Format, flags_are_positional) {
    EXPECT_EQ(both("a%-+5d|", 5), "a+5   |");
    for (char const* const format : {"a%+-5d", "a%0-5d", "a%+ d", "a%--d", "a%.5.d", "a%5ld"})
        EXPECT_EQ(both(format, 5), "a") << format;
    EXPECT_EQ(both("%l%%lld%ld", 5, 6), "%56");
}

TEST(Format, stops_at_the_first_surplus_argument_and_keeps_surplus_conversions) {
    EXPECT_EQ(both("a", 1), "a");
    EXPECT_EQ(both("%d %d %%|%s", 1), "1 %d %|%s");
    EXPECT_EQ(text(String::format("100%%%")), "100%%");
    EXPECT_EQ(text(UniString::format(L"%d%%l%l%")), "%d%l%l%");
    EXPECT_EQ(both("ab%-+05", 1), "ab");
}

TEST(Format, a_letter_that_does_not_suit_the_type_ends_the_text) {
    for (char const* const format : {"ab%sxy", "ab%fxy", "ab%cxy", "ab%pxy", "ab%Dxy", "ab%oxy"})
        EXPECT_EQ(both(format, 5), "ab") << format;
    EXPECT_EQ(both("ab%dxy", 1.5f) + both("ab%dxy", "text") + both("ab%sxy", 'c'), "ababab");
}

TEST(Format, each_type_has_its_letters) {
    EXPECT_EQ(
        both("%d %u %x %i %X", INT_MIN, -3, -1, LLONG_MIN, 0xBEEFu),
        "-2147483648 -3 ffffffff -9223372036854775808 BEEF");
    EXPECT_EQ(both("%c%10c", 'x', 'y'), "xy");
    EXPECT_EQ(both("%s%10s%-10S%C", "a", "b", "c", "d"), "abcd");
    void const* const pointer = reinterpret_cast<void*>(0x1234ABCDEFll);
    EXPECT_EQ(
        both("%p|%x|%P|%-40X", pointer, pointer, pointer, pointer),
        "0000001234abcdef|0000001234abcdef|0000001234ABCDEF|0000001234ABCDEF");
    EXPECT_EQ(both("%d%d%d%d", short{1}, true, static_cast<unsigned char>(2), 3l), "1123");
    String const ab("ab");
    EXPECT_EQ(text(String::format("%4s|%-4S|%03s|%.1s", ab, ab, ab, ab)), "  ab|ab  | ab|ab");
    EXPECT_EQ(text(UniString::format(L"%-3s|%9s|%c", UniString(L"ab"), L"c", L'd')), "ab |c|d");
}

TEST(Format, sixty_four_bits_in_hexadecimal_are_whole_only_in_wide_text) {
    EXPECT_EQ(text(String::format("%x", 0x123456789ABCDEFll)), "89abcdef");
    EXPECT_EQ(text(UniString::format(L"%x", 0x123456789ABCDEFll)), "123456789abcdef");
}

TEST(Format, width_and_precision_wrap_at_eight_bits_or_at_sixteen) {
    EXPECT_EQ(both("%300d", 1), std::string(43, ' ') + "1");
    EXPECT_EQ(both("%.200f", 1.5f), "2.");  // -56
    EXPECT_EQ(untyped("%300d", 1), std::string(299, ' ') + "1");
    EXPECT_EQ(untyped("%65540d|%.65537f", 1, 1.0), "   1|1.0");
}

TEST(Format, wide_text_takes_narrow_text_as_utf8) {
    EXPECT_TRUE(UniString::format(L"<%s>", "\xE2\x82\xAC\xC3\xA9") == L"<\x20AC\xE9>");
    EXPECT_TRUE(UniString::format_unsafe(L"<%4s>", "\xC3\xA9") == L"<   \xE9>");
    EXPECT_TRUE(UniString::format_unsafe(L"<%-4s>", "\xC3\xA9") == L"<\xE9   >");
    EXPECT_EQ(text(String::format_unsafe("<%9C>", L"\x20AC\xE9")), "<\xE2\x82\xAC\xC3\xA9>");
}

TEST(Format, float_without_precision_keeps_one_zero_of_six) {
    EXPECT_EQ(
        both("%f %f %f %.6f", 0.0f, -0.5f, 1e20, 2.0f),
        "0.0 -0.5 100000002004087734272.0 2.000000");
    EXPECT_EQ(both("%.2f %.2f %+.1f", 1.0f, -0.001f, -0.0f), "1.00 -0.00 +-0.0");
    EXPECT_EQ(both("%f %.0f %.2f", HUGE_VALF, 3.0f, -HUGE_VALF), "1.#INF 3.0 -1.#J");
}

TEST(Format, messages_replace_the_text_only_where_they_are_wanted) {
    EXPECT_FALSE(QX::show_format_errors);
    QX::show_format_errors = true;
    std::string const start = "Unexpected format %q used with type ";
    auto const expect = [&](char const* narrow, char const* wide, auto const& value) {
        EXPECT_EQ(text(String::format("ab%q", value)), start + narrow);
        EXPECT_EQ(text(UniString::format(L"ab%q", value)), start + wide);
    };
    expect("int32", "int32", 1);
    expect("card32", "card32", 1u);
    expect("card64", "int64", 1ll);
    expect("card64", "card64", 1ull);
    expect("void*", "void*", static_cast<void*>(nullptr));
    expect("float32", "float32", 1.0f);
    expect("char", "char", 'c');
    expect("const char*", "const char*", "t");
    EXPECT_EQ(text(String::format("ab%q", String())), start + "const String&");
    EXPECT_EQ(text(UniString::format(L"ab%q", UniString())), start + "const UniString&");
    EXPECT_EQ(text(UniString::format(L"ab%q", L"t")), start + "const UniChar16*");
    EXPECT_EQ(text(UniString::format(L"ab%q", L't')), start + "UniChar16");
    EXPECT_EQ(text(String::format("too few", 1)), "too few");
    QX::show_format_errors = false;
}

// Everything that parsing sets, in the order of its outputs.
template <typename Text>
std::string parsed(Text const& format) {
    typename Text::value_type letter = 'z';
    unsigned short position = 1, width = 99;
    short precision = 99;
    char sign = 'z', pad = 'z', line[64];
    bool left = true;
    Text::parse_format_arguments(format, letter, position, precision, sign, width, left, pad);
    snprintf(
        line, sizeof(line), "%d %d %d %d %d %d '%c'", letter, position, precision, sign, width,
        left, pad);
    return line;
}

TEST(Format, parsing_sets_every_output_and_steps_over_the_letter) {
    constexpr char const* rows[][2] = {
        {"%d", "100 2 0 0 0 0 ' '"},  {"%-+07.3fxx", "102 8 3 43 7 1 '0'"},
        {"%5", "0 3 0 0 5 0 ' '"},    {"% 0300.200f", "102 11 -56 32 44 0 '0'"},
        {"%", "0 2 0 0 0 0 ' '"},     {"%00.x", "120 5 0 0 0 0 '0'"},
        {"%ld", "108 2 0 0 0 0 ' '"}, {"%+-d", "45 3 0 43 0 0 ' '"},
    };
    for (auto const& [format, expected] : rows) {
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
    EXPECT_EQ(text(out), "<-7***  <-7***");
    EXPECT_TRUE(String::append_formatted_type(out.c_str() + 8, letter, out, 0, 0, 0, false, ' '));
    unsigned short position = 3;
    EXPECT_TRUE(String::append_rest(out, "%d %%%", position));
    EXPECT_EQ(position, 6);
    EXPECT_TRUE(String::append_rest(out, "ab", position));
    EXPECT_EQ(position, 6);
    EXPECT_EQ(text(out), "<-7***  <-7***<-7***%%");
    EXPECT_EQ(out.c_str()[out.length()], 0);
}

TEST(Format, a_format_is_taken_up_to_its_65535th_character) {
    std::string const longest(65533, 'x');
    EXPECT_EQ(both((longest + "y%d").c_str(), 5), longest + "y");
    EXPECT_EQ(text(String::format(String((longest + "yzz").c_str()))), longest + "yz");
}

TEST(UntypedFormat, reads_its_list_by_the_letters) {
    EXPECT_EQ(untyped("%05d|%i|%X|%P", -42, 5, 255, 0xABll), "00-42|5|ff|00000000000000ab");
    EXPECT_EQ(untyped("%f|%.2f|%c%9c%%", 1.5, 0.1f, 'a', 'b'), "1.5|0.10|ab%");
    String const string("str");
    EXPECT_EQ(untyped("%-5s|%05s|%5S|", "ab", "ab", &string), "ab   |   ab|  str|");
    EXPECT_EQ(
        untyped("%30llu|%llx|%llx", ~0ull, 0xFFull, 0x1000000FFull),
        "18446744073709551615|0ff|1ff");
}

TEST(UntypedFormat, has_letters_of_its_own_in_wide_text) {
    EXPECT_EQ(
        untyped(L"%x|%X|%p|%P", 171, 171, 171ll, 171ll), "ab|AB|00000000000000ab|00000000000000AB");
    EXPECT_EQ(untyped(L"%c|%9C|%-4S|%4s", L'w', L"ab", L"ab", "cd"), "w|ab|ab  |  cd");
    EXPECT_EQ(untyped(L"%llu|%llx", 0xFFull, 0x1000000FFull), "0ff|1ff");
    EXPECT_EQ(untyped(L"text%i", 1), "");
}

TEST(UntypedFormat, a_bad_letter_drops_what_was_built) {
    for (char const* const format :
         {"text%q", "a%", "a%l", "a%ll", "a%ld", "a%lld", "a%A", "a%y", "a%+-d", "%d%5.3"}) {
        std::wstring const wide(format, format + strlen(format));
        EXPECT_EQ(untyped(format, 1, 2) + untyped(wide.c_str(), 1, 2), "") << format;
    }
}

TEST(UntypedFormat, takes_an_argument_pointer_only_as_char_pointer) {
    long long slots[] = {5, 0x7F00000006};
    char* const arguments = reinterpret_cast<char*>(slots);
    EXPECT_EQ(text(String::format_unsafe("%d %d", arguments)), "5 6");
    EXPECT_EQ(text(UniString::format_unsafe(L"%d %d", arguments)), "5 6");
    EXPECT_EQ(untyped("%d", 0) + untyped("%s", "0") + untyped("no conversion"), "00no conversion");
}

TEST(NumberText, has_a_form_for_each_radix) {
    EXPECT_EQ(text(String::format(4294967295u)) + text(UniString::format(0u)), "42949672950");
    EXPECT_EQ(text(String::format(0xFFFFFFFFu, 10)), "-1");
    EXPECT_EQ(text(UniString::format(0xFFFFFFFFu, 2)), std::string(32, '1'));
    EXPECT_EQ(text(String::format(35u, 36)) + text(String::format(255u, 16)), "zff");
    for (int const radix : {-1, 0, 1, 37}) {
        EXPECT_EQ(text(String::format(5u, radix)), "");
        EXPECT_EQ(text(String::format(0u, radix)), "0");
    }
    EXPECT_EQ(text(String::format_signed(INT_MIN)), "-2147483648");
    EXPECT_EQ(text(String::format64(~0ull)), "18446744073709551615");
    EXPECT_EQ(text(String::format(5u, 1u, "ab")), std::string(32, 'a'));
    EXPECT_EQ(text(String::format(5u, 0u, "ab")) + text(String::format(0u, 0u, "ab")), "0");
    EXPECT_EQ(text(UniString::format64(~0ull, 2, L"01")), std::string(32, '1'));
    EXPECT_EQ(text(UniString::format64(1ull << 40, 16, L"0123456789ABCDEF")), "10000000000");
}

TEST(NumberText, wide_floats_can_drop_their_zeros) {
    EXPECT_EQ(text(UniString::format(2.0f, 3, true)), "2.000");
    EXPECT_EQ(text(UniString::format(1.5f, 2, false)), "1.5");
    EXPECT_EQ(text(UniString::format(100.0f, 0, false)), "100");
    EXPECT_EQ(text(UniString::format(-1e20f, 200, false)), "-100000002004087734272");
    EXPECT_EQ(text(UniString::format(12.0f, 0)), "12.");
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

    String rest;  // copied characters are appended one by one
    unsigned short position = 0;
    String::append_rest(rest, "a", position);
    EXPECT_EQ(rest.capacity(), 1u);
    String::append_rest(rest, "abcde", position);
    EXPECT_EQ(rest.capacity(), 8u);
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
