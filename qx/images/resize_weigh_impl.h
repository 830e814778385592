// resize_weigh_impl.h - weighted sums of rows and of pixels, for the lanes included first.
//
// Both instruction sets multiply and add the same numbers in the same order.
#pragma once

#include "qx/images/resize_impl.h"

#include <cstring>

namespace QX::pixel_rows {

namespace {

constexpr std::size_t lanes = sizeof(Floats) / sizeof(float);
constexpr std::size_t chunk = 4 * lanes;  // levels of a row that are weighed at once

using Weights = resample::Weights;

QX_LANES void store_levels(float* to, Floats sum) {
    store_floats(to, to_floats(whole_levels(sum)));
}

// TAPS is the number of weights, or 0 where that is told by `weights` alone.
//
// Four sums by name: the compiler would keep an array of them in memory.
template <unsigned int TAPS>
QX_LANES void
weigh_chunk(float* to, unsigned char const* from, std::size_t stride, Weights const& weights) {
    Floats a = {}, b = {}, c = {}, d = {};
    unsigned int const taps = TAPS ? TAPS : weights.taps;
#pragma GCC unroll 3
    for (unsigned int tap = 0; tap != taps; ++tap, from += stride) {
        Floats const weight = Floats{} + weights.values[tap];
        a += load_bytes(from) * weight;
        b += load_bytes(from + lanes) * weight;
        c += load_bytes(from + 2 * lanes) * weight;
        d += load_bytes(from + 3 * lanes) * weight;
    }
    store_levels(to, a);
    store_levels(to + lanes, b);
    store_levels(to + 2 * lanes, c);
    store_levels(to + 3 * lanes, d);
}

// By way of rows that are long enough.
QX_TARGET void weigh_short_row(
    float* to, unsigned char const* from, std::size_t stride, std::size_t count,
    Weights const& weights) {
    float sums[chunk] = {}, levels[chunk];
    for (unsigned int tap = 0; tap != weights.taps; ++tap, from += stride) {
        for (std::size_t i = 0; i != count; ++i)
            sums[i] += static_cast<float>(from[i]) * weights.values[tap];
    }
    for (std::size_t i = 0; i != chunk; i += lanes) store_levels(levels + i, load_floats(sums + i));
    std::memcpy(to, levels, count * sizeof(float));
}

template <unsigned int TAPS>
QX_TARGET void weigh_chunks(
    float* to, unsigned char const* from, std::size_t stride, std::size_t count,
    Weights const& weights) {
    for (std::size_t at = 0; at + chunk <= count; at += chunk)
        weigh_chunk<TAPS>(to + at, from + at, stride, weights);
    // The last chunk overlaps what is done already.
    std::size_t const last = count - chunk;
    weigh_chunk<TAPS>(to + last, from + last, stride, weights);
}

void weigh_rows(
    float* to, unsigned char const* from, std::size_t stride, std::size_t count,
    Weights const& weights) {
    if (count < chunk) return weigh_short_row(to, from, stride, count, weights);
    switch (weights.taps) {
    case 2: return weigh_chunks<2>(to, from, stride, count, weights);
    case 3: return weigh_chunks<3>(to, from, stride, count, weights);
    default: return weigh_chunks<0>(to, from, stride, count, weights);
    }
}

template <unsigned int TAPS>
QX_LANES Dwords weigh_group(float const* from, unsigned int const* places, Weights const& weights) {
    Floats sum = {};
    std::size_t const taps = TAPS ? TAPS : weights.taps;
#pragma GCC unroll 3
    for (std::size_t tap = 0; tap != taps; ++tap)
        sum += load_pixels(from + tap * 4, places) * load_floats(weights.values + tap * lanes);
    return whole_levels(sum);
}

template <unsigned int TAPS>
QX_TARGET void weigh_groups(
    unsigned char* to, float const* from, unsigned int const* places, std::size_t count,
    Weights weights) {
    constexpr std::size_t group = lanes / 4;
    for (; count >= group; count -= group) {
        store_bytes(to, weigh_group<TAPS>(from, places, weights));
        to += lanes;
        places += group;
        weights.values += weights.taps * lanes;
    }
    if (count == 0) return;
    unsigned char pixels[lanes];
    store_bytes(pixels, weigh_group<TAPS>(from, places, weights));
    std::memcpy(to, pixels, count * 4);
}

void weigh_pixels(
    unsigned char* to, float const* from, unsigned int const* places, std::size_t count,
    Weights weights) {
    switch (weights.taps) {
    case 2: return weigh_groups<2>(to, from, places, count, weights);
    case 3: return weigh_groups<3>(to, from, places, count, weights);
    default: return weigh_groups<0>(to, from, places, count, weights);
    }
}

}  // namespace

}  // namespace QX::pixel_rows

extern QX::resample::Kernels const QX::resample::QX_WEIGH_KERNELS = {
    QX::pixel_rows::lanes / 4, &QX::pixel_rows::weigh_rows, &QX::pixel_rows::weigh_pixels};
