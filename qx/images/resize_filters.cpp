// resize_filters.cpp - the filters that scale pictures.
#include "qx/images/image.h"
#include "qx/images/resize_impl.h"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <new>
#include <vector>

namespace QX::resample {

namespace {

__m128i load(void const* from) {
    return _mm_loadu_si128(static_cast<__m128i const*>(from));
}

int dword_at(unsigned char const* from) {
    int value;
    std::memcpy(&value, from, 4);
    return value;
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
            words =
                _mm_add_epi16(words, _mm_unpacklo_epi8(_mm_cvtsi32_si128(dword_at(from)), zero));
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

// Levels of up to so many pixels add up in 16 bits.
constexpr unsigned int small_block = 257;

// Divides exactly: a float's quotient of such small numbers never rounds up to a whole one.
void average_small_block(unsigned char* to, ConstPixelAccessorDescriptor const& block) {
    __m128i const zero = _mm_setzero_si128();
    __m128i sums = zero;  // of two pixels
    unsigned char const* row = block.data;
    for (unsigned int y = 0; y != block.height; ++y, row += block.stride) {
        unsigned int x = 0;
        for (; x + 4 <= block.width; x += 4) {
            __m128i const p = load(row + x * 4);
            sums = _mm_add_epi16(
                sums, _mm_add_epi16(_mm_unpacklo_epi8(p, zero), _mm_unpackhi_epi8(p, zero)));
        }
        for (; x != block.width; ++x)
            sums = _mm_add_epi16(
                sums, _mm_unpacklo_epi8(_mm_cvtsi32_si128(dword_at(row + x * 4)), zero));
    }
    unsigned int const n = block.width * block.height;
    sums = _mm_add_epi16(sums, _mm_unpackhi_epi64(sums, sums));
    __m128i const rounded =
        _mm_add_epi32(_mm_unpacklo_epi16(sums, zero), _mm_set1_epi32(static_cast<int>(n / 2)));
    __m128 const quotients =
        _mm_div_ps(_mm_cvtepi32_ps(rounded), _mm_set1_ps(static_cast<float>(n)));
    __m128i const words = _mm_packs_epi32(_mm_cvttps_epi32(quotients), zero);
    int const pixel = _mm_cvtsi128_si32(_mm_packus_epi16(words, words));
    std::memcpy(to, &pixel, 4);
}

void average_block(unsigned char* to, ConstPixelAccessorDescriptor const& block) {
    if (block.width * 1ull * block.height <= small_block) return average_small_block(to, block);
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
    float const rest = end - static_cast<float>(last);
    if (last > first && rest > 0.0f) plan.add(rest * scale);
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

// All lines of a pass have as many weights, those that a line does not need at 0: that adds
// nothing, and branches stay foreseeable.
void even_out(Plan& plan, unsigned int from) {
    unsigned int taps = 0;
    for (Line const& line : plan.lines) taps = std::max(taps, line.count);
    std::vector<float> weights(plan.lines.size() * taps);
    std::size_t at = 0;
    for (Line& line : plan.lines) {
        unsigned int const first = std::min(line.first, from - taps);
        std::copy_n(
            plan.weights.begin() + static_cast<std::ptrdiff_t>(line.weights), line.count,
            weights.begin() + static_cast<std::ptrdiff_t>(at + line.first - first));
        line = {first, taps, at};
        at += taps;
    }
    plan.weights.swap(weights);
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
    even_out(plan, from);
    return plan;
}

// A plan as the kernels take it.
struct GroupedPlan {
    std::vector<unsigned int> places;
    std::vector<float> weights;
    unsigned int taps;

    GroupedPlan(Plan const& plan, unsigned int group)
        : places((plan.lines.size() + group - 1) / group * group),
          weights(places.size() * plan.lines[0].count * 4), taps(plan.lines[0].count) {
        for (std::size_t i = 0; i != plan.lines.size(); ++i) {
            Line const& line = plan.lines[i];
            places[i] = line.first;
            float* to = &weights[(i / group * group * taps + i % group) * 4];
            for (unsigned int tap = 0; tap != taps; ++tap, to += group * std::size_t{4})
                std::fill_n(to, 4, plan.weights[line.weights + tap]);
        }
    }
};

std::size_t bytes_of(ConstPixelAccessorDescriptor const& view) {
    return std::size_t{view.height - 1} * view.stride + view.width * std::size_t{4};
}

bool overlap(PixelAccessorDescriptor const& a, ConstPixelAccessorDescriptor const& b) {
    std::less<> const before;
    return before(a.data, b.data + bytes_of(b)) && before(b.data, a.data + bytes_of(a));
}

// The picture between the passes, as the counters show it.
void count_between(unsigned long long pixels) {
    if (pixels > 0xFFFFFFFF) throw std::bad_alloc();
    TrackedAllocator<ImageDefaultAllocator>::count(pixels * 4);
    ImageDefaultAllocator::mem -= pixels * 4;
}

}  // namespace

// A row goes through both passes while it is near, unless its place may still be read from.
void weigh(
    PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from, bool by_middle,
    Kernels const& kernels) {
    count_between(from.width * 1ull * to.height);
    Plan const rows = make_plan(from.height, to.height, by_middle);
    GroupedPlan const columns(make_plan(from.width, to.width, by_middle), kernels.group);
    std::size_t const count = from.width * std::size_t{4};
    unsigned int const step = overlap(to, from) ? to.height : 1;
    std::vector<float> between(count * step);
    for (unsigned int top = 0; top != to.height; top += step) {
        for (unsigned int y = 0; y != step; ++y) {
            Line const& line = rows.lines[top + y];
            kernels.weigh_rows(
                &between[y * count], from.data + std::size_t{line.first} * from.stride, from.stride,
                count, {&rows.weights[line.weights], line.count});
        }
        for (unsigned int y = 0; y != step; ++y) {
            kernels.weigh_pixels(
                to.data + std::size_t{top + y} * to.stride, &between[y * count],
                columns.places.data(), to.width, {columns.weights.data(), columns.taps});
        }
    }
}

}  // namespace QX::resample
