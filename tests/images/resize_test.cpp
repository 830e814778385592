#include "qx/images/resize.h"

#include "plain_pixels.h"
#include "qx/images/resize_impl.h"
#include "qx/images/tga.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/guarded.h"
#include "tests/harness/temp_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace QX;
using namespace test;

// For the filters that are tested without AVX2.
pixel_rows::MipRow pixel_rows::find_mip(Kind kind) {
    return plain_mip_rows[kind];
}

namespace {

// One level in place, a pixel and a field at a time.
void plain_mip(
    Bytes& image, PixelFormat format, unsigned int width, unsigned int height,
    unsigned int stride) {
    unsigned int const size = pixel_size(format);
    auto const layout = layout_of(size == 4 ? PIXEL_FORMAT_A8R8G8B8 : format);
    for (unsigned int y = 0; y < height; y += 2) {
        for (unsigned int x = 0; x < width; x += 2) {
            unsigned int four[4] = {}, result = 0, at = 0;
            for (unsigned int i = 0; i < 4; ++i)
                std::memcpy(&four[i], &image[(y + i / 2) * stride + (x + i % 2) * size], size);
            for (unsigned int i = 0; i < 4 && at < size * 8; at += layout.bits[i++]) {
                unsigned int sum = 2;
                for (unsigned int const pixel : four)
                    sum += pixel >> at & ((1u << layout.bits[i]) - 1);
                result |= sum / 4 >> (8 - layout.bits[i]) << at;
            }
            std::memcpy(&image[y / 2 * stride + x / 2 * size], &result, size);
        }
    }
}

PixelAccessorDescriptor view_of(Bytes& picture, unsigned int w, unsigned int h) {
    return {picture.data(), w, h, w * 4, PIXEL_FORMAT_A8R8G8B8};
}

// The weights of one output line over the source's lines, in doubles.
std::vector<double> plain_weights(unsigned int s, unsigned int d, unsigned int i, bool by_middle) {
    std::vector<double> weights(s + 1);
    double const r = double(s) / d, start = i * r, end = (i + 1) * r;
    if (r >= 1) {
        for (unsigned int k = 0; k < s; ++k)
            weights[k] = std::max(0.0, std::min(end, k + 1.0) - std::max(start, double(k))) / r;
        return weights;
    }
    double const from = by_middle ? (start + end) / 2 : start + 1e-9;
    auto const first = static_cast<unsigned int>(from);
    double const second = by_middle ? from - first : std::max(0.0, end - (first + 1)) / r;
    weights[std::min(first + 1, s - 1)] += second;
    weights[first] += 1 - second;
    return weights;
}

using Levels = std::vector<double>;

// `s` lines of `inner` values become `d`; every pass rounds.
Levels
plain_pass(Levels const& in, unsigned int s, unsigned int d, unsigned int inner, bool by_middle) {
    Levels out(in.size() / s * d);
    for (unsigned int i = 0; i < d; ++i) {
        auto const weights = plain_weights(s, d, i, by_middle);
        for (std::size_t value = 0; value < in.size() / s; ++value) {
            std::size_t const outer = value / inner, at = value % inner;
            double sum = 0.5;
            for (unsigned int k = 0; k < s; ++k)
                sum += weights[k] * in[(outer * s + k) * inner + at];
            out[(outer * d + i) * inner + at] = std::floor(sum);
        }
    }
    return out;
}

}  // namespace

TEST(MipMap, halves_every_format_in_place_by_its_plain_rule) {
    Random random(20);
    for (int round = 0; round < 3000; ++round) {
        auto const format = any_format(random);
        unsigned int const width = random.below(90), height = random.below(7);
        // Odd sizes reach one column and row further, and there the memory ends.
        unsigned int const columns = width + width % 2;
        View const view(random, columns, height + height % 2, format);
        Bytes expected = view.bytes;
        Guarded const memory(expected.data(), expected.size());
        Guarded const narrow(expected.data(), expected.size());
        plain_mip(expected, format, width, height, view.stride);
        ASSERT_TRUE(view.of(memory.data()).mip_map(width, height));
        ASSERT_TRUE(holds(memory.data(), expected)) << format << ", " << width << "x" << height;
        auto* const data = reinterpret_cast<unsigned char*>(narrow.data());
        for (unsigned int y = 0; width && y < height; y += 2)
            pixel_rows::plain_mip_rows[kernel_of(format)](
                data + y / 2 * view.stride, data + y * view.stride, data + (y + 1) * view.stride,
                columns / 2);
        ASSERT_TRUE(holds(data, expected)) << format << " without AVX2";
    }
}

