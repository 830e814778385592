#include "qx/files/compression.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <algorithm>
#include <string>
#include <vector>

#include "qx/files/file_streams.h"
#include "tests/files/late_completion.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::COMPRESSION_FORMAT;

COMPRESSION_FORMAT format_of(unsigned int number) {
    return static_cast<COMPRESSION_FORMAT>(number);
}

std::string packed(std::string text, unsigned int level = 6, unsigned int format = 1) {
    std::string bytes(text.size() + 100, '\0');
    bytes.resize(QX::compress_specific_format(
        bytes.data(), static_cast<unsigned int>(bytes.size()), text.data(),
        static_cast<unsigned int>(text.size()), format_of(format), level));
    return bytes;
}

// Both blocks end at pages that may not be touched. "" for 0.
std::string expanded(std::string const& bytes, std::size_t room, unsigned int format = 1) {
    test::Guarded const source(bytes.data(), bytes.size()), dest(room);
    unsigned int const count = QX::decompress_specific_format(
        dest.data(), static_cast<unsigned int>(room), source.data(),
        static_cast<unsigned int>(bytes.size()), format_of(format));
    return std::string(dest.data(), count);
}

// A byte that repeats an earlier one, as a rule.
std::string random_text(test::Random& random, unsigned int size) {
    std::string text;
    while (text.size() < size) {
        unsigned int const back = random.below(60) + 1;
        bool const repeat = back < text.size() && !random.chance(4);
        text += repeat ? text[text.size() - back] : static_cast<char>(random.next());
    }
    return text;
}

// Truncated and damaged streams give 0: the checksum lets no changed text pass.
TEST(Compression, gives_every_text_back_at_every_level_and_in_every_wrapper) {
    test::Random random(1);
    for (unsigned int round = 0; round < 2000; ++round) {
        std::string const text = random_text(random, random.below(400));
        unsigned int const level = round % 10, format = round % 3;
        std::string bytes = packed(text, level, format);
        ASSERT_NE(bytes, "");
        ASSERT_EQ(expanded(bytes, text.size() + 1, format), text);
        if (format == 0) continue;
        bytes[random.below(static_cast<unsigned int>(bytes.size()))] ^= 1 << random.below(8);
        std::string const got = expanded(bytes, text.size() + 1, format);
        ASSERT_TRUE(got == "" || got == text);
    }
    EXPECT_EQ(packed("").size(), 8u);
    EXPECT_EQ(packed("usual", 0xFFFFFFFF), packed("usual", 6));
    EXPECT_TRUE(packed("text", 10) == "" && packed("text", 0xFFFFFFFE) == "");
}

TEST(Compression, gives_0_where_the_output_is_too_small) {
    test::Random random(2);
    std::string text = random_text(random, 150);
    std::string const bytes = packed(text, 9);
    for (unsigned int room = 0; room <= 150; ++room) {
        test::Guarded const dest(room);
        unsigned int const count = QX::compress(dest.data(), room, text.data(), 150, 9);
        ASSERT_EQ(count, room < bytes.size() ? 0u : bytes.size());
        ASSERT_EQ(expanded(bytes, room), room == 150 ? text : "");
    }
}

TEST(Compression, gives_0_for_every_cut_stream) {
    test::Random random(3);
    std::string const text = random_text(random, 150);
    for (unsigned int format = 0; format < 3; ++format) {
        std::string const bytes = packed(text, 9, format);
        for (unsigned int size = 0; size < bytes.size(); ++size)
            ASSERT_EQ(expanded(bytes.substr(0, size), 200, format), "") << size;
    }
}

// Made by Python's zlib, with a window of 512 bytes and with fixed codes, and by gzip with a name.
TEST(Compression, expands_streams_that_others_made_whatever_stands_behind) {
    struct Row {
        unsigned int wrapper;
        std::string bytes;
    };
    Row const rows[] = {
        {1,
         {"\x18\xD3\xCB\xCFKU()\xCFW\xC8G\xA5\x01"
          "e$\x08u",
          18}},
        {0, {"\xCB\xCFKU()\xCFW\xC8G\xA5\x01", 12}},
        {2,
         {"\x1F\x8B\x08\x08\xC3\xCA\x01k\x00\x03name.txt\x00\xCB\xCFKU()\xCFW\xC8G\xA5\x01"
          "9\x9E\x16O\x17\x00\x00\x00",
          39}},
    };
    for (Row const& row : rows)
        EXPECT_EQ(expanded(row.bytes + "more", 40, row.wrapper), "one two one two one two");
}

