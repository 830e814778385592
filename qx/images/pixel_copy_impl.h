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

// Rows of pixels of one kind; a stride below zero walks upward.
struct TargetRows {
    unsigned char* data;
    std::ptrdiff_t stride;
    Kind kind;
};

struct SourceRows {
    unsigned char const* data;
    std::ptrdiff_t stride;
    Kind kind;
};

// Whether a result of that many rows is better written past the cache.
bool is_for_streaming(std::size_t row_bytes, std::size_t rows);

// Converts a rectangle of at least one pixel.
void convert_rows(
    TargetRows const& to, SourceRows const& from, std::size_t width, std::size_t height,
    bool streaming);

}  // namespace QX::pixel_rows
