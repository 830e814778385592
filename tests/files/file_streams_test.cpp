#include "qx/files/file_streams.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "qx/files/error_codes.h"
#include "qx/files/memory_streams.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::FileIn;
using QX::FileOut;
using QX::MemBuffer;
using QX::MemFileIn;

// The layout that the contract gives.
static_assert(sizeof(FileIn) == 16 && sizeof(FileOut) == 16 && sizeof(QX::EndianOut) <= 24);

test::TempFolder const folder;

std::wstring wide(std::string const& path) {
    return std::wstring(path.begin(), path.end());
}

// --- Status -------------------------------------------------------------------------------------

TEST(FileStatus, folds_every_raw_number_in_two_ways) {
    std::map<unsigned int, std::pair<int, int>> const rows = {
        {0, {0, 0}},     {38, {1, 1}},   {997, {2, 2}},  {2, {3, 3}},     {3, {3, 3}},
        {6, {3, 3}},     {161, {3, 24}}, {183, {4, 4}},  {8, {6, 6}},     {14, {6, 24}},
        {1816, {24, 6}}, {5, {7, 7}},    {13, {7, 24}},  {87, {19, 19}},  {998, {24, 19}},
        {123, {20, 20}}, {32, {21, 21}}, {22, {22, 24}}, {1006, {23, 24}}};
    for (unsigned int raw = 0; raw < 70000; ++raw) {
        auto const row = rows.find(raw);
        auto const [status, open] = row != rows.end() ? row->second : std::pair(24, 24);
        ASSERT_EQ(QX::status_of_error(raw), status) << raw;
        ASSERT_EQ(QX::status_of_open_error(raw), open) << raw;
    }
    EXPECT_EQ(QX::file_status(INVALID_HANDLE_VALUE), QX::FILE_UNKNOWN_ERROR);
    EXPECT_EQ(QX::file_status(nullptr), QX::FILE_OK);
}

TEST(LastErrorText, tells_the_number_and_the_words_of_the_system_or_the_c_library) {
    char words[512] = {};
    FormatMessageA(0x1200, nullptr, 22, 0, words, sizeof words, nullptr);
    std::string const meaning = "22 which means:\n\n";
    for (auto const text :
         {QX::file_in_last_error, QX::async_in_last_error, QX::mem_file_in_last_error,
          QX::pack_file_last_error}) {
        SetLastError(22);
        EXPECT_EQ(text().c_str(), "QX::GetLastError() returned " + meaning + words + "\n");
    }
    errno = 22;
    for (auto const text : {QX::file_out_last_error, QX::endian_out_last_error})
        EXPECT_EQ(text().c_str(), "errno = " + meaning + std::strerror(22) + "\n");
    SetLastError(9999);
    EXPECT_EQ(QX::file_in_last_error(), "QX::GetLastError() returned 9999 which means:\n\n\n");
}

// --- Files --------------------------------------------------------------------------------------

DWORD asked_share, asked_flags, error_left;

HANDLE WINAPI
refuse_open(LPCSTR, DWORD, DWORD share, LPSECURITY_ATTRIBUTES, DWORD, DWORD flags, HANDLE) {
    asked_share = share;
    asked_flags = flags;
    SetLastError(error_left);
    return INVALID_HANDLE_VALUE;
}

TEST(FileIn, asks_the_system_to_open_as_told) {
    test::StandIn const open("CreateFileA", refuse_open);
    error_left = 5;
    EXPECT_EQ(FileIn("a", true).status(), QX::FILE_ACCESS_DENIED);
    EXPECT_EQ(asked_flags, 0x68000001u);
    error_left = 0;
    EXPECT_EQ(FileIn("a", false).error(), 2u);
    EXPECT_TRUE(asked_share == 3 && asked_flags == 0x08000001);
}

