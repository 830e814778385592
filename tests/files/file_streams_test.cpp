#include "qx/files/file_streams.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::EndianOut;
using QX::FileIn;
using QX::FileInf;
using QX::FileOut;

// The layouts that the contract gives.
static_assert(sizeof(FileIn) == 16 && sizeof(FileOut) == 16 && sizeof(EndianOut) <= 24);

TEST(FileIn, new_closed_and_missing_files_are_not_found) {
    FileIn file;
    char byte;
    EXPECT_EQ(file.error(), 6u);
    EXPECT_FALSE(file.close());
    test::TempFolder folder;
    EXPECT_FALSE(file.open(folder.file("missing").c_str(), false));
    EXPECT_EQ(file.error(), 2u);
    EXPECT_FALSE(file.open(folder.file("no\\such\\folder").c_str(), false));
    EXPECT_EQ(file.error(), 3u);
    EXPECT_EQ(file.status(), QX::FILE_NOT_FOUND);
    EXPECT_EQ(file.read(&byte, 1), 0u);
    EXPECT_EQ(file.error(), 6u);  // a read that fails is no short read
    EXPECT_TRUE(file.tell() == ~0u && file.tell64() == ~0ull);
    EXPECT_TRUE(file.size() == ~0u && file.size64() == ~0ull);
    EXPECT_FALSE(file.seek(0));
}

DWORD asked_access, asked_share, asked_disposition, asked_flags, error_left;

HANDLE WINAPI note_the_request(
    LPCSTR, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES, DWORD disposition, DWORD flags,
    HANDLE) {
    asked_access = access;
    asked_share = share;
    asked_disposition = disposition;
    asked_flags = flags;
    SetLastError(error_left);
    return INVALID_HANDLE_VALUE;
}

TEST(FileIn, asks_the_system_to_open_as_told) {
    test::StandIn const open("CreateFileA", note_the_request);
    ASSERT_TRUE(open.found());
    error_left = 5;
    FileIn file("a", true);
    EXPECT_EQ(asked_flags, 0x68000001u);
    EXPECT_EQ(file.status(), QX::FILE_ACCESS_DENIED);
    error_left = 0;
    EXPECT_FALSE(file.open("a", false));
    EXPECT_EQ(file.error(), 2u);
    EXPECT_TRUE(asked_access == GENERIC_READ && asked_share == 3);
    EXPECT_TRUE(asked_disposition == OPEN_EXISTING && asked_flags == 0x08000001);
}

