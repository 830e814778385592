// plain_tga.cpp - the plain reader.
#include "plain_tga.h"

#include "plain_pixels.h"

#include <algorithm>

namespace test {

namespace {

using Bytes = std::vector<unsigned char>;

unsigned char* at(QX::PixelAccessorDescriptor const& view, unsigned int x, unsigned int y) {
    return view.data + std::size_t{y} * view.stride + x * QX::pixel_size(view.format);
}

bool read_direct(
    QX::PixelAccessorDescriptor const& to, PlainStream& file, QX::TGAHeader const& header) {
    auto const format = header.format();
    if (format == QX::PIXEL_FORMAT_NONE || QX::pixel_size(to.format) == 0) return false;
    unsigned char local[4] = {};
    for (unsigned int i = 0; i < to.height; ++i) {
        for (unsigned int j = 0; j < to.width; ++j) {
            file.read(local, QX::pixel_size(format));
            unsigned int const x = header.descriptor & 16 ? to.width - 1 - j : j;
            unsigned int const y = header.descriptor & 32 ? i : to.height - 1 - i;
            plain_convert(format, local, to.format, at(to, x, y));
        }
    }
    return true;
}

// One pixel, through the map where there is one.
struct ItemReader {
    PlainStream& file;
    std::size_t item_size, pixel_size;
    Bytes map;
    unsigned int first, length;
    unsigned char local[4] = {};

    void read() { file.read(local, item_size); }

    void append(Bytes& out) const {
        unsigned char pixel[4] = {};
        if (length == ~0u) {
            std::memcpy(pixel, local, pixel_size);
        } else {
            unsigned int index = 0;
            std::memcpy(&index, local, item_size);
            if (index >= first && index - first < length)
                std::memcpy(pixel, &map[(index - first) * pixel_size], pixel_size);
        }
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
    out.resize(count * items.pixel_size);
    return out;
}

void flip(Bytes& image, unsigned int width, unsigned int height, std::size_t size, bool rows) {
    Bytes const before = image;
    for (unsigned int y = 0; y < height; ++y) {
        for (unsigned int x = 0; x < width; ++x) {
            unsigned int const from_x = rows ? x : width - 1 - x,
                               from_y = rows ? height - 1 - y : y;
            std::memcpy(
                &image[(std::size_t{y} * width + x) * size],
                &before[(std::size_t{from_y} * width + from_x) * size], size);
        }
    }
}

}  // namespace

bool plain_read_pixels(
    QX::PixelAccessorDescriptor const& to, PlainStream& file, QX::TGAHeader const& header) {
    int const type = header.image_type;
    if (type == 2 || type == 3) return read_direct(to, file, header);
    bool const mapped = type == 1 || type == 9;
    if (!mapped && type != 10 && type != 11) return false;
    auto const format = header.format();
    if (format == QX::PIXEL_FORMAT_NONE) return false;
    if (mapped && header.bits_per_pixel != 8 && header.bits_per_pixel != 16) return false;

    std::size_t const size = QX::pixel_size(format);
    ItemReader items = {file, mapped ? header.bits_per_pixel / 8u : size, size, {}, 0, ~0u};
    if (mapped) {
        items.first = header.colour_map_first;
        items.length = header.colour_map_length;
        items.map.resize(items.length * size);
        if (items.length) file.read(items.map.data(), items.map.size());
    }
    Bytes image = decode(items, std::size_t{header.width} * header.height, type > 8);
    if (!(header.descriptor & 32)) flip(image, header.width, header.height, size, true);
    if (header.descriptor & 16) flip(image, header.width, header.height, size, false);
    if (QX::pixel_size(to.format)) {
        auto const stride = static_cast<unsigned int>(header.width * size);
        plain_copy(to, {image.data(), header.width, header.height, stride, format});
    }
    return !(mapped && header.bits_per_pixel == 16 && format == QX::PIXEL_FORMAT_X1R5G5B5);
}

}  // namespace test
