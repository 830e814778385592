// block_scan.h - looks through terminated text 16 bytes at a time; for the library, not installed.
//
// A block may be read past the text's terminator, but never past the page that the text lies in.
#pragma once

#include <bit>
#include <cstdint>
#include <emmintrin.h>

#include "qx/base/compiler.h"

namespace QX::block_scan {

inline bool fits_page(void const* at) {
    return (reinterpret_cast<std::uintptr_t>(at) & 4095) <= 4096 - sizeof(__m128i);
}

QX_READS_PAST_END inline __m128i load(void const* at) {
    return _mm_loadu_si128(static_cast<__m128i const*>(at));
}

inline __m128i equal(__m128i bytes, char c) {
    return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c));
}

inline __m128i either(__m128i a, __m128i b) {
    return _mm_or_si128(a, b);
}

// Signed, both ends included; `first` is above the lowest value.
inline __m128i between(__m128i bytes, char first, char last) {
    return _mm_andnot_si128(
        _mm_cmpgt_epi8(bytes, _mm_set1_epi8(last)),
        _mm_cmpgt_epi8(bytes, _mm_set1_epi8(static_cast<char>(first - 1))));
}

// The first byte that `stops` marks with all ones; it must mark the terminator. Bytes near a page's
// end go one by one.
template <typename Char, typename Stops>
Char* find(Char* at, Stops stops) {
    for (;;) {
        bool const whole = fits_page(at);
        __m128i const bytes = QX_LIKELY(whole) ? load(at) : _mm_set1_epi8(*at);
        auto const found = static_cast<unsigned int>(_mm_movemask_epi8(stops(bytes)));
        if (QX_LIKELY(found)) return at + std::countr_zero(found);
        at += whole ? sizeof(__m128i) : 1;
    }
}

}  // namespace QX::block_scan
