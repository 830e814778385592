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

#include "qx/files/async_in.h"
#include "qx/files/error_codes.h"
#include "qx/files/mapped_file.h"
#include "qx/files/memory_streams.h"
#include "tests/files/late_completion.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::FileIn;
using QX::FileOut;
using QX::MemBuffer;
using QX::MemFileIn;
using QX::TestMemBuffer;

// The layouts that the contract gives.
static_assert(sizeof(FileIn) == 16 && sizeof(FileOut) == 16 && sizeof(QX::EndianOut) <= 24);
static_assert(sizeof(MemBuffer) == 24 && sizeof(TestMemBuffer) == 24 && sizeof(MemFileIn) == 64);
static_assert(sizeof(QX::AsyncIn) == 64);

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
bool opens_something;

HANDLE WINAPI
tell_open(LPCSTR, DWORD, DWORD share, LPSECURITY_ATTRIBUTES, DWORD, DWORD flags, HANDLE) {
    asked_share = share;
    asked_flags = flags;
    HANDLE const event = opens_something ? CreateEventA(nullptr, FALSE, FALSE, nullptr) : nullptr;
    SetLastError(error_left);
    return event ? event : INVALID_HANDLE_VALUE;
}

TEST(FileIn, asks_the_system_to_open_as_told) {
    test::StandIn const open("CreateFileA", tell_open);
    opens_something = false;
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

// --- Memory -------------------------------------------------------------------------------------

template <typename Buffer>
void expect_ends(unsigned int past) {
    test::Guarded const block(10);
    Buffer buffer(block.data(), 10);
    EXPECT_TRUE(buffer.write("abcdef", 6) == 6 && buffer.status() == QX::FILE_OK);
    EXPECT_TRUE(buffer.write("0123456789", 10) == 4 && buffer.status() == QX::FILE_END_OF_FILE);
    EXPECT_TRUE(buffer.seek(-1) && buffer.tell() == 9 && buffer.seek(10));
    EXPECT_TRUE(!buffer.seek(11) && buffer.tell() == 11 && buffer.read(block.data(), 5) == past);
    EXPECT_TRUE(!buffer.seek(-12) && buffer.tell() == ~1u);
}

TEST(MemBuffer, seek_moves_first_and_tests_afterwards) {
    expect_ends<MemBuffer>(0);
    expect_ends<TestMemBuffer>(~0u);
}

TEST(MemBuffer, moves_typed_values_by_their_width) {
    char block[64];
    MemBuffer out(block, sizeof block), in = out;
    TestMemBuffer counted(nullptr, 0xFFFFFFFF);
    auto const moves = [&](auto value) {
        auto back = decltype(value)();
        (counted << value) >> back;
        out << value;
        in >> back;
        return back == value && in.tell() == out.tell() && counted.tell() == 2 * out.tell();
    };
    EXPECT_TRUE(moves('c') && moves(static_cast<unsigned char>(200)) && moves(true));
    EXPECT_TRUE(moves(static_cast<short>(-2)) && moves(static_cast<unsigned short>(0x1234)));
    EXPECT_TRUE(moves(-5) && moves(0x89ABCDEFu) && moves(-7ll) && moves(0x0123456789ABCDEFull));
    EXPECT_TRUE(moves(1.5f) && moves(2.25) && out.tell() == 3 + 4 + 24 + 12);
}

TEST(TestMemBuffer, readln_ends_at_the_letters_n_and_r) {
    char line[8] = "kept";
    for (std::string text : {"a\nb\rcn", "a\nb\rcnr", "a\nb\rcrn"}) {
        TestMemBuffer buffer(text.data(), 8);
        EXPECT_EQ(buffer.readln(line), 5u) << text;
        EXPECT_EQ(buffer.tell(), text.size()) << text;
    }
    TestMemBuffer ended(line + 4, 8);
    EXPECT_TRUE(ended.readln(line) == 0 && ended.tell() == 1 && line == std::string("kept"));
}

// Joined by '|'.
template <typename Stream>
std::string lines_of(Stream& stream, std::size_t size) {
    std::string joined;
    for (char line[16]; stream.tell() < size;) {
        unsigned int const length = stream.readln(line);
        joined += std::string(line, length) + (line[length] == 0 ? "|" : "?");
    }
    return joined;
}

// A line end or a zero byte ends a line; both line ends in either order are one.
std::string plain_lines(std::string const& text) {
    std::string joined;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t const end = text.find_first_of(std::string("\n\r\0", 3), at);
        joined += text.substr(at, end - at) + '|';
        std::string const pair = text.substr(end, 2);
        at = end + (pair == "\n\r" || pair == "\r\n" ? 2 : 1);
    }
    return joined;
}

