#include "qx/files/compression.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/files/foreign_streams.h"
#include "tests/files/plain_inflate.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

namespace {

using QX::COMPRESSION_FORMAT;

std::string packed(
    std::string text, unsigned int level = 6,
    COMPRESSION_FORMAT format = QX::COMPRESSION_FORMAT_ZLIB) {
    std::string bytes(text.size() + 100, '\0');
    bytes.resize(QX::compress_specific_format(
        bytes.data(), static_cast<unsigned int>(bytes.size()), text.data(),
        static_cast<unsigned int>(text.size()), format, level));
    return bytes;
}

// Both blocks end at pages that may not be touched.
unsigned int
expand(std::string const& bytes, unsigned int room, COMPRESSION_FORMAT format, std::string& text) {
    test::Guarded source(bytes.data(), bytes.size()), dest(room);
    unsigned int const count = QX::decompress_specific_format(
        dest.data(), room, source.data(), static_cast<unsigned int>(bytes.size()), format);
    text.assign(dest.data(), count);
    return count;
}

unsigned int expand(std::string const& bytes, unsigned int room) {
    std::string text;
    return expand(bytes, room, QX::COMPRESSION_FORMAT_ZLIB, text);
}

std::string random_text(test::Random& random) {
    std::string text;
    for (unsigned int left = random.below(400); left; --left) {
        unsigned int const back = random.below(60) + 1;
        bool const repeat = back < text.size() && !random.chance(4);
        text += repeat ? text[text.size() - back] : static_cast<char>(random.next());
    }
    return text;
}

TEST(Compression, gives_every_text_back_at_every_level_and_in_every_wrapper) {
    test::Random random(1);
    for (unsigned int round = 0; round < 600; ++round) {
        std::string const text = random_text(random);
        auto const format = static_cast<COMPRESSION_FORMAT>(round % 3);
        std::string const bytes = packed(text, round % 10, format);
        std::string back;
        ASSERT_EQ(
            expand(bytes, static_cast<unsigned int>(text.size()) + 1, format, back), text.size());
        ASSERT_EQ(back, text);
        if (format == QX::COMPRESSION_FORMAT_ZLIB) {
            ASSERT_TRUE(test::plain_inflate(bytes, back));
            ASSERT_EQ(back, text);
        }
    }
    EXPECT_EQ(packed("").size(), 8u);
    EXPECT_EQ(packed("usual", 0xFFFFFFFF), packed("usual", 6));
}

std::string text_named(std::string const& name) {
    if (name == "once") return "The quick brown fox jumps over the lazy dog.";
    std::string text;
    for (int i = 0; name == "runs" && i < 30; ++i)
        text.append(i * 7 % 300 + 1, static_cast<char>(i));
    for (int i = 0; name == "mixed" && i < 150; ++i)
        text += static_cast<char>((i * i / 7 + i % 11) % 251);
    return text;
}

TEST(Compression, expands_streams_that_others_made) {
    for (ForeignStream const& row : foreign_streams) {
        std::string bytes, text;
        for (char const* at = row.digits; *at; at += 2)
            bytes += static_cast<char>(std::stoi(std::string(at, 2), nullptr, 16));
        std::string const expected = text_named(row.text);
        unsigned int const size = static_cast<unsigned int>(expected.size());
        auto const format = static_cast<COMPRESSION_FORMAT>(row.wrapper);
        EXPECT_EQ(expand(bytes, size + 1, format, text), size) << row.text << ", " << row.method;
        EXPECT_EQ(text, expected) << row.text << ", " << row.method;
        EXPECT_EQ(expand(bytes + "more", size + 1, format, text), size) << row.method;
    }
}

TEST(Compression, chooses_the_wrapper_by_number) {
    std::string const text = "some text that is some text";
    std::string const raw = packed(text, 6, static_cast<COMPRESSION_FORMAT>(0));
    std::string const zlib = packed(text, 6, static_cast<COMPRESSION_FORMAT>(1));
    std::string const gzip = packed(text, 6, static_cast<COMPRESSION_FORMAT>(2));
    EXPECT_EQ(zlib.substr(0, 2), "\x78\x9C");
    EXPECT_EQ(zlib.substr(2, raw.size()), raw);
    EXPECT_EQ(gzip.substr(0, 3), "\x1F\x8B\x08");
    EXPECT_EQ(gzip.substr(10, raw.size()), raw);
    std::string bytes(100, '\0'), back;
    std::string source = text;
    bytes.resize(QX::compress(bytes.data(), 100, source.data(), 27, 6));
    EXPECT_EQ(bytes, zlib);
    for (unsigned int const number : {3u, 5u, 0xFFFFFFFFu}) {
        EXPECT_EQ(packed(text, 6, static_cast<COMPRESSION_FORMAT>(number)), zlib);
        EXPECT_EQ(expand(zlib, 27, static_cast<COMPRESSION_FORMAT>(number), back), 27u);
    }
    EXPECT_EQ(QX::decompress(bytes.data(), 27, std::string(zlib).data(), 35), 27u);
    EXPECT_EQ(expand(zlib, 27, QX::COMPRESSION_FORMAT_GZIP, back), 0u);
}

TEST(Compression, gives_0_where_the_output_is_too_small) {
    std::string text = text_named("mixed");
    unsigned int const size = static_cast<unsigned int>(text.size());
    std::string const bytes = packed(text, 9);
    for (unsigned int room = 0; room <= bytes.size(); ++room) {
        test::Guarded dest(room);
        unsigned int const count = QX::compress(dest.data(), room, text.data(), size, 9);
        ASSERT_EQ(count, room == bytes.size() ? room : 0u);
    }
    for (unsigned int room = 0; room <= size; ++room)
        ASSERT_EQ(expand(bytes, room), room == size ? size : 0u);
}

TEST(Compression, gives_0_for_every_cut_stream) {
    for (unsigned int format = 0; format < 3; ++format) {
        auto const wrapper = static_cast<COMPRESSION_FORMAT>(format);
        std::string const bytes = packed(text_named("runs"), 9, wrapper);
        std::string text;
        for (unsigned int size = 0; size < bytes.size(); ++size)
            ASSERT_EQ(expand(bytes.substr(0, size), 5000, wrapper, text), 0u) << size;
    }
}

// The checksum lets no changed text pass.
TEST(Compression, gives_0_or_the_text_for_every_damaged_stream) {
    test::Random random(2);
    std::string const whole = text_named("mixed");
    for (unsigned int round = 0; round < 5000; ++round) {
        std::string bytes = packed(whole, round % 10), text;
        for (unsigned int changes = random.below(3) + 1; changes; --changes)
            bytes[random.below(static_cast<unsigned int>(bytes.size()))] =
                static_cast<char>(random.next());
        unsigned int const count = expand(bytes, 150, QX::COMPRESSION_FORMAT_ZLIB, text);
        if (count) {
            ASSERT_EQ(text, whole);
        }
    }
}

TEST(Compression, refuses_levels_that_there_are_not) {
    EXPECT_EQ(packed("text", 10), "");
    EXPECT_EQ(packed("text", 0xFFFFFFFE), "");
}

int held;
void* (*real_malloc)(std::size_t);
void (*real_free)(void*);

void* counting_malloc(std::size_t size) {
    ++held;
    return real_malloc(size);
}

void counting_free(void* block) {
    if (block) --held;
    real_free(block);
}

// Blocks of the C library that a call leaves behind.
template <typename Call>
int left_by(Call call) {
    test::StandIn const take("malloc", counting_malloc), give("free", counting_free);
    EXPECT_TRUE(take.found() && give.found());
    real_malloc = reinterpret_cast<void* (*)(std::size_t)>(take.original());
    real_free = reinterpret_cast<void (*)(void*)>(give.original());
    held = 0;
    EXPECT_EQ(call(), 0u);
    return held;
}

TEST(Compression, leaves_the_stream_of_a_refused_call_unended) {
    char text[] = "text", small[4];
    EXPECT_GT(left_by([&] { return QX::compress(nullptr, 4, text, 4, 6); }), 0);
    EXPECT_EQ(left_by([&] { return QX::compress(small, 4, text, 4, 6); }), 0);
    EXPECT_EQ(left_by([&] { return QX::compress(small, 4, text, 4, 10); }), 0);
    EXPECT_EQ(left_by([&] { return QX::decompress(small, 4, text, 4); }), 0);
}

TEST(Scrambling, is_undone_in_pieces_and_in_place_and_leaves_the_tail) {
    test::Random random(3);
    for (unsigned int round = 0; round < 500; ++round) {
        unsigned int const size = random.below(80), whole = size / 8 * 8;
        unsigned int const border = random.below(whole / 8 + 1) * 8;
        std::string const text = random_text(random) + std::string(80, 'x');
        test::Guarded source(text.data(), size), dest(size);
        char* const end = source.data() + size;
        unsigned long long const first = random.chance(3) ? 0 : random.next();
        unsigned long long state = 0, plain_state = 0;
        ASSERT_EQ(QX::encrypt(source.data(), end, dest.data(), first, state), dest.data() + whole);
        ASSERT_NE(state, 0u);
        ASSERT_EQ(std::string(dest.data() + whole, size - whole), std::string(size - whole, '\0'));
        char* const middle = dest.data() + border;
        QX::decrypt(dest.data(), middle, dest.data(), first, plain_state);
        ASSERT_EQ(
            QX::decrypt(middle, dest.data() + whole, middle, plain_state, plain_state),
            dest.data() + whole);
        ASSERT_EQ(plain_state, state);
        ASSERT_EQ(std::string(dest.data(), whole), text.substr(0, whole));
    }
}

TEST(Scrambling, begins_with_the_fixed_state_for_0_even_behind_an_empty_range) {
    char text[] = "sixteen letters!", short_form[17] = {}, by_0[17] = {}, by_empty[17] = {};
    unsigned long long state = 77;
    QX::encrypt(text, text + 16, short_form);
    QX::encrypt(text, text + 16, by_0, 0, state);
    EXPECT_EQ(std::string(by_0, 16), std::string(short_form, 16));
    EXPECT_NE(std::string(by_0, 16), text);
    state = 77;
    EXPECT_EQ(QX::encrypt(text, text + 7, by_empty, 0, state), by_empty);
    QX::encrypt(text, text + 16, by_empty, state, state);
    EXPECT_EQ(std::string(by_empty, 16), std::string(by_0, 16));
    EXPECT_EQ(QX::decrypt(by_0, by_0 + 16, by_0), by_0 + 16);
    EXPECT_STREQ(by_0, text);
}

TEST(Scrambling, by_position_is_one_function_that_any_part_may_go_through) {
    std::string const text = text_named("runs").substr(0, 83);
    test::Guarded source(text.data(), 83), all(83), part(83);
    EXPECT_EQ(
        QX::encrypt_using_offset(source.data(), source.data() + 83, all.data(), nullptr),
        all.data() + 80);
    EXPECT_NE(std::string(all.data(), 80), text.substr(0, 80));
    unsigned long long offset = 24;
    QX::decrypt_using_offset(source.data() + 24, source.data() + 63, part.data(), &offset);
    EXPECT_EQ(offset, 56u);
    EXPECT_EQ(std::string(part.data(), 32), std::string(all.data() + 24, 32));
    EXPECT_EQ(std::string(part.data() + 32, 51), std::string(51, '\0'));
    offset = 0;
    QX::encrypt_using_offset(all.data(), all.data() + 83, all.data(), &offset);
    EXPECT_EQ(offset, 80u);
    EXPECT_EQ(std::string(all.data(), 80), text.substr(0, 80));
}

}  // namespace
