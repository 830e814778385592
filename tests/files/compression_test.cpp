#include "qx/files/compression.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "qx/files/file_streams.h"
#include "tests/files/late_completion.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::COMPRESSION_FORMAT;

unsigned int size_of(std::string const& text) {
    return static_cast<unsigned int>(text.size());
}

std::string packed(std::string text, unsigned int level = 6, unsigned int format = 1) {
    std::string bytes(text.size() + 100, '\0');
    bytes.resize(QX::compress_specific_format(
        bytes.data(), size_of(bytes), text.data(), size_of(text), COMPRESSION_FORMAT(format),
        level));
    return bytes;
}

// Both blocks end at pages that may not be touched. "" for 0.
std::string expanded(std::string const& bytes, unsigned int room, unsigned int format = 1) {
    test::Guarded const source(bytes.data(), bytes.size()), dest(room);
    unsigned int const count = QX::decompress_specific_format(
        dest.data(), room, source.data(), size_of(bytes), COMPRESSION_FORMAT(format));
    return std::string(dest.data(), count);
}

// Half of it can be compressed.
std::string half_random(unsigned int size) {
    test::Random random(size);
    std::string text(size, 'b');
    for (char& c : text) c = random.chance(2) ? static_cast<char>(random.next()) : c;
    return text;
}

// What stands behind a stream does not matter to it.
TEST(Compression, gives_0_for_every_cut_stream_and_every_small_output) {
    for (unsigned int size = 0; size < 150; size += 5) {
        unsigned int const level = size % 10, format = size % 3;
        std::string text = half_random(size);
        std::string const bytes = packed(text, level, format);
        ASSERT_NE(bytes, "");
        for (unsigned int part = 0; part < bytes.size(); ++part) {
            test::Guarded const dest(part);
            unsigned int const count = QX::compress_specific_format(
                dest.data(), part, text.data(), size, COMPRESSION_FORMAT(format), level);
            ASSERT_EQ(count, 0u);
            ASSERT_EQ(expanded(bytes.substr(0, part), size + 1, format), "");
        }
        for (unsigned int room = 0; room <= size; ++room)
            ASSERT_EQ(expanded(bytes + "more", room, format), room < size ? "" : text);
    }
}

TEST(Compression, chooses_the_wrapper_by_number_and_knows_the_levels) {
    std::string const text = "some text that is some text";
    std::string const raw = packed(text, 6, 0), zlib = packed(text), gzip = packed(text, 6, 2);
    EXPECT_EQ(zlib.substr(0, 2 + raw.size()), "\x78\x9C" + raw);
    EXPECT_TRUE(gzip.substr(0, 3) == "\x1F\x8B\x08" && gzip.substr(10, raw.size()) == raw);
    EXPECT_TRUE(packed(text, 6, 0xFFFFFFFF) == zlib && expanded(zlib, 27, 3) == text);
    EXPECT_EQ(packed(text, 0xFFFFFFFF), zlib);
    EXPECT_TRUE(packed(text, 10) == "" && packed(text, 0xFFFFFFFE) == "");
}

unsigned int released;

TEST(Compression, leaves_the_stream_of_a_refused_call_unended) {
    char text[] = "text", small[4];
    test::StandIn const give(
        "free", +[](void*) { ++released; });
    EXPECT_TRUE(QX::compress(nullptr, 4, text, 4, 6) == 0 && released == 0);
    EXPECT_TRUE(QX::compress(small, 4, text, 4, 6) == 0 && released != 0);
    released = 0;
    EXPECT_TRUE(QX::decompress(small, 4, text, 4) == 0 && released != 0);
}

