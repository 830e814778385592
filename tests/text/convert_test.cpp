// convert_test.cpp - UTF-8 and back beside the plain stepping rules, malformed input included.
#include "qx/text/convert.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/harness/guarded.h"
#include "tests/harness/random.h"

namespace {

using QX::String;
using QX::UniString;

// The rules one byte and one unit at a time.
std::wstring plain_decode(std::string const& text) {
    std::wstring units;
    for (std::size_t i = 0; i < text.size();) {
        auto const byte = [&](std::size_t k) { return static_cast<unsigned char>(text[i + k]); };
        std::size_t const count = byte(0) < 0x80 ? 1 : byte(0) & 0x20 ? 3 : 2;
        if (i + count > text.size()) break;
        unsigned int unit = byte(0);
        if (count == 2) unit = (unit << 6) + byte(1) - 0x3080;
        if (count == 3) unit = (((unit << 6) + byte(1)) << 6) + byte(2) - 0x2080;
        units += static_cast<wchar_t>(unit);
        i += count;
    }
    return units;
}

std::string plain_encode(std::wstring const& units) {
    std::string text;
    for (unsigned int const c : units) {
        unsigned int const middle = c < 0x800 ? 0xC0 | c >> 6 : 0x80 | (c >> 6 & 0x3F);
        if (c >= 0x800) text += static_cast<char>(0xE0 | c >> 12);
        if (c >= 0x80) text += static_cast<char>(middle);
        text += static_cast<char>(c < 0x80 ? c : 0x80 | (c & 0x3F));
    }
    return text;
}

// Source and target both end at guard pages: a read or write too far faults.
template <typename From, typename To>
void check(
    std::basic_string<From> const& text, std::basic_string<To> const& expected,
    To* (*convert)(To*, From const*)) {
    test::Guarded const source(text.c_str(), (text.size() + 1) * sizeof(From));
    test::Guarded const target((expected.size() + 1) * sizeof(To));
    auto const from = reinterpret_cast<From const*>(source.data());
    auto const to = reinterpret_cast<To*>(target.data());
    ASSERT_EQ(QX::utf8_length(from), expected.size());
    To* const end = convert(to, from);
    ASSERT_EQ(std::basic_string<To>(to, end), expected);
    ASSERT_EQ(*end, 0);
}

TEST(Convert, encodes_each_unit_by_itself) {
    UniString units;
    for (unsigned int c = 1; c <= 0xFFFF; ++c) units += static_cast<wchar_t>(c);
    for (wchar_t const c : {0x7F, 0x80, 0x7FF, 0x800, 0xFFFF})
        check(std::wstring(1, c), plain_encode(std::wstring(1, c)), QX::utf8_encode);
    String const text = QX::must_fix_string_narrow(units);
    EXPECT_EQ(text.length(), 0x7Fu + 2 * 0x780 + 3 * 0xF800);
    EXPECT_EQ(text.capacity(), text.length());
    EXPECT_TRUE(QX::must_fix_string_widen(text) == units);
    EXPECT_EQ(QX::must_fix_string_narrow(L"\xD83D\xDE00"), "\xED\xA0\xBD\xED\xB8\x80");
    EXPECT_EQ(QX::must_fix_string_narrow(UniString()).c_str(), String::static_empty_string());
    EXPECT_EQ(QX::must_fix_string_narrow(UniString(L"a\0b", 3)), "a");
}

// Runs of ASCII, of sequences and of any bytes, so that blocks of every kind follow each other.
std::string mixture(test::Random& random, unsigned int size) {
    std::string text;
    while (text.size() < size) {
        unsigned int const kind = random.below(4);
        for (unsigned int n = random.below(30); n > 0; --n) {
            wchar_t const unit = static_cast<wchar_t>(0x80 + random.below(0xFF00));
            if (kind == 0) text += static_cast<char>(1 + random.below(0x7F));
            if (kind == 1) text += plain_encode(std::wstring(1, unit));
            if (kind == 2) text += plain_encode(std::wstring(1, unit & 0x7FF));
            if (kind == 3 && random.chance(2)) text += static_cast<char>(1 + random.below(0xFF));
        }
    }
    std::erase(text, '\0');
    return text.substr(0, size);
}

TEST(Convert, follows_the_stepping_rules_whatever_the_text_is) {
    test::Random random(3);
    for (unsigned int round = 0; round < 2400 && !HasFatalFailure(); ++round) {
        bool const over_pages = round % 32 == 0;
        std::string const text = mixture(random, round / 4 + over_pages * 4096);
        check(text, plain_decode(text), QX::utf8_decode);
        std::wstring units = plain_decode(text + text);
        std::erase(units, L'\0');
        check(units, plain_encode(units), QX::utf8_encode);
    }
}

template <typename Text>
void check_cases(int limit) {
    Text all;
    for (int c = 1; c < limit; ++c) all += static_cast<typename Text::value_type>(c);
    Text const lower = QX::lowercase(all), upper = QX::uppercase(all);
    for (unsigned int i = 0; i < all.length(); ++i) {
        ASSERT_EQ(lower[i], all[i] >= 'A' && all[i] <= 'Z' ? all[i] + 32 : all[i]);
        ASSERT_EQ(upper[i], all[i] >= 'a' && all[i] <= 'z' ? all[i] - 32 : all[i]);
    }
}

TEST(Convert, case_changes_touch_ascii_letters_alone) {
    check_cases<String>(256);
    check_cases<UniString>(0x400);
    String text("ABC");
    char const* const block = text.c_str();
    EXPECT_EQ(QX::lowercase(static_cast<String&&>(text)).c_str(), block);
}

}  // namespace
