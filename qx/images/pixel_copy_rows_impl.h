// pixel_copy_rows_impl.h - the row conversions: one template over both layouts.
//
// Each source that includes this has included its lanes first and named its table.
#pragma once

#include "qx/images/pixel_copy_rules_impl.h"

#include <algorithm>
#include <cstdint>

namespace QX::pixel_rows {

namespace {

struct Planes {
    Words blue, green, red, alpha;
};

// A product's upper half widens in one step: 264 / 256 times x * 8 is (x << 3) | (x >> 2).
constexpr unsigned short widen5_factor = 264;
constexpr unsigned short widen6_factor = 260;

QX_LANES Planes split_1555(Words p, bool has_alpha) {
    Planes out;
    out.blue = high_product(p << 11, widen5_factor);
    out.green = high_product((p << 6) & 0xF800, widen5_factor);
    out.red = high_product((p << 1) & 0xF800, widen5_factor);
    out.alpha = has_alpha ? Words(p >> 15) * 255 : Words{} + 255;
    return out;
}

QX_LANES Planes split_565(Words p) {
    Planes out;
    out.blue = high_product(p << 11, widen5_factor);
    out.green = high_product((p << 5) & 0xFC00, widen6_factor);
    out.red = high_product(p & 0xF800, widen5_factor);
    out.alpha = Words{} + 255;
    return out;
}

QX_LANES Planes split_4444(Words p) {
    return {(p << 4) & 0xF0, p & 0xF0, (p >> 4) & 0xF0, (p >> 8) & 0xF0};
}

template <Kind K>
QX_LANES Planes split(Words p) {
    if constexpr (K == R565)
        return split_565(p);
    else if constexpr (K == A4444)
        return split_4444(p);
    else
        return split_1555(p, K == A1555);
}

// grey_level, halved throughout so that sums stay below 2^15; the product divides by 127.
QX_LANES Words grey_of(Planes const& p) {
    Words const sum = weigh_bytes(p.blue, 14) + weigh_bytes(p.green, 75) + weigh_bytes(p.red, 38);
    return high_product(sum + 63, 33027) >> 6;
}

// The same for 4-bit channels: blue and red lie in separate bytes.
QX_LANES Words grey_of_4444(Words p) {
    Words const sum = weigh_bytes((p << 4) & 0xF0F0, 38 << 8 | 14) + weigh_bytes(p & 0xF0, 75);
    return high_product(sum + 63, 33027) >> 6;
}

template <Kind K>
QX_LANES void store_planes(unsigned char* to, Planes const& p) {
    if constexpr (K == G8) {
        store_levels(to, grey_of(p));
    } else {
        Words const high = K == A8888 ? p.red | (p.alpha << 8) : p.red;
        store_quads<K>(to, to_quads(p.blue | (p.green << 8), high));
    }
}

// One level in every field: a multiplication repeats it.
template <Kind K>
QX_LANES Words repeat(Words level) {
    if constexpr (K == A4444)
        return (level >> 4) * 0x1111;
    else if constexpr (K == R565)
        return ((level >> 3) * 0x0801) | ((level << 3) & 0x07E0);
    else if constexpr (K == A1555)
        return ((level >> 3) * 0x0421) | ((level << 8) & 0x8000);
    else
        return (level >> 3) * 0x0421;
}

constexpr unsigned short field_mask(Field f, int bits) {
    return static_cast<unsigned short>(((1 << bits) - 1) << (f.at + f.bits - bits));
}

// One channel from its place in a 16-bit pixel to that in another, without going through bytes.
template <Field F, Field T>
QX_LANES Words move_field(Words p) {
    if constexpr (T.bits == 0) {
        return Words{};
    } else if constexpr (F.bits == 0) {
        return Words{} + field_mask(T, T.bits);
    } else if constexpr (F.bits == 1 && T.bits == 4) {
        return (p >> F.at) * field_mask(T, 4);
    } else {
        constexpr int down = F.at + F.bits - T.at - T.bits;
        constexpr unsigned short kept = field_mask(T, F.bits < T.bits ? F.bits : T.bits);
        Words const moved = (down >= 0 ? p >> (down & 15) : p << (-down & 15)) & kept;
        if constexpr (F.bits != 5 || T.bits != 6)
            return moved;
        else
            return moved | ((p >> (F.at + 4 - T.at)) & field_mask({T.at, 1}, 1));
    }
}

template <Kind S, Kind D>
QX_LANES Words move_fields(Words p) {
    constexpr Layout from = layout_of(S), to = layout_of(D);
    return move_field<from.blue, to.blue>(p) | move_field<from.green, to.green>(p) |
           move_field<from.red, to.red>(p) | move_field<from.alpha, to.alpha>(p);
}

// Narrows four-byte pixels to 16 bits. Blue and red meet by one multiplication, at the distance
// that they have in the result; green lies right between them as it is.
template <Kind S, Kind D>
QX_LANES Dwords narrow(Dwords q) {
    if constexpr (D == A4444) {
        return pair_sum(((q & 0x00F000F0) >> 4) | ((q & 0xF000F000) >> 8), 0x01000001);
    } else if constexpr (D == R565) {
        return (pair_sum(q & 0x00F800F8, 0x20000004) | (q & 0x0000FC00)) >> 5;
    } else {
        Dwords const colour = (pair_sum(q & 0x00F800F8, 0x20000008) | (q & 0x0000F800)) >> 6;
        return S == A8888 && D == A1555 ? colour | ((q >> 16) & 0x8000) : colour;
    }
}

template <Kind S, Kind D>
QX_LANES Words narrow(Quads q) {
    Words const out = lower_halves({narrow<S, D>(q.first), narrow<S, D>(q.second)});
    constexpr Field alpha = layout_of(D).alpha;
    return S == A8888 ? out : out | field_mask(alpha, alpha.bits);
}

template <Kind S, Kind D>
QX_LANES void convert_quads(unsigned char* to, Quads q) {
    constexpr bool adds_alpha = D == A8888 && (S == X8888 || S == B888);
    if constexpr (adds_alpha) q = {q.first | 0xFF000000, q.second | 0xFF000000};
    if constexpr (D == X8888) q = {q.first & 0x00FFFFFF, q.second & 0x00FFFFFF};
    store_quads<D>(to, q);
}

template <Kind S, Kind D>
QX_LANES void convert_block(unsigned char* to, unsigned char const* from) {
    constexpr bool from_words = kind_size(S) == 2, to_words = kind_size(D) == 2;
    if constexpr (from_words && to_words) {
        store_words(to, move_fields<S, D>(load_words(from)));
    } else if constexpr (S == A4444 && D == G8) {
        store_levels(to, grey_of_4444(load_words(from)));
    } else if constexpr (from_words) {
        store_planes<D>(to, split<S>(load_words(from)));
    } else if constexpr (to_words && S == G8) {
        store_words(to, repeat<D>(load_levels(from)));
    } else if constexpr (to_words) {
        store_words(to, narrow<S, D>(load_quads<S>(from)));
    } else {
        convert_quads<S, D>(to, load_quads<S>(from));
    }
}

// How many pixels lie before the first whole vector's boundary; a block at most.
inline std::size_t pixels_to_boundary(unsigned char const* to, std::size_t size) {
    return (-reinterpret_cast<std::uintptr_t>(to) & (std::min(sizeof(Words), block * size) - 1)) /
           size;
}

template <Kind S, Kind D>
QX_TARGET void convert_row(unsigned char* to, unsigned char const* from, std::size_t count) {
    constexpr std::size_t to_size = kind_size(D), from_size = kind_size(S);
    std::size_t i = 0;
    if (count >= 2 * block) {  // from here on no store crosses a cache line
        convert_block<S, D>(to, from);
        i = pixels_to_boundary(to, to_size);
    }
    for (; i + block <= count; i += block) {
        convert_block<S, D>(to + i * to_size, from + i * from_size);
    }
    if (i == count) return;
    if (count >= block) {  // the last block overlaps what is done already
        i = count - block;
        convert_block<S, D>(to + i * to_size, from + i * from_size);
        return;
    }
    for (; i != count; ++i) pack<D>(unpack<S>(from + i * from_size), to + i * to_size);
}

template <Kind K>
void move_row(unsigned char* to, unsigned char const* from, std::size_t count) {
    std::memcpy(to, from, count * kind_size(K));
}

template <Kind S, Kind D>
constexpr Row row_of() {
    if constexpr (S == D)
        return &move_row<S>;
    else
        return &convert_row<S, D>;
}

}  // namespace

#define QX_ROWS_FROM(S)                                                                            \
    {                                                                                              \
        row_of<S, X1555>(), row_of<S, R565>(), row_of<S, A1555>(), row_of<S, A4444>(),             \
            row_of<S, B888>(), row_of<S, A8888>(), row_of<S, X8888>(), row_of<S, G8>()             \
    }

extern Row const QX_ROWS_TABLE[kind_count][kind_count] = {
    QX_ROWS_FROM(X1555), QX_ROWS_FROM(R565),  QX_ROWS_FROM(A1555), QX_ROWS_FROM(A4444),
    QX_ROWS_FROM(B888),  QX_ROWS_FROM(A8888), QX_ROWS_FROM(X8888), QX_ROWS_FROM(G8),
};

#undef QX_ROWS_FROM

}  // namespace QX::pixel_rows
