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

namespace QX::resample {

// What a sum is made of. `values` holds a weight for each tap; where pixels are weighed, it holds
// the weights of a whole group for each tap, each four times.
struct Weights {
    float const* values;
    unsigned int taps;
};

// Levels are bytes, or floats with whole values: four to a pixel.
struct Kernels {
    unsigned int group;  // pixels that are weighed at once

    // `count` levels, each the sum of those below one another in rows `stride` bytes apart.
    void (*weigh_rows)(
        float* to, unsigned char const* from, std::size_t stride, std::size_t count,
        Weights const& weights);

    // `count` pixels, each the sum of neighbours from its place on. There are places and weights
    // for whole groups.
    void (*weigh_pixels)(
        unsigned char* to, float const* from, unsigned int const* places, std::size_t count,
        Weights weights);
};

// For any processor, and for one with AVX2.
extern Kernels const plain_kernels;
extern Kernels const wide_kernels;

// All on views of format A8R8G8B8 with at least one pixel each.

void sample(PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from);

// The source's sizes are multiples of the target's.
void average_blocks(PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from);

// Two passes, height first. Enlarging blends by the middle of each interval, or by its ends.
// The two may overlap. Throws std::bad_alloc.
void weigh(
    PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from, bool by_middle,
    Kernels const& kernels);

}  // namespace QX::resample