TEST(Readln, takes_both_orders_of_the_pair_as_one_ending_in_file_and_memory) {
    test::Random random(1);
    for (int i = 0; i < 300; ++i) {
        std::string text = "\n";
        for (unsigned int left = random.below(12); left; --left)
            text.insert(text.begin(), "ab\n\r\0"[random.below(5)]);
        FileIn file(folder.write("lines", text).c_str(), false);
        std::string padded = text + std::string(2, '\0');
        MemBuffer buffer(padded.data(), static_cast<unsigned int>(padded.size()));
        MemFileIn mapped;
        ASSERT_TRUE(mapped.open(folder.file("lines").c_str()));
        ASSERT_EQ(lines_of(file, text.size()), plain_lines(text));
        ASSERT_EQ(lines_of(buffer, text.size()), plain_lines(text));
        ASSERT_EQ(lines_of(mapped, text.size()), plain_lines(text));
    }
}

TEST(MemFileIn, readln_looks_behind_a_callers_block_and_leaves_the_status_after_a_zero_byte) {
    MemFileIn file;
    char line[8];
    file.open("a\r\nb", 4);
    EXPECT_TRUE(file.readln(line) == 1 && file.status() == QX::FILE_OK);
    EXPECT_TRUE(file.readln(line) == 1 && file.status() == QX::FILE_END_OF_FILE);
    file.open("xy\0z", 4);
    for (long long const to : {5ll, -5ll, (1ll << 62), -0x7FFFFFFFFFFFFFFF - 1}) {
        EXPECT_TRUE(file.seek(-4) && !file.seek64(to) && file.tell() == 0);
        EXPECT_TRUE(file.readln(line) == 2 && file.status() == QX::FILE_SEEK_OUT_OF_RANGE);
    }
    EXPECT_TRUE(file.seek(4) && file.seek(-2) && file.read(line, 3) == 2);
    EXPECT_EQ(file.status(), QX::FILE_END_OF_FILE);
    file.open("a\r\nb", 2);
    EXPECT_TRUE(file.readln(line) == 1 && file.tell() == 3 && file.readln(line) == 0);
    EXPECT_TRUE(file.status() == QX::FILE_END_OF_FILE && file.read(line, 1) == 0);
    // Not behind a mapping, whose page may be the last.
    ASSERT_TRUE(file.open(folder.write("pages", std::string(0xFFFF, 'x') + "\n").c_str()));
    std::string all(0x10000, 0);
    EXPECT_TRUE(file.readln(all.data()) == 0xFFFF && file.tell() == 0x10000);
}

TEST(MemFileIn, opens_closes_and_refuses_files) {
    std::string const path = folder.write("a", "hello");
    MemFileIn file;
    EXPECT_FALSE(file.open(folder.file("missing").c_str()));
    EXPECT_EQ(file.status(), QX::FILE_NOT_FOUND);
    EXPECT_FALSE(file.open(folder.write("empty", "").c_str()));
    // The handle goes with the next open or the end.
    EXPECT_TRUE(file.status() != QX::FILE_OK && file.owned() == 1);
    EXPECT_TRUE(file.open(wide(path).c_str()));
    EXPECT_TRUE(file.owned() == 3 && file.size64() == 5);
    file.open("block", 5);  // does not end the mapping
    EXPECT_TRUE(file.mapped() && file.close() && file.owned() == 0);
    EXPECT_EQ(file.status(), QX::FILE_NOT_FOUND);
    test::StandIn const view(
        "MapViewOfFileEx", +[]() -> LPVOID { return nullptr; });
    EXPECT_TRUE(!file.open(path.c_str()) && file.size() == 0);
}

// --- Mappings -----------------------------------------------------------------------------------

using Mapped = QX::UnbufferedFileInPlatform;
constexpr char const* no_name = nullptr;

std::string pattern(std::size_t size) {
    std::string bytes(size, 0);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + (i >> 9));
    return bytes;
}

