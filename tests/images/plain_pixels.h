// plain_pixels.h - the meaning of pixels, restated channel by channel for comparison.
#pragma once

#include "qx/images/pixel.h"
#include "tests/harness/random.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace test {

constexpr QX::PixelFormat formats[] = {QX::PIXEL_FORMAT_X1R5G5B5,     QX::PIXEL_FORMAT_R5G6B5,
                                       QX::PIXEL_FORMAT_A1R5G5B5,     QX::PIXEL_FORMAT_A4R4G4B4,
                                       QX::PIXEL_FORMAT_R8G8B8,       QX::PIXEL_FORMAT_A8R8G8B8,
                                       QX::PIXEL_FORMAT_A8R8G8B8_ALT, QX::PIXEL_FORMAT_GREY_EXPAND,
                                       QX::PIXEL_FORMAT_X8R8G8B8,     QX::PIXEL_FORMAT_GREY8};

inline QX::PixelFormat any_format(Random& random) {
    return formats[random.below(10)];
}

using Bytes = std::vector<unsigned char>;

inline Bytes random_bytes(Random& random, std::size_t size) {
    Bytes bytes(size);
    for (auto& byte : bytes) byte = static_cast<unsigned char>(random.next());
    return bytes;
}

// Whether memory holds those bytes.
inline bool holds(void const* memory, Bytes const& bytes) {
    return std::equal(bytes.begin(), bytes.end(), static_cast<unsigned char const*>(memory));
}

// Bits of blue, green, red and alpha, blue lowest; 0 for a channel that is not there.
struct Layout {
    unsigned int bits[4];
};

// The place of a format among the kernels for processors without AVX2.
inline int kernel_of(QX::PixelFormat format) {
    constexpr int kernels[] = {0, 1, 2, 3, 4, -1, -1, 5, 5, -1, 5, 6, 7};
    return kernels[format];
}

inline Layout layout_of(QX::PixelFormat format) {
    constexpr Layout layouts[] = {{{5, 5, 5, 0}}, {{5, 6, 5, 0}}, {{5, 5, 5, 1}}, {{4, 4, 4, 4}},
                                  {{8, 8, 8, 0}}, {{8, 8, 8, 8}}, {{8, 8, 8, 0}}, {{8, 8, 8, 8}}};
    return layouts[kernel_of(format)];
}

// Bytes of a pixel that `copy` reads; writing takes QX::pixel_size.
inline unsigned int read_size(QX::PixelFormat format) {
    return format == QX::PIXEL_FORMAT_GREY_EXPAND ? 1 : QX::pixel_size(format);
}

// A channel's value at another width. Four bits and fewer never replicate into more colour.
inline unsigned int fit(unsigned int value, unsigned int from, unsigned int to) {
    unsigned int const full = (1u << to) - 1;
    if (from == 0) return full;
    if (from >= to) return value >> (from - to);
    if (from == 1) return value * full;
    if (from == 4) return value << (to - 4);
    return value << (to - from) | value >> (2 * from - to);
}

inline bool same_layout(QX::PixelFormat a, QX::PixelFormat b) {
    auto const is_32 = [](QX::PixelFormat f) { return f == 7 || f == 8; };
    return a == b ? a != QX::PIXEL_FORMAT_GREY_EXPAND : is_32(a) && (is_32(b) || b == 10);
}

// One pixel converted by the rules. Bits without meaning come out 0.
inline void plain_convert(
    QX::PixelFormat from_format, unsigned char const* from, QX::PixelFormat to_format,
    unsigned char* to) {
    unsigned int const size = QX::pixel_size(to_format);
    if (same_layout(from_format, to_format)) {
        std::memcpy(to, from, size);
        return;
    }
    bool const grey = read_size(from_format) == 1;
    Layout const source = layout_of(from_format);
    unsigned int word = grey ? from[0] * 0x01010101u : 0, values[4];
    if (!grey) std::memcpy(&word, from, read_size(from_format));
    for (unsigned int i = 0; i < 4; ++i) {
        values[i] = word & ((1u << source.bits[i]) - 1);
        word >>= source.bits[i];
    }
    unsigned int out = 0, at = 0;
    if (size == 1) {
        constexpr unsigned int weights[] = {28, 150, 76};
        for (unsigned int i = 0; i < 3; ++i) out += weights[i] * fit(values[i], source.bits[i], 8);
        out = (out + 127) / 254;
    } else {
        Layout const target = layout_of(to_format);
        for (unsigned int i = 0; i < 4; at += target.bits[i++])
            if (target.bits[i]) out |= fit(values[i], source.bits[i], target.bits[i]) << at;
    }
    std::memcpy(to, &out, size);
}

// A whole copy, one pixel at a time.
inline void
plain_copy(QX::PixelAccessorDescriptor const& to, QX::ConstPixelAccessorDescriptor const& from) {
    for (unsigned int y = 0; y < std::min(to.height, from.height); ++y) {
        for (unsigned int x = 0; x < std::min(to.width, from.width); ++x) {
            plain_convert(
                from.format, from.data + y * from.stride + x * read_size(from.format), to.format,
                to.data + y * to.stride + x * QX::pixel_size(to.format));
        }
    }
}

// A view, its rows padded now and then, with the bytes of its memory, which the last pixel ends.
struct View : QX::PixelAccessorDescriptor {
    // `size` is that of a pixel, if it is not what is written.
    View(
        Random& random, unsigned int columns, unsigned int rows, QX::PixelFormat layout,
        unsigned int size = 0)
        : PixelAccessorDescriptor(nullptr, columns, rows, 0, layout) {
        unsigned int const row = columns * (size ? size : std::max(QX::pixel_size(layout), 1u));
        stride = row + random.below(3) * random.below(9);
        bytes = random_bytes(random, rows ? stride * (rows - 1) + row : 0);
    }

    // The same view of other memory.
    QX::PixelAccessorDescriptor of(void* memory) const {
        return {memory, width, height, stride, format};
    }

    Bytes bytes;
};

}  // namespace test
