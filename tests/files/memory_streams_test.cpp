#include "qx/files/memory_streams.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <string>

#include "qx/files/file_streams.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::MemBuffer;
using QX::MemFileIn;
using QX::TestMemBuffer;

static_assert(sizeof(MemBuffer) == 24 && sizeof(TestMemBuffer) == 24 && sizeof(MemFileIn) == 64);

TEST(MemBuffer, a_transfer_that_is_cut_short_shows_in_the_count_alone) {
    test::Guarded block(10);
    MemBuffer buffer(block.data(), 10);
    EXPECT_EQ(buffer.write("abcdef", 6), 6u);
    EXPECT_EQ(buffer.status(), QX::FILE_OK);
    EXPECT_EQ(buffer.write("0123456789", 10), 4u);
    EXPECT_EQ(buffer.status(), QX::FILE_END_OF_FILE);
    EXPECT_EQ(buffer.write("x", 1), 0u);
    EXPECT_EQ(std::string(block.data(), 10), "abcdef0123");
    EXPECT_TRUE(buffer.seek(-3));
    char out[8] = {};
    EXPECT_EQ(buffer.read(out, 8), 3u);
    EXPECT_STREQ(out, "123");
}

TEST(MemBuffer, seek_moves_first_and_tests_afterwards) {
    char block[10];
    for (bool const counting : {false, true}) {
        MemBuffer real(block, 10);
        TestMemBuffer counted(block, 10);
        auto const seek = [&](int to) { return counting ? counted.seek(to) : real.seek(to); };
        auto const tell = [&] { return counting ? counted.tell() : real.tell(); };
        EXPECT_TRUE(seek(-1));
        EXPECT_EQ(tell(), 9u);
        EXPECT_TRUE(seek(10));
        EXPECT_FALSE(seek(11));
        EXPECT_EQ(tell(), 11u);
        EXPECT_EQ(counting ? counted.read(block, 5) : real.read(block, 5), 0u);
        EXPECT_TRUE(seek(-10));
        EXPECT_FALSE(seek(-12));
        EXPECT_EQ(tell(), static_cast<unsigned int>(-2));
    }
}

TEST(MemBuffer, moves_typed_values_by_their_width_low_byte_first) {
    char block[64] = {};
    MemBuffer out(block, sizeof block);
    out << 'c' << static_cast<unsigned char>(200) << true << static_cast<short>(-2)
        << static_cast<unsigned short>(0x1234) << -5 << 0x89ABCDEFu << 1.5f << -7ll
        << 0x0123456789ABCDEFull << 2.25;
    EXPECT_EQ(out.tell(), 3u + 2 * 2 + 3 * 4 + 3 * 8);
    EXPECT_EQ(std::string(block + 5, 2), "\x34\x12");

    MemBuffer in(block, sizeof block);
    char c;
    unsigned char uc;
    bool b;
    short s;
    unsigned short us;
    int i;
    unsigned int ui;
    float f;
    long long ll;
    unsigned long long ull;
    double d;
    in >> c >> uc >> b >> s >> us >> i >> ui >> f >> ll >> ull >> d;
    EXPECT_TRUE(c == 'c' && uc == 200 && b && s == -2 && us == 0x1234 && i == -5);
    EXPECT_TRUE(ui == 0x89ABCDEF && f == 1.5f && ll == -7 && ull == 0x0123456789ABCDEF);
    EXPECT_EQ(d, 2.25);
    EXPECT_EQ(in.pos(), out.pos());
}

TEST(TestMemBuffer, counts_what_a_run_would_move_and_touches_nothing) {
    char untouched = 'u';
    TestMemBuffer buffer(nullptr, 0xFFFFFFFF);
    buffer << 'c' << true << static_cast<short>(1) << 5 << 1.0f << 7ll << 2.0;
    buffer >> untouched;
    EXPECT_EQ(buffer.tell(), 1u + 1 + 2 + 4 + 4 + 8 + 8 + 1);
    EXPECT_EQ(buffer.write(nullptr, 100), 100u);
    EXPECT_EQ(buffer.read(nullptr, 100), 100u);
    EXPECT_EQ(untouched, 'u');
    EXPECT_TRUE(buffer.seek(-2));
    EXPECT_EQ(buffer.write(nullptr, 10), 2u);
    EXPECT_EQ(buffer.status(), QX::FILE_END_OF_FILE);
}

