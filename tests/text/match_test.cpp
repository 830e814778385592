// match_test.cpp - replacing and wildcards.
#include "qx/text/match.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "qx/text/convert.h"
#include "tests/harness/random.h"

namespace {

using QX::String;

auto const wide = [](char const* text) { return QX::must_fix_string_widen(text); };

// The last four could not end: one pass that leaves alone what it put in.
constexpr char const* replacements[][4] = {
    {"aXbXc", "X", "--", "a--b--c"}, {"aab", "ab", "b", "b"},
    {"aaaa", "aa", "a", "a"},        {"aab", "ab", "ba", "baa"},
    {"aba", "a", "aa", "aabaa"},     {"aXa", "X", "X", "aXa"},
    {"ab", "", "-", "-ab"},          {"", "", "-", ""}};

TEST(Replace, starts_again_in_what_it_put_in) {
    for (auto const& [text, from, to, result] : replacements) {
        EXPECT_EQ(QX::replace(text, from, to), result) << text;
        EXPECT_TRUE(QX::replace(wide(text), wide(from), wide(to)) == wide(result)) << text;
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

// Shrinking and equal lengths always end. Both ways are taken: the one that the hook would see
// step by step, and the one pass.
TEST(Replace, gives_what_the_restarting_search_gives) {
    test::Random random(6);
    for (unsigned int round = 0; round < 20000; ++round) {
        std::string const text = letters(random, 30), from = letters(random, 4, 1);
        std::string const to = letters(random, static_cast<unsigned int>(from.size()));
        std::string const expected = told_replace(text, from, to);
        if (round % 2) QX::allocation_hook = [](void const*, unsigned int) {};
        String const result = QX::replace(text.c_str(), from.c_str(), to.c_str());
        QX::allocation_hook = nullptr;
        ASSERT_EQ(result, expected.c_str()) << text << " " << from << " " << to;
    }
}

constexpr struct {
    char const *name, *pattern;
    bool fits;
} patterns[] = {{"file.txt", "*.TXT", true},    {"FILE.txt", "f?le.*", true},
                {"noext", "*.*", true},         {"noext", "*.", false},
                {"noext", "**.*", true},        {"", "**.*", false},
                {"@[`{", "@[`{", true},         {"[", "{", false},
                {"\xC3\xA9", "\xC3\x89", false}};

TEST(Match, follows_its_rows_in_both_widths) {
    for (auto const& [name, pattern, fits] : patterns) {
        EXPECT_EQ(QX::matches_dos_pattern(name, pattern), fits) << name << " " << pattern;
        EXPECT_EQ(QX::matches_dos_pattern(wide(name).c_str(), wide(pattern).c_str()), fits);
    }
}

// The rule as it is told: a star tries the rest here and at every later place before the end.
bool told_match(char const* name, char const* pattern) {
    if (*pattern == '*' && pattern[1] == 0) return true;
    if (*name == 0) return pattern[std::strspn(pattern, "*")] == 0;
    if (*pattern != '*')
        return (*pattern == '?' || *pattern == *name) && told_match(name + 1, pattern + 1);
    for (; *name; ++name)
        if (told_match(name, pattern + 1)) return true;
    return false;
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