TEST(FileIn, a_complete_read_does_not_clear_an_earlier_short_one) {
    test::TempFolder folder;
    FileIn file(folder.write("a", "hello").c_str(), false);
    char bytes[8] = {};
    EXPECT_EQ(file.read(bytes, 5), 5u);
    EXPECT_EQ(file.status(), QX::FILE_OK);
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

TEST(FileIn, seeks_from_the_end_with_a_position_below_zero) {
    test::TempFolder folder;
    FileIn file(folder.write("a", "abcdef").c_str(), false);
    EXPECT_TRUE(file.seek(-1));
    EXPECT_EQ(file.tell(), 5u);
    EXPECT_FALSE(file.seek(-7));
    EXPECT_EQ(file.error(), 131u);
    EXPECT_EQ(file.tell64(), 5u);
    EXPECT_TRUE(file.seek64(5'000'000'000));
    EXPECT_EQ(file.tell64(), 5'000'000'000u);
    EXPECT_EQ(file.tell(), static_cast<unsigned int>(5'000'000'000));
    EXPECT_EQ(file.size(), 6u);
}

// The lines of a file, joined by '|', and the error after the last.
std::string lines_of(std::string const& bytes, unsigned int& error) {
    test::TempFolder folder;
    FileIn file(folder.write("lines", bytes).c_str(), false);
    std::string joined;
    char line[64];
    while (file.tell() < bytes.size()) {
        unsigned int const length = file.readln(line);
        error = file.error();
        EXPECT_EQ(line[length], 0);
        joined += std::string(line, length) + "|";
    }
    return joined;
}

TEST(FileIn, readln_takes_both_orders_of_the_pair_as_one_ending) {
    struct Row {
        std::string bytes, lines;
        unsigned int error;
    };
    Row const table[] = {
        {"a\n\rb", "a|b|", 38},       {"a\r\nb\r\n", "a|b|", 0}, {"a\n\nb\n", "a||b|", 38},
        {"\r\r\n", "||", 0},          {"one", "one|", 38},       {"a\n", "a|", 38},
        {{"a\0b\n\r", 5}, "a|b|", 0}, {"\n\r\n\r", "||", 0},     {"\r\n\n\r\n", "|||", 38},
    };
    for (Row const& row : table) {
        unsigned int error = 99;
        EXPECT_EQ(lines_of(row.bytes, error), row.lines);
        EXPECT_EQ(error, row.error) << row.lines;
    }
}

TEST(FileIn, reads_strings_with_a_length_of_16_bits) {
    struct Row {
        std::string bytes, text;
        unsigned int error;
    };
    Row const table[] = {
        {{"\x03\0abcd", 6}, "abc", 0},
        {{"\0\0x", 3}, "", 0},
        {"", "", 38},
        {"\x02", std::string(2, 0), 38},
        {{"\x04\0ab", 4}, {"ab\0\0", 4}, 38},
        {std::string("\x01\x01") + std::string(257, 'y'), std::string(257, 'y'), 0},
    };
    for (Row const& row : table) {
        test::TempFolder folder;
        FileIn file(folder.write("s", row.bytes).c_str(), false);
        QX::String text("earlier text");
        EXPECT_EQ(&(file >> text), &file);
        EXPECT_EQ(std::string(text.data(), text.length()), row.text);
        EXPECT_EQ(file.error(), row.error);
    }
}

std::vector<std::wstring> hooked;
void* hooked_user;

void note_open(wchar_t const* name, void* user) {
    hooked.push_back(name);
    hooked_user = user;
}

TEST(FileIn, the_open_hook_sees_each_opened_file_widened_byte_by_byte) {
    test::TempFolder folder;
    std::string const narrow = folder.write("caf\xE9.txt", "x");
    int user = 0, other = 0;
    void* old_user = &other;
    hooked.clear();
    EXPECT_EQ(FileIn::hook_open(note_open, &user, &old_user), nullptr);
    EXPECT_EQ(old_user, nullptr);
    FileIn file(narrow.c_str(), false);
    EXPECT_FALSE(file.open(folder.file("missing").c_str(), false));
    ASSERT_EQ(hooked.size(), 1u);
    EXPECT_EQ(FileIn::hook_open(nullptr, nullptr, &old_user), note_open);
    EXPECT_TRUE(old_user == &user && hooked_user == &user);
    EXPECT_EQ(hooked[0].substr(hooked[0].size() - 8), L"caf\u00E9.txt");
}

TEST(FileOut, has_a_hook_of_its_own_that_no_open_calls) {
    test::TempFolder folder;
    hooked.clear();
    EXPECT_EQ(FileOut::hook_open(note_open, nullptr, nullptr), nullptr);
    { FileOut file(folder.file("a").c_str()); }
    EXPECT_EQ(FileIn::hook_open(nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(FileOut::hook_open(nullptr, nullptr, nullptr), note_open);
    EXPECT_TRUE(hooked.empty());
}

TEST(FileOut, writes_appends_and_truncates) {
    test::TempFolder folder;
    std::string const path = folder.file("a");
    FileOut file;
    EXPECT_EQ(file.error(), 3u);
    EXPECT_FALSE(file.close());
    EXPECT_TRUE(file.open(path.c_str(), false, false));
    EXPECT_EQ(file.write("hello\n", 6), 6u);
    EXPECT_TRUE(file.open(path.c_str(), true, false));
    EXPECT_EQ(file.write("more", 4), 4u);
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(test::read_file(path), "hello\nmore");
    EXPECT_TRUE(file.open(std::wstring(path.begin(), path.end()).c_str(), false, true));
    EXPECT_EQ(test::read_file(path), "");
    EXPECT_FALSE(file.open(folder.file("no\\such\\file").c_str(), false, false));
    EXPECT_EQ(file.error(), static_cast<unsigned int>(ENOENT));
    EXPECT_EQ(file.write("x", 1), 0u);
    EXPECT_TRUE(!file.flush() && !file.seek(0) && file.tell() == ~0u);
}

TEST(FileOut, seeks_and_tells_like_the_reader) {
    test::TempFolder folder;
    FileOut file(folder.file("a").c_str());
    file.write("abcdef", 6);
    EXPECT_TRUE(file.seek(-1));
    EXPECT_EQ(file.tell(), 5u);
    EXPECT_TRUE(file.seek64(1));
    EXPECT_EQ(file.tell64(), 1u);
    EXPECT_FALSE(file.seek(-100));
    EXPECT_EQ(file.error(), static_cast<unsigned int>(EINVAL));
    EXPECT_EQ(file.status(), QX::FILE_BAD_COMMAND);
    EXPECT_EQ(file.tell(), 1u);
    EXPECT_EQ(file.error(), 0u);
}

TEST(FileOut, a_refused_write_shows_the_c_librarys_error_flag) {
    test::TempFolder folder;
    FileOut file;
    file.file_ = std::fopen(folder.write("a", "abc").c_str(), "rb");
    file.error_ = 0;
    EXPECT_EQ(file.write("x", 1), 0u);
    EXPECT_EQ(file.error(), static_cast<unsigned int>(std::ferror(file.file())));
    EXPECT_NE(file.error(), 0u);
    unsigned int const kept = file.error();
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(file.error(), kept);
}

TEST(EndianOut, reverses_each_value_and_leaves_the_callers_bytes) {
    char const bytes[17] = "0123456789ABCDEF";
    for (bool const swap : {false, true}) {
        test::TempFolder folder;
        EndianOut file;
        ASSERT_TRUE(file.open(swap, folder.file("a").c_str(), false));
        EXPECT_EQ(file.write1(bytes), 1u);
        EXPECT_EQ(file.write2(bytes), 2u);
        EXPECT_EQ(file.write4(bytes), 4u);
        EXPECT_EQ(file.write8(bytes), 8u);
        EXPECT_EQ(file.write16(bytes), 16u);
        EXPECT_EQ(file.writes(bytes, 3), 3u);
        EXPECT_EQ(file.tell(), 34u);
        EXPECT_TRUE(file.close());
        EXPECT_STREQ(bytes, "0123456789ABCDEF");
        EXPECT_EQ(
            test::read_file(folder.file("a")),
            swap ? "010321076543210FEDCBA9876543210012" : "0010123012345670123456789ABCDEF012");
    }
}

TEST(FileInf, tells_size_time_and_flags_of_files_and_folders) {
    test::TempFolder folder;
    std::string const path = folder.write("a", "12345");
    FileInf inf;
    inf.hidden = inf.reserved = true;
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_TRUE(inf.stat(std::wstring(path.begin(), path.end()).c_str()));
    EXPECT_FALSE(inf.writable);
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    ASSERT_TRUE(inf.stat(path.c_str()));
    EXPECT_EQ(inf.size, 5u);
    EXPECT_NEAR(inf.time, static_cast<double>(time(nullptr)), 100);
    EXPECT_TRUE(inf.readable && inf.writable && !inf.directory);
    EXPECT_TRUE(inf.hidden && inf.reserved);
    EXPECT_TRUE(inf.stat(folder.path().substr(0, folder.path().size() - 1).c_str()));
    EXPECT_FALSE(inf.stat(folder.file("missing").c_str()));
    EXPECT_TRUE(inf.directory && inf.readable);
}

}  // namespace
