// pixel_rows_impl.h - the row conversions: one template over both layouts.
//
// Each source that includes this has declared, in namespace QX::pixel_rows and without linkage,
// its vectors and how they meet memory:
//
//     QX_LANES                 what its vector functions are marked with
//     block                    pixels handled at once
//     Words                    a vector of `block` 16-bit lanes
//     Quads                    `block` pixels of four bytes, in an order of its own
//     high_product(x, n)       the upper halves of 16-bit products
//     load_words, store_words  16-bit pixels
//     load_levels, store_levels  bytes as words
//     load_quads<K>, store_quads<K>  pixels of the byte kinds
//     to_words, to_quads       between the two, as blue and green, red and alpha in one word each
#include "qx/images/pixel_rules_impl.h"

#include <array>

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
QX_LANES Planes load_planes(unsigned char const* from) {
    if constexpr (kind_size(K) == 2) {
        Words const p = load_words(from);
        if constexpr (K == R565)
            return split_565(p);
        else if constexpr (K == A4444)
            return split_4444(p);
        else
            return split_1555(p, K == A1555);
    } else if constexpr (K == G8) {
        Words const level = load_levels(from);
        return {level, level, level, level};
    } else {
        WordPair const w = to_words(load_quads<K>(from));
        return {w.low & 255, w.low >> 8, w.high & 255, w.high >> 8};
    }
}

// grey_level, halved throughout so that sums stay below 2^15; the product divides by 127.
QX_LANES Words grey_of(Planes const& p) {
    Words const sum = p.blue * 14 + p.green * 75 + p.red * 38 + 63;
    return high_product(sum, 33027) >> 6;
}

template <Kind K>
QX_LANES Words join(Planes const& p) {
    if constexpr (K == R565) {
        return (p.blue >> 3) | ((p.green << 3) & 0x07E0) | ((p.red << 8) & 0xF800);
    } else if constexpr (K == A4444) {
        return (p.blue >> 4) | (p.green & 0xF0) | ((p.red << 4) & 0x0F00) |
               ((p.alpha << 8) & 0xF000);
    } else {
        Words const colour = (p.blue >> 3) | ((p.green << 2) & 0x03E0) | ((p.red << 7) & 0x7C00);
        return K == A1555 ? colour | ((p.alpha << 8) & 0x8000) : colour;
    }
}

template <Kind K>
QX_LANES void store_planes(unsigned char* to, Planes const& p) {
    if constexpr (kind_size(K) == 2) {
        store_words(to, join<K>(p));
    } else if constexpr (K == G8) {
        store_levels(to, grey_of(p));
    } else {
        store_quads<K>(to, to_quads(p.blue | (p.green << 8), p.red | (p.alpha << 8)));
    }
}

template <Kind S, Kind D>
QX_LANES void convert_block(unsigned char* to, unsigned char const* from) {
    if constexpr (kind_size(S) == 2 || kind_size(D) == 2) {
        store_planes<D>(to, load_planes<S>(from));
    } else {
        store_quads<D>(to, load_quads<S>(from));
    }
}

template <Kind S, Kind D>
QX_TARGET void convert_row(unsigned char* to, unsigned char const* from, std::size_t count) {
    constexpr std::size_t to_size = kind_size(D), from_size = kind_size(S);
    std::size_t i = 0;
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