TEST(TestMemBuffer, readln_ends_at_the_letters_n_and_r) {
    struct Row {
        char const* text;
        unsigned int length, behind;
    };
    for (Row const& row :
         {Row{"one", 1, 2}, {"a\nb\rc", 5, 6}, {"xnry", 1, 3}, {"xrny", 1, 3}, {"", 0, 1}}) {
        char line[8] = "kept";
        char text[16] = {};
        std::strcpy(text, row.text);
        TestMemBuffer buffer(text, sizeof text);
        EXPECT_EQ(buffer.readln(line), row.length) << row.text;
        EXPECT_EQ(buffer.tell(), row.behind) << row.text;
        EXPECT_STREQ(line, "kept");
    }
}

std::string random_text(test::Random& random) {
    std::string text;
    for (unsigned int left = random.below(12); left; --left) text += "ab\n\r\0"[random.below(5)];
    return text;
}

// Reads lines until the cursor is at or past `size`, joined by '|'.
template <typename Stream>
std::string lines_of(Stream& stream, std::size_t size) {
    std::string joined;
    char line[16];
    while (stream.tell() < size) {
        unsigned int const length = stream.readln(line);
        EXPECT_EQ(line[length], 0);
        joined += std::string(line, length) + "|";
    }
    return joined;
}

TEST(MemoryStreams, read_the_lines_that_the_file_stream_reads) {
    test::TempFolder folder;
    test::Random random(1);
    for (int i = 0; i < 300; ++i) {
        std::string const text = random_text(random) + "\n";
        QX::FileIn file(folder.write("lines", text).c_str(), false);
        std::string const expected = lines_of(file, text.size());

        std::string padded = text + std::string(2, '\0');
        MemBuffer buffer(padded.data(), static_cast<unsigned int>(padded.size()));
        MemFileIn block, mapped;
        block.open(padded.data(), static_cast<unsigned int>(text.size()));
        ASSERT_TRUE(mapped.open(folder.file("lines").c_str()));
        ASSERT_EQ(lines_of(buffer, text.size()), expected);
        ASSERT_EQ(lines_of(block, text.size()), expected);
        ASSERT_EQ(lines_of(mapped, text.size()), expected);
    }
}

TEST(MemFileIn, readln_tells_the_end_and_leaves_the_status_after_a_zero_byte) {
    MemFileIn file;
    char line[8];
    file.open("a\r\nb", 4);
    EXPECT_EQ(file.readln(line), 1u);
    EXPECT_STREQ(line, "a");
    EXPECT_EQ(file.status(), QX::FILE_OK);
    EXPECT_EQ(file.readln(line), 1u);
    EXPECT_STREQ(line, "b");
    EXPECT_EQ(file.status(), QX::FILE_END_OF_FILE);
    EXPECT_EQ(file.readln(line), 0u);
    EXPECT_STREQ(line, "");

    file.open("xy\0z", 4);
    EXPECT_FALSE(file.seek(9));
    EXPECT_EQ(file.readln(line), 2u);
    EXPECT_EQ(file.status(), QX::FILE_SEEK_OUT_OF_RANGE);
    EXPECT_EQ(file.tell(), 3u);
}

TEST(MemFileIn, readln_looks_at_the_byte_behind_a_callers_block) {
    MemFileIn file;
    char line[8];
    file.open("a\r\nb", 2);
    EXPECT_EQ(file.readln(line), 1u);
    EXPECT_EQ(file.tell(), 3u);
    EXPECT_EQ(file.readln(line), 0u);
    EXPECT_EQ(file.status(), QX::FILE_END_OF_FILE);
    EXPECT_EQ(file.read(line, 1), 0u);
}

