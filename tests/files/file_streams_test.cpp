#include "qx/files/file_streams.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <cerrno>
#include <cstdio>
#include <string>

#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::FileIn;
using QX::FileOut;

// The layouts that the contract gives.
static_assert(sizeof(FileIn) == 16 && sizeof(FileOut) == 16 && sizeof(QX::EndianOut) <= 24);

TEST(FileIn, new_closed_and_missing_files_are_not_found) {
    test::TempFolder const folder;
    FileIn file;
    char byte;
    EXPECT_TRUE(file.error() == 6 && !file.close());
    EXPECT_TRUE(!file.open(folder.file("missing").c_str(), false) && file.error() == 2);
    EXPECT_TRUE(file.read(&byte, 1) == 0 && file.error() == 6);  // a failed read is no short one
    EXPECT_TRUE(file.tell() == ~0u && file.size64() == ~0ull && !file.seek(0));
}

TEST(FileIn, asks_the_system_to_open_as_told) {
    static DWORD asked_share, asked_flags, error_left = 5;
    test::StandIn const open(
        "CreateFileA",
        +[](LPCSTR, DWORD, DWORD share, LPSECURITY_ATTRIBUTES, DWORD, DWORD flags, HANDLE) {
            asked_share = share;
            asked_flags = flags;
            SetLastError(error_left);
            return INVALID_HANDLE_VALUE;
        });
    EXPECT_EQ(FileIn("a", true).status(), QX::FILE_ACCESS_DENIED);
    EXPECT_EQ(asked_flags, 0x68000001u);
    error_left = 0;
    EXPECT_EQ(FileIn("a", false).error(), 2u);
    EXPECT_TRUE(asked_share == 3 && asked_flags == 0x08000001);
}

TEST(FileIn, a_complete_read_does_not_clear_an_earlier_short_one) {
    test::TempFolder const folder;
    FileIn file(folder.write("a", "hello").c_str(), false);
    char bytes[8];
    EXPECT_EQ(file.read(bytes, 5), 5u);
    EXPECT_EQ(file.read(bytes, 0), 0u);
    EXPECT_EQ(file.error(), 0u);
    EXPECT_EQ(file.read(bytes, 1), 0u);
    EXPECT_EQ(file.error(), 38u);
    SetFilePointer(file.os_id(), 0, nullptr, FILE_BEGIN);
    EXPECT_EQ(file.read(bytes, 5), 5u);
    EXPECT_EQ(file.status(), QX::FILE_END_OF_FILE);
    EXPECT_EQ(file.tell(), 5u);
    EXPECT_EQ(file.status(), QX::FILE_OK);
}

TEST(FileStreams, seek_from_the_end_with_a_position_below_zero) {
    test::TempFolder const folder;
    FileIn in(folder.write("a", "abcdef").c_str(), false);
    EXPECT_TRUE(in.seek(-1) && !in.seek(-7) && in.error() == 131 && in.tell64() == 5);
    EXPECT_TRUE(in.seek64(5'000'000'000) && in.tell() == static_cast<unsigned int>(5'000'000'000));
    FileOut out(folder.file("b").c_str());
    out.write("abcdef", 6);
    EXPECT_TRUE(out.seek(-1) && out.tell() == 5 && out.seek64(1) && out.tell64() == 1);
    EXPECT_TRUE(!out.seek(-100) && out.status() == QX::FILE_BAD_COMMAND);
    EXPECT_TRUE(out.tell() == 1 && out.error() == 0);
}

// The lines joined by '|', and the error after the last.
TEST(FileIn, readln_takes_both_orders_of_the_pair_as_one_ending) {
    struct Row {
        std::string bytes, lines;
        unsigned int error;
    };
    Row const rows[] = {{"a\n\rb", "a|b|", 38},       {"a\r\nb\r\n", "a|b|", 0},
                        {"a\n\nb\n", "a||b|", 38},    {"one", "one|", 38},
                        {{"a\0b\n\r", 5}, "a|b|", 0}, {"\r\n\n\r\n", "|||", 38}};
    for (Row const& row : rows) {
        test::TempFolder const folder;
        FileIn file(folder.write("lines", row.bytes).c_str(), false);
        std::string joined;
        unsigned int error = 99;
        for (char line[64]; file.tell() < row.bytes.size();) {
            unsigned int const length = file.readln(line);
            error = file.error();
            joined += std::string(line, length) + (line[length] == 0 ? "|" : "?");
        }
        EXPECT_EQ(joined, row.lines);
        EXPECT_EQ(error, row.error) << row.lines;
    }
}

