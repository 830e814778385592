#include "qx/images/resize.h"

#include "plain_pixels.h"
#include "qx/images/image.h"
#include "qx/images/resize_impl.h"
#include "qx/images/tga.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/temp_folder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace QX;

namespace {

using Bytes = std::vector<unsigned char>;

Bytes random_bytes(test::Random& random, std::size_t size) {
    Bytes bytes(size);
    for (auto& byte : bytes) byte = static_cast<unsigned char>(random.next());
    return bytes;
}

// The widths of the fields that a format averages; bytes are fields of 8 bits.
struct Fields {
    PixelFormat format;
    std::vector<unsigned int> bits;
};

std::vector<Fields> const fields = {
    {PIXEL_FORMAT_X1R5G5B5, {5, 5, 5}},        {PIXEL_FORMAT_R5G6B5, {5, 6, 5}},
    {PIXEL_FORMAT_A1R5G5B5, {5, 5, 5, 1}},     {PIXEL_FORMAT_A4R4G4B4, {4, 4, 4, 4}},
    {PIXEL_FORMAT_R8G8B8, {8, 8, 8}},          {PIXEL_FORMAT_A8R8G8B8, {8, 8, 8, 8}},
    {PIXEL_FORMAT_A8R8G8B8_ALT, {8, 8, 8, 8}}, {PIXEL_FORMAT_GREY_EXPAND, {8, 8, 8, 8}},
    {PIXEL_FORMAT_X8R8G8B8, {8, 8, 8, 8}},     {PIXEL_FORMAT_GREY8, {8}}};

unsigned int pixel_at(unsigned char const* from, unsigned int size) {
    unsigned int pixel = 0;
    std::memcpy(&pixel, from, size);
    return pixel;
}

// One level in place, a pixel and a field at a time.
void plain_mip(
    Bytes& image, Fields const& layout, unsigned int width, unsigned int height,
    unsigned int stride) {
    unsigned int const size = pixel_size(layout.format);
    for (unsigned int y = 0; y < height; y += 2) {
        for (unsigned int x = 0; x < width; x += 2) {
            unsigned char const* const p = &image[y * stride + x * size];
            unsigned int four[4] = {
                pixel_at(p, size), pixel_at(p + size, size), pixel_at(p + stride, size),
                pixel_at(p + stride + size, size)};
            unsigned int result = 0, at = 0;
            for (unsigned int const bits : layout.bits) {
                unsigned int sum = 0;
                for (unsigned int const pixel : four) sum += pixel >> at & ((1u << bits) - 1);
                result |= (sum + 2) / 4 >> (8 - bits) << at;
                at += bits;
            }
            std::memcpy(&image[y / 2 * stride + x / 2 * size], &result, size);
        }
    }
}

using Picture = std::vector<Pixel8888>;

Picture random_picture(test::Random& random, unsigned int count) {
    Picture picture(count);
    for (auto& pixel : picture) {
        unsigned int const bits = static_cast<unsigned int>(random.next());
        std::memcpy(&pixel, &bits, 4);
    }
    return picture;
}

int channel(Pixel8888 const& pixel, int i) {
    return reinterpret_cast<unsigned char const*>(&pixel)[i];
}

// The weights of one output line over the source's lines, in doubles.
std::vector<double> plain_weights(unsigned int s, unsigned int d, unsigned int i, bool by_middle) {
    std::vector<double> weights(s + 1);
    double const r = double(s) / d, start = i * r, end = (i + 1) * r;
    if (s == d) {
        weights[i] = 1;
    } else if (r >= 1) {
        for (unsigned int k = 0; k < s; ++k)
            weights[k] = std::max(0.0, std::min(end, k + 1.0) - std::max(start, double(k))) / r;
    } else if (by_middle) {
        double const p = (start + end) / 2;
        unsigned int const first = static_cast<unsigned int>(p);
        weights[std::min(first + 1, s - 1)] += p - first;
        weights[first] += 1 - (p - first);
    } else {
        auto const first = static_cast<unsigned int>(start + 1e-9);
        double const second = std::max(0.0, end - (first + 1)) / r;
        weights[first + 1] += second;
        weights[first] += 1 - second;
    }
    return weights;
}

// How far apart the two are at most. Both passes round to bytes.
int distance_to_plain(
    Picture const& result, unsigned int dw, unsigned int dh, Picture const& source, unsigned int sw,
    unsigned int sh, bool by_middle) {
    int distance = 0;
    std::vector<double> between(std::size_t{sw} * dh * 4);
    for (unsigned int y = 0; y < dh; ++y) {
        auto const weights = plain_weights(sh, dh, y, by_middle);
        for (unsigned int i = 0; i < sw * 4; ++i) {
            double sum = 0;
            for (unsigned int k = 0; k < sh; ++k)
                sum += weights[k] * channel(source[k * sw + i / 4], i % 4);
            between[y * sw * 4 + i] = std::floor(sum + 0.5);
        }
    }
    for (unsigned int x = 0; x < dw; ++x) {
        auto const weights = plain_weights(sw, dw, x, by_middle);
        for (unsigned int i = 0; i < dh * 4; ++i) {
            double sum = 0;
            for (unsigned int k = 0; k < sw; ++k)
                sum += weights[k] * between[(i / 4 * sw + k) * 4 + i % 4];
            int const expected = static_cast<int>(std::floor(sum + 0.5));
            distance =
                std::max(distance, std::abs(expected - channel(result[i / 4 * dw + x], i % 4)));
        }
    }
    return distance;
}

ConstPixelAccessorDescriptor view_of(Picture const& picture, unsigned int w, unsigned int h) {
    return {picture.data(), w, h, w * 4, PIXEL_FORMAT_A8R8G8B8};
}

PixelAccessorDescriptor view_of(Picture& picture, unsigned int w, unsigned int h) {
    return {picture.data(), w, h, w * 4, PIXEL_FORMAT_A8R8G8B8};
}

}  // namespace

