// pixel_copy.h - what a pixel means when it changes format: the rules behind `copy` and `clear`.
//
// Where both formats are the same layout (A8R8G8B8, its second number and GREY_EXPAND as a
// destination count as one), pixels move bit for bit, unused bits included. All other pairs go
// channel by channel, through eight bits:
//
//     8 to 6, 5, 4, 1   x >> 2, x >> 3, x >> 4, x >> 7: top bits, never rounded
//     5 to 8            (x << 3) | (x >> 2): full scale stays full scale
//     6 to 8            (x << 2) | (x >> 4)
//     4 to 8            x << 4: 15 becomes 240
//     1 to 8            0 or 255
//     no alpha to 8     255
//
// Grey as a source (GREY8, and GREY_EXPAND, of which `copy` reads one byte a pixel) is that level
// in every channel, alpha included. Grey as a destination is `grey_level` of the widened colour,
// whatever its alpha. A destination's unused bits are 0 after a conversion.
//
// Rows go top to bottom. The format question is settled once for a copy, and no temporary image
// is used. Threads: nothing is shared.
#pragma once

#include "qx/images/pixel.h"

namespace QX {

// The weights add up to 254, and 127 rounds to nearest: white stays 255 and black 0.
//
//     255, 255, 255  =>  255
//     0, 255, 0      =>  151
constexpr unsigned char grey_level(unsigned int blue, unsigned int green, unsigned int red) {
    return static_cast<unsigned char>((28 * blue + 150 * green + 76 * red + 127) / 254);
}

}  // namespace QX