TEST(Compression, chooses_the_wrapper_by_number) {
    std::string text = "some text that is some text";
    std::string const raw = packed(text, 6, 0), zlib = packed(text, 6, 1),
                      gzip = packed(text, 6, 2);
    EXPECT_EQ(zlib.substr(0, 2 + raw.size()), "\x78\x9C" + raw);
    EXPECT_TRUE(gzip.substr(0, 3) == "\x1F\x8B\x08" && gzip.substr(10, raw.size()) == raw);
    for (unsigned int const number : {3u, 5u, 0xFFFFFFFFu})
        EXPECT_TRUE(packed(text, 6, number) == zlib && expanded(zlib, 27, number) == text);
    EXPECT_EQ(expanded(zlib, 27, 2), "");
    std::string bytes(100, '\0');
    bytes.resize(QX::compress(bytes.data(), 100, text.data(), 27, 6));
    EXPECT_EQ(bytes, zlib);
    EXPECT_EQ(QX::decompress(text.data(), 27, bytes.data(), 35), 27u);
}

int held;
void *real_malloc, *real_free;

// Told by the blocks of the C library that calls leave behind.
TEST(Compression, leaves_the_stream_of_a_refused_call_unended) {
    char text[] = "text", small[4];
    test::StandIn const take(
        "malloc", +[](std::size_t size) {
            return ++held, reinterpret_cast<void* (*)(std::size_t)>(real_malloc)(size);
        });
    test::StandIn const give(
        "free", +[](void* block) {
            held -= block != nullptr;
            reinterpret_cast<void (*)(void*)>(real_free)(block);
        });
    ASSERT_TRUE(take.found() && give.found());
    real_malloc = take.original();
    real_free = give.original();
    EXPECT_EQ(QX::compress(small, 4, text, 4, 6) + QX::compress(small, 4, text, 4, 10), 0u);
    EXPECT_EQ(QX::decompress(small, 4, text, 4), 0u);
    EXPECT_EQ(held, 0);
    EXPECT_EQ(QX::compress(nullptr, 4, text, 4, 6), 0u);
    EXPECT_GT(held, 0);
}

TEST(Scrambling, is_undone_in_pieces_and_in_place_and_leaves_the_tail) {
    test::Random random(3);
    for (unsigned int round = 0; round < 500; ++round) {
        unsigned int const size = random.below(80), whole = size / 8 * 8;
        unsigned int const border = random.below(whole / 8 + 1) * 8;
        std::string const text = random_text(random, size);
        test::Guarded const source(text.data(), size), dest(size);
        char *const from = source.data(), *const to = dest.data(), *const middle = to + border;
        unsigned long long const first = random.chance(3) ? 0 : random.next();
        unsigned long long state = 77, plain_state = 77;
        ASSERT_EQ(QX::encrypt(from, from + size % 8, to, first, state), to);
        ASSERT_EQ(QX::encrypt(from, from + size, to, state, state), to + whole);
        std::string const scrambled(to, size), tail(size - whole, '\0');
        ASSERT_TRUE(state != 0 && scrambled.substr(whole) == tail);
        ASSERT_TRUE(whole == 0 || scrambled.substr(0, whole) != text.substr(0, whole));
        QX::decrypt(to, middle, to, first, plain_state);
        ASSERT_EQ(QX::decrypt(middle, to + size, middle, plain_state, plain_state), to + whole);
        ASSERT_TRUE(plain_state == state && std::string(to, whole) == text.substr(0, whole));
        if (first) continue;
        ASSERT_EQ(QX::encrypt(from, from + size, to), to + whole);
        ASSERT_EQ(std::string(to, size), scrambled);
        ASSERT_EQ(QX::decrypt(to, to + size, to), to + whole);
        ASSERT_EQ(std::string(to, whole), text.substr(0, whole));
    }
}

TEST(Scrambling, by_position_is_one_function_that_any_part_may_go_through) {
    test::Random random(4);
    std::string const text = random_text(random, 83);
    test::Guarded const source(text.data(), 83), all(83), part(83);
    char *const from = source.data(), *const to = all.data();
    EXPECT_EQ(QX::encrypt_using_offset(from, from + 83, to, nullptr), to + 80);
    EXPECT_NE(std::string(to, 80), text.substr(0, 80));
    unsigned long long offset = 24;
    QX::decrypt_using_offset(from + 24, from + 63, part.data(), &offset);
    EXPECT_EQ(offset, 56u);
    EXPECT_EQ(std::string(part.data(), 83), std::string(to + 24, 32) + std::string(51, '\0'));
    offset = 0;
    QX::encrypt_using_offset(to, to + 83, to, &offset);
    EXPECT_EQ(std::string(to, 80), text.substr(0, 80));
}

// --- Files --------------------------------------------------------------------------------------

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

// The single block is written at once, a stored larger file in parts of a megabyte.
TEST_F(CompressedFile, is_given_back_on_either_side_of_the_single_block) {
    test::StandIn const stand_in(
        "fwrite", +[](void const* data, std::size_t size, std::size_t count, void* file) {
            auto const real =
                reinterpret_cast<std::size_t (*)(void const*, std::size_t, std::size_t, void*)>(
                    real_write);
            return ++writes, real(data, size, count, file);
        });
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