TEST(MipMap, halves_every_format_in_place_by_its_plain_rule) {
    test::Random random(20);
    for (int round = 0; round < 3000; ++round) {
        Fields const& layout = fields[random.below(10)];
        unsigned int const size = pixel_size(layout.format);
        unsigned int const width = random.below(90), height = random.below(7);
        // Odd sizes reach one column and row further, and there the memory ends.
        unsigned int const columns = width + width % 2, rows = height + height % 2;
        unsigned int const stride = columns * size + random.below(2) * random.below(7);
        std::size_t const bytes = rows ? stride * (rows - 1) + columns * size : 0;
        Bytes expected = random_bytes(random, bytes);
        test::Guarded const memory(expected.data(), bytes);
        plain_mip(expected, layout, width, height, stride);
        PixelAccessorDescriptor const view(memory.data(), 0, 0, stride, layout.format);
        ASSERT_TRUE(view.mip_map(width, height));
        ASSERT_EQ(std::memcmp(memory.data(), expected.data(), bytes), 0)
            << "format " << layout.format << ", " << width << "x" << height;
    }
}

TEST(MipMap, halves_rows_alike_without_avx2) {
    test::Random random(21);
    constexpr int kinds[] = {0, 1, 2, 3, 4, 5, 5, 5, 6, 7};
    for (std::size_t i = 0; i < fields.size(); ++i) {
        unsigned int const size = pixel_size(fields[i].format), stride = 140 * size;
        for (unsigned int count = 1; count <= 70; ++count) {
            Bytes expected = random_bytes(random, stride + count * 2 * size);
            test::Guarded const memory(expected.data(), expected.size());
            plain_mip(expected, fields[i], count * 2, 1, stride);
            auto* const data = reinterpret_cast<unsigned char*>(memory.data());
            pixel_rows::plain_mip_rows[kinds[i]](data, data, data + stride, count);
            ASSERT_EQ(std::memcmp(data, expected.data(), expected.size()), 0) << fields[i].format;
        }
    }
}

// Kept as it is: a full-scale field is narrowed as if it were a byte.
TEST(MipMap, darkens_the_16_bit_formats_and_loses_their_alpha) {
    struct Row {
        PixelFormat format;
        unsigned short result;
    };
    constexpr Row rows[] = {
        {PIXEL_FORMAT_R5G6B5, 3 << 11 | 15 << 5 | 3},
        {PIXEL_FORMAT_X1R5G5B5, 3 << 10 | 3 << 5 | 3},
        {PIXEL_FORMAT_A1R5G5B5, 3 << 10 | 3 << 5 | 3},
        {PIXEL_FORMAT_A4R4G4B4, 0}};
    for (Row const& row : rows) {
        unsigned short white[4] = {0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF};
        EXPECT_TRUE(PixelAccessorDescriptor(white, 2, 2, 4, row.format).mip_map(2));
        EXPECT_EQ(white[0], row.result) << row.format;
        EXPECT_EQ(white[1], 0xFFFF);
    }
    EXPECT_FALSE(PixelAccessorDescriptor(nullptr, 2, 2, 4, PixelFormat(5)).mip_map(2));
}

