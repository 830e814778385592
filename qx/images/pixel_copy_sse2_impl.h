// pixel_copy_sse2_impl.h - vectors of pixels for any 64-bit processor.
//
// Included by the sources whose loops are written once for every instruction set; see
// pixel_copy_avx2_impl.h for the other. Both offer, without linkage:
//
//     QX_LANES                   what its vector functions are marked with
//     block                      pixels handled at once
//     Words                      a vector of `block` 16-bit lanes
//     Dwords, Quads              32-bit lanes; two such, `block` pixels of four bytes
//     high_product(x, n)         the upper halves of 16-bit products
//     weigh_bytes(x, n)          bytes times those of n below 128, added up in pairs
//     pair_sum(x, n)             16-bit lanes times those of n, added up in pairs
//     load_words, store_words    16-bit pixels
//     load_levels, store_levels  bytes as words
//     load_quads<K>, store_quads<K>  pixels of the byte kinds; the fourth byte as it comes
//     lower_halves(q)            words from quads that keep them in their lower halves
//     to_quads(low, high)        quads from words: blue and green, red and alpha
//     Floats                     float lanes, as many as of Dwords
//     load_bytes(from)           one byte for each lane
//     whole_levels(x)            rounded, at most 255
//     load_pixels(levels, places)  four levels from each of the next places
#pragma once

#include "qx/base/compiler.h"
#include "qx/images/pixel_copy_impl.h"

#include <emmintrin.h>

#include <cstring>

#define QX_TARGET
#define QX_LANES QX_ALWAYS_INLINE

namespace QX::pixel_rows {

namespace {

constexpr std::size_t block = 8;

typedef unsigned short Words __attribute__((vector_size(16)));
typedef unsigned int Dwords __attribute__((vector_size(16)));
typedef float Floats __attribute__((vector_size(16)));

struct Quads {
    Dwords first, second;
};

QX_LANES __m128i load(void const* from) {
    return _mm_loadu_si128(static_cast<__m128i const*>(from));
}

QX_LANES void store(void* to, __m128i value) {
    _mm_storeu_si128(static_cast<__m128i*>(to), value);
}

QX_LANES Words high_product(Words x, unsigned short n) {
    return Words(_mm_mulhi_epu16(__m128i(x), _mm_set1_epi16(static_cast<short>(n))));
}

QX_LANES Words weigh_bytes(Words x, unsigned short weights) {
    return (x & 255) * (weights & 255) + (x >> 8) * (weights >> 8);
}

QX_LANES Words load_words(unsigned char const* from) {
    return Words(load(from));
}

QX_LANES void store_words(unsigned char* to, Words value) {
    store(to, __m128i(value));
}

QX_LANES Words load_levels(unsigned char const* from) {
    auto const bytes = _mm_loadl_epi64(reinterpret_cast<__m128i const*>(from));
    return Words(_mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
}

QX_LANES void store_levels(unsigned char* to, Words value) {
    auto const bytes = _mm_packus_epi16(__m128i(value), __m128i(value));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), bytes);
}

QX_LANES Dwords pair_sum(Dwords x, unsigned int n) {
    return Dwords(_mm_madd_epi16(__m128i(x), _mm_set1_epi32(static_cast<int>(n))));
}

// The shifts keep the packing from saturating.
QX_LANES Words lower_halves(Quads q) {
    auto const x = _mm_srai_epi32(_mm_slli_epi32(__m128i(q.first), 16), 16);
    auto const y = _mm_srai_epi32(_mm_slli_epi32(__m128i(q.second), 16), 16);
    return Words(_mm_packs_epi32(x, y));
}

QX_LANES Quads to_quads(Words low, Words high) {
    return {
        Dwords(_mm_unpacklo_epi16(__m128i(low), __m128i(high))),
        Dwords(_mm_unpackhi_epi16(__m128i(low), __m128i(high)))};
}

QX_LANES unsigned int dword_at(unsigned char const* from) {
    unsigned int value;
    std::memcpy(&value, from, 4);
    return value;
}

// Four 3-byte pixels, each with a stray byte on top. Reads 12 bytes.
QX_LANES Dwords load_triples(unsigned char const* from) {
    return Dwords{dword_at(from), dword_at(from + 3), dword_at(from + 6), dword_at(from + 8) >> 8};
}

// Writes 12 bytes.
QX_LANES void store_triples(unsigned char* to, Dwords q) {
    auto const even = _mm_and_si128(__m128i(q), _mm_set1_epi64x(0x00FFFFFF));
    auto const odd =
        _mm_srli_epi64(_mm_and_si128(__m128i(q), _mm_set1_epi64x(0x00FFFFFF00000000)), 8);
    auto const pairs = _mm_or_si128(even, odd);  // six bytes in each half
    auto const low = static_cast<unsigned long long>(_mm_cvtsi128_si64(pairs));
    auto const high =
        static_cast<unsigned long long>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(pairs, pairs)));
    unsigned long long const head = low | (high << 48);
    auto const tail = static_cast<unsigned int>(high >> 16);
    std::memcpy(to, &head, 8);
    std::memcpy(to + 8, &tail, 4);
}

