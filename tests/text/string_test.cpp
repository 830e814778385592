// string_test.cpp - String and UniString: storage states, blocks, failures, comparison, search.
#include "qx/text/string.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>

#include "tests/harness/failing_allocation.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"

namespace {

using QX::String;
using QX::UniString;

char blocks[] = "0/0";

void count_blocks(void const*, unsigned int size) {
    ++blocks[size ? 0 : 2];
}

// The blocks that `work` took and gave back, as "taken/freed".
std::string blocks_of(std::function<void()> const& work) {
    blocks[0] = blocks[2] = '0';
    QX::allocation_hook = count_blocks;
    work();
    QX::allocation_hook = nullptr;
    return blocks;
}

TEST(String, shares_one_terminator_between_the_library_and_its_clients) {
    String const from_library = String("a").substr(1) + String();
    EXPECT_EQ(String().c_str(), from_library.c_str());
    EXPECT_EQ(UniString().c_str(), (UniString() + UniString()).c_str());
    EXPECT_EQ(String("").c_str(), String::static_empty_string());
    EXPECT_EQ(String(0u, 'x').c_str(), String::static_empty_string());
    String const text("ab");
    EXPECT_NE(&QX::CHAR_TRAITS<char>::eos(), String::static_empty_string());
    for (char const* past : {&text[2], &text[0xFFFFFFFF], &String().back()})
        EXPECT_EQ(past, &QX::CHAR_TRAITS<char>::eos());
    EXPECT_EQ(std::string(text.rbegin(), text.rend()) + text.back(), "bab");
    EXPECT_EQ(std::min(String::npos, UniString::npos), 0xFFFFFFFFu);  // bound to references
}

TEST(String, takes_numbers_as_room_and_characters_as_text) {
    EXPECT_EQ(String(10).capacity() + UniString(10u).capacity(), 20u);
    EXPECT_EQ(String(10) + String('a') + String(3, 'x') + String("abcd", 2), "axxxab");
    EXPECT_EQ(UniString(10) + UniString(L'a') + UniString(3, L'x'), L"axxx");
    EXPECT_EQ(String(String("abcd"), 1, 2), "bc");
    EXPECT_EQ(String("a\0b", 3).length(), 3u);
}

TEST(String, grows_no_further_than_its_length_can_tell) {
    String text("abc");
    text.length_ = text.capacity_ = 0xFFFFFFF0;  // as if its block were as long
    EXPECT_THROW(text += String(16u, 'x'), std::bad_alloc);
    text.length_ = text.capacity_ = 3;
    EXPECT_EQ(text, "abc");
}

TEST(String, position_beyond_the_length_wraps_where_nothing_clamps) {
    char read[3];
    EXPECT_EQ(String("abcdef").copy(read, 9, 4), 2u);
    // Behind a length of 2 in a block of 6: the count is not cut.
    String shortened("abcdef");
    shortened.resize(2);
    EXPECT_EQ(shortened.copy(read, 3, 3), 3u);
    EXPECT_EQ(std::string_view(read, 3), "def");
    EXPECT_EQ(shortened.substr(3, 3), "def");
    EXPECT_EQ(shortened.compare(3, 3, "def"), 0);
}

TEST(String, the_allocation_hook_sees_every_block_of_the_long_way) {
    String a("0123456789");
    String const b("abc");
    UniString const w(L"abc");
    a.reserve(100);
    EXPECT_EQ(blocks_of([&] { String copy(a); }), "1/1");
    EXPECT_EQ(blocks_of([&] { a += b; }), "0/0");
    EXPECT_EQ(blocks_of([&] { a += "literal"; }), "1/1");
    EXPECT_EQ(blocks_of([&] { String sum = b + b; }), "2/2");
    EXPECT_EQ(blocks_of([&] { UniString sum = w + L"x"; }), "2/2");
    EXPECT_EQ(blocks_of([&] { a.find("needle"); }), "1/1");
    EXPECT_EQ(blocks_of([&] { a.clear_and_dealloc(); }), "0/1");
    EXPECT_EQ(a.c_str() + a.capacity() + a.length(), String::static_empty_string());
}

// Each row changes a string of capacity 5 in a way that takes a block.
TEST(String, failed_allocation_leaves_the_target_as_it_was) {
    String const longer("a longer text");
    std::function<void(String&)> const operations[] = {
        [&](String& s) { s = longer; },     [&](String& s) { s += longer.c_str(); },
        [&](String& s) { s += s; },         [&](String& s) { s += 'x'; },
        [&](String& s) { s.reserve(6); },   [&](String& s) { s.resize(6, 'x'); },
        [&](String& s) { s = s + longer; }, [&](String& s) { s = s.substr(1, 2); },
    };
    for (auto const& operation : operations) {
        int failures = 0;
        auto const change = [&](test::Attempt const& attempt) {
            String target("abcde");
            char const* const block = target.c_str();
            if (attempt([&] { operation(target); })) return;
            EXPECT_TRUE(target.c_str() == block && target.capacity() == 5);
            EXPECT_EQ(target, "abcde");
            ++failures;
        };
        test::walk_allocations({{"change", change}});
        EXPECT_GT(failures, 0) << "row " << &operation - operations << " took no block";
    }
}

TEST(String, compares_bytes_as_signed_and_wide_units_as_unsigned) {
    EXPECT_LT(String("\xE9").compare("a"), 0);
    EXPECT_GT(UniString(L"\xE9").compare(UniString(L"a")), 0);
    EXPECT_EQ(String("xaby").compare(1, 2, "ab"), 0);
    EXPECT_EQ(String("xab").compare(1, 99, "abc", 2), 0);
    EXPECT_TRUE(String("\x80") < String("") + "0");
    EXPECT_TRUE(UniString(L"b") >= UniString(L"a") && !(UniString(L"a") > UniString(L"a")));
    EXPECT_TRUE(String("a") != "b" && String("a") <= String("a"));
    // Equality with a wide text stops at its terminator.
    test::Guarded const text(L"ab", sizeof L"ab");
    auto const wide = reinterpret_cast<wchar_t const*>(text.data());
    EXPECT_TRUE(UniString(L"ab") == wide && UniString(L"abcd") != wide && UniString(L"a") != wide);
    EXPECT_FALSE(UniString(L"ab\0c", 4) == wide);
}

// The string's memory is borrowed and ends at a guard page, its terminator behind it: a search must
// not touch even that. Without capacity it frees nothing.
template <typename Text, typename Unit>
void search_like_the_model(unsigned int length, test::Random& random) {
    std::basic_string<Unit> model;
    for (unsigned int i = 0; i < length; ++i) model += static_cast<Unit>('a' + random.below(3));
    test::Guarded const memory(model.data(), model.size() * sizeof(Unit));
    Text text;
    text.storage_ = reinterpret_cast<Unit*>(memory.data());
    text.length_ = length;
    for (unsigned int round = 0; round < 12; ++round) {
        unsigned int const pos = random.below(length + 2);
        unsigned int const from = random.below(length + 1);
        auto needle = model.substr(from, random.below(6) + (random.chance(4) ? 20 : 0));
        if (!needle.empty() && random.chance(2)) needle.back() = 'd';
        auto const start = std::min<std::size_t>(pos, length);
        auto expected = static_cast<unsigned int>(model.find(needle, start));
        if (needle.empty() && start == length) expected = Text::npos;
        ASSERT_EQ(text.find(Text(needle.data(), needle.size()), pos), expected);
        auto const before = model.substr(0, start);
        ASSERT_EQ(
            text.rfind(Text(needle.data(), needle.size()), pos), unsigned(before.rfind(needle)));
        Unit const wanted = static_cast<Unit>('b' + random.below(3));
        ASSERT_EQ(text.find(wanted, pos), unsigned(model.find(wanted, start)));
        ASSERT_EQ(text.rfind(wanted, pos), unsigned(before.rfind(wanted)));
    }
    text.storage_ = Text::static_empty_string();
}

// Texts of every length whose terminator is the last unit before the guard page.
template <typename Unit>
void measure_and_compare(unsigned int length) {
    using Traits = QX::CHAR_TRAITS<Unit>;
    std::basic_string<Unit> const model(length, Unit('x'));
    test::Guarded const a(model.data(), (length + 1) * sizeof(Unit));
    auto const text = reinterpret_cast<Unit*>(a.data());
    test::Guarded const b(model.data(), (length + 1) * sizeof(Unit));
    auto const other = reinterpret_cast<Unit*>(b.data());
    for (unsigned int at = 0; at < length; ++at) {
        ASSERT_EQ(Traits::length(text + at), length - at);
        ASSERT_EQ(Traits::compare(text + at, other + at, length - at), 0);
        other[at] = static_cast<Unit>(-2);  // below 'x' as a char, above it as a wide unit
        ASSERT_EQ(Traits::compare(text, other, length) > 0, sizeof(Unit) == 1);
        ASSERT_EQ(Traits::compare(text, other, at), 0);
        ASSERT_EQ(Traits::find(other, length, static_cast<Unit>(-2)), other + at);
        other[at] = 'x';
    }
}

TEST(String, searches_like_the_model_and_reads_nothing_outside) {
    test::Random random(1);
    for (unsigned int length = 0; length < 150; ++length) {
        search_like_the_model<String, char>(length, random);
        search_like_the_model<UniString, wchar_t>(length, random);
        measure_and_compare<char>(length / 2);
        measure_and_compare<wchar_t>(length / 2);
    }
}

}  // namespace