TEST(FileIn, reads_strings_with_a_length_of_16_bits) {
    std::string const rows[][2] = {
        {{"\x03\0abcd", 6}, "abc"},
        {"", ""},
        {"\x02", std::string(2, 0)},
        {{"\x04\0ab", 4}, {"ab\0\0", 4}},
        {"\x01\x01" + std::string(257, 'y'), std::string(257, 'y')}};
    for (auto const& [bytes, expected] : rows) {
        test::TempFolder const folder;
        FileIn file(folder.write("s", bytes).c_str(), false);
        QX::String text("earlier text");
        EXPECT_EQ(&(file >> text), &file);
        EXPECT_EQ(std::string(text.data(), text.length()), expected);
        EXPECT_EQ(file.error(), bytes.size() < 2 + expected.size() ? 38u : 0u);
    }
}

void note_open(wchar_t const* name, void* user) {
    static_cast<std::wstring*>(user)->append(name).append(L"|");
}

// Names are widened byte by byte.
TEST(FileOut, has_a_hook_of_its_own_that_no_open_calls) {
    test::TempFolder const folder;
    std::string const path = folder.write("caf\xE9.txt", "x");
    std::wstring read, written;
    void* old_user = &read;
    EXPECT_EQ(FileOut::hook_open(note_open, &written, nullptr), nullptr);
    EXPECT_EQ(FileIn::hook_open(note_open, &read, &old_user), nullptr);
    EXPECT_EQ(old_user, nullptr);
    { FileOut file(path.c_str()); }
    FileIn file(path.c_str(), false);
    EXPECT_FALSE(file.open(folder.file("missing").c_str(), false));
    EXPECT_EQ(FileIn::hook_open(nullptr, nullptr, &old_user), note_open);
    EXPECT_EQ(FileOut::hook_open(nullptr, nullptr, nullptr), note_open);
    EXPECT_EQ(old_user, &read);
    EXPECT_EQ(read.substr(folder.path().size()), L"caf\u00E9.txt|");
    EXPECT_EQ(written, L"");
}

TEST(FileOut, writes_appends_and_truncates) {
    test::TempFolder const folder;
    std::string const path = folder.file("a");
    FileOut file;
    EXPECT_TRUE(!file.close() && file.flush() && file.error() == 3);
    EXPECT_TRUE(file.open(path.c_str(), false, false) && file.write("hello\n", 6) == 6);
    EXPECT_TRUE(file.open(path.c_str(), true, false) && file.write("more", 4) == 4);
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(test::read_file(path), "hello\nmore");
    EXPECT_TRUE(file.open(std::wstring(path.begin(), path.end()).c_str(), false, true));
    EXPECT_EQ(test::read_file(path), "");
    EXPECT_FALSE(file.open(folder.file("no\\such\\file").c_str(), false, false));
    EXPECT_EQ(file.error(), static_cast<unsigned int>(ENOENT));
    EXPECT_TRUE(file.write("x", 1) == 0 && !file.seek(0) && file.tell() == ~0u);
}

TEST(FileOut, a_refused_write_shows_the_c_librarys_error_flag) {
    test::TempFolder const folder;
    FileOut file;
    file.file_ = std::fopen(folder.write("a", "abc").c_str(), "rb");
    EXPECT_EQ(file.write("x", 1), 0u);
    auto const flag = static_cast<unsigned int>(std::ferror(file.file()));
    EXPECT_TRUE(flag != 0 && file.error() == flag && file.flush() && file.error() == flag);
}

TEST(EndianOut, reverses_each_value_and_leaves_the_callers_bytes) {
    for (bool const swap : {false, true}) {
        test::TempFolder const folder;
        char const bytes[17] = "0123456789ABCDEF";
        QX::EndianOut file;
        ASSERT_TRUE(file.open(swap, folder.file("a").c_str(), false));
        EXPECT_TRUE(file.write1(bytes) == 1 && file.write2(bytes) == 2 && file.write4(bytes) == 4);
        EXPECT_TRUE(file.write8(bytes) == 8 && file.write16(bytes) == 16);
        EXPECT_TRUE(file.writes(bytes, 3) == 3 && file.close());
        EXPECT_STREQ(bytes, "0123456789ABCDEF");
        EXPECT_EQ(
            test::read_file(folder.file("a")),
            swap ? "010321076543210FEDCBA9876543210012" : "0010123012345670123456789ABCDEF012");
    }
}

TEST(FileInf, tells_size_time_and_flags_of_files_and_folders) {
    test::TempFolder const folder;
    std::string const path = folder.write("a", "12345");
    QX::FileInf inf;
    inf.hidden = inf.reserved = true;
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_TRUE(inf.stat(std::wstring(path.begin(), path.end()).c_str()) && !inf.writable);
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    EXPECT_TRUE(inf.stat(path.c_str()) && inf.size == 5 && !inf.directory && inf.writable);
    EXPECT_NEAR(inf.time, static_cast<double>(time(nullptr)), 100);
    EXPECT_TRUE(inf.stat(folder.path().substr(0, folder.path().size() - 1).c_str()));
    EXPECT_FALSE(inf.stat(folder.file("missing").c_str()));
    EXPECT_TRUE(inf.directory && inf.readable && inf.hidden && inf.reserved);
}

}  // namespace
