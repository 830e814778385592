// resize_mips_impl.h - rows of mip levels: one template over the layout, for the lanes included
// first.
#pragma once

#include "qx/images/resize_impl.h"

namespace QX::pixel_rows {

namespace {

// Both 16-bit narrowings of pixel_copy.h are applied to the average as if it were a full byte.
constexpr int dimming_of(int bits) {
    return 2 + (bits == 0 ? 0 : 8 - bits);
}

template <Field F>
constexpr unsigned int
average_field(unsigned int a, unsigned int b, unsigned int c, unsigned int d) {
    constexpr unsigned int mask = (1u << F.bits) - 1;
    unsigned int const sum =
        ((a >> F.at) & mask) + ((b >> F.at) & mask) + ((c >> F.at) & mask) + ((d >> F.at) & mask);
    return ((sum + 2) >> dimming_of(F.bits)) << F.at;
}

template <Kind K>
void average_pixel(unsigned char* to, unsigned char const* upper, unsigned char const* lower) {
    constexpr unsigned int size = kind_size(K);
    if constexpr (size == 2) {
        unsigned short word[4];
        std::memcpy(word, upper, 4);
        std::memcpy(word + 2, lower, 4);
        constexpr Layout l = layout_of(K);
        auto const out = static_cast<unsigned short>(
            average_field<l.blue>(word[0], word[1], word[2], word[3]) |
            average_field<l.green>(word[0], word[1], word[2], word[3]) |
            average_field<l.red>(word[0], word[1], word[2], word[3]));
        std::memcpy(to, &out, 2);
    } else {
        for (unsigned int i = 0; i != size; ++i) {
            to[i] = static_cast<unsigned char>(
                (upper[i] + upper[i + size] + lower[i] + lower[i + size] + 2) >> 2);
        }
    }
}

template <Field F>
QX_LANES Dwords average_fields(Words upper, Words lower) {
    constexpr unsigned short mask = static_cast<unsigned short>((1 << F.bits) - 1);
    Words const sums = ((upper >> F.at) & mask) + ((lower >> F.at) & mask);
    return ((pair_sum(Dwords(sums), 0x00010001) + 2) >> dimming_of(F.bits)) << F.at;
}

template <Kind K>
QX_LANES Dwords average_words(unsigned char const* upper, unsigned char const* lower) {
    constexpr Layout l = layout_of(K);
    Words const a = load_words(upper), b = load_words(lower);
    return average_fields<l.blue>(a, b) | average_fields<l.green>(a, b) |
           average_fields<l.red>(a, b);
}

// From `2 * block` pixels of two rows; for the byte kinds of 3 and 4 bytes half as many.
template <Kind K>
QX_LANES void
average_block(unsigned char* to, unsigned char const* upper, unsigned char const* lower) {
    if constexpr (kind_size(K) == 2) {
        Quads const q = {
            average_words<K>(upper, lower), average_words<K>(upper + block * 2, lower + block * 2)};
        store_words(to, lower_halves(q));
    } else if constexpr (K == G8) {
        store_levels(to, (load_level_pairs(upper) + load_level_pairs(lower) + 2) >> 2);
    } else {
        Dwords const q = average(load_quads<K>(upper), load_quads<K>(lower));
        if constexpr (K == B888)
            store_half_triples(to, q);
        else
            store_dwords(to, q);
    }
}

template <Kind K>
QX_TARGET void average_row(
    unsigned char* to, unsigned char const* upper, unsigned char const* lower, std::size_t count) {
    constexpr std::size_t size = kind_size(K), step = size > 2 ? block / 2 : block;
    for (; count >= step; count -= step) {
        average_block<K>(to, upper, lower);
        to += step * size;
        upper += step * 2 * size;
        lower += step * 2 * size;
    }
    for (; count != 0; --count) {
        average_pixel<K>(to, upper, lower);
        to += size;
        upper += 2 * size;
        lower += 2 * size;
    }
}

}  // namespace

extern MipRow const QX_MIP_TABLE[kind_count] = {
    &average_row<X1555>, &average_row<R565>,  &average_row<A1555>, &average_row<A4444>,
    &average_row<B888>,  &average_row<A8888>, &average_row<X8888>, &average_row<G8>};

}  // namespace QX::pixel_rows
