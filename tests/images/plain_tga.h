// plain_tga.h - TGA pixels read in the plainest way: one read a pixel, a whole picture, then
// placed.
#pragma once

#include "qx/images/tga.h"

#include <cstring>
#include <string>

namespace test {

struct PlainStream {
    std::string const& bytes;
    std::size_t position = 0;
    bool was_short = false;

    // What is left, if that is less.
    void read(void* to, std::size_t size) {
        std::size_t const now = std::min(size, bytes.size() - position);
        std::memcpy(to, bytes.data() + position, now);
        position += now;
        if (now < size) was_short = true;
    }
};

bool plain_read_pixels(
    QX::PixelAccessorDescriptor const& to, PlainStream& file, QX::TGAHeader const& header);

}  // namespace test
