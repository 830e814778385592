#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <algorithm>
#include <string>
#include <vector>

#include "qx/files/compression.h"
#include "tests/files/late_completion.h"
#include "tests/files/plain_inflate.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

constexpr unsigned int block = 1048576;

// Half of it can be compressed.
std::string half_random(unsigned int size) {
    test::Random random(size);
    std::string text(size, 'a');
    for (char& c : text) c = random.chance(2) ? static_cast<char>(random.next()) : 'b';
    return text;
}

TEST(CompressedFile, is_given_back_on_either_side_of_the_single_block) {
    test::TempFolder folder;
    std::string const small = folder.file("small"), back = folder.file("back");
    for (unsigned int const size : {0u, 1u, block, block + 1, 3 * block, 2 * block + 5}) {
        std::string const text = half_random(size);
        std::string const source = folder.write("source", text);
        unsigned int const count = QX::compress(small.c_str(), source.c_str(), 1);
        std::string const bytes = test::read_file(small);
        EXPECT_EQ(bytes.size(), count);
        EXPECT_EQ(QX::compress(nullptr, source.c_str(), 1), count);
        std::string plain;
        EXPECT_TRUE(test::plain_inflate(bytes, plain)) << size;
        EXPECT_TRUE(plain == text) << size;
        EXPECT_EQ(QX::decompress(back.c_str(), small.c_str()), size);
        EXPECT_TRUE(test::read_file(back) == text) << size;
        EXPECT_EQ(QX::decompress(nullptr, small.c_str()), size);
    }
}

unsigned int writes;
void* real_write;

std::size_t count_write(void const* data, std::size_t size, std::size_t count, void* file) {
    ++writes;
    return reinterpret_cast<decltype(&count_write)>(real_write)(data, size, count, file);
}

// Stored, both come out larger than the megabyte that is written at a time.
TEST(CompressedFile, of_one_block_is_written_at_once_and_a_larger_one_in_parts) {
    test::TempFolder folder;
    std::string const small = folder.file("small");
    test::StandIn const stand_in("fwrite", count_write);
    ASSERT_TRUE(stand_in.found());
    real_write = stand_in.original();
    for (unsigned int const size : {block, block + 1}) {
        std::string const source = folder.write("source", std::string(size, 's'));
        writes = 0;
        EXPECT_GT(QX::compress(small.c_str(), source.c_str(), 0), size);
        EXPECT_EQ(writes, size == block ? 1u : 2u);
    }
}

TEST(CompressedFile, a_fault_shows_in_the_count_of_a_file_that_was_read_to_its_end) {
    test::TempFolder folder;
    std::string const text = half_random(3 * block);
    std::string const whole = folder.write("source", text), small = folder.file("small");
    QX::compress(small.c_str(), whole.c_str(), 1);
    std::string bytes = test::read_file(small);
    std::string const back = folder.file("back");

    std::string const cut = folder.write("cut", bytes.substr(0, bytes.size() - 1000));
    unsigned int const count = QX::decompress(back.c_str(), cut.c_str());
    EXPECT_GT(count, 2 * block);
    EXPECT_LT(count, 3 * block);
    EXPECT_TRUE(test::read_file(back) == text.substr(0, count));
    std::string const start = folder.write("start", bytes.substr(0, 5000));
    EXPECT_GT(QX::decompress(nullptr, start.c_str()), 0u);
    // Here two blocks are never reached.
    std::string const bad = folder.write("bad", "no stream" + bytes);
    EXPECT_EQ(QX::decompress(back.c_str(), bad.c_str()), 0u);
}

