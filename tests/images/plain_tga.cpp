// plain_tga.cpp - the plain reader.
#include "plain_tga.h"

#include "plain_pixels.h"

#include <algorithm>

namespace test {

namespace {

// One pixel, through the map where there is one.
struct ItemReader {
    PlainStream& file;
    std::size_t item_size, pixel_size;
    bool mapped;
    Bytes map;
    unsigned int first, length;
    unsigned char local[4] = {};

    void read() { file.read(local, item_size); }

    void append(Bytes& out) const {
        unsigned char pixel[4] = {};
        unsigned int index = 0;
        std::memcpy(mapped ? reinterpret_cast<unsigned char*>(&index) : pixel, local, item_size);
        if (mapped && index >= first && index - first < length)
            std::memcpy(pixel, &map[(index - first) * pixel_size], pixel_size);
        out.insert(out.end(), pixel, pixel + pixel_size);
    }
};

Bytes decode(ItemReader& items, std::size_t count, bool coded) {
    Bytes out;
    unsigned char packet = 0;
    while (out.size() < count * items.pixel_size) {
        if (coded) items.file.read(&packet, 1);
        int const pixels = coded ? (packet & 127) + 1 : 1;
        for (int i = 0; i < pixels; ++i) {
            if (i == 0 || packet < 128) items.read();
            items.append(out);
        }
    }
    return out;
}

}  // namespace

bool plain_read_pixels(
    QX::PixelAccessorDescriptor const& to, PlainStream& file, QX::TGAHeader const& header) {
    int const type = header.image_type, depth = header.bits_per_pixel;
    bool const mapped = type == 1 || type == 9, direct = type == 2 || type == 3;
    auto const format = header.format();
    if (format == QX::PIXEL_FORMAT_NONE || (mapped && depth != 8 && depth != 16)) return false;
    unsigned int const to_size = QX::pixel_size(to.format);
    if (direct && to_size == 0) return false;

    std::size_t const size = QX::pixel_size(format);
    unsigned int const length = mapped ? header.colour_map_length : 0;
    ItemReader items = {file,   mapped ? depth / 8u : size, size,
                        mapped, Bytes(length * size),       header.colour_map_first,
                        length};
    if (length) file.read(items.map.data(), items.map.size());
    unsigned int const width = direct ? to.width : header.width;
    unsigned int const height = direct ? to.height : header.height;
    Bytes const image = decode(items, std::size_t{width} * height, type > 8);
    for (unsigned int i = 0; to_size && i < width * height; ++i) {
        unsigned int const x = header.descriptor & 16 ? width - 1 - i % width : i % width;
        unsigned int const y = header.descriptor & 32 ? i / width : height - 1 - i / width;
        if (x < to.width && y < to.height)
            plain_convert(
                format, &image[i * size], to.format,
                to.data + std::size_t{y} * to.stride + x * to_size);
    }
    return !(mapped && depth == 16 && format == QX::PIXEL_FORMAT_X1R5G5B5);
}

}  // namespace test