template <Kind K>
QX_LANES Quads load_quads(unsigned char const* from) {
    if constexpr (K == B888) {
        return {load_triples(from), load_triples(from + 12)};
    } else if constexpr (K == G8) {
        auto const bytes = _mm_loadl_epi64(reinterpret_cast<__m128i const*>(from));
        auto const twice = Words(_mm_unpacklo_epi8(bytes, bytes));
        return to_quads(twice, twice);
    } else {
        return {Dwords(load(from)), Dwords(load(from + 16))};
    }
}

QX_LANES void store_grey(unsigned char* to, Quads q) {
    auto const weigh = [](Dwords x) __attribute__((always_inline)) {
        return pair_sum(x & 0x00FF00FF, 38 << 16 | 14) + pair_sum((x >> 8) & 255, 75) + 63;
    };
    store_levels(to, high_product(lower_halves({weigh(q.first), weigh(q.second)}), 33027) >> 6);
}

template <Kind K>
QX_LANES void store_quads(unsigned char* to, Quads q) {
    if constexpr (K == B888) {
        store_triples(to, q.first);
        store_triples(to + 12, q.second);
    } else if constexpr (K == G8) {
        store_grey(to, q);
    } else {
        store(to, __m128i(q.first));
        store(to + 16, __m128i(q.second));
    }
}

// The rounded averages of two by two pixels: half a block of them, of four bytes each.
QX_LANES Dwords average(Quads a, Quads b) {
    auto const zero = _mm_setzero_si128();
    auto const sum = [&](Dwords x, Dwords y) __attribute__((always_inline)) {
        auto const low =
            _mm_add_epi16(_mm_unpacklo_epi8(__m128i(x), zero), _mm_unpacklo_epi8(__m128i(y), zero));
        auto const high =
            _mm_add_epi16(_mm_unpackhi_epi8(__m128i(x), zero), _mm_unpackhi_epi8(__m128i(y), zero));
        auto const pairs =
            _mm_add_epi16(_mm_unpacklo_epi64(low, high), _mm_unpackhi_epi64(low, high));
        return _mm_srli_epi16(_mm_add_epi16(pairs, _mm_set1_epi16(2)), 2);
    };
    return Dwords(_mm_packus_epi16(sum(a.first, b.first), sum(a.second, b.second)));
}

// Half a block of 3-byte pixels.
QX_LANES void store_half_triples(unsigned char* to, Dwords q) {
    store_triples(to, q);
}

QX_LANES void store_dwords(unsigned char* to, Dwords q) {
    store(to, __m128i(q));
}

// Sums of neighbouring bytes, from twice `block` of them.
QX_LANES Words load_level_pairs(unsigned char const* from) {
    auto const x = Words(load(from));
    return (x & 255) + (x >> 8);
}

QX_LANES Floats load_floats(float const* from) {
    return _mm_loadu_ps(from);
}

QX_LANES void store_floats(float* to, Floats value) {
    _mm_storeu_ps(to, value);
}

QX_LANES Floats load_bytes(unsigned char const* from) {
    auto const zero = _mm_setzero_si128();
    auto const bytes = _mm_cvtsi32_si128(static_cast<int>(dword_at(from)));
    return _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_unpacklo_epi8(bytes, zero), zero));
}

QX_LANES Dwords whole_levels(Floats x) {
    auto const rounded = _mm_add_ps(x, _mm_set1_ps(0.5f));
    return Dwords(_mm_cvttps_epi32(_mm_min_ps(rounded, _mm_set1_ps(255.0f))));
}

QX_LANES Floats to_floats(Dwords x) {
    return _mm_cvtepi32_ps(__m128i(x));
}

QX_LANES void store_bytes(unsigned char* to, Dwords x) {
    auto const words = _mm_packs_epi32(__m128i(x), __m128i(x));
    int const pixel = _mm_cvtsi128_si32(_mm_packus_epi16(words, words));
    std::memcpy(to, &pixel, 4);
}

QX_LANES Floats load_pixels(float const* levels, unsigned int const* places) {
    return _mm_loadu_ps(levels + std::size_t{places[0]} * 4);
}

}  // namespace

}  // namespace QX::pixel_rows