// Kept as it is: nothing clamps, and equal sizes read just past the source.
TEST(ResizeCopy, shifts_by_a_pixel_when_it_samples_at_equal_sizes) {
    Random random(22);
    for (int round = 0; round < 300; ++round) {
        unsigned int const sw = 1 + random.below(40), sh = 1 + random.below(10);
        unsigned int const dw = random.chance(4) ? sw : 1 + random.below(700), dh = sh + 3;
        Bytes source = random_bytes(random, (sw + 1) * (sh + 2) * 4), result(dw * dh * 4);
        ASSERT_TRUE(view_of(result, dw, dh).resize_copy_sample(view_of(source, sw, sh)));
        float const rx = float(sw) / float(dw), ry = float(sh) / float(dh);
        for (unsigned int i = 0; i < dw * dh; ++i) {
            auto x = static_cast<unsigned int>(float(i % dw) * rx + rx * 0.5f + 0.5f);
            auto const y = static_cast<unsigned int>(float(i / dw) * ry + ry * 0.5f + 0.5f);
            if (dw == sw) x = i % dw + 1;
            ASSERT_EQ(std::memcmp(&result[i * 4], &source[(y * sw + x) * 4], 4), 0) << sw << dw;
        }
    }
}

TEST(ResizeCopy, weighs_by_area_within_a_unit_a_pass_of_exact_arithmetic) {
    Random random(24);
    for (int round = 0; round < 250; ++round) {
        unsigned int const sw = 1 + random.below(40), sh = 1 + random.below(40);
        unsigned int const passes = random.below(3);
        unsigned int const dw = passes == 1 ? sw : 1 + random.below(40);
        unsigned int const dh = passes == 2 ? sh : 1 + random.below(40);
        bool const by_middle = random.below(2);
        Bytes source = random_bytes(random, sw * sh * 4), result(dw * dh * 4);
        auto const filter = by_middle ? PIXEL_COPY_BOX : PIXEL_COPY_AREA;
        ASSERT_TRUE(view_of(result, dw, dh).resize_copy(view_of(source, sw, sh), filter));

        Levels const in(source.begin(), source.end());
        Levels const levels =
            plain_pass(plain_pass(in, sh, dh, sw * 4, by_middle), sw, dw, 4, by_middle);
        for (std::size_t i = 0; i < result.size(); ++i)
            ASSERT_NEAR(result[i], levels[i], passes ? 1 : 2)
                << sw << "x" << sh << " to " << dw << "x" << dh;
        if (by_middle && sw % dw == 0 && sh % dh == 0) continue;  // whole blocks are summed up
        Bytes narrow(result.size());
        resample::weigh(
            view_of(narrow, dw, dh), view_of(source, sw, sh), by_middle, resample::plain_kernels);
        ASSERT_EQ(narrow, result) << "without AVX2";
        source.resize(std::max(source.size(), result.size()));
        ASSERT_TRUE(view_of(source, dw, dh).resize_copy(view_of(source, sw, sh), filter));
        ASSERT_TRUE(holds(source.data(), result)) << "from under the target";
    }
    Bytes source(5000 * 4000 * 4, 254), result(4);
    view_of(result, 1, 1).resize_copy_filter(view_of(source, 5000, 4000));
    EXPECT_EQ(result, Bytes(4, 254)) << "a sum past 32 bits";
}

TEST(ResizeCopy, converts_other_formats_on_the_way) {
    Random random(25);
    for (int i = 0; i < 100; ++i) {
        auto const from = formats[i % 10], to = formats[i / 10];
        Bytes source = random_bytes(random, 128), wide = source, half(32), expected(32), result(32);
        ConstPixelAccessorDescriptor const in(source.data(), 8, 4, 32, from);
        if (from != PIXEL_FORMAT_A8R8G8B8) view_of(wide, 8, 4).copy(in);
        view_of(half, 4, 2).resize_copy_filter(view_of(wide, 8, 4));
        PixelAccessorDescriptor(expected.data(), 4, 2, 16, to).copy(view_of(half, 4, 2));
        PixelAccessorDescriptor(result.data(), 4, 2, 16, to).resize_copy_filter(in);
        EXPECT_EQ(result, expected) << from << " to " << to;
    }
}

TEST(ResizeCopy, answers_false_and_leaves_the_view_alone_where_it_cannot) {
    Bytes source(64), target(16, 7);
    auto const in = view_of(source, 4, 4), out = view_of(target, 2, 2);
    EXPECT_FALSE(out.resize_copy(in, PixelCopyFilter(3)));
    EXPECT_FALSE(PixelAccessorDescriptor(nullptr, 2, 2, 4, PixelFormat(5)).mip_map(2));
    EXPECT_FALSE(
        PixelAccessorDescriptor(target.data(), 2, 2, 8, PIXEL_FORMAT_NONE).resize_copy_filter(in));
    for (unsigned int nth = 1; nth < 20; ++nth) {
        PixelAccessorDescriptor const grey(target.data(), 3, 2, 8, PIXEL_FORMAT_GREY8);
        FailingAllocation const failing(nth);
        bool const done =
            grey.resize_copy({source.data(), 4, 4, 16, PIXEL_FORMAT_GREY8}, PIXEL_COPY_AREA);
        if (!failing.fired()) break;
        EXPECT_FALSE(done) << nth;
        EXPECT_EQ(target[0], 7);
    }
}

