// tga_impl.h - what reading and writing TGA files share.
#pragma once

#include "qx/images/pixel_copy_impl.h"

namespace QX::tga {

// Bits of the descriptor.
constexpr unsigned int right_to_left = 16;
constexpr unsigned int top_to_bottom = 32;

// Copies pixels of `size` bytes, last one first.
void reverse_pixels(
    unsigned char* to, unsigned char const* from, std::size_t count, unsigned int size);

}  // namespace QX::tga