TEST(Scrambling, is_undone_in_pieces_and_in_place_and_leaves_the_tail) {
    test::Random random;
    for (unsigned int size = 0; size < 80; ++size) {
        unsigned int const whole = size / 8 * 8, border = random.below(whole / 8 + 1) * 8;
        std::string const text = half_random(size), tail(size - whole, '\0');
        test::Guarded const source(text.data(), size), dest(size);
        char *const from = source.data(), *const to = dest.data(), *const middle = to + border;
        unsigned long long const first = size % 3 ? 0 : random.next();
        unsigned long long state = 77, plain_state = 77;
        ASSERT_EQ(QX::encrypt(from, from + size, to, first, state), to + whole);
        std::string const scrambled(to, size);
        ASSERT_TRUE(state != 0 && scrambled.substr(whole) == tail);
        ASSERT_EQ(whole == 0, scrambled.substr(0, whole) == text.substr(0, whole));
        QX::decrypt(to, middle, to, first, plain_state);
        ASSERT_EQ(QX::decrypt(middle, to + size, middle, plain_state, plain_state), to + whole);
        ASSERT_TRUE(plain_state == state && std::string(to, size) == text.substr(0, whole) + tail);
        if (first) continue;
        ASSERT_EQ(QX::encrypt(from, from + size, to), to + whole);
        ASSERT_EQ(std::string(to, size), scrambled);
        ASSERT_EQ(QX::decrypt(to, to + size, to), to + whole);
        ASSERT_EQ(std::string(to, whole), text.substr(0, whole));
    }
}

TEST(Scrambling, by_position_is_one_function_that_any_part_may_go_through) {
    std::string const text = half_random(83);
    test::Guarded const source(text.data(), 83), all(83);
    char *const from = source.data(), *const to = all.data();
    EXPECT_EQ(QX::encrypt_using_offset(from, from + 83, to, nullptr), to + 80);
    EXPECT_NE(std::string(to, 80), text.substr(0, 80));
    unsigned long long offset = 24;
    QX::decrypt_using_offset(from + 24, from + 63, from + 24, &offset);
    EXPECT_EQ(
        std::string(from, 83), text.substr(0, 24) + std::string(to + 24, 32) + text.substr(56));
    QX::encrypt_using_offset(to + 56, to + 83, to + 56, &offset);
    EXPECT_TRUE(std::string(to + 56, 24) == text.substr(56, 24) && offset == 80);
}

// --- Files --------------------------------------------------------------------------------------

constexpr unsigned int block = 1048576;

class CompressedFile : public testing::Test {
protected:
    unsigned int compress(std::string const& text, unsigned int level) const {
        return QX::compress(small_.c_str(), folder_.write("source", text).c_str(), level);
    }

    test::TempFolder folder_;
    std::string const source_ = folder_.file("source"), small_ = folder_.file("small"),
                      back_ = folder_.file("back");
};

TEST_F(CompressedFile, is_given_back_on_either_side_of_the_single_block) {
    for (unsigned int const size : {0u, 1u, block, block + 1, 2 * block + 5}) {
        std::string const text = half_random(size);
        unsigned int const count = compress(text, 1);
        EXPECT_EQ(QX::compress(nullptr, source_.c_str(), 1), count);
        EXPECT_EQ(QX::decompress(nullptr, small_.c_str()), size);
        EXPECT_EQ(QX::decompress(back_.c_str(), small_.c_str()), size);
        EXPECT_TRUE(test::read_file(back_) == text) << size;
        std::string bytes = test::read_file(small_), plain(size, '\0');
        EXPECT_EQ(QX::decompress(plain.data(), size, bytes.data(), count), size);
        EXPECT_TRUE(bytes.size() == count && plain == text) << size;
    }
}

TEST_F(CompressedFile, a_fault_shows_in_the_count_of_a_file_that_was_read_to_its_end) {
    std::string const text = half_random(3 * block);
    compress(text, 1);
    std::string const bytes = test::read_file(small_);
    folder_.write("small", bytes.substr(0, bytes.size() - 1000));
    unsigned int const count = QX::decompress(back_.c_str(), small_.c_str());
    EXPECT_TRUE(count > 2 * block && count < 3 * block);
    EXPECT_TRUE(test::read_file(back_) == text.substr(0, count));
    folder_.write("small", bytes.substr(0, 5000));
    EXPECT_GT(QX::decompress(nullptr, small_.c_str()), 0u);
    folder_.write("small", "no stream" + bytes);  // two blocks are never reached
    EXPECT_EQ(QX::decompress(back_.c_str(), small_.c_str()), 0u);
}

