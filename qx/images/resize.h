// resize.h - mip levels, scaling copies, and ramps of colour.
//
// The operations on views are declared with them, in pixel.h:
//
// `mip_map(width, height)` halves a rectangle in place: the average of each two by two pixels goes
// to half the column and half the row, rounded to nearest, (sum + 2) >> 2. The view's own width
// and height are not looked at, and an odd width or height reads one column or row further, which
// the caller's surface must have. A size of 0 does nothing and is true. Nothing is allocated. The
// 16-bit formats come out far darker than their source, on purpose: the average of each
// raw field is narrowed once more, as if it were a full byte, and alpha is lost:
//
//     A8R8G8B8 levels 0, 0, 0, 2    =>  1
//     R5G6B5 white                  =>  red 3, green 15, blue 3
//     A4R4G4B4, any colour          =>  0
//
// `resize_copy(source, filter)` scales the source to fill the view. It works on A8R8G8B8; other
// formats are converted on the way in and out. False, with the view unchanged, for an unknown
// filter, an unsupported format, a source without pixels or a lack of memory. A target without
// pixels is filled by doing nothing, which is true.
//
//     PIXEL_COPY_SAMPLE  the pixel at truncate(x * r + r * 0.5 + 0.5), r = source / destination.
//                        Nothing clamps that: at equal sizes the picture shifts by one pixel, and
//                        the last column and row lie just past the source. The source must have
//                        them; 4 wide to 2 wide reads columns 1 and 3.
//     PIXEL_COPY_AREA    the source weighted by the area that each pixel covers, height first
//     PIXEL_COPY_BOX     the exact, rounded average of blocks where both sizes divide; otherwise
//                        as AREA, but enlarging blends the two lines nearest to the middle
//
// `resize_tga_into(file, filter)` reads a TGA file into the view at the view's size: straight if
// that is the file's size, through the filter otherwise. False puts the stream back where it was.
#pragma once

#include "qx/base/export.h"
#include "qx/images/pixel.h"

namespace QX {

// Fill `count` pixels with a ramp between two colours, red, green and blue a third of a cycle
// apart: a triangle wave from `from`, one from `to`, and the square of a sine from `to`. The first
// two reckon in unsigned 32 bits: where `to` is below `from` the difference wraps round to a large
// number, and that is what is multiplied and divided. A count of 0 does nothing.
QX_API void generate_primary_colours(Pixel888* out, unsigned int count, Pixel888 from, Pixel888 to);
QX_API void
generate_secondary_colours(Pixel888* out, unsigned int count, Pixel888 from, Pixel888 to);
QX_API void
generate_tertiary_colours(Pixel888* out, unsigned int count, Pixel888 from, Pixel888 to);

}  // namespace QX
