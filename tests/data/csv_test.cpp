#include "qx/data/csv.h"

#include <gtest/gtest.h>

#include <string>

#include "qx/memory/heap.h"
#include "tests/harness/failing_call.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"

namespace {

QX::String const fallback("fallback");

// The table as "a|b\nc|d\n", at most `limit` columns a line.
std::string walk(std::string const& text, unsigned int limit = 8) {
    test::Guarded const bytes(text.data(), text.size());
    QX::CSV_FILE file(bytes.data(), static_cast<unsigned int>(text.size()), fallback);
    QX::CSV_LINE line(file, limit);
    std::string joined;
    while (line.readln()) {
        EXPECT_TRUE(line.count() == limit || line.columns()[line.count()] == nullptr);
        EXPECT_EQ(line.line(), file.line());
        for (unsigned int i = 0; i < line.count(); ++i)
            joined += (i ? "|" : "") + std::string(line.get_temp_string(i));
        joined += '\n';
    }
    EXPECT_EQ(line.count() + line.line(), 0u);
    return joined;
}

TEST(Csv, cuts_tables_as_told) {
    std::tuple<char const*, char const*, unsigned int> const rows[] = {
        {"", "", 8},
        {"a\tb\r\nc\td\r\n", "a|b\nc|d\n", 8},
        {"a\n\tb\r\n\n\r\n\r\n", "a\n|b\n\n\n\n", 8},
        {"a\tb\tc\r\nd\r\n", "a|b\nd\n", 2},
        // A carriage return alone takes the next line's first byte with it, whatever that is.
        {"a\rbc\r\td", "a\nc\nd\n", 8},
        // Without a line end the last column reads as text, but an empty one is not there.
        {"a\t", "a\n", 8},
    };
    for (auto const& [text, table, limit] : rows) EXPECT_EQ(walk(text, limit), table) << text;
}

TEST(Csv, a_header_line_gives_the_columns_of_the_lines_below) {
    char const text[] = "name\tcost\tcost\r\nsword\t12abc\t1.5x\r\n";
    QX::CSV_FILE file(text, sizeof(text) - 1, fallback);
    QX::CSV_LINE header(file, 8);
    ASSERT_TRUE(header.readln());
    EXPECT_EQ(header.find_column("cost"), 1u);
    EXPECT_EQ(header.find_column("cos"), QX::CSV_LINE::ncol);

    // A copy reads on from the same file; the first line's texts stay.
    QX::CSV_LINE line(header);
    ASSERT_TRUE(line.readln());
    EXPECT_TRUE(line.get_int32(1) == 12 && line.get_float(2) == 1.5f);
    // What is not there is empty, whatever the default value.
    EXPECT_EQ(line.get_int32(QX::CSV_LINE::ncol), 0);
    EXPECT_STREQ(line.get_temp_string(3), "");
    EXPECT_EQ(header.find_column("name"), 0u);
}

unsigned int taken;

TEST(Csv, takes_the_size_of_the_text_and_a_terminator_only_for_a_line_without_end) {
    std::tuple<std::string, unsigned int> const rows[] = {
        {"", 0},     {"a\tb\r\n", 5}, {"\r\n", 2},  {"a\r\r", 3},
        {"a\tb", 4}, {"b\n", 3},      {"a\n\r", 3}, {"a\r\r\n", 5},
    };
    for (auto const& [text, size] : rows) {
        QX::allocation_hook = [](void const*, unsigned int bytes) { taken += bytes; };
        taken = 0;
        { QX::CSV_FILE const file(text.data(), static_cast<unsigned int>(text.size()), fallback); }
        QX::allocation_hook = nullptr;
        EXPECT_EQ(taken, size) << text;
    }
}

TEST(Csv, takes_all_that_it_needs_or_nothing) {
    auto const read = [] {
        QX::CSV_FILE file("a\tb\r\n", 5, fallback);
        QX::CSV_LINE line(file, 8);
        return line.readln() && QX::CSV_LINE(line).get_temp_string(8) == std::string();
    };
    test::walk_failures("table", read, {});
}

// The rules taken byte by byte, as they are told.
std::string plain_walk(std::string text, unsigned int limit) {
    std::string joined;
    for (std::size_t pos = 0; pos < text.size(); joined += '\n') {
        unsigned int count = 0;
        bool in_column = false, ended = false;
        for (; pos < text.size() && !ended; ++pos) {
            char const c = text[pos];
            ended = c == '\r';
            bool const cut = ended || c == '\t';
            if (!in_column && count++ < limit && count > 1) joined += '|';
            if (!cut && count <= limit) joined += c;
            in_column = !cut;
            if (ended && text[++pos] == '\n') text[pos] = 0;
        }
    }
    return joined;
}

TEST(Csv, random_tables_are_cut_as_by_the_plain_rules) {
    constexpr char separators[] = "\t\t\t\r\n";
    test::Random random;
    for (int round = 0; round < 5000; ++round) {
        // From lines of a few bytes to lines of hundreds.
        unsigned int const rarity = 10 + random.below(random.chance(2) ? 20 : 400);
        std::string text;
        for (auto length = random.below(rarity * 6); length; --length) {
            unsigned int const pick = random.below(rarity);
            text += pick < 5 ? separators[pick] : static_cast<char>('a' + pick % 26);
            if (pick == 5) text += "\r\n";
        }
        unsigned int const limit = random.below(6);
        ASSERT_EQ(walk(text, limit), plain_walk(text, limit));
    }
}

}  // namespace