TEST_F(CompressedFile, gives_0_for_what_cannot_be_opened_read_or_written_or_is_too_large) {
    for (unsigned int const size : {100u, 2 * block + 1}) {
        EXPECT_EQ(QX::compress(source_.c_str(), folder_.file("missing").c_str(), 6), 0u);
        EXPECT_NE(compress(std::string(size, 'a'), 6), 0u);
        EXPECT_EQ(compress(std::string(size, 'a'), 11), 0u);
        EXPECT_EQ(QX::compress(folder_.file("no\\x").c_str(), source_.c_str(), 6), 0u);
        test::StandIn const read(
            "ReadFile", +[](HANDLE, LPVOID, DWORD bytes, LPDWORD done, LPOVERLAPPED) {
                *done = bytes - 1;
                return TRUE;
            });
        EXPECT_EQ(QX::compress(nullptr, source_.c_str(), 6), 0u);
        EXPECT_EQ(QX::decompress(nullptr, source_.c_str()), 0u);
    }
    QX::FileOut large(source_.c_str());
    EXPECT_TRUE(large.seek64(0xFFFFFFFE) && large.write("x", 1) == 1 && large.close());
    EXPECT_EQ(QX::compress(nullptr, source_.c_str(), 1), 0u);
    EXPECT_EQ(QX::decompress(nullptr, source_.c_str()), 0u);
}

// --- From file to memory -------------------------------------------------------------------------

constexpr unsigned int half = 4096;

class OverlappedLoad : public CompressedFile {
protected:
    // Of the small file.
    unsigned int load(unsigned int room, unsigned int half_size = half) {
        memory_.assign(room + 1, '#');
        reports_.clear();
        unsigned int const count =
            QX::decompress(memory_.data(), room, small_.c_str(), halves_, half_size, note, this);
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
    std::vector<std::array<unsigned int, 4>> reports_;  // out, in, total, whether still reading
};

// The stored text of the second round fills its blocks.
TEST_F(OverlappedLoad, reads_each_block_while_the_one_before_is_expanded) {
    constexpr unsigned int rows[][3] = {{3900, 6, 1}, {2 * half - 11, 0, 2}, {42000, 6, 8}};
    for (auto const& [plain_size, level, blocks] : rows) {
        std::string const text = half_random(plain_size);
        unsigned int const size = compress(text, level);
        test::LateCompletion const late(5);
        EXPECT_EQ(load(plain_size), plain_size);
        EXPECT_TRUE(memory_ == text && late.begun == blocks);
        ASSERT_EQ(reports_.size(), blocks + 2);
        for (unsigned int i = 0; i < blocks + 2; ++i) {
            auto const& [out, in, total, is_reading] = reports_[i];
            EXPECT_TRUE(in == std::min(i * half, size) && total == size) << i;
            EXPECT_EQ(is_reading, i >= 1 && i < blocks) << i;
            EXPECT_TRUE(i < blocks + 1 || out == plain_size);
        }
    }
}

TEST_F(OverlappedLoad, gives_what_fits_and_what_was_good) {
    EXPECT_TRUE(load(10) == 0 && reports_.empty());
    std::string const text = half_random(3 * half);
    compress(text, 6);
    std::string const bytes = test::read_file(small_);
    EXPECT_EQ(load(100, 0), 0u);
    EXPECT_EQ(load(100), 100u);
    EXPECT_EQ(memory_, text.substr(0, 100));
    EXPECT_EQ(QX::decompress(&memory_[0], 1, small_.c_str(), halves_, half, nullptr, nullptr), 1u);
    folder_.write("small", bytes.substr(0, half + 10));
    EXPECT_GT(load(3 * half), half);
    EXPECT_TRUE(memory_ == text.substr(0, memory_.size()));
    folder_.write("small", "no stream" + bytes);
    EXPECT_EQ(load(100), 0u);
    folder_.write("small", "");
    EXPECT_TRUE(load(10) == 0 && reports_.size() == 1);
}

}  // namespace
