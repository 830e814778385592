// pixel_copy_avx2_impl.h - vectors of pixels for processors with AVX2.
//
// Leaf functions only, each marked for the target: the rest of the library runs anywhere. All
// moves to and from memory are unaligned ones, since the system aligns stacks to 16 bytes only.
#pragma once

#include "qx/base/compiler.h"
#include "qx/images/pixel_copy_impl.h"

#include <immintrin.h>

#define QX_TARGET __attribute__((target("avx2")))
#define QX_LANES QX_TARGET QX_ALWAYS_INLINE

namespace QX::pixel_rows {

namespace {

constexpr std::size_t block = 16;

typedef unsigned short Words __attribute__((vector_size(32)));
typedef unsigned int Dwords __attribute__((vector_size(32)));
typedef float Floats __attribute__((vector_size(32)));

struct Quads {
    Dwords first, second;
};

QX_LANES __m128i load_half(void const* from) {
    return _mm_loadu_si128(static_cast<__m128i const*>(from));
}

QX_LANES __m256i load(unsigned char const* from) {
    return _mm256_loadu_si256(reinterpret_cast<__m256i const*>(from));
}

QX_LANES void store(unsigned char* to, __m256i value) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), value);
}

QX_LANES __m256i load_halves(unsigned char const* low, unsigned char const* high) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(load_half(low)), load_half(high), 1);
}

QX_LANES void store_half(unsigned char* to, __m128i value) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), value);
}

QX_LANES __m128i lower(__m256i value) {
    return _mm256_castsi256_si128(value);
}

QX_LANES __m128i upper(__m256i value) {
    return _mm256_extracti128_si256(value, 1);
}

QX_LANES Words high_product(Words x, unsigned short n) {
    return Words(_mm256_mulhi_epu16(__m256i(x), _mm256_set1_epi16(static_cast<short>(n))));
}

QX_LANES Words weigh_bytes(Words x, unsigned short weights) {
    auto const n = _mm256_set1_epi16(static_cast<short>(weights));
    return Words(_mm256_maddubs_epi16(__m256i(x), n));
}

QX_LANES Words load_words(unsigned char const* from) {
    return Words(load(from));
}

QX_LANES void store_words(unsigned char* to, Words value) {
    store(to, __m256i(value));
}

QX_LANES Words load_levels(unsigned char const* from) {
    return Words(_mm256_cvtepu8_epi16(load_half(from)));
}

QX_LANES void store_levels(unsigned char* to, Words value) {
    store_half(to, _mm_packus_epi16(lower(__m256i(value)), upper(__m256i(value))));
}

QX_LANES Dwords pair_sum(Dwords x, unsigned int n) {
    return Dwords(_mm256_madd_epi16(__m256i(x), _mm256_set1_epi32(static_cast<int>(n))));
}

// Packing and unpacking work within halves; this swaps the middle quarters before or after.
QX_LANES __m256i in_order(__m256i value) {
    return _mm256_permute4x64_epi64(value, 0xD8);
}

QX_LANES Words lower_halves(Quads q) {
    return Words(in_order(_mm256_packus_epi32(__m256i(q.first), __m256i(q.second))));
}

QX_LANES Quads to_quads(Words low, Words high) {
    auto const a = in_order(__m256i(low)), b = in_order(__m256i(high));
    return {Dwords(_mm256_unpacklo_epi16(a, b)), Dwords(_mm256_unpackhi_epi16(a, b))};
}

// Spreads 3-byte pixels over dwords: from the first 12 bytes of a half, or from the last 12.
QX_LANES Dwords spread(__m256i bytes, bool last_in_upper) {
    auto const head = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    auto const tail = _mm_setr_epi8(4, 5, 6, -1, 7, 8, 9, -1, 10, 11, 12, -1, 13, 14, 15, -1);
    auto const order = _mm256_setr_m128i(head, last_in_upper ? tail : head);
    return Dwords(_mm256_shuffle_epi8(bytes, order));
}

QX_LANES Quads load_triples(unsigned char const* from) {
    return {
        spread(load_halves(from, from + 12), false),
        spread(load_halves(from + 24, from + 32), true)};
}

// 24 bytes in the lower three quarters.
QX_LANES __m256i compact(Dwords q) {
    auto const order = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
    auto const halves = _mm256_shuffle_epi8(__m256i(q), order);
    return _mm256_permutevar8x32_epi32(halves, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
}

// The first store's last quarter is overwritten by the second.
QX_LANES void store_triples(unsigned char* to, Quads q) {
    auto const tail = compact(q.second);
    store(to, compact(q.first));
    store_half(to + 24, lower(tail));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to + 40), upper(tail));
}

