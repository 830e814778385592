// tga.h - reading and writing TGA files, converting to and from any view on the way.
//
// Reading: `read` the header, test `supported`, make a view of the header's width and height,
// then `read_pixels` with the stream standing right behind the id.
//
//     TGAHeader header;
//     header.read(file);
//     image.resize(header.width, header.height);
//     bool const read = header.supported() && read_pixels(image.pixel_accessor(), file, header);
//
// Files come in uncompressed (1 colour-mapped, 2 true colour, 3 grey) and run-length coded (9, 10,
// 11), in the formats X1R5G5B5, A1R5G5B5, R8G8B8, A8R8G8B8, X8R8G8B8 and GREY8, and in all four
// orientations. The view always gets the top row first and the left pixel first.
//
// Failures: false for an unsupported file or view format. Truncated input does not stop the
// reader: the remaining pixels repeat the last one (zeros, if there was none), the answer is true,
// and the stream tells: FILE_END_OF_FILE, or the number of the read that failed. Damaged files are
// safe: run-length packets past the last pixel are read to their end and dropped, indices outside
// the colour map give a pixel of zeros.
//
// The format is that of Truevision's TGA File Format Specification, version 2.0, without footer.
#pragma once

#include "qx/base/export.h"
#include "qx/files/file_streams.h"
#include "qx/files/memory_streams.h"
#include "qx/images/image.h"
#include "qx/images/pixel.h"

namespace QX {

// The start of a file: 18 bytes and an id text.
struct TGAHeader {
    unsigned char id_length = 0;
    unsigned char colour_map_type = 0;  // stored, not tested
    unsigned char image_type = 0;
    unsigned short colour_map_first = 0;   // the index of the map's first entry
    unsigned short colour_map_length = 0;  // in entries
    unsigned char colour_map_bits = 0;     // of one entry
    unsigned short x_origin = 0;           // stored, not used
    unsigned short y_origin = 0;
    unsigned short width = 0;
    unsigned short height = 0;
    unsigned char bits_per_pixel = 0;
    unsigned char descriptor = 0;  // bits 0-3 alpha bits, 4 right to left, 5 top to bottom
    char id[256] = {};             // terminated

    TGAHeader() = default;

    // For writing. The id is `text`, of which 255 bytes are taken; null is no id.
    QX_API TGAHeader(
        unsigned short columns, unsigned short rows, TGAFormat format, bool right_to_left,
        bool top_to_bottom, char const* text);

    // Fields that the stream no longer holds whole keep their values; its status tells.
    QX_API FileIn& read(FileIn& file);
    QX_API MemFileIn& read(MemFileIn& file);

    // Bits 6 and 7 of the descriptor are written as 0.
    QX_API FileOut& write(FileOut& file) const;

    // The layout of the file's pixels or map entries, PIXEL_FORMAT_NONE for an unsupported file.
    // Alpha bits and depth are looked at together as one key, joined by a bitwise or:
    //
    //     true colour, 32 bits, 8 alpha bits      =>  PIXEL_FORMAT_A8R8G8B8
    //     true colour, 32 bits, 4 alpha bits      =>  PIXEL_FORMAT_NONE
    //     true colour, 15 bits                    =>  PIXEL_FORMAT_X1R5G5B5
    //     true colour, 15 bits, 1 alpha bit       =>  PIXEL_FORMAT_NONE
    //     colour-mapped, entries of an odd size   =>  PIXEL_FORMAT_R8G8B8
    QX_API TGAFormat format() const;
    QX_API PixelFormat pixel_format() const;
    bool supported() const { return format() != PIXEL_FORMAT_NONE; }
};

// Reads all pixels into the view. Uncompressed true colour and grey fill the view's own width and
// height; the other types convert the file's picture as `copy` does, a GREY_EXPAND view included.
// Into a view of an unsupported format the former answer false and read nothing, the latter answer
// true and leave the view alone. A colour-mapped file with 16-bit indices and a map of X1R5G5B5
// fills the view and answers false. The stream ends where reading pixel by pixel would end.
// Threads: as the stream and the view.
QX_API bool read_pixels(PixelAccessorDescriptor const& to, FileIn& file, TGAHeader const& header);
QX_API bool
read_pixels(PixelAccessorDescriptor const& to, MemFileIn& file, TGAHeader const& header);

// Writes all pixels of the view in the header's format and orientation. A view of GREY_EXPAND is
// one of four bytes a pixel here. A failed write shows in the stream alone.
QX_API bool
write_pixels(FileOut& file, TGAHeader const& header, ConstPixelAccessorDescriptor const& from);

// Writes header and pixels. False, with nothing written, if either format is PIXEL_FORMAT_NONE,
// the width cut to 16 bits is 0 or the height is 0; otherwise true, whatever came of the writes.
QX_API bool tga_write(
    FileOut& file, TGAFormat format, ConstPixelAccessorDescriptor const& from, bool right_to_left,
    bool top_to_bottom);

}  // namespace QX
