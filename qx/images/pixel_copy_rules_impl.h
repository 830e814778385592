// pixel_copy_rules_impl.h - one pixel read and written by the rules of pixel_copy.h.
#pragma once

#include "qx/images/pixel_copy.h"
#include "qx/images/pixel_copy_impl.h"

#include <cstring>

namespace QX::pixel_rows {

// One pixel with every channel at eight bits.
struct Channels {
    unsigned int blue, green, red, alpha;
};

constexpr unsigned int widen5(unsigned int x) {
    return (x << 3) | (x >> 2);
}

constexpr unsigned int widen6(unsigned int x) {
    return (x << 2) | (x >> 4);
}

constexpr Channels unpack_1555(unsigned int word, bool has_alpha) {
    return {
        widen5(word & 31), widen5((word >> 5) & 31), widen5((word >> 10) & 31),
        has_alpha && !(word >> 15) ? 0u : 255u};
}

constexpr Channels unpack_565(unsigned int word) {
    return {widen5(word & 31), widen6((word >> 5) & 63), widen5(word >> 11), 255};
}

constexpr Channels unpack_4444(unsigned int word) {
    return {(word << 4) & 240, word & 240, (word >> 4) & 240, (word >> 8) & 240};
}

// Where the channels of a 16-bit pixel lie.
struct Field {
    int at, bits;
};

struct Layout {
    Field blue, green, red, alpha;
};

constexpr Layout layout_of(Kind kind) {
    if (kind == R565) return {{0, 5}, {5, 6}, {11, 5}, {16, 0}};
    if (kind == A4444) return {{0, 4}, {4, 4}, {8, 4}, {12, 4}};
    return {{0, 5}, {5, 5}, {10, 5}, {15, kind == A1555 ? 1 : 0}};
}

template <Kind K>
inline Channels unpack(unsigned char const* from) {
    if constexpr (kind_size(K) == 2) {
        unsigned int const word = from[0] | (from[1] << 8);
        if constexpr (K == R565)
            return unpack_565(word);
        else if constexpr (K == A4444)
            return unpack_4444(word);
        else
            return unpack_1555(word, K == A1555);
    } else if constexpr (K == G8) {
        return {from[0], from[0], from[0], from[0]};
    } else {
        return {from[0], from[1], from[2], K == A8888 ? from[3] : 255u};
    }
}

// The word of a 16-bit pixel.
template <Kind K>
constexpr unsigned short pack_word(Channels c) {
    unsigned int word = 0;
    if constexpr (K == R565) {
        word = (c.blue >> 3) | ((c.green >> 2) << 5) | ((c.red >> 3) << 11);
    } else if constexpr (K == A4444) {
        word = (c.blue >> 4) | (c.green & 240) | ((c.red >> 4) << 8) | ((c.alpha >> 4) << 12);
    } else {
        word = (c.blue >> 3) | ((c.green >> 3) << 5) | ((c.red >> 3) << 10);
        if (K == A1555) word |= (c.alpha >> 7) << 15;
    }
    return static_cast<unsigned short>(word);
}

template <Kind K>
inline void pack(Channels c, unsigned char* to) {
    if constexpr (kind_size(K) == 2) {
        unsigned short const word = pack_word<K>(c);
        std::memcpy(to, &word, 2);
    } else if constexpr (K == G8) {
        to[0] = grey_level(c.blue, c.green, c.red);
    } else {
        to[0] = static_cast<unsigned char>(c.blue);
        to[1] = static_cast<unsigned char>(c.green);
        to[2] = static_cast<unsigned char>(c.red);
        if constexpr (K != B888) to[3] = static_cast<unsigned char>(K == A8888 ? c.alpha : 0);
    }
}

}  // namespace QX::pixel_rows
