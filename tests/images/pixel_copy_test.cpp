#include "qx/images/pixel_copy.h"

#include "plain_pixels.h"
#include "qx/images/pixel_copy_impl.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using namespace QX;

namespace {

using Bytes = std::vector<unsigned char>;

PixelFormat any_format(test::Random& random) {
    return test::formats[random.below(10)];
}

Bytes random_bytes(test::Random& random, std::size_t size) {
    Bytes bytes(size);
    for (auto& byte : bytes) byte = static_cast<unsigned char>(random.next());
    return bytes;
}

// Every pixel of the 1 and 2 byte layouts; for the others every byte value in every place.
Bytes every_pixel(PixelFormat format) {
    test::Random random(format);
    unsigned int const size = test::read_size(format);
    unsigned int const count = size == 1 ? 256 : size == 2 ? 65536 : 256 * 64 * size;
    Bytes bytes = random_bytes(random, count * size);
    for (unsigned int i = 0; i < count; ++i) {
        if (size <= 2)
            std::memcpy(&bytes[i * size], &i, size);
        else
            bytes[i * size + i / 256 % size] = static_cast<unsigned char>(i);
    }
    return bytes;
}

Bytes plainly(PixelFormat from, Bytes const& source, PixelFormat to) {
    std::size_t const count = source.size() / test::read_size(from);
    Bytes out(count * pixel_size(to));
    for (std::size_t i = 0; i < count; ++i) {
        test::plain_convert(from, &source[i * test::read_size(from)], to, &out[i * pixel_size(to)]);
    }
    return out;
}

}  // namespace

TEST(PixelCopy, converts_every_pair_of_formats_as_the_plain_rules_tell) {
    for (auto const from : test::formats) {
        Bytes const source = every_pixel(from);
        auto const count = static_cast<unsigned int>(source.size() / test::read_size(from));
        ConstPixelAccessorDescriptor const in(source.data(), count, 1, 0, from);
        for (auto const to : test::formats) {
            Bytes const expected = plainly(from, source, to);
            Bytes wide(expected.size(), 0xEE), narrow(expected.size(), 0xEE);
            EXPECT_TRUE(PixelAccessorDescriptor(wide.data(), count, 1, 0, to).copy(in));
            EXPECT_TRUE(wide == expected) << from << " to " << to;

            constexpr int kinds[] = {0, 1, 2, 3, 4, -1, -1, 5, 5, -1, 5, 6, 7};
            auto const* row =
                pixel_rows::plain_rows[from == PIXEL_FORMAT_GREY_EXPAND ? 7 : kinds[from]];
            row[kinds[to]](narrow.data(), source.data(), count);
            EXPECT_TRUE(narrow == expected) << from << " to " << to << " without AVX2";
        }
    }
}

TEST(PixelCopy, weighs_every_colour_to_grey_with_exact_rounding) {
    std::vector<unsigned int> colours(65536);
    Bytes wide(65536), narrow(65536);
    for (unsigned int red = 0; red < 256; ++red) {
        for (unsigned int i = 0; i < 65536; ++i) colours[i] = 0xAB000000 | red << 16 | i;
        ConstPixelAccessorDescriptor const in(colours.data(), 65536, 1, 0, PIXEL_FORMAT_A8R8G8B8);
        PixelAccessorDescriptor(wide.data(), 65536, 1, 0, PIXEL_FORMAT_GREY8).copy(in);
        pixel_rows::plain_rows[pixel_rows::A8888][pixel_rows::G8](
            narrow.data(), reinterpret_cast<unsigned char const*>(colours.data()), 65536);
        unsigned int wrong = 0;
        for (unsigned int i = 0; i < 65536; ++i) {
            unsigned int const level = (28 * (i & 255) + 150 * (i >> 8) + 76 * red + 127) / 254;
            wrong += wide[i] != level || narrow[i] != level;
        }
        ASSERT_EQ(wrong, 0u) << "red " << red;
    }
}

