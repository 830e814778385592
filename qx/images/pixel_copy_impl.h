// pixel_copy_impl.h - the row conversions shared by copying, files and resizing.
#pragma once

#include "qx/images/pixel.h"

#include <cstddef>

namespace QX::pixel_rows {

// The layouts that differ in memory. Formats map to a kind by their role, see below.
enum Kind : int { X1555, R565, A1555, A4444, B888, A8888, X8888, G8, kind_count, no_kind = -1 };

// What `copy` reads, and what all writers write. They differ for GREY_EXPAND only.
Kind source_kind(PixelFormat format);
Kind target_kind(PixelFormat format);

constexpr unsigned int kind_size(Kind kind) {
    return kind <= A4444 ? 2 : kind == B888 ? 3 : kind == G8 ? 1 : 4;
}

// Converts `count` pixels. Reads and writes those pixels' bytes only; `to` and `from` are apart.
using Row = void (*)(unsigned char* to, unsigned char const* from, std::size_t count);

// Every pair of kinds, by source and then target: for any processor, and for one with AVX2.
extern Row const plain_rows[kind_count][kind_count];
extern Row const wide_rows[kind_count][kind_count];

// The fastest conversion that this processor has.
Row find(Kind source, Kind target);

// Converts a rectangle, with stores past the cache where it is large.
void copy_rectangle(
    PixelAccessorDescriptor const& to, Kind target, ConstPixelAccessorDescriptor const& from,
    Kind source);

// Copies bytes, past the cache where they are many.
void copy_bytes(unsigned char* to, unsigned char const* from, std::size_t size);

}  // namespace QX::pixel_rows