TEST(MappedFile, a_view_begins_at_any_offset_high_or_anywhere_when_no_high_place_is_free) {
    std::string const bytes = pattern(200000);
    Mapped file;
    ASSERT_EQ(file.open(folder.write("a", bytes).c_str()), bytes.size());
    for (unsigned long long const offset : {0, 1, 65535, 65536, 65537, 199999}) {
        auto const view = file.map(offset, bytes.size() - offset);
        EXPECT_GT(reinterpret_cast<unsigned long long>(view->data()), 1ull << 40);
        EXPECT_EQ(view->data() - view->view(), static_cast<long long>(offset % 65536));
        EXPECT_EQ(std::memcmp(view->data(), bytes.data() + offset, view->size()), 0);
        EXPECT_EQ(std::memcmp(view->to_RAM().get(), view->data(), view->size()), 0);
    }
    for (auto const& [offset, size] : {std::pair{0ull, 300000ull}, {0, ~0ull}, {65538, ~0ull}}) {
        auto const beyond = file.map(offset, size);
        EXPECT_TRUE(beyond->data() == nullptr && beyond->to_RAM() == nullptr) << offset;
    }
    test::StandIn const place(
        "VirtualAlloc", +[](LPVOID, SIZE_T, DWORD, DWORD) -> LPVOID { return nullptr; });
    EXPECT_EQ(std::memcmp(file.map(1, 4)->data(), bytes.data() + 1, 4), 0);
}

TEST(MappedFile, handles_that_are_handed_in_stay_the_callers) {
    std::string const path = folder.write("a", "hello");
    void* const handle = QX::open_file(path.c_str(), false);
    EXPECT_EQ(Mapped(no_name, {handle, INVALID_HANDLE_VALUE}).owned(), 2u);
    EXPECT_EQ(QX::set_file_pointer({handle, nullptr}, 3), QX::FILE_OK);
    {
        Mapped opened(path.c_str(), {});
        Mapped borrowed(no_name, opened.file_and_mapping());
        EXPECT_TRUE(opened.owned() == 3 && borrowed.owned() == 0);
        EXPECT_EQ(std::memcmp(borrowed.map(0, 5)->data(), "hello", 5), 0);
    }
    EXPECT_TRUE(QX::close_file({handle, nullptr}) && !QX::close_file({handle, nullptr}));
    EXPECT_EQ(QX::set_file_pointer({handle, nullptr}, 3), QX::FILE_NOT_FOUND);
    test::StandIn const mapping(
        "CreateFileMappingW", +[]() -> HANDLE { return SetLastError(1816), nullptr; });
    Mapped failing;
    // By the open fold.
    EXPECT_TRUE(failing.open(path.c_str()) == 0 && failing.status() == QX::FILE_OUT_OF_MEMORY);
}

TEST(UnbufferedFileIn, copies_and_touches_the_whole_and_no_more_or_stops_where_it_stands) {
    std::string const bytes = pattern(3 * 4096 + 5);
    for (std::size_t const size : {0u, 1u, 4096u, 4097u, 3 * 4096u + 5}) {
        test::Guarded const source(bytes.data(), size), plain(size), stoppable(size);
        bool volatile stop = false;
        QX::UnbufferedFileIn::touch(source.data(), size);
        QX::UnbufferedFileIn::touch(source.data(), size, stop);
        QX::UnbufferedFileIn::copy(plain.data(), source.data(), size);
        QX::UnbufferedFileIn::copy(stoppable.data(), source.data(), size, stop);
        for (char const* copied : {plain.data(), stoppable.data()})
            EXPECT_EQ(std::memcmp(copied, bytes.data(), size), 0);
        stop = true;
        QX::UnbufferedFileIn::copy(nullptr, source.data(), size, stop);
        QX::UnbufferedFileIn::touch(nullptr, size, stop);
    }
}

// --- Asynchronous input --------------------------------------------------------------------------

// A file of eight sectors, each filled with its own letter.
class AsyncIn : public testing::Test {
protected:
    AsyncIn() {
        for (char c = 'a'; c < 'i'; ++c) sectors_ += std::string(512, c);
        path_ = folder.write("a", sectors_);
    }

    std::string sectors_, path_;
    alignas(4096) char memory_[8192] = {};
};

TEST_F(AsyncIn, an_open_leaves_no_error_when_it_fails_and_the_systems_when_it_succeeds) {
    unsigned int opened = 0;
    auto const count = [](wchar_t const*, void* user) { ++*static_cast<unsigned int*>(user); };
    EXPECT_EQ(QX::AsyncIn::hook_open(count, &opened, nullptr), nullptr);
    QX::AsyncIn file;
    EXPECT_TRUE(file.error() == 6 && !file.open("C:\\no such file"));
    EXPECT_TRUE(file.status() == QX::FILE_OK && !file.close() && file.size64() == ~0ull);
    EXPECT_EQ(file.status(), QX::FILE_NOT_FOUND);
    test::StandIn const open("CreateFileA", tell_open);
    opens_something = true;
    error_left = 5;
    EXPECT_EQ(QX::AsyncIn("a").status(), QX::FILE_ACCESS_DENIED);
    EXPECT_TRUE(asked_share == 1 && asked_flags == 0x68000000);
    EXPECT_TRUE(QX::AsyncIn::hook_open(nullptr, nullptr, nullptr) != nullptr && opened == 1);
}