TEST(PixelCopy, touches_nothing_but_the_common_rectangle_of_padded_views) {
    test::Random random(1);
    for (int round = 0; round < 4000; ++round) {
        auto const from = any_format(random), to = any_format(random);
        unsigned int const sw = random.below(70), sh = random.below(5);
        unsigned int const dw = random.below(70), dh = random.below(5);
        unsigned int const ss = sw * test::read_size(from) + random.below(3) * random.below(9);
        unsigned int const ds = dw * pixel_size(to) + random.below(3) * random.below(9);
        // The last row ends at a page that may not be touched.
        std::size_t const source_size = sh ? ss * (sh - 1) + sw * test::read_size(from) : 0;
        std::size_t const target_size = dh ? ds * (dh - 1) + dw * pixel_size(to) : 0;
        test::Guarded const source(random_bytes(random, source_size).data(), source_size);
        Bytes expected = random_bytes(random, target_size);
        test::Guarded const target(expected.data(), target_size);

        ConstPixelAccessorDescriptor const in(source.data(), sw, sh, ss, from);
        test::plain_copy(PixelAccessorDescriptor(expected.data(), dw, dh, ds, to), in);
        ASSERT_TRUE(PixelAccessorDescriptor(target.data(), dw, dh, ds, to).copy(in));
        ASSERT_EQ(std::memcmp(target.data(), expected.data(), target_size), 0)
            << from << " to " << to << ", " << sw << "x" << sh << " to " << dw << "x" << dh;
    }
}

TEST(PixelCopy, converts_rows_of_every_length_without_avx2_too) {
    test::Random random(2);
    for (unsigned int count = 0; count < 40; ++count) {
        for (int source = 0; source < pixel_rows::kind_count; ++source) {
            for (int target = 0; target < pixel_rows::kind_count; ++target) {
                std::size_t const from_size =
                    count * pixel_rows::kind_size(pixel_rows::Kind(source));
                std::size_t const to_size = count * pixel_rows::kind_size(pixel_rows::Kind(target));
                constexpr PixelFormat names[] = {PIXEL_FORMAT_X1R5G5B5, PIXEL_FORMAT_R5G6B5,
                                                 PIXEL_FORMAT_A1R5G5B5, PIXEL_FORMAT_A4R4G4B4,
                                                 PIXEL_FORMAT_R8G8B8,   PIXEL_FORMAT_A8R8G8B8,
                                                 PIXEL_FORMAT_X8R8G8B8, PIXEL_FORMAT_GREY8};
                Bytes const bytes = random_bytes(random, from_size);
                test::Guarded const in(bytes.data(), from_size), out(to_size);
                pixel_rows::plain_rows[source][target](
                    reinterpret_cast<unsigned char*>(out.data()),
                    reinterpret_cast<unsigned char*>(in.data()), count);
                Bytes const expected = plainly(names[source], bytes, names[target]);
                ASSERT_EQ(std::memcmp(out.data(), expected.data(), to_size), 0);
            }
        }
    }
}

// Large results go past the cache by another way; they must not differ.
TEST(PixelCopy, gives_the_same_pixels_in_images_larger_than_the_cache) {
    test::Random random(3);
    for (auto const from : {PIXEL_FORMAT_R8G8B8, PIXEL_FORMAT_A8R8G8B8}) {
        for (unsigned int const padding : {0u, 5u}) {
            unsigned int const width = 2503, height = 1201;
            auto const to = PIXEL_FORMAT_A8R8G8B8;
            unsigned int const ss = width * pixel_size(from) + 1, ds = width * 4 + padding;
            Bytes const source = random_bytes(random, std::size_t{ss} * height);
            Bytes expected(std::size_t{ds} * height, 0x55), target = expected;
            ConstPixelAccessorDescriptor const in(source.data(), width, height, ss, from);
            test::plain_copy({expected.data(), width, height, ds, to}, in);
            EXPECT_TRUE(PixelAccessorDescriptor(target.data(), width, height, ds, to).copy(in));
            EXPECT_TRUE(target == expected) << from << " padded by " << padding;
        }
    }
}

TEST(PixelCopy, refuses_formats_without_pixels_and_changes_nothing) {
    for (int const bad : {5, 6, 9, 13, 20, 21, -1, 0x7FFFFFFF}) {
        Bytes bytes(64, 7), before = bytes;
        Bytes const source(64, 1);
        PixelAccessorDescriptor const good(bytes.data(), 4, 4, 16, PIXEL_FORMAT_A8R8G8B8);
        PixelAccessorDescriptor const odd(bytes.data(), 4, 4, 16, PixelFormat(bad));
        ConstPixelAccessorDescriptor const in(source.data(), 4, 4, 16, PIXEL_FORMAT_A8R8G8B8);
        EXPECT_FALSE(odd.copy(in)) << bad;
        EXPECT_FALSE(
            good.copy(ConstPixelAccessorDescriptor(source.data(), 4, 4, 16, PixelFormat(bad))));
        EXPECT_FALSE(odd.clear(0, 0, 4, 4, {1, 2, 3, 4})) << bad;
        EXPECT_EQ(bytes, before);
    }
}