TEST(FileIn, a_complete_read_does_not_clear_an_earlier_short_one) {
    FileIn file;
    char bytes[8];
    EXPECT_TRUE(file.error() == 6 && !file.close());
    EXPECT_TRUE(!file.open(folder.file("missing").c_str(), false) && file.error() == 2);
    EXPECT_TRUE(file.read(bytes, 1) == 0 && file.error() == 6);  // a failed read is no short one
    EXPECT_TRUE(file.tell() == ~0u && file.size64() == ~0ull && !file.seek(0));
    ASSERT_TRUE(file.open(folder.write("a", "hello").c_str(), false));
    EXPECT_TRUE(file.read(bytes, 5) == 5 && file.read(bytes, 0) == 0 && file.error() == 0);
    EXPECT_TRUE(file.read(bytes, 1) == 0 && file.error() == 38);
    SetFilePointer(file.os_id(), 0, nullptr, FILE_BEGIN);
    EXPECT_TRUE(file.read(bytes, 5) == 5 && file.status() == QX::FILE_END_OF_FILE);
    EXPECT_TRUE(file.tell() == 5 && file.status() == QX::FILE_OK);
    EXPECT_TRUE(file.open(folder.write("b", "a\n").c_str(), false) && file.readln(bytes) == 1);
    EXPECT_EQ(file.error(), 38u);  // looks for the other half of the pair
}

TEST(FileStreams, seek_from_the_end_with_a_position_below_zero) {
    FileIn in(folder.write("a", "abcdef").c_str(), false);
    EXPECT_TRUE(in.seek(-1) && !in.seek(-7) && in.error() == 131 && in.tell64() == 5);
    EXPECT_TRUE(in.seek64(5'000'000'000) && in.tell() == static_cast<unsigned int>(5'000'000'000));
    FileOut out(folder.file("b").c_str());
    EXPECT_TRUE(out.write("abcdef", 6) == 6 && out.seek(-1) && out.tell() == 5 && out.seek64(1));
    EXPECT_TRUE(!out.seek(-100) && out.status() == QX::FILE_BAD_COMMAND);
    EXPECT_TRUE(out.tell64() == 1 && out.error() == 0);
}

TEST(FileStreams, mark_themselves_closed_as_they_die) {
    std::string const name = folder.write("a", "abc");
    auto const status_after = [&](auto* stream) {
        std::destroy_at(stream);
        return stream->status();
    };
    alignas(16) unsigned char room[64];
    EXPECT_EQ(status_after(new (room) FileIn(name.c_str(), false)), QX::FILE_NOT_FOUND);
    auto* const mapped = new (room) MemFileIn;
    EXPECT_TRUE(mapped->open(name.c_str()) && mapped->view()->size() == 3);
    EXPECT_EQ(status_after(mapped), QX::FILE_NOT_FOUND);
    auto* const out = new (room) FileOut(name.c_str());
    EXPECT_TRUE(status_after(out) == QX::FILE_NOT_FOUND && out->error() == 6);
    std::memset(room, 1, sizeof room);
    void* volatile place = room;  // read twice, so that the inlined end is not seen through
    std::destroy_at(new (place) MemBuffer(reinterpret_cast<char*>(room), 3));
    EXPECT_EQ(static_cast<MemBuffer*>(place)->end_, nullptr);
}

TEST(FileIn, reads_strings_with_a_length_of_16_bits) {
    std::string const rows[][2] = {
        {{"\x03\0abcd", 6}, "abc"},
        {"\x02", std::string(2, 0)},
        {{"\x04\0ab", 4}, {"ab\0\0", 4}},
        {"\x01\x01" + std::string(257, 'y'), std::string(257, 'y')}};
    for (auto const& [bytes, expected] : rows) {
        FileIn file(folder.write("s", bytes).c_str(), false);
        QX::String text("earlier text");
        EXPECT_EQ(&(file >> text), &file);
        EXPECT_EQ(std::string(text.data(), text.length()), expected);
        EXPECT_EQ(file.error(), bytes.size() < 2 + expected.size() ? 38u : 0u);
    }
}

