// plain_pixels.h - the meaning of pixels, restated channel by channel for comparison.
#pragma once

#include "qx/images/pixel.h"
#include "tests/harness/random.h"

#include <cstring>
#include <string>
#include <vector>

namespace test {

constexpr QX::PixelFormat formats[] = {QX::PIXEL_FORMAT_X1R5G5B5,     QX::PIXEL_FORMAT_R5G6B5,
                                       QX::PIXEL_FORMAT_A1R5G5B5,     QX::PIXEL_FORMAT_A4R4G4B4,
                                       QX::PIXEL_FORMAT_R8G8B8,       QX::PIXEL_FORMAT_A8R8G8B8,
                                       QX::PIXEL_FORMAT_A8R8G8B8_ALT, QX::PIXEL_FORMAT_GREY_EXPAND,
                                       QX::PIXEL_FORMAT_X8R8G8B8,     QX::PIXEL_FORMAT_GREY8};

using Bytes = std::vector<unsigned char>;

Bytes random_bytes(Random& random, std::size_t size);

// Whether memory holds those bytes.
bool holds(void const* memory, Bytes const& bytes);

// Bits of blue, green, red and alpha, blue lowest; 0 for a channel that is not there.
struct Layout {
    unsigned int bits[4];
};

Layout layout_of(QX::PixelFormat format);

// Bytes of a pixel that `copy` reads; writing takes QX::pixel_size.
unsigned int read_size(QX::PixelFormat format);

// One pixel converted by the rules. Bits without meaning come out 0.
void plain_convert(
    QX::PixelFormat from_format, unsigned char const* from, QX::PixelFormat to_format,
    unsigned char* to);

// A whole copy, one pixel at a time.
void plain_copy(
    QX::PixelAccessorDescriptor const& to, QX::ConstPixelAccessorDescriptor const& from);

}  // namespace test