TEST(PixelCopy, of_an_empty_source_is_true_and_reads_nothing) {
    unsigned char pixel[4] = {1, 2, 3, 4};
    PixelAccessorDescriptor const to(pixel, 1, 1, 4, PIXEL_FORMAT_A8R8G8B8);
    EXPECT_TRUE(to.copy(ConstPixelAccessorDescriptor(nullptr, 9, 0, 9, PIXEL_FORMAT_GREY8)));
    EXPECT_EQ(pixel[0], 1);
}

TEST(PixelClear, fills_only_its_rectangle_with_the_narrowed_colour) {
    test::Random random(4);
    for (int round = 0; round < 600; ++round) {
        auto const format = any_format(random);
        unsigned int const size = pixel_size(format);
        unsigned int const width = 1 + random.below(70), height = 1 + random.below(5);
        unsigned int const stride = width * size + random.below(9);
        unsigned int const x = random.below(width), y = random.below(height);
        unsigned int const w = random.below(width - x + 1), h = random.below(height - y + 1);
        Bytes expected = random_bytes(random, stride * (height - 1) + width * size);
        test::Guarded const target(expected.data(), expected.size());
        Bytes const colour = random_bytes(random, 4);
        for (unsigned int i = 0; i < w * h; ++i) {
            test::plain_convert(
                PIXEL_FORMAT_A8R8G8B8, colour.data(), format,
                &expected[(y + i / w) * stride + (x + i % w) * size]);
        }
        PixelAccessorDescriptor const view(target.data(), width, height, stride, format);
        ASSERT_TRUE(view.clear(x, y, w, h, {colour[0], colour[1], colour[2], colour[3]}));
        ASSERT_EQ(std::memcmp(target.data(), expected.data(), expected.size()), 0)
            << format << ' ' << x << ' ' << y << ' ' << w << ' ' << h;
    }
}

// The values that the formats' users rely on, told outright.
TEST(PixelCopy, keeps_its_odd_full_scales_and_alphas) {
    struct Row {
        PixelFormat from;
        unsigned int pixel;
        PixelFormat to;
        unsigned int result;
    };
    constexpr Row rows[] = {
        {PIXEL_FORMAT_R5G6B5, 0xFFFF, PIXEL_FORMAT_A8R8G8B8, 0xFFFFFFFF},
        {PIXEL_FORMAT_A4R4G4B4, 0xFFFF, PIXEL_FORMAT_A8R8G8B8, 0xF0F0F0F0},
        {PIXEL_FORMAT_A1R5G5B5, 0x7FFF, PIXEL_FORMAT_A8R8G8B8, 0x00FFFFFF},
        {PIXEL_FORMAT_A1R5G5B5, 0xFFFF, PIXEL_FORMAT_A8R8G8B8, 0xFFFFFFFF},
        {PIXEL_FORMAT_A8R8G8B8, 0x00FFFFFF, PIXEL_FORMAT_GREY8, 255},
        {PIXEL_FORMAT_A8R8G8B8, 0xFF000000, PIXEL_FORMAT_GREY8, 0},
        {PIXEL_FORMAT_GREY8, 200, PIXEL_FORMAT_A8R8G8B8, 0xC8C8C8C8},
        {PIXEL_FORMAT_GREY8, 0x80, PIXEL_FORMAT_A1R5G5B5, 0xC210},
        {PIXEL_FORMAT_GREY8, 0x7F, PIXEL_FORMAT_A1R5G5B5, 0x3DEF},
        {PIXEL_FORMAT_GREY_EXPAND, 9, PIXEL_FORMAT_GREY_EXPAND, 0x09090909},
        {PIXEL_FORMAT_A8R8G8B8, 0x12345678, PIXEL_FORMAT_GREY_EXPAND, 0x12345678},
        {PIXEL_FORMAT_X8R8G8B8, 0x12345678, PIXEL_FORMAT_A8R8G8B8, 0xFF345678},
        {PIXEL_FORMAT_X1R5G5B5, 0xFFFF, PIXEL_FORMAT_X1R5G5B5, 0xFFFF},
    };
    for (Row const& row : rows) {
        unsigned int out = 0;
        ConstPixelAccessorDescriptor const in(&row.pixel, 1, 1, 4, row.from);
        EXPECT_TRUE(PixelAccessorDescriptor(&out, 1, 1, 4, row.to).copy(in));
        EXPECT_EQ(out, row.result) << row.from << " to " << row.to;
    }
}