TEST(MemFileIn, a_mapping_that_fills_its_pages_and_ends_with_a_line_end_is_read_safely) {
    test::TempFolder folder;
    std::string const bytes = std::string(0x10000 - 1, 'x') + "\n";
    MemFileIn file;
    ASSERT_TRUE(file.open(folder.write("pages", bytes).c_str()));
    std::string line(bytes.size() + 1, 0);
    EXPECT_EQ(file.readln(line.data()), bytes.size() - 1);
    EXPECT_EQ(file.status(), QX::FILE_OK);
    EXPECT_EQ(file.tell(), bytes.size());
}

TEST(MemFileIn, a_seek_outside_stays_and_says_so) {
    MemFileIn file;
    EXPECT_EQ(file.status(), QX::FILE_NOT_FOUND);
    file.open("abcdef", 6);
    EXPECT_TRUE(file.seek(-2));
    EXPECT_EQ(file.tell(), 4u);
    for (long long const to : {7ll, -7ll, (1ll << 62), -(1ll << 62), -0x7FFFFFFFFFFFFFFF - 1}) {
        EXPECT_FALSE(file.seek64(to));
        EXPECT_EQ(file.status(), QX::FILE_SEEK_OUT_OF_RANGE);
        EXPECT_EQ(file.tell(), 4u);
    }
    EXPECT_TRUE(file.seek(6));
    EXPECT_EQ(file.status(), QX::FILE_OK);
    EXPECT_TRUE(file.seek(-6));
    char bytes[8] = {};
    EXPECT_EQ(file.read(bytes, 6), 6u);
    EXPECT_EQ(file.status(), QX::FILE_OK);
    EXPECT_EQ(file.read(bytes, 1), 0u);
    EXPECT_EQ(file.status(), QX::FILE_END_OF_FILE);
}

TEST(MemFileIn, opens_closes_and_refuses_files) {
    test::TempFolder folder;
    MemFileIn file;
    EXPECT_TRUE(file.close());
    ASSERT_TRUE(file.open(folder.write("a", "hello").c_str()));
    EXPECT_TRUE(file.mapped());
    EXPECT_EQ(file.size64(), 5u);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(file.status(), QX::FILE_NOT_FOUND);
    EXPECT_EQ(file.size(), 0u);

    EXPECT_FALSE(file.open(folder.file("missing").c_str()));
    EXPECT_EQ(file.status(), QX::FILE_NOT_FOUND);
    EXPECT_FALSE(file.open(folder.write("empty", "").c_str()));
    EXPECT_NE(file.status(), QX::FILE_OK);
    EXPECT_EQ(file.owned(), 1u);  // the handle goes with the next open or the end
    std::string const path = folder.file("a");
    EXPECT_TRUE(file.open(std::wstring(path.begin(), path.end()).c_str()));
    EXPECT_EQ(file.owned(), 3u);

    // A block does not end the mapping.
    file.open("block", 5);
    EXPECT_TRUE(file.mapped());
    EXPECT_TRUE(file.close());
    EXPECT_EQ(file.owned(), 0u);
}

TEST(MemFileIn, a_file_open_for_writing_is_a_sharing_violation) {
    test::TempFolder folder;
    QX::FileOut writer(folder.file("a").c_str());
    writer.write("x", 1);
    writer.flush();
    HANDLE const other =
        CreateFileA(folder.file("b").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    MemFileIn file;
    EXPECT_FALSE(file.open(folder.file("b").c_str()));
    EXPECT_EQ(file.status(), QX::FILE_SHARING_VIOLATION);
    CloseHandle(other);
}

LPVOID WINAPI no_view(HANDLE, DWORD, DWORD, DWORD, SIZE_T, LPVOID) {
    return nullptr;
}

TEST(MemFileIn, a_view_that_cannot_be_had_is_a_failed_open) {
    test::TempFolder folder;
    test::StandIn const view("MapViewOfFileEx", no_view);
    ASSERT_TRUE(view.found());
    MemFileIn file;
    EXPECT_FALSE(file.open(folder.write("a", "hello").c_str()));
    EXPECT_EQ(file.size(), 0u);
}

}  // namespace
