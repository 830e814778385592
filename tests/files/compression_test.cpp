#include "qx/files/compression.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

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

TEST(Compression, gives_every_text_back_at_every_level_and_in_every_wrapper) {
    test::Random random(1);
    for (unsigned int round = 0; round < 600; ++round) {
        std::string const text = random_text(random, random.below(400));
        std::string const bytes = packed(text, round % 10, round % 3);
        ASSERT_NE(bytes, "");
        ASSERT_EQ(expanded(bytes, text.size() + 1, round % 3), text);
    }
    EXPECT_EQ(packed("").size(), 8u);
    EXPECT_EQ(packed("usual", 0xFFFFFFFF), packed("usual", 6));
    EXPECT_TRUE(packed("text", 10) == "" && packed("text", 0xFFFFFFFE) == "");
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

TEST(Compression, gives_0_where_the_output_is_too_small) {
    test::Random random(2);
    std::string text = random_text(random, 150);
    std::string const bytes = packed(text, 9);
    for (unsigned int room = 0; room <= bytes.size(); ++room) {
        test::Guarded const dest(room);
        ASSERT_EQ(
            QX::compress(dest.data(), room, text.data(), 150, 9), room == bytes.size() ? room : 0u);
    }
    for (unsigned int room = 0; room <= 150; ++room)
        ASSERT_EQ(expanded(bytes, room), room == 150 ? text : "");
}

// The checksum lets no changed text pass.
TEST(Compression, gives_0_for_every_cut_stream) {
    test::Random random(3);
    std::string const text = random_text(random, 150);
    for (unsigned int format = 0; format < 3; ++format) {
        std::string const bytes = packed(text, 9, format);
        for (unsigned int size = 0; size < bytes.size(); ++size)
            ASSERT_EQ(expanded(bytes.substr(0, size), 200, format), "") << size;
    }
    for (unsigned int round = 0; round < 5000; ++round) {
        std::string bytes = packed(text, round % 10);
        for (unsigned int changes = random.below(3) + 1; changes; --changes)
            bytes[random.below(static_cast<unsigned int>(bytes.size()))] =
                static_cast<char>(random.next());
        std::string const got = expanded(bytes, 150);
        ASSERT_TRUE(got == "" || got == text);
    }
}

int held;
void *real_malloc, *real_free;

void* counting_malloc(std::size_t size) {
    ++held;
    return reinterpret_cast<void* (*)(std::size_t)>(real_malloc)(size);
}

void counting_free(void* block) {
    if (block) --held;
    reinterpret_cast<void (*)(void*)>(real_free)(block);
}

// Told by the blocks of the C library that calls leave behind.
TEST(Compression, leaves_the_stream_of_a_refused_call_unended) {
    char text[] = "text", small[4];
    test::StandIn const take("malloc", counting_malloc), give("free", counting_free);
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

}  // namespace
