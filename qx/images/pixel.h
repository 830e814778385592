// pixel.h - pixel layouts, pixel records, and the views that every image operation works on.
//
// A view is five plain fields that show a rectangle of pixels in anybody's memory. It owns
// nothing; copying it copies the view, never the pixels, and the pixels must outlive it.
// Pixel (x, y) lies at data + y * stride + x * pixel_size(format), top row first. The stride is
// independent of the width, so that a view can show a part of a larger surface; no operation
// touches the bytes between its rows. No coordinate is checked against width or height. Only a view
// without pixels may have null data.
//
//     unsigned char bytes[4 * 4 * 4];
//     PixelAccessorDescriptor whole(bytes, 4, 4, 16, PIXEL_FORMAT_A8R8G8B8);
//     PixelAccessorDescriptor centre(bytes + 20, 2, 2, 16, PIXEL_FORMAT_A8R8G8B8);
//     whole.clear(0, 0, 4, 4, {0, 0, 255, 255});   =>  true, all red
//
// Failures: an operation answers false for a format that it does not take, and then has changed
// nothing. None throws but where an allocation is told of.
// Threads: no locks. Operations may run at once on disjoint pixels.
#pragma once

#include "qx/base/export.h"

namespace QX {

class FileIn;
class MemFileIn;

// How a pixel lies in memory. Words are little-endian, byte lists in memory order.
enum PixelFormat : int {
    PIXEL_FORMAT_X1R5G5B5 = 0,      // word: blue in bits 0-4, green 5-9, red 10-14, bit 15 unused
    PIXEL_FORMAT_R5G6B5 = 1,        // word: blue in bits 0-4, green 5-10, red 11-15
    PIXEL_FORMAT_A1R5G5B5 = 2,      // as X1R5G5B5 with alpha in bit 15
    PIXEL_FORMAT_A4R4G4B4 = 3,      // word: blue in bits 0-3, green 4-7, red 8-11, alpha 12-15
    PIXEL_FORMAT_R8G8B8 = 4,        // bytes: blue, green, red
    PIXEL_FORMAT_A8R8G8B8 = 7,      // bytes: blue, green, red, alpha
    PIXEL_FORMAT_A8R8G8B8_ALT = 8,  // the same layout under a second number
    PIXEL_FORMAT_GREY_EXPAND = 10,  // written as A8R8G8B8; `copy` reads it as one grey byte
    PIXEL_FORMAT_X8R8G8B8 = 11,     // bytes: blue, green, red, one without meaning
    PIXEL_FORMAT_GREY8 = 12,        // byte: grey level
    PIXEL_FORMAT_NONE = 21,         // no format; 5, 6, 9 and 13 to 20 are accepted nowhere
};

// Files number their pixel layouts in the same way.
using TGAFormat = PixelFormat;

// The filters of `resize_copy`. Any other value makes it answer false.
enum PixelCopyFilter : int {
    PIXEL_COPY_SAMPLE = 0,  // nearest sample
    PIXEL_COPY_AREA = 1,    // weighted area in floating point
    PIXEL_COPY_BOX = 2,     // exact average of blocks where the sizes divide, else weighted area
};

// Pixels as records of bytes or of one word, laid out as their formats say: R8G8B8.
struct Pixel888 {
    unsigned char blue, green, red;
};

// A8R8G8B8.
struct Pixel8888 {
    unsigned char blue, green, red, alpha;
};

// The order of mouse pointers made from pictures; no PixelFormat.
struct Pixel8888_RGBA {
    unsigned char red, green, blue, alpha;
};

// X8R8G8B8; `alpha` is the byte without meaning.
struct PixelX888 {
    unsigned char blue, green, red, alpha;
};

// X1R5G5B5.
struct PixelX1R5G5B5 {
    unsigned short value;
};

// R5G6B5.
struct PixelR5G6B5 {
    unsigned short value;
};

// A1R5G5B5.
struct PixelA1R5G5B5 {
    unsigned short value;
};

// A4R4G4B4.
struct PixelA4R4G4B4 {
    unsigned short value;
};

// GREY8.
struct PixelGrey8 {
    unsigned char value;
};

// Bytes of one pixel where pixels are written, 0 for a format that nothing accepts:
//
//     PIXEL_FORMAT_R8G8B8       =>  3
//     PIXEL_FORMAT_GREY_EXPAND  =>  4
//     PIXEL_FORMAT_NONE         =>  0
constexpr unsigned int pixel_size(PixelFormat format) {
    constexpr unsigned char sizes[13] = {2, 2, 2, 2, 3, 0, 0, 4, 4, 0, 4, 4, 1};
    auto const index = static_cast<unsigned int>(format);
    return index < 13 ? sizes[index] : 0;
}

// A view that is only read.
struct ConstPixelAccessorDescriptor {
    unsigned char const* data = nullptr;  // pixel (0, 0)
    unsigned int width = 0;               // pixels in a row
    unsigned int height = 0;              // rows
    unsigned int stride = 0;              // bytes from one row to the next
    PixelFormat format = PIXEL_FORMAT_NONE;

    ConstPixelAccessorDescriptor() = default;
    ConstPixelAccessorDescriptor(
        void const* pixels, unsigned int columns, unsigned int rows, unsigned int row_bytes,
        PixelFormat layout)
        : data(static_cast<unsigned char const*>(pixels)), width(columns), height(rows),
          stride(row_bytes), format(layout) {}
};

// A view that may be written through. Its operations are const: they change pixels, not the view.
struct PixelAccessorDescriptor {
    unsigned char* data = nullptr;
    unsigned int width = 0;
    unsigned int height = 0;
    unsigned int stride = 0;
    PixelFormat format = PIXEL_FORMAT_NONE;

    PixelAccessorDescriptor() = default;
    PixelAccessorDescriptor(
        void* pixels, unsigned int columns, unsigned int rows, unsigned int row_bytes,
        PixelFormat layout)
        : data(static_cast<unsigned char*>(pixels)), width(columns), height(rows),
          stride(row_bytes), format(layout) {}

    operator ConstPixelAccessorDescriptor() const { return {data, width, height, stride, format}; }

    // Copies and converts from the top left corner of `source` to that of this view, as many
    // columns and rows as both have; nothing is scaled. The rules are told in pixel_copy.h.
    // True if both formats are supported, whether or not a pixel moved. The two must not overlap.
    QX_API bool copy(ConstPixelAccessorDescriptor const& source) const;

    // Fills a rectangle with one colour, narrowed to the view's format. The caller keeps the
    // rectangle inside the view. A width or height of 0 fills nothing and is true.
    QX_API bool clear(
        unsigned int x, unsigned int y, unsigned int width, unsigned int height,
        Pixel8888 const& colour) const;

    // Scaling and mip levels, told in resize.h.
    QX_API bool mip_map(unsigned int size) const;
    QX_API bool mip_map(unsigned int width, unsigned int height) const;
    QX_API bool
    resize_copy(ConstPixelAccessorDescriptor const& source, PixelCopyFilter filter) const;
    QX_API bool resize_copy_filter(ConstPixelAccessorDescriptor const& source) const;
    QX_API bool resize_copy_sample(ConstPixelAccessorDescriptor const& source) const;
    QX_API bool resize_tga_into(FileIn& file, PixelCopyFilter filter) const;
    QX_API bool resize_tga_into(MemFileIn& file, PixelCopyFilter filter) const;
};

}  // namespace QX
