// resize_impl.h - the row kernels of mip levels, and the filters.
#pragma once

#include "qx/images/pixel_copy_rules_impl.h"

namespace QX::pixel_rows {

// Averages pixels two by two from two rows into `count` pixels. `to` may be `upper`.
using MipRow = void (*)(
    unsigned char* to, unsigned char const* upper, unsigned char const* lower, std::size_t count);

// By kind: for any processor, and for one with AVX2.
extern MipRow const plain_mip_rows[kind_count];
extern MipRow const wide_mip_rows[kind_count];

MipRow find_mip(Kind kind);

}  // namespace QX::pixel_rows

// All on views of format A8R8G8B8 with at least one pixel each.
namespace QX::resample {

void sample(PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from);

// The source's sizes are multiples of the target's.
void average_blocks(PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from);

// Two passes, height first. Enlarging blends by the middle of each interval, or by its ends.
// Throws std::bad_alloc.
void weigh(
    PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from, bool by_middle);

}  // namespace QX::resample
