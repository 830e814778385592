#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <algorithm>
#include <string>
#include <vector>

#include "qx/files/compression.h"
#include "qx/files/file_streams.h"
#include "tests/files/late_completion.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/random.h"
#include "tests/harness/temp_folder.h"

namespace {

constexpr unsigned int block = 1048576;

// Half of it can be compressed.
std::string half_random(unsigned int size) {
    test::Random random(size);
    std::string text(size, 'b');
    for (char& c : text) c = random.chance(2) ? static_cast<char>(random.next()) : c;
    return text;
}

class CompressedFile : public testing::Test {
protected:
    unsigned int compress(std::string const& text, unsigned int level) const {
        return QX::compress(small_.c_str(), folder_.write("source", text).c_str(), level);
    }

    test::TempFolder folder_;
    std::string const source_ = folder_.file("source"), small_ = folder_.file("small");
};

unsigned int writes;
void* real_write;

std::size_t count_write(void const* data, std::size_t size, std::size_t count, void* file) {
    ++writes;
    return reinterpret_cast<decltype(&count_write)>(real_write)(data, size, count, file);
}

// The single block is written at once, a stored larger file in parts of a megabyte.
TEST_F(CompressedFile, is_given_back_on_either_side_of_the_single_block) {
    test::StandIn const stand_in("fwrite", count_write);
    real_write = stand_in.original();
    std::string const back = folder_.file("back");
    for (unsigned int const size : {0u, 1u, block, block + 1, 2 * block + 5}) {
        std::string const text = half_random(size);
        writes = 0;
        EXPECT_GT(compress(text, 0), size);
        EXPECT_EQ(writes, size / (block + 1) + 1) << size;
        unsigned int const count = compress(text, 1);
        std::string bytes = test::read_file(small_), plain(size, '\0');
        EXPECT_EQ(bytes.size(), count);
        EXPECT_EQ(QX::compress(nullptr, source_.c_str(), 1), count);
        EXPECT_EQ(QX::decompress(plain.data(), size, bytes.data(), count), size);
        EXPECT_EQ(QX::decompress(back.c_str(), small_.c_str()), size);
        EXPECT_TRUE(plain == text && test::read_file(back) == text) << size;
        EXPECT_EQ(QX::decompress(nullptr, small_.c_str()), size);
    }
}

TEST_F(CompressedFile, a_fault_shows_in_the_count_of_a_file_that_was_read_to_its_end) {
    std::string const text = half_random(3 * block), back = folder_.file("back");
    compress(text, 1);
    std::string const bytes = test::read_file(small_);
    folder_.write("small", bytes.substr(0, bytes.size() - 1000));
    unsigned int const count = QX::decompress(back.c_str(), small_.c_str());
    EXPECT_TRUE(count > 2 * block && count < 3 * block);
    EXPECT_TRUE(test::read_file(back) == text.substr(0, count));
    folder_.write("small", bytes.substr(0, 5000));
    EXPECT_GT(QX::decompress(nullptr, small_.c_str()), 0u);
    folder_.write("small", "no stream" + bytes);  // two blocks are never reached
    EXPECT_EQ(QX::decompress(back.c_str(), small_.c_str()), 0u);
}

TEST_F(CompressedFile, gives_0_for_what_cannot_be_opened_or_is_too_large) {
    std::string const text = folder_.write("text", "text"), nowhere = folder_.file("no\\x");
    EXPECT_EQ(QX::compress(text.c_str(), source_.c_str(), 6), 0u);
    EXPECT_EQ(test::read_file(text), "text");
    EXPECT_EQ(QX::compress(nowhere.c_str(), text.c_str(), 6), 0u);
    EXPECT_EQ(QX::decompress(nowhere.c_str(), text.c_str()), 0u);
    EXPECT_EQ(QX::compress(nullptr, text.c_str(), 11), 0u);
    QX::FileOut large(source_.c_str());
    EXPECT_TRUE(large.seek64(0xFFFFFFFE) && large.write("x", 1) == 1 && large.close());
    EXPECT_EQ(QX::compress(nullptr, source_.c_str(), 1), 0u);
    EXPECT_EQ(QX::decompress(nullptr, source_.c_str()), 0u);
}

unsigned int good_reads;
void* real_read;

BOOL WINAPI short_read(HANDLE, LPVOID, DWORD bytes, LPDWORD done, LPOVERLAPPED) {
    *done = good_reads ? bytes : bytes - 1;
    good_reads -= good_reads != 0;
    return TRUE;
}

TEST_F(CompressedFile, gives_0_after_a_short_read_or_write) {
    for (unsigned int const size : {100u, 2 * block + 1}) {
        {
            test::StandIn const stand_in(
                "fwrite", +[]() -> std::size_t { return 0; });
            EXPECT_EQ(compress(std::string(size, 'a'), 1), 0u);
            EXPECT_NE(QX::compress(nullptr, source_.c_str(), 1), 0u);
        }
        test::StandIn const stand_in("ReadFile", short_read);
        for (unsigned int const whole : {0u, size / block / 2}) {
            good_reads = whole;
            EXPECT_EQ(QX::compress(nullptr, source_.c_str(), 1), 0u);
            EXPECT_EQ(QX::decompress(nullptr, source_.c_str()), 0u);
        }
    }
}

TEST_F(CompressedFile, gives_0_and_everything_back_when_memory_runs_out) {
    compress("text", 6);
    bool fired = true;
    for (unsigned int nth = 1; fired; ++nth) {
        test::FailingAllocation const failing(nth);
        unsigned int const count = QX::compress(small_.c_str(), source_.c_str(), 6);
        fired = failing.fired();
        EXPECT_EQ(count == 0, fired);
    }
}

// --- From file to memory -------------------------------------------------------------------------

constexpr unsigned int half = 4096;

struct Report {
    unsigned int out, in, total;
    bool is_reading;
};

class OverlappedLoad : public CompressedFile {
protected:
    // Of the small file.
    unsigned int load(std::size_t room, unsigned int half_size = half) {
        memory_.assign(room + 1, '#');
        reports_.clear();
        unsigned int const count = QX::decompress(
            memory_.data(), static_cast<unsigned int>(room), small_.c_str(), halves_, half_size,
            note, this);
        EXPECT_EQ(memory_[room], '#');
        memory_.resize(count);
        return count;
    }