TEST_F(AsyncIn, a_read_completes_on_its_own_thread_in_an_alertable_wait_only) {
    QX::AsyncIn file(path_.c_str());
    DWORD thread = 0;
    auto const note = [](QX::AsyncIn& in, void* user) {
        EXPECT_EQ(in.status(), QX::FILE_OK);
        *static_cast<DWORD*>(user) = GetCurrentThreadId();
    };
    ASSERT_TRUE(file.read(memory_, 1024, 512, note, &thread));
    Sleep(20);
    EXPECT_TRUE(file.status() == QX::FILE_PENDING && file.marker_ == &file && !thread);
    EXPECT_FALSE(file.read(memory_ + 4096, 0, 512, nullptr, nullptr));
    EXPECT_EQ(SleepEx(INFINITE, TRUE), static_cast<DWORD>(WAIT_IO_COMPLETION));
    EXPECT_TRUE(thread == GetCurrentThreadId() && memory_[4096] == 0);
    EXPECT_EQ(std::string(memory_, 512), std::string(512, 'c'));
}

TEST_F(AsyncIn, a_read_without_callback_returns_after_its_completion) {
    QX::AsyncIn file(path_.c_str());
    test::LateCompletion const late(20);
    QueueUserAPC([](ULONG_PTR) {}, GetCurrentThread(), 0);  // ends the first wait
    EXPECT_TRUE(file.read(memory_, 0, 4096, nullptr, nullptr));
    EXPECT_EQ(std::string(memory_, 4096), sectors_);
    file.read(memory_, 8192, 512, nullptr, nullptr);
    EXPECT_EQ(file.status(), QX::FILE_END_OF_FILE);
}

TEST_F(AsyncIn, after_a_refused_read_further_reads_fail_but_closing_returns) {
    QX::AsyncIn file(path_.c_str());
    {
        test::StandIn const read(
            "ReadFileEx", +[] { return SetLastError(87), FALSE; });
        EXPECT_FALSE(file.read(memory_, 1, 2, nullptr, nullptr));
    }
    EXPECT_EQ(file.status(), QX::FILE_INVALID_PARAMETER);
    EXPECT_FALSE(file.read(memory_, 0, 512, nullptr, nullptr));
    EXPECT_TRUE(file.close() && file.open(path_.c_str()));
    EXPECT_TRUE(file.read(memory_, 0, 512, nullptr, nullptr) && memory_[0] == 'a');
}

DWORD sector_size;
std::string asked_roots;

BOOL WINAPI tell_sector_size(LPCSTR root, LPDWORD, LPDWORD size, LPDWORD, LPDWORD) {
    asked_roots += root ? *root : '.';
    *size = sector_size;
    return sector_size != 0;
}

TEST(Alignment, is_asked_once_a_drive_and_both_cases_share_a_slot) {
    unsigned int position, size, memory;
    std::memset(QX::AsyncInPlatform::alignments, 0, sizeof QX::AsyncInPlatform::alignments);
    test::StandIn const disk("GetDiskFreeSpaceA", tell_sector_size);
    for (DWORD const told : {0, 2048, 4}) {
        sector_size = told;
        for (char const drive : {'q', 'Q'})
            EXPECT_EQ(QX::AsyncInPlatform::alignment(drive), told ? 2048u : 0u);
    }
    EXPECT_TRUE(QX::AsyncIn::aligns(position, size, memory, ""));
    EXPECT_TRUE(position == 8 && size == 8 && memory == 8);
    EXPECT_TRUE(QX::AsyncIn::aligns(position, size, memory, "q:\\x") && memory == 2048);
    for (char const other : {'1', ':', '@', '[', '`', '{', '\xE4'})
        EXPECT_TRUE(!QX::AsyncIn::aligns(position, size, memory, other) && memory == 0);
    EXPECT_EQ(asked_roots, "qQq.");
    QX::DiskGeometry::init();  // takes the 4 as well
    EXPECT_EQ(QX::DiskGeometry::s_bytes_per_sector_mask, ~3ull);
    sector_size = 0;
    QX::DiskGeometry::init();
    EXPECT_EQ(QX::DiskGeometry::s_bytes_per_sector, 512u);
}

}  // namespace