QX_LANES Quads load_grey(unsigned char const* from) {
    auto const bytes = _mm256_broadcastsi128_si256(load_half(from));
    auto const first = _mm256_setr_epi8(
        0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 6, 6, 6, 6, 7, 7, 7,
        7);
    auto const second = _mm256_add_epi8(first, _mm256_set1_epi8(8));
    return {Dwords(_mm256_shuffle_epi8(bytes, first)), Dwords(_mm256_shuffle_epi8(bytes, second))};
}

template <Kind K>
QX_LANES Quads load_quads(unsigned char const* from) {
    if constexpr (K == B888) {
        return load_triples(from);
    } else if constexpr (K == G8) {
        return load_grey(from);
    } else {
        return {Dwords(load(from)), Dwords(load(from + 32))};
    }
}

QX_LANES void store_grey(unsigned char* to, Quads q) {
    auto const weights = _mm256_set1_epi32(14 | (75 << 8) | (38 << 16));
    auto const sums = _mm256_hadd_epi16(
        _mm256_maddubs_epi16(__m256i(q.first), weights),
        _mm256_maddubs_epi16(__m256i(q.second), weights));
    store_levels(to, high_product(Words(in_order(sums)) + 63, 33027) >> 6);
}

template <Kind K>
QX_LANES void store_quads(unsigned char* to, Quads q) {
    if constexpr (K == B888) {
        store_triples(to, q);
    } else if constexpr (K == G8) {
        store_grey(to, q);
    } else {
        store(to, __m256i(q.first));
        store(to + 32, __m256i(q.second));
    }
}

// The rounded averages of two by two pixels: half a block of them, of four bytes each.
QX_LANES Dwords average(Quads a, Quads b) {
    auto const order = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15));
    auto const ones = _mm256_set1_epi8(1);
    auto const pairs = [&](Dwords x) QX_TARGET __attribute__((always_inline)) {
        return _mm256_maddubs_epi16(_mm256_shuffle_epi8(__m256i(x), order), ones);
    };
    auto const two = _mm256_set1_epi16(2);
    auto const low = _mm256_add_epi16(_mm256_add_epi16(pairs(a.first), two), pairs(b.first));
    auto const high = _mm256_add_epi16(_mm256_add_epi16(pairs(a.second), two), pairs(b.second));
    return Dwords(
        in_order(_mm256_packus_epi16(_mm256_srli_epi16(low, 2), _mm256_srli_epi16(high, 2))));
}

// Half a block of 3-byte pixels.
QX_LANES void store_half_triples(unsigned char* to, Dwords q) {
    auto const bytes = compact(q);
    store_half(to, lower(bytes));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to + 16), upper(bytes));
}

QX_LANES void store_dwords(unsigned char* to, Dwords q) {
    store(to, __m256i(q));
}

// Sums of neighbouring bytes, from twice `block` of them.
QX_LANES Words load_level_pairs(unsigned char const* from) {
    return Words(_mm256_maddubs_epi16(load(from), _mm256_set1_epi8(1)));
}

QX_LANES Floats load_floats(float const* from) {
    return _mm256_loadu_ps(from);
}

QX_LANES void store_floats(float* to, Floats value) {
    _mm256_storeu_ps(to, value);
}

QX_LANES Floats load_bytes(unsigned char const* from) {
    auto const bytes = _mm_loadl_epi64(reinterpret_cast<__m128i const*>(from));
    return _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(bytes));
}

QX_LANES Dwords whole_levels(Floats x) {
    auto const rounded = _mm256_add_ps(x, _mm256_set1_ps(0.5f));
    return Dwords(_mm256_cvttps_epi32(_mm256_min_ps(rounded, _mm256_set1_ps(255.0f))));
}

QX_LANES Floats to_floats(Dwords x) {
    return _mm256_cvtepi32_ps(__m256i(x));
}

QX_LANES void store_bytes(unsigned char* to, Dwords x) {
    auto const words = _mm_packs_epi32(lower(__m256i(x)), upper(__m256i(x)));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(words, words));
}

QX_LANES Floats load_pixels(float const* levels, unsigned int const* places) {
    auto const first = _mm256_castps128_ps256(_mm_loadu_ps(levels + std::size_t{places[0]} * 4));
    return _mm256_insertf128_ps(first, _mm_loadu_ps(levels + std::size_t{places[1]} * 4), 1);
}

}  // namespace

}  // namespace QX::pixel_rows
