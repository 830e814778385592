// resize_filters.cpp - the filters that scale pictures.
#include "qx/images/image.h"
#include "qx/images/resize_impl.h"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

namespace QX::resample {

namespace {

__m128i load(void const* from) {
    return _mm_loadu_si128(static_cast<__m128i const*>(from));
}

unsigned int sampled(unsigned int x, float ratio) {
    return static_cast<unsigned int>(
        static_cast<int>(static_cast<float>(x) * ratio + ratio * 0.5f + 0.5f));
}

}  // namespace

void sample(PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from) {
    float const rx = static_cast<float>(from.width) / static_cast<float>(to.width);
    float const ry = static_cast<float>(from.height) / static_cast<float>(to.height);
    constexpr unsigned int most = 512;
    std::size_t offsets[most];
    for (unsigned int left = 0; left < to.width; left += most) {
        unsigned int const count = std::min(most, to.width - left);
        for (unsigned int i = 0; i != count; ++i)
            offsets[i] = sampled(left + i, rx) * std::size_t{4};
        for (unsigned int y = 0; y != to.height; ++y) {
            unsigned char const* const row = from.data + std::size_t{sampled(y, ry)} * from.stride;
            unsigned char* const out = to.data + std::size_t{y} * to.stride + left * std::size_t{4};
            for (unsigned int i = 0; i != count; ++i) std::memcpy(out + i * 4, row + offsets[i], 4);
        }
    }
}

namespace {

// The four channel sums of pixels in a row.
__m128i sum_pixels(unsigned char const* from, std::size_t count) {
    __m128i const zero = _mm_setzero_si128();
    __m128i total = zero;
    while (count != 0) {
        std::size_t now = std::min<std::size_t>(count, 256);  // 16 bits hold so many in pairs
        count -= now;
        __m128i words = zero;
        for (; now >= 4; now -= 4, from += 16) {
            __m128i const p = load(from);
            words = _mm_add_epi16(
                words, _mm_add_epi16(_mm_unpacklo_epi8(p, zero), _mm_unpackhi_epi8(p, zero)));
        }
        for (; now != 0; --now, from += 4) {
            int pixel;
            std::memcpy(&pixel, from, 4);
            words = _mm_add_epi16(words, _mm_unpacklo_epi8(_mm_cvtsi32_si128(pixel), zero));
        }
        total = _mm_add_epi32(
            total, _mm_add_epi32(_mm_unpacklo_epi16(words, zero), _mm_unpackhi_epi16(words, zero)));
    }
    return total;
}

// Sums of at most 2^32 / 255 pixels.
void store_average(unsigned char* to, __m128i sums, unsigned int n) {
    unsigned int channels[4];
    std::memcpy(channels, &sums, 16);
    for (int i = 0; i != 4; ++i) to[i] = static_cast<unsigned char>((channels[i] + n / 2) / n);
}

void store_average_of_many(unsigned char* to, ConstPixelAccessorDescriptor const& block) {
    unsigned long long sums[4] = {}, n = block.width * 1ull * block.height;
    for (unsigned int y = 0; y != block.height; ++y) {
        unsigned int row[4];
        __m128i const sum = sum_pixels(block.data + std::size_t{y} * block.stride, block.width);
        std::memcpy(row, &sum, 16);
        for (int i = 0; i != 4; ++i) sums[i] += row[i];
    }
    for (int i = 0; i != 4; ++i) to[i] = static_cast<unsigned char>((sums[i] + n / 2) / n);
}

void average_block(unsigned char* to, ConstPixelAccessorDescriptor const& block) {
    if (block.width * 1ull * block.height > 0xFFFFFF) return store_average_of_many(to, block);
    __m128i sums = _mm_setzero_si128();
    for (unsigned int y = 0; y != block.height; ++y) {
        unsigned char const* const row = block.data + std::size_t{y} * block.stride;
        sums = _mm_add_epi32(sums, sum_pixels(row, block.width));
    }
    store_average(to, sums, block.width * block.height);
}

}  // namespace

void average_blocks(PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from) {
    unsigned int const bx = from.width / to.width, by = from.height / to.height;
    bool const halves = bx == 2 && by == 2;
    auto const halve = pixel_rows::find_mip(pixel_rows::A8888);
    for (unsigned int y = 0; y != to.height; ++y) {
        unsigned char const* const source = from.data + std::size_t{y} * by * from.stride;
        unsigned char* const target = to.data + std::size_t{y} * to.stride;
        if (halves) {
            halve(target, source, source + from.stride, to.width);
            continue;
        }
        for (std::size_t x = 0; x != to.width; ++x) {
            average_block(target + x * 4, {source + x * bx * 4, bx, by, from.stride, from.format});
        }
    }
}

namespace {

// One output line: which source lines it is made of, and how much of each.
struct Line {
    unsigned int first, count;
    std::size_t weights;  // where they begin in the table
};

// All lines of one pass. The weights of a line add up to 1.
struct Plan {
    std::vector<Line> lines;
    std::vector<float> weights;