TEST(CompressedFile, gives_0_for_what_cannot_be_opened_or_is_too_large) {
    test::TempFolder folder;
    std::string const text = folder.write("text", "text"), none = folder.file("none");
    std::string const nowhere = folder.file("no folder\\x");
    EXPECT_EQ(QX::compress(text.c_str(), none.c_str(), 6), 0u);
    EXPECT_EQ(test::read_file(text), "text");
    EXPECT_EQ(QX::compress(nowhere.c_str(), text.c_str(), 6), 0u);
    EXPECT_EQ(QX::decompress(nowhere.c_str(), text.c_str()), 0u);
    EXPECT_EQ(QX::compress(nullptr, folder.path().c_str(), 6), 0u);
    EXPECT_EQ(QX::compress(nullptr, text.c_str(), 11), 0u);

    HANDLE const file = CreateFileA(
        none.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    SetFilePointer(file, -1, nullptr, FILE_BEGIN);
    LARGE_INTEGER const size = {.QuadPart = 0xFFFFFFFF};
    SetFilePointerEx(file, size, nullptr, FILE_BEGIN);
    EXPECT_TRUE(SetEndOfFile(file));
    CloseHandle(file);
    EXPECT_EQ(QX::compress(nullptr, none.c_str(), 1), 0u);
    EXPECT_EQ(QX::decompress(nullptr, none.c_str()), 0u);
}

unsigned int reads_left;

BOOL WINAPI short_read(HANDLE, LPVOID, DWORD bytes, LPDWORD done, LPOVERLAPPED) {
    *done = reads_left ? bytes : bytes - 1;
    if (reads_left) --reads_left;
    return TRUE;
}

std::size_t refuse_to_write(void const*, std::size_t, std::size_t, void*) {
    return 0;
}

TEST(CompressedFile, gives_0_after_a_short_read_or_write) {
    test::TempFolder folder;
    std::string const dest = folder.file("dest");
    for (unsigned int const size : {100u, 2 * block + 1}) {
        std::string const source = folder.write("source", std::string(size, 'a'));
        {
            test::StandIn const stand_in("fwrite", refuse_to_write);
            ASSERT_TRUE(stand_in.found());
            EXPECT_EQ(QX::compress(dest.c_str(), source.c_str(), 1), 0u);
            EXPECT_NE(QX::compress(nullptr, source.c_str(), 1), 0u);
        }
        for (unsigned int const whole : {0u, 1u}) {
            test::StandIn const stand_in("ReadFile", short_read);
            reads_left = size > block ? whole : 0;
            EXPECT_EQ(QX::compress(nullptr, source.c_str(), 1), 0u);
            reads_left = 0;
            EXPECT_EQ(QX::decompress(nullptr, source.c_str()), 0u);
        }
    }
}

TEST(CompressedFile, gives_0_and_everything_back_when_memory_runs_out) {
    test::TempFolder folder;
    std::string const source = folder.write("source", "text"), dest = folder.file("dest");
    for (unsigned int nth = 1;; ++nth) {
        test::FailingAllocation const failing(nth);
        unsigned int const count = QX::compress(dest.c_str(), source.c_str(), 6);
        if (!failing.fired()) break;
        EXPECT_EQ(count, 0u);
    }
}

// --- From file to memory -------------------------------------------------------------------------

struct Report {
    unsigned int out, in;
    bool is_reading;
};

struct Watcher {
    std::vector<Report> reports;
    unsigned int total = 0;
    void* dest = nullptr;
};

void note(void* dest, unsigned int out, unsigned int in, unsigned int total, void* user) {
    auto& watcher = *static_cast<Watcher*>(user);
    bool const is_reading = test::LateCompletion::begun != test::LateCompletion::delivered;
    watcher.reports.push_back({out, in, is_reading});
    watcher.total = total;
    watcher.dest = dest;
}

constexpr unsigned int half = 4096;

struct alignas(4096) Halves {
    char bytes[2 * half];
};

// A text whose compressed file has `blocks` blocks, the last of them not whole.
std::string text_of_blocks(unsigned int blocks) {
    return half_random(blocks * half * 4 / 3 - 1500);
}

class OverlappedLoad : public testing::TestWithParam<unsigned int> {
protected:
    unsigned int load(std::string const& name, unsigned int room) {
        memory_.assign(room + 1, '#');
        unsigned int const count = QX::decompress(
            memory_.data(), room, name.c_str(), halves_.bytes, half, note, &watcher_);
        EXPECT_EQ(memory_[room], '#');
        return count;
    }

    std::string compressed(std::string const& text) {
        std::string const small = folder_.file("small");
        QX::compress(small.c_str(), folder_.write("source", text).c_str(), 6);
        return small;
    }

    test::TempFolder folder_;
    Halves halves_;
    std::string memory_;
    Watcher watcher_;
};

TEST_P(OverlappedLoad, reads_each_block_while_the_one_before_is_expanded) {
    unsigned int const blocks = GetParam();
    std::string const text = text_of_blocks(blocks);
    std::string const small = compressed(text);
    unsigned int const file_size = static_cast<unsigned int>(test::read_file(small).size());
    ASSERT_EQ((file_size + half - 1) / half, blocks);
    unsigned int const size = static_cast<unsigned int>(text.size());
    {
        test::LateCompletion const late(5);
        ASSERT_TRUE(late.found());
        EXPECT_EQ(load(small, size), size);
    }
    EXPECT_TRUE(memory_.compare(0, size, text) == 0);
    EXPECT_EQ(test::LateCompletion::begun, blocks);
    EXPECT_EQ(watcher_.total, file_size);
    EXPECT_EQ(watcher_.dest, memory_.data());
    ASSERT_EQ(watcher_.reports.size(), blocks + 2);
    for (unsigned int i = 0; i < blocks + 2; ++i) {
        EXPECT_EQ(watcher_.reports[i].in, std::min(i * half, file_size)) << i;
        EXPECT_EQ(watcher_.reports[i].is_reading, i >= 1 && i < blocks) << i;
    }
    EXPECT_EQ(watcher_.reports.back().out, size);
}

INSTANTIATE_TEST_SUITE_P(Blocks, OverlappedLoad, testing::Values(1u, 2u, 3u, 8u));

using Load = OverlappedLoad;

TEST_F(Load, works_without_progress_on_files_of_whole_blocks) {
    // Stored: the file's size is known.
    std::string const text(half * 2 - 11, 's');
    std::string const small = folder_.file("small");
    QX::compress(small.c_str(), folder_.write("source", text).c_str(), 0);
    ASSERT_EQ(test::read_file(small).size(), 2 * half);
    memory_.assign(text.size(), '#');
    EXPECT_EQ(
        QX::decompress(
            memory_.data(), static_cast<unsigned int>(text.size()), small.c_str(), halves_.bytes,
            half, nullptr, nullptr),
        text.size());
    EXPECT_TRUE(memory_ == text);
}

TEST_F(Load, gives_what_fits_and_what_was_good) {
    std::string const text = text_of_blocks(3);
    std::string const small = compressed(text);
    EXPECT_EQ(load(small, 100), 100u);
    EXPECT_EQ(memory_.substr(0, 100), text.substr(0, 100));
    EXPECT_EQ(load(small, 0), 0u);
    std::string bytes = test::read_file(small);
    EXPECT_EQ(load(folder_.write("bad", "no stream" + bytes), 100), 0u);
    unsigned int const size = static_cast<unsigned int>(text.size());
    unsigned int const count = load(folder_.write("cut", bytes.substr(0, half + 10)), size);
    EXPECT_GT(count, half);
    EXPECT_TRUE(memory_.compare(0, count, text, 0, count) == 0);
}

TEST_F(Load, gives_0_for_missing_and_empty_files) {
    EXPECT_EQ(load(folder_.file("none"), 10), 0u);
    EXPECT_EQ(watcher_.reports.size(), 0u);
    EXPECT_EQ(load(folder_.write("empty", ""), 10), 0u);
    EXPECT_EQ(watcher_.reports.size(), 1u);
    std::string const small = compressed("text");
    EXPECT_EQ(
        QX::decompress(memory_.data(), 4, small.c_str(), halves_.bytes, 0, nullptr, nullptr), 0u);
}

unsigned int good_reads;
void* real_read;

BOOL WINAPI refuse_later(
    HANDLE file, LPVOID data, DWORD bytes, LPOVERLAPPED record,
    LPOVERLAPPED_COMPLETION_ROUTINE routine) {
    EXPECT_EQ(bytes % 512, 0u);
    if (good_reads == 0) {
        SetLastError(ERROR_CRC);
        return FALSE;
    }
    --good_reads;
    return reinterpret_cast<decltype(&ReadFileEx)>(real_read)(file, data, bytes, record, routine);
}

TEST_F(Load, ends_with_what_it_has_when_a_read_is_refused) {
    std::string const text = text_of_blocks(3);
    std::string const small = compressed(text);
    unsigned int const size = static_cast<unsigned int>(text.size());
    test::StandIn const stand_in("ReadFileEx", refuse_later);
    real_read = stand_in.original();
    good_reads = 0;
    EXPECT_EQ(load(small, size), 0u);
    EXPECT_EQ(watcher_.reports.size(), 1u);
    watcher_ = {};
    good_reads = 1;
    unsigned int const count = load(small, size);
    EXPECT_GT(count, 0u);
    EXPECT_LT(count, 2 * half);
    EXPECT_EQ(watcher_.reports.size(), 3u);
    EXPECT_TRUE(memory_.compare(0, count, text, 0, count) == 0);
}

TEST_F(Load, gives_0_when_memory_runs_out_at_the_start) {
    std::string const small = compressed("text");
    memory_.assign(4, '#');
    test::FailingAllocation const failing(1);
    EXPECT_EQ(
        QX::decompress(memory_.data(), 4, small.c_str(), halves_.bytes, half, nullptr, nullptr),
        0u);
    EXPECT_TRUE(failing.fired());
}

}  // namespace