// Names are widened byte by byte.
TEST(FileOut, has_a_hook_of_its_own_that_no_open_calls) {
    std::wstring read, written;
    void* old_user = nullptr;
    auto const note =
        +[](wchar_t const* name, void* user) { *static_cast<std::wstring*>(user) = name; };
    EXPECT_EQ(FileOut::hook_open(note, &written, nullptr), nullptr);
    EXPECT_EQ(FileIn::hook_open(note, &read, nullptr), nullptr);
    FileIn file(folder.write("caf\xE9.txt", "").c_str(), false);
    EXPECT_FALSE(file.open(folder.file("missing").c_str(), false));
    FileOut(folder.file("b").c_str());
    EXPECT_EQ(FileIn::hook_open(nullptr, nullptr, &old_user), note);
    EXPECT_EQ(FileOut::hook_open(nullptr, nullptr, nullptr), note);
    EXPECT_TRUE(old_user == &read && read.substr(folder.path().size()) == L"caf\u00E9.txt");
    EXPECT_EQ(written, L"");
}

TEST(FileOut, writes_appends_truncates_and_shows_the_c_librarys_error_flag) {
    std::string const path = folder.file("a");
    FileOut file;
    EXPECT_TRUE(!file.close() && file.flush() && file.error() == 3);
    EXPECT_TRUE(file.open(path.c_str(), false, false) && file.write("hello\n", 6) == 6);
    EXPECT_TRUE(file.open(path.c_str(), true, false) && file.write("more", 4) == 4);
    EXPECT_TRUE(file.flush() && test::read_file(path) == "hello\nmore");
    EXPECT_TRUE(file.open(wide(path).c_str(), false, true) && test::read_file(path) == "");
    EXPECT_FALSE(file.open(folder.file("no\\such\\file").c_str(), false, false));
    EXPECT_EQ(file.error(), static_cast<unsigned int>(ENOENT));
    EXPECT_TRUE(file.write("x", 1) == 0 && !file.seek(0) && file.tell() == ~0u);
    file.file_ = std::fopen(path.c_str(), "rb");  // refuses to write
    EXPECT_EQ(file.write("x", 1), 0u);
    auto const flag = static_cast<unsigned int>(std::ferror(file.file()));
    EXPECT_TRUE(flag != 0 && file.error() == flag && file.flush() && file.error() == flag);
}

TEST(EndianOut, reverses_each_value_and_leaves_the_callers_bytes) {
    std::string const path = folder.file("a"), bytes = "0123456789ABCDEF";
    for (bool const swap : {false, true}) {
        char const* const value = bytes.c_str();
        QX::EndianOut file(swap, path.c_str());
        EXPECT_TRUE(file.write1(value) == 1 && file.write2(value) == 2 && file.write4(value) == 4);
        EXPECT_TRUE(file.write8(value) == 8 && file.write16(value) == 16);
        EXPECT_TRUE(file.writes(value, 3) == 3 && file.close() && bytes == "0123456789ABCDEF");
        EXPECT_EQ(
            test::read_file(path),
            swap ? "010321076543210FEDCBA9876543210012" : "0010123012345670123456789ABCDEF012");
    }
}

TEST(FileInf, tells_size_time_and_flags_of_files_and_folders) {
    std::string const path = folder.write("a", "12345");
    QX::FileInf inf;
    inf.hidden = inf.reserved = true;
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_TRUE(inf.stat(wide(path).c_str()) && !inf.writable);
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    EXPECT_TRUE(inf.stat(path.c_str()) && inf.size == 5 && !inf.directory && inf.writable);
    EXPECT_NEAR(inf.time, static_cast<double>(time(nullptr)), 100);
    EXPECT_TRUE(inf.stat(folder.path().substr(0, folder.path().size() - 1).c_str()));
    EXPECT_FALSE(inf.stat(folder.file("missing").c_str()));
    EXPECT_TRUE(inf.directory && inf.readable && inf.hidden && inf.reserved);
}

}  // namespace
