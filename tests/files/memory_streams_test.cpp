#include "qx/files/memory_streams.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <cstring>
#include <string>
#include <utility>

#include "qx/files/file_streams.h"
#include "qx/files/mapped_file.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::FileIn;
using QX::MemBuffer;
using QX::MemFileIn;
using QX::TestMemBuffer;

// The layouts that the contract gives.
static_assert(sizeof(MemBuffer) == 24 && sizeof(TestMemBuffer) == 24 && sizeof(MemFileIn) == 64);

test::TempFolder const folder;

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
    EXPECT_TRUE(file.open(std::wstring(path.begin(), path.end()).c_str()));
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

}  // namespace