TEST(ResizeCopy, samples_where_the_unclamped_formula_points) {
    test::Random random(22);
    for (int round = 0; round < 300; ++round) {
        unsigned int const sw = 1 + random.below(40), sh = 1 + random.below(10);
        unsigned int const dw = 1 + random.below(700), dh = 1 + random.below(10);
        Picture const source = random_picture(random, (sw + 1) * (sh + 2));
        Picture result(dw * dh);
        ASSERT_TRUE(view_of(result, dw, dh).resize_copy_sample(view_of(source, sw, sh)));
        float const rx = float(sw) / float(dw), ry = float(sh) / float(dh);
        for (unsigned int i = 0; i < dw * dh; ++i) {
            auto const x = static_cast<unsigned int>(float(i % dw) * rx + rx * 0.5f + 0.5f);
            auto const y = static_cast<unsigned int>(float(i / dw) * ry + ry * 0.5f + 0.5f);
            ASSERT_EQ(std::memcmp(&result[i], &source[y * sw + x], 4), 0) << sw << " to " << dw;
        }
    }
}

// Kept as they are, told outright.
TEST(ResizeCopy, shifts_by_a_pixel_when_it_samples_at_equal_sizes) {
    Picture source(6), half(2), same(4);
    for (unsigned char i = 0; i < 6; ++i) source[i].blue = i;
    EXPECT_TRUE(
        view_of(half, 2, 1).resize_copy_sample({source.data(), 4, 1, 0, PIXEL_FORMAT_A8R8G8B8}));
    EXPECT_EQ(half[0].blue, 1);
    EXPECT_EQ(half[1].blue, 3);
    EXPECT_TRUE(
        view_of(same, 4, 1).resize_copy_sample({source.data(), 4, 1, 0, PIXEL_FORMAT_A8R8G8B8}));
    EXPECT_EQ(same[0].blue, 1);
    EXPECT_EQ(same[3].blue, 4) << "just past the source";
}

TEST(ResizeCopy, averages_whole_blocks_exactly) {
    test::Random random(23);
    for (int round = 0; round < 300; ++round) {
        unsigned int const bx = 1 + random.below(9), by = 1 + random.below(9);
        unsigned int const dw = 1 + random.below(20), dh = 1 + random.below(4);
        unsigned int const sw = bx * dw, n = bx * by;
        Picture const source = random_picture(random, sw * by * dh);
        Picture result(dw * dh);
        ASSERT_TRUE(view_of(result, dw, dh).resize_copy_filter(view_of(source, sw, by * dh)));
        for (unsigned int i = 0; i < dw * dh * 4; ++i) {
            unsigned int const left = i / 4 % dw * bx, top = i / 4 / dw * by;
            unsigned int sum = 0;
            for (unsigned int k = 0; k < n; ++k)
                sum += channel(source[(top + k / bx) * sw + left + k % bx], i % 4);
            ASSERT_EQ(channel(result[i / 4], i % 4), (sum + n / 2) / n) << bx << "x" << by;
        }
    }
}

TEST(ResizeCopy, averages_blocks_whose_sums_pass_32_bits) {
    Picture const source(5000 * 4000, Pixel8888{255, 254, 3, 0});
    Picture result(1);
    EXPECT_TRUE(view_of(result, 1, 1).resize_copy_filter(view_of(source, 5000, 4000)));
    EXPECT_EQ(std::memcmp(&result[0], &source[0], 4), 0);
}

TEST(ResizeCopy, weighs_by_area_within_one_unit_of_exact_arithmetic) {
    test::Random random(24);
    for (int round = 0; round < 250; ++round) {
        unsigned int const sw = 1 + random.below(40), sh = 1 + random.below(40);
        unsigned int const dw = 1 + random.below(40), dh = 1 + random.below(40);
        bool const by_middle = random.below(2);
        if (by_middle && sw % dw == 0 && sh % dh == 0) continue;  // whole blocks
        Picture const source = random_picture(random, sw * sh);
        Picture result(dw * dh);
        auto const filter = by_middle ? PIXEL_COPY_BOX : PIXEL_COPY_AREA;
        ASSERT_TRUE(view_of(result, dw, dh).resize_copy(view_of(source, sw, sh), filter));
        ASSERT_LE(distance_to_plain(result, dw, dh, source, sw, sh, by_middle), 1)
            << sw << "x" << sh << " to " << dw << "x" << dh << (by_middle ? ", by middle" : "");
    }
}

