// plain_pixels.cpp - the rules in their plainest form.
#include "plain_pixels.h"

#include <algorithm>
#include <cstring>

namespace test {

namespace {

struct Layout {
    QX::PixelFormat format;
    unsigned int bytes;
    unsigned int blue, green, red, alpha;  // bits of each, blue lowest
    unsigned int unused;                   // bits above them
};

constexpr Layout layouts[] = {
    {QX::PIXEL_FORMAT_X1R5G5B5, 2, 5, 5, 5, 0, 1},
    {QX::PIXEL_FORMAT_R5G6B5, 2, 5, 6, 5, 0, 0},
    {QX::PIXEL_FORMAT_A1R5G5B5, 2, 5, 5, 5, 1, 0},
    {QX::PIXEL_FORMAT_A4R4G4B4, 2, 4, 4, 4, 4, 0},
    {QX::PIXEL_FORMAT_R8G8B8, 3, 8, 8, 8, 0, 0},
    {QX::PIXEL_FORMAT_A8R8G8B8, 4, 8, 8, 8, 8, 0},
    {QX::PIXEL_FORMAT_A8R8G8B8_ALT, 4, 8, 8, 8, 8, 0},
    {QX::PIXEL_FORMAT_GREY_EXPAND, 4, 8, 8, 8, 8, 0},
    {QX::PIXEL_FORMAT_X8R8G8B8, 4, 8, 8, 8, 0, 8},
};

Layout const* find(QX::PixelFormat format) {
    for (Layout const& layout : layouts) {
        if (layout.format == format) return &layout;
    }
    return nullptr;
}

struct Rule {
    unsigned int from, to;
    unsigned int (*apply)(unsigned int);
};

using U = unsigned int;
constexpr Rule rules[] = {
    {8, 6, [](U x) { return x >> 2; }},
    {8, 5, [](U x) { return x >> 3; }},
    {8, 4, [](U x) { return x >> 4; }},
    {8, 1, [](U x) { return x >> 7; }},
    {6, 5, [](U x) { return x >> 1; }},
    {6, 4, [](U x) { return x >> 2; }},
    {5, 4, [](U x) { return x >> 1; }},
    {4, 1, [](U x) { return x >> 3; }},
    {5, 8, [](U x) { return x << 3 | x >> 2; }},
    {6, 8, [](U x) { return x << 2 | x >> 4; }},
    {5, 6, [](U x) { return x << 1 | x >> 4; }},
    {4, 8, [](U x) { return x << 4; }},
    {4, 6, [](U x) { return x << 2; }},
    {4, 5, [](U x) { return x << 1; }},
    {1, 8, [](U x) { return x * 255; }},
    {1, 4, [](U x) { return x * 15; }},
    {0, 1, [](U) { return 1u; }},
    {0, 4, [](U) { return 15u; }},
    {0, 8, [](U) { return 255u; }},
};

U fit(Channel channel, U bits) {
    if (bits == 0) return 0;
    if (channel.bits == bits) return channel.value;
    for (Rule const& rule : rules) {
        if (rule.from == channel.bits && rule.to == bits) return rule.apply(channel.value);
    }
    __builtin_trap();
}

bool same_layout(QX::PixelFormat a, QX::PixelFormat b) {
    auto const is_32 = [](QX::PixelFormat f) { return f == 7 || f == 8; };
    return a == b ? a != QX::PIXEL_FORMAT_GREY_EXPAND : is_32(a) && (is_32(b) || b == 10);
}

}  // namespace

unsigned int read_size(QX::PixelFormat format) {
    return format == QX::PIXEL_FORMAT_GREY_EXPAND ? 1 : QX::pixel_size(format);
}

PlainPixel plain_read(QX::PixelFormat format, unsigned char const* from) {
    if (read_size(format) == 1) {
        Channel const level = {from[0], 8};
        return {level, level, level, level, true};
    }
    Layout const& l = *find(format);
    U bits = 0;
    std::memcpy(&bits, from, l.bytes);
    auto const take = [&](U width) {
        Channel const channel = {bits & ((1u << width) - 1), width};
        bits = width < 32 ? bits >> width : 0;
        return channel;
    };
    PlainPixel pixel;
    pixel.blue = take(l.blue), pixel.green = take(l.green), pixel.red = take(l.red);
    pixel.alpha = take(l.alpha), pixel.grey = false;
    return pixel;
}

void plain_convert(
    QX::PixelFormat from_format, unsigned char const* from, QX::PixelFormat to_format,
    unsigned char* to) {
    if (same_layout(from_format, to_format)) {
        std::memcpy(to, from, QX::pixel_size(to_format));
        return;
    }
    PlainPixel const p = plain_read(from_format, from);
    if (to_format == QX::PIXEL_FORMAT_GREY8) {
        U const sum = 28 * fit(p.blue, 8) + 150 * fit(p.green, 8) + 76 * fit(p.red, 8);
        to[0] = static_cast<unsigned char>(p.grey ? p.red.value : (sum + 127) / 254);
        return;
    }
    Layout const& l = *find(to_format);
    U const bits = fit(p.blue, l.blue) | fit(p.green, l.green) << l.blue |
                   fit(p.red, l.red) << (l.blue + l.green);
    U const alpha = l.alpha ? fit(p.alpha, l.alpha) << (l.blue + l.green + l.red) : 0;
    U const all = bits | alpha;
    std::memcpy(to, &all, l.bytes);
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
