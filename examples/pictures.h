// pictures.h - what the examples that show pictures share.
#pragma once

#include "qx/qx.h"

#include <cstring>

namespace examples {

using Picture = QX::ImageType<QX::Pixel8888>;

// Lands a TGA, whatever its type, in a picture of this format.
inline bool decode(char const* bytes, unsigned int size, QX::TGAHeader& header, Picture& picture) {
    QX::MemFileIn stream;
    stream.open(bytes, size);
    header.read(stream);
    if (!header.supported() || header.width == 0 || header.height == 0) return false;
    picture.resize(header.width, header.height);
    return QX::read_pixels(picture.pixel_accessor(), stream, header) &&
           stream.status() == QX::FILE_OK;
}

// Halving reads one row and column past an odd size: repeats the last ones there, which the surface
// has room for.
inline void
repeat_odd_edges(QX::PixelAccessorDescriptor const& view, unsigned int w, unsigned int h) {
    for (unsigned int y = 0; y < h && w % 2; ++y) {
        unsigned char* const end = view.data + y * view.stride + w * 4;
        std::memcpy(end, end - 4, 4);
    }
    if (h % 2) {
        unsigned char* const last = view.data + (h - 1) * view.stride;
        std::memcpy(last + view.stride, last, (w + w % 2) * 4);
    }
}

// Calls `keep(view, width, height)` with the picture and then each smaller level, down to one
// pixel. A level fills the upper left of the view.
template <typename Keep>
void each_level(Picture& picture, Keep keep) {
    unsigned int width = picture.width();
    unsigned int height = picture.height();
    Picture surface;
    surface.resize(width + 1, height + 1);
    QX::PixelAccessorDescriptor const view = surface.pixel_accessor();
    surface.pixel_accessor(0, 0, width, height).copy(picture.pixel_accessor());
    for (;;) {
        keep(view, width, height);
        if (width == 1 && height == 1) return;
        repeat_odd_edges(view, width, height);
        view.mip_map(width, height);
        width = (width + 1) / 2;
        height = (height + 1) / 2;
    }
}

}  // namespace examples
