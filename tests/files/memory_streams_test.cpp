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

template <typename Buffer>
void expect_ends() {
    test::Guarded const block(10);
    Buffer buffer(block.data(), 10);
    EXPECT_TRUE(buffer.write("abcdef", 6) == 6 && buffer.status() == QX::FILE_OK);
    EXPECT_TRUE(buffer.write("0123456789", 10) == 4 && buffer.status() == QX::FILE_END_OF_FILE);
    EXPECT_TRUE(buffer.seek(-1) && buffer.tell() == 9 && buffer.seek(10));
    unsigned int const past = std::is_same_v<Buffer, TestMemBuffer> ? ~0u : 0;
    EXPECT_TRUE(!buffer.seek(11) && buffer.tell() == 11 && buffer.read(block.data(), 5) == past);
    EXPECT_TRUE(!buffer.seek(-12) && buffer.tell() == ~1u);
}

TEST(MemBuffer, seek_moves_first_and_tests_afterwards) {
    expect_ends<MemBuffer>();
    expect_ends<TestMemBuffer>();
}

// By the value's width on both kinds of buffer, and the same value back.
template <typename... T>
void expect_moves(T... values) {
    char block[64] = {};
    MemBuffer out(block, sizeof block), in = out;
    TestMemBuffer counted(nullptr, 0xFFFFFFFF);
    (out << ... << values);
    (counted << ... << values);
    (counted >> ... >> values);
    EXPECT_EQ(out.tell(), (sizeof values + ...));
    EXPECT_EQ(counted.tell(), 2 * out.tell());
    EXPECT_TRUE(counted.seek(-2) && counted.read(nullptr, 10) == 2);
    auto const same = [&](auto value) {
        auto back = decltype(value)();
        in >> back;
        return back == value;
    };
    EXPECT_TRUE((same(values) && ...));
}

TEST(MemBuffer, moves_typed_values_by_their_width_low_byte_first) {
    expect_moves('c', static_cast<unsigned char>(200), true, static_cast<short>(-2));
    expect_moves(static_cast<unsigned short>(0x1234), -5, 0x89ABCDEFu, 1.5f);
    expect_moves(-7ll, 0x0123456789ABCDEFull, 2.25);
    char block[2];
    MemBuffer(block, 2) << static_cast<short>(0x1234);
    EXPECT_EQ(std::string(block, 2), "\x34\x12");
}

TEST(TestMemBuffer, readln_ends_at_the_letters_n_and_r) {
    struct Row {
        char text[8];
        unsigned int length, behind;
    };
    for (Row row :
         {Row{"one", 1, 2}, {"a\nb\rc", 5, 6}, {"xnry", 1, 3}, {"xrny", 1, 3}, {"", 0, 1}}) {
        TestMemBuffer buffer(row.text, sizeof row.text);
        char line[8] = "kept";
        EXPECT_EQ(buffer.readln(line), row.length) << row.text;
        EXPECT_EQ(buffer.tell(), row.behind) << row.text;
        EXPECT_STREQ(line, "kept");
    }
}

// Reads lines until the cursor is at or past `size`, joined by '|'.
template <typename Stream>
std::string lines_of(Stream& stream, std::size_t size) {
    std::string joined;
    for (char line[16]; stream.tell() < size;) {
        unsigned int const length = stream.readln(line);
        joined += std::string(line, length) + (line[length] == 0 ? "|" : "?");
    }
    return joined;
}

TEST(MemoryStreams, read_the_lines_that_the_file_stream_reads) {
    test::TempFolder const folder;
    test::Random random(1);
    for (int i = 0; i < 300; ++i) {
        std::string text = "\n";
        for (unsigned int left = random.below(12); left; --left)
            text.insert(text.begin(), "ab\n\r\0"[random.below(5)]);
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
    EXPECT_TRUE(file.readln(line) == 1 && file.status() == QX::FILE_OK);
    EXPECT_EQ(file.readln(line), 1u);
    EXPECT_STREQ(line, "b");
    EXPECT_EQ(file.status(), QX::FILE_END_OF_FILE);
    file.open("xy\0z", 4);
    EXPECT_TRUE(!file.seek(9) && file.readln(line) == 2 && file.tell() == 3);
    EXPECT_EQ(file.status(), QX::FILE_SEEK_OUT_OF_RANGE);
}

TEST(MemFileIn, readln_looks_at_the_byte_behind_a_callers_block) {
    MemFileIn file;
    char line[8];
    file.open("a\r\nb", 2);
    EXPECT_TRUE(file.readln(line) == 1 && file.tell() == 3 && file.readln(line) == 0);
    EXPECT_TRUE(file.status() == QX::FILE_END_OF_FILE && file.read(line, 1) == 0);
    // Not behind a mapping, whose page may be the last.
    test::TempFolder const folder;
    ASSERT_TRUE(file.open(folder.write("pages", std::string(0xFFFF, 'x') + "\n").c_str()));
    std::string all(0x10000, 0);
    EXPECT_TRUE(file.readln(all.data()) == 0xFFFF && file.tell() == 0x10000);
}

TEST(MemFileIn, a_seek_outside_stays_and_says_so) {
    MemFileIn file;
    file.open("abcdef", 6);
    EXPECT_TRUE(file.seek(-2));
    for (long long const to : {7ll, -7ll, (1ll << 62), -(1ll << 62), -0x7FFFFFFFFFFFFFFF - 1}) {
        EXPECT_FALSE(file.seek64(to));
        EXPECT_EQ(file.status(), QX::FILE_SEEK_OUT_OF_RANGE);
        EXPECT_EQ(file.tell(), 4u);
    }
    char bytes[8];
    EXPECT_TRUE(file.read(bytes, 3) == 2 && file.status() == QX::FILE_END_OF_FILE);
    EXPECT_TRUE(file.seek(6) && file.seek(-6));
}

TEST(MemFileIn, opens_closes_and_refuses_files) {
    test::TempFolder const folder;
    std::string const path = folder.write("a", "hello");
    MemFileIn file;
    EXPECT_FALSE(file.open(folder.file("missing").c_str()));
    EXPECT_EQ(file.status(), QX::FILE_NOT_FOUND);
    EXPECT_FALSE(file.open(folder.write("empty", "").c_str()));
    EXPECT_NE(file.status(), QX::FILE_OK);
    EXPECT_EQ(file.owned(), 1u);  // the handle goes with the next open or the end
    EXPECT_TRUE(file.open(std::wstring(path.begin(), path.end()).c_str()));
    EXPECT_TRUE(file.owned() == 3 && file.size64() == 5);
    file.open("block", 5);  // does not end the mapping
    EXPECT_TRUE(file.mapped() && file.close() && file.owned() == 0);
    EXPECT_EQ(file.status(), QX::FILE_NOT_FOUND);
    test::StandIn const view(
        "MapViewOfFileEx", +[]() -> LPVOID { return nullptr; });
    EXPECT_FALSE(file.open(path.c_str()));
    EXPECT_EQ(file.size(), 0u);
}

}  // namespace
