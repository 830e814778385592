#include "qx/text/format.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <type_traits>

#include "qx/memory/heap.h"
#include "tests/harness/failing_allocation.h"

namespace {

using QX::String;
using QX::UniString;

std::string text(String const& string) {
    return {string.data(), string.length()};
}

// Wide results of these tests are ASCII.
std::string text(UniString const& string) {
    return {string.begin(), string.end()};
}

UniString widen(char const* ascii) {
    std::wstring const wide(ascii, ascii + std::char_traits<char>::length(ascii));
    return {wide.data(), static_cast<unsigned int>(wide.size())};
}

// The typed form in both widths, which must agree.
template <typename... Arguments>
std::string both(char const* format, Arguments const&... arguments) {
    std::string const narrow = text(String::format(format, arguments...));
    EXPECT_EQ(text(UniString::format(widen(format), arguments...)), narrow) << format;
    return narrow;
}

// The numbers of the narrow untyped form.
template <typename... Arguments>
std::string untyped(char const* format, Arguments... arguments) {
    return text(String::format_unsafe(format, arguments...));
}

template <typename... Arguments>
std::string wide_untyped(wchar_t const* format, Arguments... arguments) {
    return text(UniString::format_unsafe(format, arguments...));
}

TEST(Format, pads_before_or_behind_a_text_that_already_has_its_sign) {
    EXPECT_EQ(both("%5d|%-5d|%05d", 42, 42, 42), "   42|42   |00042");
    EXPECT_EQ(both("%05d|%-05d|%2d", -42, 42, 12345), "00-42|42000|12345");
    EXPECT_EQ(both("%+d % d %+d % d", 5, 5, -5, 0), "+5  5 -5  0");
    EXPECT_EQ(both("%05f|%-8.1f|%+08.2f", 1.5f, -2.0f, 0.25f), "001.5|-2.0    |000+0.25");
    EXPECT_EQ(both("%06x|%-6X|%+x", 0xABC, 0xABC, 1), "000abc|ABC   |1");
    EXPECT_EQ(both("%+u", 7u), "7");
}

TEST(Format, flags_are_positional) {
    EXPECT_EQ(both("a%-+5d|", 5), "a+5   |");
    for (char const* const format :
         {"a%+-5d", "a%0-5d", "a%+ d", "a%--d", "a%5-d", "a%.5.d", "a%5ld"})
        EXPECT_EQ(both(format, 5), "a") << format;
    EXPECT_EQ(both("%l%%lld%ld", 5, 6), "%56");
    EXPECT_EQ(both("%.d|%.9d", 5, 6), "5|6");
}

TEST(Format, stops_at_the_first_surplus_argument_and_keeps_surplus_conversions) {
    EXPECT_EQ(both("a", 1), "a");
    EXPECT_EQ(both("a%d", 1, 2), "a1");
    EXPECT_EQ(both("%d %d %%|%s", 1), "1 %d %|%s");
    EXPECT_EQ(text(String::format("100%%%")), "100%%");
    EXPECT_EQ(text(UniString::format(L"%d%%l%l%")), "%d%l%l%");
    EXPECT_EQ(both("ab%", 1), "ab");
    EXPECT_EQ(both("ab%lll", 1), "ab");
    EXPECT_EQ(both("ab%-+05", 1), "ab");
}

TEST(Format, a_letter_that_does_not_suit_the_type_ends_the_text) {
    for (char const* const format : {"ab%sxy", "ab%fxy", "ab%cxy", "ab%pxy", "ab%Dxy", "ab%oxy"})
        EXPECT_EQ(both(format, 5), "ab") << format;
    EXPECT_EQ(both("ab%dxy", 1.5f), "ab");
    EXPECT_EQ(both("ab%Fxy", 1.5f), "ab");
    EXPECT_EQ(both("ab%dxy", "text"), "ab");
    EXPECT_EQ(both("ab%sxy", 'c'), "ab");
    EXPECT_EQ(both("ab%dxy", static_cast<void*>(nullptr)), "ab");
    EXPECT_EQ(text(String::format("ab%Cxy", String("s"))), "ab");
    EXPECT_EQ(text(UniString::format(L"ab%Cxy", UniString(L"s"))), "ab");
}

TEST(Format, each_type_has_its_letters) {
    EXPECT_EQ(both("%d%i%u", 1, 2, -3), "12-3");
    EXPECT_EQ(both("%d%i%u", 1u, 2u, 0xFFFFFFFFu), "124294967295");
    EXPECT_EQ(
        both("%d %u %i", -1ll, ~0ull, std::numeric_limits<long long>::min()),
        "-1 18446744073709551615 -9223372036854775808");
    EXPECT_EQ(
        both("%d %x %X", std::numeric_limits<int>::min(), -1, 0xBEEFu),
        "-2147483648 ffffffff BEEF");
    EXPECT_EQ(both("%c%10c", 'x', 'y'), "xy");
    EXPECT_EQ(both("%s%10s%-10S%C", "a", "b", "c", "d"), "abcd");
    void const* const pointer = reinterpret_cast<void*>(0x1234ABCDEFll);
    EXPECT_EQ(
        both("%p|%x|%P|%-40X", pointer, pointer, pointer, pointer),
        "0000001234abcdef|0000001234abcdef|0000001234ABCDEF|0000001234ABCDEF");
    EXPECT_EQ(both("%d%d%d%d", short{1}, true, static_cast<unsigned char>(2), 3l), "1123");
    EXPECT_EQ(
        text(String::format(
            "%4s|%-4S|%02s|%.1s", String("ab"), String("ab"), String("c"), String("long"))),
        "  ab|ab  | c|long");
    EXPECT_EQ(
        text(UniString::format(L"%4s|%-4S|%9s|%c", UniString(L"ab"), UniString(L"ab"), L"c", L'd')),
        "  ab|ab  |c|d");
}

TEST(Format, sixty_four_bits_in_hexadecimal_are_whole_only_in_wide_text) {
    long long const value = 0x123456789ABCDEFll;
    EXPECT_EQ(text(String::format("%x %X", value, ~0ull)), "89abcdef FFFFFFFF");
    EXPECT_EQ(text(UniString::format(L"%x %X", value, ~0ull)), "123456789abcdef FFFFFFFFFFFFFFFF");
}

TEST(Format, width_and_precision_wrap_at_eight_bits_or_at_sixteen) {
    EXPECT_EQ(both("%300d", 1), std::string(43, ' ') + "1");
    EXPECT_EQ(both("%.260f|%.256f", 1.0f, 1.0f), "1.0000|1.0");
    EXPECT_EQ(both("%.200f", 1.5f), "2.");  // -56
    EXPECT_EQ(untyped("%300d", 1), std::string(299, ' ') + "1");
    EXPECT_EQ(untyped("%65540d|%.65537f", 1, 1.0), "   1|1.0");
    EXPECT_EQ(wide_untyped(L"%300d", 1), std::string(299, ' ') + "1");
}

TEST(Format, wide_text_takes_narrow_text_as_utf8) {
    EXPECT_TRUE(UniString::format(L"<%s>", "\xE2\x82\xAC\xC3\xA9") == L"<\x20AC\xE9>");
    EXPECT_TRUE(UniString::format_unsafe(L"<%4s>", "\xC3\xA9") == L"<   \xE9>");
    EXPECT_TRUE(UniString::format_unsafe(L"<%-4s>", "\xC3\xA9") == L"<\xE9   >");
    EXPECT_EQ(text(String::format_unsafe("<%9C>", L"\x20AC\xE9")), "<\xE2\x82\xAC\xC3\xA9>");
}

TEST(Format, float_without_precision_keeps_one_zero_of_six) {
    EXPECT_EQ(both("%f %f %f", 0.0f, 1.5f, 2.0f), "0.0 1.5 2.0");
    EXPECT_EQ(both("%f %f %.6f", -0.5f, 1e20f, 2.0f), "-0.5 100000002004087734272.0 2.000000");
    EXPECT_EQ(both("%.2f %.2f %+.1f", 1.0f, -0.001f, -0.0f), "1.00 -0.00 +-0.0");
    EXPECT_EQ(both("%f", 0.1), both("%f", 0.1f));
    EXPECT_EQ(
        both(
            "%f %.0f %.2f", std::numeric_limits<float>::infinity(), 3.0f,
            -std::numeric_limits<float>::infinity()),
        "1.#INF 3.0 -1.#J");
}

TEST(Format, messages_replace_the_text_only_where_they_are_wanted) {
    struct Restore {
        ~Restore() { QX::show_format_errors = false; }
    } const restore;
    EXPECT_FALSE(QX::show_format_errors);
    QX::show_format_errors = true;
    std::string const narrow = "Unexpected format %q used with type ";
    EXPECT_EQ(text(String::format("ab%q", 1)), narrow + "int32");
    EXPECT_EQ(text(String::format("ab%q", 1u)), narrow + "card32");
    EXPECT_EQ(text(String::format("ab%q", 1ll)), narrow + "card64");
    EXPECT_EQ(text(String::format("ab%q", 1ull)), narrow + "card64");
    EXPECT_EQ(text(String::format("ab%q", static_cast<void*>(nullptr))), narrow + "void*");
    EXPECT_EQ(text(String::format("ab%q", 1.0f)), narrow + "float32");
    EXPECT_EQ(text(String::format("ab%q", 'c')), narrow + "char");
    EXPECT_EQ(text(String::format("ab%q", "t")), narrow + "const char*");
    EXPECT_EQ(text(String::format("ab%q", String())), narrow + "const String&");
    EXPECT_EQ(text(UniString::format(L"ab%q", 1ll)), narrow + "int64");
    EXPECT_EQ(text(UniString::format(L"ab%q", UniString())), narrow + "const UniString&");
    EXPECT_EQ(text(UniString::format(L"ab%q", L"t")), narrow + "const UniChar16*");
    EXPECT_EQ(text(UniString::format(L"ab%q", L't')), narrow + "UniChar16");
    EXPECT_EQ(text(UniString::format(L"ab%q", "t")), narrow + "const char*");
    EXPECT_EQ(text(String::format("too few", 1)), "too few");
}

struct ParseRow {
    char const* format;
    char letter;
    unsigned short position;
    short precision;
    char sign;
    unsigned short width;
    bool left_justify;
    char pad;
};

// clang-format off
constexpr ParseRow parse_rows[] = {
    {"%d",          'd', 2,  0,   0,   0,   false, ' '},
    {"%-+07.3fxx",  'f', 8,  3,   '+', 7,   true,  '0'},
    {"% 0300.200f", 'f', 11, -56, ' ', 44,  false, '0'},
    {"%00.x",       'x', 5,  0,   0,   0,   false, '0'},
    {"%+-d",        '-', 3,  0,   '+', 0,   false, ' '},
    {"%5",          0,   3,  0,   0,   5,   false, ' '},
    {"%",           0,   2,  0,   0,   0,   false, ' '},
    {"%ld",         'l', 2,  0,   0,   0,   false, ' '},
};
// clang-format on

template <typename Text, typename Unit>
void check_parse(Text const& format, ParseRow const& row) {
    Unit letter = 'z';
    unsigned short position = 1, width = 99;
    short precision = 99;
    char sign = 'z', pad = 'z';
    bool left_justify = !row.left_justify;
    Text::parse_format_arguments(
        format, letter, position, precision, sign, width, left_justify, pad);
    EXPECT_EQ(letter, static_cast<Unit>(row.letter)) << row.format;
    EXPECT_EQ(position, row.position) << row.format;
    EXPECT_EQ(precision, row.precision) << row.format;
    EXPECT_EQ(sign, row.sign) << row.format;
    EXPECT_EQ(width, row.width) << row.format;
    EXPECT_EQ(left_justify, row.left_justify) << row.format;
    EXPECT_EQ(pad, row.pad) << row.format;
}

TEST(Format, parsing_sets_every_output_and_steps_over_the_letter) {
    for (ParseRow const& row : parse_rows) {
        check_parse<String, char>(row.format, row);
        check_parse<UniString, wchar_t>(widen(row.format), row);
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
    letter = 'S';
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
    EXPECT_EQ(both((longest + "%d").c_str(), 5), longest + "5");
    EXPECT_EQ(both((longest + "y%d").c_str(), 5), longest + "y");
    EXPECT_EQ(text(String::format(String((longest + "yzz").c_str()))), longest + "yz");
}

TEST(UntypedFormat, reads_its_list_by_the_letters) {
    EXPECT_EQ(
        untyped("%d|%5i|%-5u|%05d|%+d|% d", -1, 42, 42u, -42, 5, 5), "-1|   42|42   |00-42|+5| 5");
    EXPECT_EQ(untyped("%x|%X|%04X|%-4x|", 255, 255, 255, 255), "ff|ff|00ff|ff  |");
    EXPECT_EQ(
        untyped("%p|%P|%2p", 0xABCDEFll, 0xABCDEFll, 1ll),
        "0000000000abcdef|0000000000abcdef|0000000000000001");
    EXPECT_EQ(untyped("%f|%.2f|%07.1f|%+f", 1.5, 2.0, -1.0, 0.1f), "1.5|2.00|000-1.0|+0.1");
    EXPECT_EQ(untyped("%c%9c%%", 'a', 'b'), "ab%");
    String const string("str");
    EXPECT_EQ(
        untyped("%5s|%-5s|%05s|%5S|%-5S|", "ab", "ab", "ab", &string, &string),
        "   ab|ab   |   ab|  str|str  |");
    EXPECT_EQ(untyped("%llu|%30llu", ~0ull, 7ull), "18446744073709551615|7");
    EXPECT_EQ(
        untyped("%llx|%llx|%llx", 0xFFull, 0x1000000FFull, ~0ull), "0ff|1ff|ffffffffffffffff");
}

TEST(UntypedFormat, has_letters_of_its_own_in_wide_text) {
    EXPECT_EQ(wide_untyped(L"%d|%5d|%u|%x|%X", -1, 42, ~0u, 255, 255), "-1|   42|4294967295|ff|FF");
    EXPECT_EQ(wide_untyped(L"%p|%P", 0xABCDEFll, 0xABCDEFll), "0000000000abcdef|0000000000ABCDEF");
    EXPECT_EQ(
        wide_untyped(L"%c|%9C|%4S|%-4S|%4s|", L'w', L"ab", L"ab", L"ab", "cd"),
        "w|ab|  ab|ab  |  cd|");
    EXPECT_EQ(wide_untyped(L"%llu|%llx", 0xFFull, 0x1000000FFull), "0ff|1ff");
    EXPECT_EQ(wide_untyped(L"%f|%.3f", 1.5, 1.0), "1.5|1.000");
    EXPECT_EQ(wide_untyped(L"text%i", 1), "");
}

TEST(UntypedFormat, a_bad_letter_drops_what_was_built) {
    for (char const* const format :
         {"text%q", "a%", "a%l", "a%ll", "a%ld", "a%lld", "a%lu", "a%D", "a%+-d", "a%o", "a%y",
          "a%A", "a%l%", "%d%5.3"}) {
        EXPECT_EQ(untyped(format, 1, 2), "") << format;
        EXPECT_EQ(text(UniString::format_unsafe(widen(format), 1, 2)), "") << format;
    }
}

TEST(UntypedFormat, takes_an_argument_pointer_only_as_char_pointer) {
    long long slots[] = {5, 0x7F00000006};
    char* const arguments = reinterpret_cast<char*>(slots);
    EXPECT_EQ(text(String::format_unsafe("%d %d", arguments)), "5 6");
    EXPECT_EQ(text(UniString::format_unsafe(L"%d %d", arguments)), "5 6");
    EXPECT_EQ(text(String::format_unsafe("%d", 0)), "0");
    EXPECT_EQ(text(String::format_unsafe("%s", "0")), "0");
    EXPECT_EQ(text(String::format_unsafe("no conversion")), "no conversion");
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
    EXPECT_EQ(text(String::format_signed(std::numeric_limits<int>::min())), "-2147483648");
    EXPECT_EQ(text(String::format64(~0ull)), "18446744073709551615");
    EXPECT_EQ(text(String::format(5u, 2u, "ab")), "bab");
    EXPECT_EQ(text(String::format(5u, 1u, "ab")), std::string(32, 'a'));
    EXPECT_EQ(text(String::format(5u, 0u, "ab")) + text(String::format(0u, 0u, "ab")), "0");
    EXPECT_EQ(text(UniString::format64(~0ull, 2, L"01")), std::string(32, '1'));
    EXPECT_EQ(text(UniString::format64(1ull << 40, 16, L"0123456789ABCDEF")), "10000000000");
}

TEST(NumberText, wide_floats_can_drop_their_zeros) {
    EXPECT_EQ(text(UniString::format(2.0f, 3, true)), "2.000");
    EXPECT_EQ(text(UniString::format(2.0f, 3, false)), "2");
    EXPECT_EQ(text(UniString::format(1.5f, 2, false)), "1.5");
    EXPECT_EQ(text(UniString::format(100.0f, 0, false)), "100");
    EXPECT_EQ(text(UniString::format(-1e20f, 200, false)), "-100000002004087734272");
    EXPECT_EQ(text(UniString::format(12.0f, 0)), "12.");
}

unsigned int blocks;
void count_blocks(void const*, unsigned int size) {
    if (size != 0) ++blocks;
}

TEST(Format, takes_one_block_for_64_characters_and_grows_append_by_append) {
    auto const previous = QX::allocation_hook;
    QX::allocation_hook = count_blocks;
    blocks = 0;
    String const narrow = String::format("%s %d %.2f %20x", "text", 5, 1.5f, 7u);
    UniString const wide = UniString::format(L"%s %d %.2f %p", "text", 5, 1.5f, "p" + 0);
    EXPECT_EQ(blocks, 2u);
    String const grown = String::format("%60d%c%c%c%c%c", 1, 'a', 'b', 'c', 'd', 'e');
    String const leap = String::format("%d%s", 1, std::string(300, 'x').c_str());
    QX::allocation_hook = previous;
    EXPECT_EQ(narrow.capacity(), 64u);
    EXPECT_EQ(wide.capacity(), 64u);
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
