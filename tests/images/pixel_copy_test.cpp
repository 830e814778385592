#include "qx/images/pixel_copy.h"

#include "plain_pixels.h"
#include "qx/images/pixel_copy_impl.h"
#include "tests/harness/guarded.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace QX;
using test::Bytes;
using test::holds;
using test::random_bytes;

namespace {

PixelFormat any_format(test::Random& random) {
    return test::formats[random.below(10)];
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

Bytes plainly(PixelFormat from, void const* source, std::size_t count, PixelFormat to) {
    Bytes out(count * pixel_size(to));
    auto const width = static_cast<unsigned int>(count);
    test::plain_copy({out.data(), width, 1, 0, to}, {source, width, 1, 0, from});
    return out;
}

// The conversion for processors without AVX2.
pixel_rows::Row narrow_row(PixelFormat from, PixelFormat to) {
    constexpr int kinds[] = {0, 1, 2, 3, 4, -1, -1, 5, 5, -1, 5, 6, 7};
    return pixel_rows::plain_rows[from == PIXEL_FORMAT_GREY_EXPAND ? 7 : kinds[from]][kinds[to]];
}

}  // namespace

TEST(PixelCopy, converts_every_pair_of_formats_as_the_plain_rules_tell) {
    for (auto const from : test::formats) {
        Bytes const source = every_pixel(from);
        auto const count = static_cast<unsigned int>(source.size() / test::read_size(from));
        ConstPixelAccessorDescriptor const in(source.data(), count, 1, 0, from);
        for (auto const to : test::formats) {
            Bytes const expected = plainly(from, source.data(), count, to);
            Bytes wide(expected.size(), 0xEE), narrow(expected.size(), 0xEE);
            EXPECT_TRUE(PixelAccessorDescriptor(wide.data(), count, 1, 0, to).copy(in));
            EXPECT_TRUE(wide == expected) << from << " to " << to;
            narrow_row(from, to)(narrow.data(), source.data(), count);
            EXPECT_TRUE(narrow == expected) << from << " to " << to << " without AVX2";
        }
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
        test::Guarded const target(expected.data(), target_size),
            narrow(expected.data(), target_size);

        ConstPixelAccessorDescriptor const in(source.data(), sw, sh, ss, from);
        test::plain_copy(PixelAccessorDescriptor(expected.data(), dw, dh, ds, to), in);
        ASSERT_TRUE(PixelAccessorDescriptor(target.data(), dw, dh, ds, to).copy(in));
        ASSERT_TRUE(holds(target.data(), expected))
            << from << " to " << to << ", " << sw << "x" << sh << " to " << dw << "x" << dh;
        auto* const rows = reinterpret_cast<unsigned char*>(narrow.data());
        for (unsigned int y = 0; y < std::min(sh, dh); ++y)
            narrow_row(from, to)(rows + y * ds, in.data + y * ss, std::min(sw, dw));
        ASSERT_TRUE(holds(rows, expected)) << from << " to " << to << " without AVX2";
    }
}

// Large results go past the cache by another way; they must not differ.
TEST(PixelCopy, gives_the_same_pixels_in_images_larger_than_the_cache) {
    test::Random random(3);
    for (auto const from : {PIXEL_FORMAT_R8G8B8, PIXEL_FORMAT_X8R8G8B8}) {
        unsigned int const width = 2503, height = 1201, stride = width * 4 + 5;
        Bytes const source = random_bytes(random, std::size_t{stride} * height);
        Bytes expected(source.size(), 0x55), target = expected;
        ConstPixelAccessorDescriptor const in(source.data(), width, height, stride, from);
        PixelAccessorDescriptor out(expected.data(), width, height, stride, PIXEL_FORMAT_X8R8G8B8);
        test::plain_copy(out, in);
        out.data = target.data();
        EXPECT_TRUE(out.copy(in));
        EXPECT_TRUE(target == expected) << from;
    }
}

TEST(PixelCopy, refuses_formats_without_pixels_and_changes_nothing) {
    for (int const bad : {5, 6, 9, 13, 20, 21, -1, 0x7FFFFFFF}) {
        Bytes bytes(64, 7), before = bytes;
        PixelAccessorDescriptor const good(bytes.data(), 4, 4, 16, PIXEL_FORMAT_A8R8G8B8);
        PixelAccessorDescriptor const odd(bytes.data(), 4, 4, 16, PixelFormat(bad));
        EXPECT_FALSE(odd.copy(good)) << bad;
        EXPECT_FALSE(good.copy(odd)) << bad;
        EXPECT_FALSE(odd.clear(0, 0, 4, 4, {1, 2, 3, 4})) << bad;
        EXPECT_EQ(bytes, before);
    }
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
        Bytes const c = random_bytes(random, 4);
        for (unsigned int i = 0; i < w * h; ++i) {
            test::plain_convert(
                PIXEL_FORMAT_A8R8G8B8, c.data(), format,
                &expected[(y + i / w) * stride + (x + i % w) * size]);
        }
        PixelAccessorDescriptor const view(target.data(), width, height, stride, format);
        ASSERT_TRUE(view.clear(x, y, w, h, {c[0], c[1], c[2], c[3]}));
        ASSERT_TRUE(holds(target.data(), expected))
            << format << ' ' << x << ' ' << y << ' ' << w << ' ' << h;
    }
}

// The values that the formats' users rely on, told outright: format, pixel, format, result.
TEST(PixelCopy, keeps_its_odd_full_scales_and_alphas) {
    constexpr unsigned int rows[][4] = {
        {1, 0xFFFF, 7, 0xFFFFFFFF}, {3, 0xFFFF, 7, 0xF0F0F0F0},     {2, 0x7FFF, 7, 0x00FFFFFF},
        {7, 0x00FFFFFF, 12, 255},   {12, 200, 7, 0xC8C8C8C8},       {12, 0x80, 2, 0xC210},
        {12, 0x7F, 2, 0x3DEF},      {10, 9, 10, 0x09090909},        {7, 0x12345678, 10, 0x12345678},
        {0, 0xFFFF, 0, 0xFFFF},     {11, 0x12345678, 7, 0xFF345678}};
    for (auto const& [from, pixel, to, result] : rows) {
        unsigned int out = 0;
        ConstPixelAccessorDescriptor const in(&pixel, 1, 1, 4, PixelFormat(from));
        EXPECT_TRUE(PixelAccessorDescriptor(&out, 1, 1, 4, PixelFormat(to)).copy(in));
        EXPECT_EQ(out, result) << from << " to " << to;
    }
}
