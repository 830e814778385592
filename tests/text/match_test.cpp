// match_test.cpp - replacing and wildcards.
#include "qx/text/match.h"

#include <gtest/gtest.h>

#include <string>

#include "qx/text/convert.h"
#include "tests/harness/random.h"

namespace {

using QX::String;
using QX::UniString;

UniString wide(char const* text) {
    return QX::must_fix_string_widen(text);
}

struct Replacement {
    char const *text, *from, *to, *result;
};

// clang-format off
constexpr Replacement replacements[] = {
    {"aXbXc",  "X",   "--",  "a--b--c"},
    {"aab",    "ab",  "b",   "b"},
    {"aaaa",   "aa",  "a",   "a"},
    {"aab",    "ab",  "ba",  "baa"},
    // These could not end: one pass that leaves alone what it put in.
    {"aba",    "a",   "aa",  "aabaa"},
    {"aXa",    "X",   "X",   "aXa"},
    {"ab",     "",    "-",   "-ab"},
    {"",       "",    "-",   ""},
};
// clang-format on

TEST(Replace, starts_again_in_what_it_put_in) {
    for (Replacement const& row : replacements) {
        EXPECT_EQ(QX::replace(row.text, row.from, row.to), row.result) << row.text;
        EXPECT_TRUE(QX::replace(wide(row.text), wide(row.from), wide(row.to)) == wide(row.result));
    }
}

std::string told_replace(std::string text, std::string const& from, std::string const& to) {
    for (std::size_t at; (at = text.find(from)) != std::string::npos;)
        text.replace(at, from.size(), to);
    return text;
}

std::string letters(test::Random& random, unsigned int longest, unsigned int shortest = 0) {
    std::string text;
    for (unsigned int n = shortest + random.below(longest); n > 0; --n)
        text += "ab"[random.below(2)];
    return text;
}

void ignore_block(void const*, unsigned int) {}

// Shrinking and equal lengths always end. Both ways are taken: the one that the hook would see
// step by step, and the one pass.
TEST(Replace, gives_what_the_restarting_search_gives) {
    test::Random random(6);
    for (unsigned int round = 0; round < 20000; ++round) {
        std::string const text = letters(random, 30), from = letters(random, 4, 1);
        std::string const to = letters(random, static_cast<unsigned int>(from.size()));
        std::string const expected = told_replace(text, from, to);
        QX::allocation_hook = round % 2 ? ignore_block : nullptr;
        String const result = QX::replace(text.c_str(), from.c_str(), to.c_str());
        QX::allocation_hook = nullptr;
        ASSERT_EQ(result, expected.c_str()) << text << " " << from << " " << to;
    }
}

struct Pattern {
    char const *name, *pattern;
    bool fits;
};

// clang-format off
constexpr Pattern patterns[] = {
    {"file.txt", "*.TXT",   true},
    {"FILE.txt", "f?le.*",  true},
    {"",         "*",       true},
    {"",         "***",     true},
    {"",         "?",       false},
    {"a",        "",        false},
    {"noext",    "*.*",     true},
    {"noext",    "*.",      false},
    {"noext",    "**.*",    true},
    {"abc",      "a**.*",   true},
    {"a",        "a**.*",   false},
    {"",         "**.*",    false},
    {"@[`{",     "@[`{",    true},
    {"[",        "{",       false},
    {"\xC3\xA9", "\xC3\x89", false},
};
// clang-format on

TEST(Match, follows_its_rows_in_both_widths) {
    for (Pattern const& row : patterns) {
        EXPECT_EQ(QX::matches_dos_pattern(row.name, row.pattern), row.fits)
            << row.name << " " << row.pattern;
        EXPECT_EQ(
            QX::matches_dos_pattern(wide(row.name).c_str(), wide(row.pattern).c_str()), row.fits);
    }
}

// The rule as it is told: a star tries the rest here and at every later place before the end.
bool told_match(char const* name, char const* pattern) {
    for (; *name; ++name, ++pattern) {
        if (*pattern == 0) return false;
        if (*pattern == '*') {
            if (pattern[1] == 0) return true;
            for (; *name; ++name) {
                if (told_match(name, pattern + 1)) return true;
            }
            return false;
        }
        if (*pattern != '?' && *pattern != *name) return false;
    }
    while (*pattern == '*') ++pattern;
    return *pattern == 0;
}

TEST(Match, gives_what_the_recursive_rule_gives) {
    test::Random random(7);
    for (unsigned int round = 0; round < 50000; ++round) {
        std::string const name = letters(random, 9);
        std::string pattern;
        for (unsigned int n = random.below(8); n > 0; --n) pattern += "ab?*"[random.below(4)];
        bool const fits = told_match(name.c_str(), pattern.c_str());
        ASSERT_EQ(QX::matches_dos_pattern(name.c_str(), pattern.c_str()), fits)
            << name << " " << pattern;
    }
}

TEST(Match, many_stars_do_not_take_for_ever) {
    std::string const name(3000, 'a');
    EXPECT_FALSE(QX::matches_dos_pattern(name.c_str(), "*a*a*a*a*a*a*a*a*a*a*a*a*b"));
}

}  // namespace
