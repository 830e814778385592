#include "qx/images/pixel_copy.h"

#include "plain_pixels.h"
#include "qx/images/pixel_copy_impl.h"
#include "tests/harness/guarded.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace QX;
using namespace test;

namespace {

// Every pixel of the 1 and 2 byte layouts; for the others every byte value in every place.
Bytes every_pixel(PixelFormat format) {
    Random random(format);
    unsigned int const size = read_size(format);
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

// The conversion for processors without AVX2.
pixel_rows::Row narrow_row(PixelFormat from, PixelFormat to) {
    int const source = from == PIXEL_FORMAT_GREY_EXPAND ? 7 : kernel_of(from);
    return pixel_rows::plain_rows[source][kernel_of(to)];
}

}  // namespace

TEST(PixelCopy, converts_every_pair_of_formats_as_the_plain_rules_tell) {
    for (auto const from : formats) {
        Bytes const source = every_pixel(from);
        auto const count = static_cast<unsigned int>(source.size() / read_size(from));
        ConstPixelAccessorDescriptor const in(source.data(), count, 1, 0, from);
        for (auto const to : formats) {
            Bytes expected(count * pixel_size(to)), wide(expected.size(), 0xEE), narrow = wide;
            plain_copy({expected.data(), count, 1, 0, to}, in);
            EXPECT_TRUE(PixelAccessorDescriptor(wide.data(), count, 1, 0, to).copy(in));
            EXPECT_TRUE(wide == expected) << from << " to " << to;
            narrow_row(from, to)(narrow.data(), source.data(), count);
            EXPECT_TRUE(narrow == expected) << from << " to " << to << " without AVX2";
        }
    }
}

TEST(PixelCopy, touches_nothing_but_the_common_rectangle_of_padded_views) {
    Random random(1);
    for (int round = 0; round < 4000; ++round) {
        auto const from = any_format(random), to = any_format(random);
        View const source(random, random.below(70), random.below(5), from, read_size(from));
        View const view(random, random.below(70), random.below(5), to);
        // The last row ends at a page that may not be touched.
        Guarded const pixels(source.bytes.data(), source.bytes.size());
        Guarded const target(view.bytes.data(), view.bytes.size());
        Guarded const narrow(view.bytes.data(), view.bytes.size());
        Bytes expected = view.bytes;
        ConstPixelAccessorDescriptor const in = source.of(pixels.data());
        plain_copy(view.of(expected.data()), in);
        ASSERT_TRUE(view.of(target.data()).copy(in));
        ASSERT_TRUE(holds(target.data(), expected)) << from << " to " << to;
        auto* const rows = reinterpret_cast<unsigned char*>(narrow.data());
        for (unsigned int y = 0; y < std::min(in.height, view.height); ++y)
            narrow_row(from, to)(
                rows + y * view.stride, in.data + y * in.stride, std::min(in.width, view.width));
        ASSERT_TRUE(holds(rows, expected)) << from << " to " << to << " without AVX2";
    }
}

// Large results go past the cache by another way; they must not differ.
TEST(PixelCopy, gives_the_same_pixels_in_images_larger_than_the_cache) {
    Random random(3);
    for (auto const from : {PIXEL_FORMAT_R8G8B8, PIXEL_FORMAT_X8R8G8B8}) {
        View const source(random, 2503, 1201, from);
        Bytes expected(std::size_t{2503} * 1201 * 4), target = expected;
        PixelAccessorDescriptor out(expected.data(), 2503, 1201, 2503 * 4, PIXEL_FORMAT_X8R8G8B8);
        auto const in = source.of(const_cast<unsigned char*>(source.bytes.data()));
        plain_copy(out, in);
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
        EXPECT_FALSE(odd.copy(good) || good.copy(odd)) << bad;
        EXPECT_FALSE(odd.clear(0, 0, 4, 4, {1, 2, 3, 4})) << bad;
        EXPECT_EQ(bytes, before);
    }
}

TEST(PixelClear, fills_only_its_rectangle_with_the_narrowed_colour) {
    Random random(4);
    for (int round = 0; round < 600; ++round) {
        View const view(random, 1 + random.below(70), 1 + random.below(5), any_format(random));
        unsigned int const x = random.below(view.width), y = random.below(view.height);
        unsigned int const w = random.below(view.width - x + 1);
        unsigned int const h = random.below(view.height - y + 1);
        Bytes expected = view.bytes;
        Guarded const target(expected.data(), expected.size());
        Bytes const c = random_bytes(random, 4);
        for (unsigned int i = 0; i < w * h; ++i) {
            plain_convert(
                PIXEL_FORMAT_A8R8G8B8, c.data(), view.format,
                &expected[(y + i / w) * view.stride + (x + i % w) * pixel_size(view.format)]);
        }
        ASSERT_TRUE(view.of(target.data()).clear(x, y, w, h, {c[0], c[1], c[2], c[3]}));
        ASSERT_TRUE(holds(target.data(), expected)) << view.format << ' ' << x << ' ' << y;
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