TEST(ResizeCopy, converts_other_formats_on_the_way) {
    test::Random random(25);
    for (auto const from : test::formats) {
        for (auto const to : test::formats) {
            Bytes const source = random_bytes(random, 8 * 4 * 4);
            ConstPixelAccessorDescriptor const in(source.data(), 8, 4, 32, from);
            Picture wide(32), half(8);
            view_of(wide, 8, 4).copy(in);
            ASSERT_TRUE(
                view_of(half, 4, 2)
                    .resize_copy_filter(from == PIXEL_FORMAT_A8R8G8B8 ? in : view_of(wide, 8, 4)));
            Bytes expected(4 * 2 * 4, 9), result = expected;
            PixelAccessorDescriptor(expected.data(), 4, 2, 16, to).copy(view_of(half, 4, 2));
            EXPECT_TRUE(
                PixelAccessorDescriptor(result.data(), 4, 2, 16, to).resize_copy_filter(in));
            EXPECT_EQ(result, expected) << from << " to " << to;
        }
    }
}

TEST(ResizeCopy, answers_false_and_leaves_the_view_alone_where_it_cannot) {
    Picture source(16), target(4, Pixel8888{7, 7, 7, 7});
    auto const in = view_of(source, 4, 4);
    auto const out = view_of(target, 2, 2);
    EXPECT_FALSE(out.resize_copy(in, PixelCopyFilter(3)));
    EXPECT_FALSE(out.resize_copy(in, PixelCopyFilter(-1)));
    EXPECT_FALSE(out.resize_copy_filter({source.data(), 4, 4, 16, PixelFormat(9)}));
    EXPECT_FALSE(out.resize_copy_filter({source.data(), 0, 4, 16, PIXEL_FORMAT_A8R8G8B8}));
    EXPECT_FALSE(
        PixelAccessorDescriptor(target.data(), 2, 2, 8, PIXEL_FORMAT_NONE).resize_copy_filter(in));
    for (unsigned int nth = 1; nth < 20; ++nth) {
        PixelAccessorDescriptor const grey(target.data(), 3, 2, 8, PIXEL_FORMAT_GREY8);
        test::FailingAllocation const failing(nth);
        bool const done =
            grey.resize_copy({source.data(), 4, 4, 16, PIXEL_FORMAT_GREY8}, PIXEL_COPY_AREA);
        if (!failing.fired()) break;
        EXPECT_FALSE(done) << nth;
        EXPECT_EQ(target[0].blue, 7);
    }
    EXPECT_EQ(target[0].blue, 0) << "the last round had all its memory";
}

TEST(ResizeTga, reads_a_file_at_the_size_of_the_view) {
    test::Random random(26);
    test::TempFolder const folder;
    Picture const picture = random_picture(random, 32);
    FileOut out(folder.file("eight.tga").c_str());
    tga_write(out, PIXEL_FORMAT_A8R8G8B8, view_of(picture, 8, 4), true, false);
    out.write("behind", 6);
    out.close();
    std::string const bytes = "before" + test::read_file(folder.file("eight.tga"));
    MemFileIn memory;
    memory.open(bytes.data(), static_cast<unsigned int>(bytes.size()));
    memory.seek(6);
    Picture same(32), half(8), expected(8);
    EXPECT_TRUE(view_of(same, 8, 4).resize_tga_into(memory, PixelCopyFilter(77)));
    EXPECT_EQ(std::memcmp(same.data(), picture.data(), 128), 0) << "no filter at equal sizes";
    EXPECT_EQ(memory.tell(), 6u + 18 + 128);

    FileIn file(folder.file("eight.tga").c_str(), false);
    EXPECT_TRUE(view_of(half, 4, 2).resize_tga_into(file, PIXEL_COPY_BOX));
    view_of(expected, 4, 2).resize_copy_filter(view_of(picture, 8, 4));
    EXPECT_EQ(std::memcmp(half.data(), expected.data(), 32), 0);
    EXPECT_EQ(file.tell(), 18u + 128);
}