    static void
    note(void* dest, unsigned int out, unsigned int in, unsigned int total, void* user) {
        auto& load = *static_cast<OverlappedLoad*>(user);
        EXPECT_EQ(dest, load.memory_.data());
        bool const is_reading = test::LateCompletion::begun != test::LateCompletion::delivered;
        load.reports_.push_back({out, in, total, is_reading});
    }

    alignas(4096) char halves_[2 * half];
    std::string memory_;
    std::vector<Report> reports_;
};

// The stored text of the second round fills its blocks.
TEST_F(OverlappedLoad, reads_each_block_while_the_one_before_is_expanded) {
    for (unsigned int const blocks : {1u, 2u, 3u, 8u}) {
        bool const is_full = blocks == 2;
        std::string const text =
            half_random(is_full ? 2 * half - 11 : blocks * half * 4 / 3 - 1500);
        unsigned int const size = compress(text, is_full ? 0 : 6);
        ASSERT_TRUE((size + half - 1) / half == blocks && is_full == (size % half == 0));
        test::LateCompletion const late(5);
        EXPECT_EQ(load(text.size()), text.size());
        EXPECT_TRUE(memory_ == text && late.begun == blocks);
        ASSERT_EQ(reports_.size(), blocks + 2);
        for (unsigned int i = 0; i < blocks + 2; ++i) {
            EXPECT_EQ(reports_[i].in, std::min(i * half, size)) << i;
            EXPECT_EQ(reports_[i].total, size);
            EXPECT_EQ(reports_[i].is_reading, i >= 1 && i < blocks) << i;
        }
        EXPECT_EQ(reports_.back().out, text.size());
    }
}

BOOL WINAPI refuse_later(
    HANDLE file, LPVOID data, DWORD bytes, LPOVERLAPPED record,
    LPOVERLAPPED_COMPLETION_ROUTINE routine) {
    EXPECT_EQ(bytes % 512, 0u);
    SetLastError(ERROR_CRC);
    if (good_reads == 0) return FALSE;
    --good_reads;
    return reinterpret_cast<decltype(&ReadFileEx)>(real_read)(file, data, bytes, record, routine);
}

TEST_F(OverlappedLoad, gives_what_fits_and_what_was_good) {
    std::string const text = half_random(3 * half);
    compress(text, 6);
    EXPECT_EQ(load(100), 100u);
    EXPECT_EQ(memory_, text.substr(0, 100));
    EXPECT_EQ(load(0), 0u);
    EXPECT_EQ(QX::decompress(&memory_[0], 1, small_.c_str(), halves_, half, nullptr, nullptr), 1u);
    std::string const bytes = test::read_file(small_);
    {
        test::StandIn const stand_in("ReadFileEx", refuse_later);
        real_read = stand_in.original();
        good_reads = 0;
        EXPECT_TRUE(load(text.size()) == 0 && reports_.size() == 1);
        good_reads = 1;
        unsigned int const count = load(text.size());
        EXPECT_TRUE(count > 0 && count < 2 * half && reports_.size() == 3);
        EXPECT_EQ(memory_, text.substr(0, count));
    }
    folder_.write("small", bytes.substr(0, half + 10));
    EXPECT_GT(load(text.size()), half);
    EXPECT_TRUE(memory_ == text.substr(0, memory_.size()));
    folder_.write("small", "no stream" + bytes);
    EXPECT_EQ(load(100), 0u);
}

TEST_F(OverlappedLoad, gives_0_for_missing_and_empty_files_no_room_and_no_memory) {
    EXPECT_TRUE(load(10) == 0 && reports_.empty());
    folder_.write("small", "");
    EXPECT_TRUE(load(10) == 0 && reports_.size() == 1);
    compress("text", 6);
    EXPECT_EQ(load(4, 0), 0u);
    memory_.assign(20, '#');
    test::FailingAllocation const failing(1);
    EXPECT_EQ(
        QX::decompress(memory_.data(), 4, small_.c_str(), halves_, half, nullptr, nullptr), 0u);
    EXPECT_TRUE(failing.fired());
}

}  // namespace