TEST(ResizeCopy, ends_safely_where_a_side_is_empty) {
    Bytes pixels(16, 7);
    for (int i = 0; i < 12; ++i) {
        auto const filter = PixelCopyFilter(i % 3);
        auto const format = i < 6 ? PIXEL_FORMAT_A8R8G8B8 : PIXEL_FORMAT_R8G8B8;
        PixelAccessorDescriptor const none(nullptr, i % 2, 1 - i % 2, 0, format);
        PixelAccessorDescriptor const some(pixels.data(), 1, 1, 4, format);
        EXPECT_FALSE(some.resize_copy(none, filter));
        EXPECT_TRUE(none.resize_copy(some, filter) && none.resize_copy(none, filter));
    }
    EXPECT_EQ(pixels, Bytes(16, 7));
}

TEST(ResizeTga, reads_a_file_at_the_size_of_the_view) {
    Random random(26);
    TempFolder const folder;
    Bytes picture = random_bytes(random, 128), same(128), half(32), expected(32);
    FileOut out(folder.file("eight.tga").c_str());
    tga_write(out, PIXEL_FORMAT_A8R8G8B8, view_of(picture, 8, 4), true, false);
    out.close();
    FileIn file(folder.file("eight.tga").c_str(), false);
    EXPECT_TRUE(view_of(same, 8, 4).resize_tga_into(file, PixelCopyFilter(77)));
    EXPECT_EQ(same, picture) << "no filter at equal sizes";
    file.seek(0);
    EXPECT_TRUE(view_of(half, 4, 2).resize_tga_into(file, PIXEL_COPY_BOX));
    view_of(expected, 4, 2).resize_copy_filter(view_of(picture, 8, 4));
    EXPECT_EQ(half, expected);
}

TEST(ResizeTga, puts_the_stream_back_after_every_failure) {
    constexpr int rows[][5] = {                    // type, bits, width, filter, the view's format
                               {4, 24, 2, 2, 7},   // unsupported file
                               {2, 24, 2, 2, 21},  // read straight, into nothing
                               {2, 24, 4, 3, 7},   // unknown filter
                               {1, 24, 4, 2, 7},   // not to be loaded
                               {1, 16, 4, 2, 7}};  // loads, and answers false
    for (auto const& [type, bits, width, filter, format] : rows) {
        Bytes bytes(300), pixels(16);
        for (auto const& [at, value] :
             {std::pair(2, type), {7, 16}, {12, width}, {14, 2}, {16, bits}})
            bytes[3u + unsigned(at)] = static_cast<unsigned char>(value);
        MemFileIn file;
        file.open(reinterpret_cast<char*>(bytes.data()), 300);
        file.seek(3);
        PixelAccessorDescriptor const view(pixels.data(), 2, 2, 8, PixelFormat(format));
        EXPECT_FALSE(view.resize_tga_into(file, PixelCopyFilter(filter))) << type;
        EXPECT_EQ(file.tell(), 3u) << type;
    }
}

// Reckoned in 32 bits as the rule is written.
TEST(Ramps, follow_the_unsigned_rule_and_the_sine) {
    Random random(27);
    for (int round = 0; round < 400; ++round) {
        unsigned int const n = random.below(300);
        Bytes const c = random_bytes(random, 6);
        std::vector<Pixel888> up(n), down(n);
        generate_primary_colours(up.data(), n, {c[0], c[1], c[2]}, {c[3], c[4], c[5]});
        generate_secondary_colours(down.data(), n, {c[0], c[1], c[2]}, {c[3], c[4], c[5]});
        for (unsigned int i = 0; i < n * 3; ++i) {
            unsigned int const k = i % 3, v = ((3 - k) % 3 * n + i / 3 * 3) % (3 * n);
            unsigned int const weight = v < n ? v : v < 2 * n ? 2 * n - v : 0;
            unsigned int const share = weight * (unsigned{c[k + 3]} - c[k]) / n;
            ASSERT_EQ((&up[i / 3].blue)[k], static_cast<unsigned char>(c[k] + share)) << n;
            ASSERT_EQ((&down[i / 3].blue)[k], static_cast<unsigned char>(c[k + 3] - share)) << n;
        }
    }
    Pixel888 out[6];
    generate_tertiary_colours(out, 6, {10, 20, 30}, {200, 210, 220});
    EXPECT_TRUE(out[0].red == 220 && out[3].red == 30);  // the sines of 0 and of a quarter turn
    EXPECT_EQ(out[0].green, 68) << "210 less 3 quarters of 190";
}