TEST(ResizeTga, puts_the_stream_back_after_every_failure) {
    struct Row {
        int type, bits, width;
        int filter;
        PixelFormat view;
    };
    constexpr Row rows[] = {
        {4, 24, 2, 2, PIXEL_FORMAT_A8R8G8B8},   // unsupported file
        {2, 24, 2, 2, PIXEL_FORMAT_NONE},       // read straight, into nothing
        {2, 24, 4, 3, PIXEL_FORMAT_A8R8G8B8},   // unknown filter
        {1, 24, 4, 2, PIXEL_FORMAT_A8R8G8B8},   // not to be loaded
        {1, 16, 4, 2, PIXEL_FORMAT_A8R8G8B8}};  // loads, and answers false
    for (Row const& row : rows) {
        std::string bytes(300, '\0');
        bytes[3 + 2] = static_cast<char>(row.type);
        bytes[3 + 7] = 16;
        bytes[3 + 12] = static_cast<char>(row.width);
        bytes[3 + 14] = 2;
        bytes[3 + 16] = static_cast<char>(row.bits);
        MemFileIn file;
        file.open(bytes.data(), static_cast<unsigned int>(bytes.size()));
        file.seek(3);
        Picture pixels(4);
        PixelAccessorDescriptor const view(pixels.data(), 2, 2, 8, row.view);
        EXPECT_FALSE(view.resize_tga_into(file, PixelCopyFilter(row.filter))) << row.type;
        EXPECT_EQ(file.tell(), 3u) << row.type;
    }
}

TEST(Ramps, are_three_waves_a_third_of_a_cycle_apart) {
    Pixel888 out[6];
    generate_primary_colours(out, 6, {0, 0, 0}, {60, 60, 60});
    constexpr unsigned char primary[6][3] = {// blue, green, red
                                             {0, 0, 60},  {30, 0, 30}, {60, 0, 0},
                                             {30, 30, 0}, {0, 60, 0},  {0, 30, 30}};
    EXPECT_EQ(std::memcmp(out, primary, 18), 0);
    generate_secondary_colours(out, 6, {0, 0, 0}, {60, 60, 60});
    for (int i = 0; i < 6; ++i) EXPECT_EQ(out[i].green, 60 - primary[i][1]);
    generate_tertiary_colours(out, 6, {10, 20, 30}, {200, 210, 220});
    EXPECT_EQ(out[0].red, 220) << "the sine of 0";
    EXPECT_EQ(out[3].red, 30) << "a quarter of a turn";
    EXPECT_EQ(out[0].green, 68) << "210 less 3 quarters of 190";
    generate_primary_colours(nullptr, 0, {1, 1, 1}, {2, 2, 2});
}

// Kept as it is: the unsigned difference is divided before it is cut.
TEST(Ramps, wrap_where_the_second_colour_is_darker) {
    Pixel888 out[3];
    generate_primary_colours(out, 1, {9, 9, 0}, {0, 0, 255});
    EXPECT_EQ(out[0].red, 255);
    EXPECT_EQ(out[0].blue, 9);
    generate_primary_colours(out, 3, {0, 0, 10}, {0, 0, 5});
    EXPECT_EQ(out[0].red, static_cast<unsigned char>(10 + 4294967281u / 3));
}

// Both triangle ramps, reckoned in 32 bits as their rule is written.
TEST(Ramps, follow_the_unsigned_rule_for_any_count_and_colours) {
    test::Random random(27);
    for (int round = 0; round < 400; ++round) {
        unsigned int const n = 1 + random.below(300);
        Bytes const c = random_bytes(random, 6);
        std::vector<Pixel888> up(n), down(n);
        generate_primary_colours(up.data(), n, {c[0], c[1], c[2]}, {c[3], c[4], c[5]});
        generate_secondary_colours(down.data(), n, {c[0], c[1], c[2]}, {c[3], c[4], c[5]});
        for (unsigned int i = 0; i < n; ++i) {
            unsigned int const starts[3] = {0, 2 * n, n};  // blue, green, red
            for (int k = 0; k < 3; ++k) {
                int const v = static_cast<int>((starts[k] + 3 * i) % (3 * n)), m = int(n);
                auto const weight = static_cast<unsigned int>(std::max(0, m - std::abs(v - m)));
                unsigned int const share = weight * (unsigned{c[k + 3]} - c[k]) / n;
                ASSERT_EQ((&up[i].blue)[k], static_cast<unsigned char>(c[k] + share)) << n;
                ASSERT_EQ((&down[i].blue)[k], static_cast<unsigned char>(c[k + 3] - share)) << n;
            }
        }
    }
}