    void begin(unsigned int first) { lines.push_back({first, 0, weights.size()}); }

    void add(float weight) {
        weights.push_back(weight);
        ++lines.back().count;
    }
};

void plan_shrinking(Plan& plan, unsigned int from, float start, float end, float scale) {
    auto const first = static_cast<unsigned int>(start);
    unsigned int const last = std::min(static_cast<unsigned int>(end), from - 1);
    plan.begin(std::min(first, from - 1));
    plan.add((1.0f - (start - static_cast<float>(first))) * scale);
    for (unsigned int line = first + 1; line < last; ++line) plan.add(scale);
    if (last > first) plan.add((end - static_cast<float>(last)) * scale);
}

void plan_blend(Plan& plan, unsigned int from, unsigned int first, float second_weight) {
    plan.begin(std::min(first, from - 1));
    if (first + 1 >= from || second_weight <= 0.0f) return plan.add(1.0f);
    plan.add(1.0f - second_weight);
    plan.add(second_weight);
}

void plan_enlarging(
    Plan& plan, unsigned int from, float start, float end, float ratio, bool by_middle) {
    if (by_middle) {
        float const middle = (start + end) * 0.5f;
        auto const first = static_cast<unsigned int>(middle);
        return plan_blend(plan, from, first, middle - static_cast<float>(first));
    }
    auto const first = static_cast<unsigned int>(start), last = static_cast<unsigned int>(end);
    plan_blend(plan, from, first, last > first ? (end - static_cast<float>(last)) / ratio : 0.0f);
}

Plan make_plan(unsigned int from, unsigned int to, bool by_middle) {
    Plan plan;
    plan.lines.reserve(to);
    float const ratio = static_cast<float>(from) / static_cast<float>(to);
    for (unsigned int i = 0; i != to; ++i) {
        float const start = static_cast<float>(i) * ratio;
        float const end = static_cast<float>(i + 1) * ratio;
        if (ratio >= 1.0f)
            plan_shrinking(plan, from, start, end, 1.0f / ratio);
        else
            plan_enlarging(plan, from, start, end, ratio, by_middle);
    }
    return plan;
}

// Four pixels' channels as floats.
struct Sums {
    __m128 p[4];
};

inline void add_weighted(Sums& sums, __m128i pixels, __m128 weight) {
    __m128i const zero = _mm_setzero_si128();
    __m128i const low = _mm_unpacklo_epi8(pixels, zero), high = _mm_unpackhi_epi8(pixels, zero);
    __m128i const parts[4] = {
        _mm_unpacklo_epi16(low, zero), _mm_unpackhi_epi16(low, zero),
        _mm_unpacklo_epi16(high, zero), _mm_unpackhi_epi16(high, zero)};
    for (int i = 0; i != 4; ++i) {
        sums.p[i] = _mm_add_ps(sums.p[i], _mm_mul_ps(_mm_cvtepi32_ps(parts[i]), weight));
    }
}

// No sum is below 0, so that half a unit more and truncating rounds.
inline __m128i rounded(__m128 sum) {
    return _mm_cvttps_epi32(_mm_add_ps(sum, _mm_set1_ps(0.5f)));
}

inline __m128i rounded(Sums const& sums) {
    return _mm_packus_epi16(
        _mm_packs_epi32(rounded(sums.p[0]), rounded(sums.p[1])),
        _mm_packs_epi32(rounded(sums.p[2]), rounded(sums.p[3])));
}

int dword_at(unsigned char const* from) {
    int value;
    std::memcpy(&value, from, 4);
    return value;
}

// One pixel from `count` others, `step` bytes apart.
void weigh_pixel(
    unsigned char* to, unsigned char const* from, std::size_t step, float const* weights,
    unsigned int count) {
    __m128i const zero = _mm_setzero_si128();
    __m128 sum = _mm_setzero_ps();
    for (unsigned int i = 0; i != count; ++i, from += step) {
        __m128i const words = _mm_unpacklo_epi8(_mm_cvtsi32_si128(dword_at(from)), zero);
        __m128 const channels = _mm_cvtepi32_ps(_mm_unpacklo_epi16(words, zero));
        sum = _mm_add_ps(sum, _mm_mul_ps(channels, _mm_set1_ps(weights[i])));
    }
    __m128i const words = _mm_packs_epi32(rounded(sum), zero);
    int const pixel = _mm_cvtsi128_si32(_mm_packus_epi16(words, zero));
    std::memcpy(to, &pixel, 4);
}

void weigh_row(
    unsigned char* to, ConstPixelAccessorDescriptor const& from, Line const& line,
    float const* weights) {
    unsigned char const* const source = from.data + std::size_t{line.first} * from.stride;
    std::size_t const bytes = from.width * std::size_t{4};
    std::size_t at = 0;
    for (; at + 16 <= bytes; at += 16) {
        Sums sums = {};
        for (unsigned int i = 0; i != line.count; ++i) {
            add_weighted(
                sums, load(source + at + i * std::size_t{from.stride}), _mm_set1_ps(weights[i]));
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + at), rounded(sums));
    }
    for (; at != bytes; at += 4) {
        weigh_pixel(to + at, source + at, from.stride, weights, line.count);
    }
}

void weigh_height(
    PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from, bool by_middle) {
    if (to.height == from.height) {
        to.copy(from);
        return;
    }
    Plan const plan = make_plan(from.height, to.height, by_middle);
    for (unsigned int y = 0; y != to.height; ++y) {
        Line const& line = plan.lines[y];
        weigh_row(
            to.data + std::size_t{y} * to.stride, from, line, plan.weights.data() + line.weights);
    }
}

void weigh_width(
    PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from, bool by_middle) {
    if (to.width == from.width) {
        to.copy(from);
        return;
    }
    Plan const plan = make_plan(from.width, to.width, by_middle);
    for (unsigned int y = 0; y != to.height; ++y) {
        unsigned char const* const source = from.data + std::size_t{y} * from.stride;
        unsigned char* out = to.data + std::size_t{y} * to.stride;
        for (Line const& line : plan.lines) {
            weigh_pixel(
                out, source + line.first * std::size_t{4}, 4, plan.weights.data() + line.weights,
                line.count);
            out += 4;
        }
    }
}

}  // namespace

void weigh(
    PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from, bool by_middle) {
    if (from.width * 1ull * to.height > 0xFFFFFFFF) throw std::bad_alloc();
    ImageType<Pixel8888, TrackedAllocator<ImageDefaultAllocator>> between;
    between.resize(from.width, to.height);
    auto const view = between.pixel_accessor();
    weigh_height(view, from, by_middle);
    weigh_width(to, view, by_middle);
}

}  // namespace QX::resample
