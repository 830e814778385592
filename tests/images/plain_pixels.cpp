// plain_pixels.cpp - the rules in their plainest form.
#include "plain_pixels.h"

#include <algorithm>

namespace test {

namespace {

using U = unsigned int;

// A channel's value at another width. Four bits and fewer never replicate into more colour.
U fit(U value, U from, U to) {
    U const full = (1u << to) - 1;
    if (from == 0) return full;
    if (from >= to) return value >> (from - to);
    if (from == 1) return value * full;
    if (from == 4) return value << (to - 4);
    return value << (to - from) | value >> (2 * from - to);
}

bool same_layout(QX::PixelFormat a, QX::PixelFormat b) {
    auto const is_32 = [](QX::PixelFormat f) { return f == 7 || f == 8; };
    return a == b ? a != QX::PIXEL_FORMAT_GREY_EXPAND : is_32(a) && (is_32(b) || b == 10);
}

}  // namespace

Bytes random_bytes(Random& random, std::size_t size) {
    Bytes bytes(size);
    for (auto& byte : bytes) byte = static_cast<unsigned char>(random.next());
    return bytes;
}

bool holds(void const* memory, Bytes const& bytes) {
    return std::equal(bytes.begin(), bytes.end(), static_cast<unsigned char const*>(memory));
}

Layout layout_of(QX::PixelFormat format) {
    constexpr Layout layouts[] = {{{5, 5, 5, 0}}, {{5, 6, 5, 0}}, {{5, 5, 5, 1}},
                                  {{4, 4, 4, 4}}, {{8, 8, 8, 0}}, {{8, 8, 8, 8}}};
    if (format <= QX::PIXEL_FORMAT_R8G8B8) return layouts[format];
    return layouts[format == QX::PIXEL_FORMAT_X8R8G8B8 ? 4 : 5];
}

unsigned int read_size(QX::PixelFormat format) {
    return format == QX::PIXEL_FORMAT_GREY_EXPAND ? 1 : QX::pixel_size(format);
}

void plain_convert(
    QX::PixelFormat from_format, unsigned char const* from, QX::PixelFormat to_format,
    unsigned char* to) {
    U const size = QX::pixel_size(to_format);
    if (same_layout(from_format, to_format)) {
        std::memcpy(to, from, size);
        return;
    }
    bool const grey = read_size(from_format) == 1;
    Layout const source = grey ? Layout{{8, 8, 8, 8}} : layout_of(from_format);
    U word = grey ? from[0] * 0x01010101u : 0, values[4];
    if (!grey) std::memcpy(&word, from, read_size(from_format));
    for (U i = 0; i < 4; ++i) {
        values[i] = word & ((1u << source.bits[i]) - 1);
        word >>= source.bits[i];
    }
    U out = 0, at = 0;
    if (size == 1) {
        constexpr U weights[] = {28, 150, 76};
        for (U i = 0; i < 3; ++i) out += weights[i] * fit(values[i], source.bits[i], 8);
        out = (out + 127) / 254;
    } else {
        Layout const target = layout_of(to_format);
        for (U i = 0; i < 4; at += target.bits[i++])
            if (target.bits[i]) out |= fit(values[i], source.bits[i], target.bits[i]) << at;
    }
    std::memcpy(to, &out, size);
}

void plain_copy(
    QX::PixelAccessorDescriptor const& to, QX::ConstPixelAccessorDescriptor const& from) {
    for (U y = 0; y < std::min(to.height, from.height); ++y) {
        for (U x = 0; x < std::min(to.width, from.width); ++x) {
            plain_convert(
                from.format, from.data + y * from.stride + x * read_size(from.format), to.format,
                to.data + y * to.stride + x * QX::pixel_size(to.format));
        }
    }
}

}  // namespace test
