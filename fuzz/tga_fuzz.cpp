// tga_fuzz.cpp - any bytes are a picture or are refused, whatever the view, and nothing is written
// outside it. Memory and the plain header fields decide alike on every run.
#include "fuzz/driver.h"
#include "qx/images/tga.h"

#include <cstring>
#include <string>

namespace {

using namespace QX;

constexpr unsigned int side = 24, margin = 40;

// A padded view amid bytes that must stay as they are.
struct Surface {
    unsigned char bytes[margin + (side * 4 + 5) * side + margin];

    Surface() { std::memset(bytes, 0xA5, sizeof bytes); }

    PixelAccessorDescriptor view(unsigned int width, unsigned int height, PixelFormat format) {
        return {bytes + margin, width, height, width * pixel_size(format) + 5, format};
    }

    bool is_whole(PixelAccessorDescriptor const& view) const {
        std::size_t const row = view.width * pixel_size(view.format);
        for (std::size_t i = 0; i != sizeof bytes; ++i) {
            std::size_t const at = i - margin;
            bool const inside = i >= margin && view.height && at / view.stride < view.height &&
                                at % view.stride < row;
            if (!inside && bytes[i] != 0xA5) return false;
        }
        return true;
    }
};

void read_into(char* data, std::size_t size, unsigned int width, unsigned int height, int format) {
    MemFileIn file;
    file.open(data, static_cast<unsigned int>(size));
    TGAHeader header;
    header.read(file);
    Surface surface;
    auto const view = surface.view(
        std::min(width, side), std::min(height, side), static_cast<PixelFormat>(format));
    bool const answer = read_pixels(view, file, header);
    if (!surface.is_whole(view)) __builtin_trap();
    if (answer && !header.supported()) __builtin_trap();
    if (file.tell64() > size) __builtin_trap();
    file.seek(0);
    Surface resized;
    auto const target = resized.view(side, 3, static_cast<PixelFormat>(format));
    // Larger pictures would only be slow to load.
    bool const is_small = 1u * header.width * header.height < 4096;
    if (is_small && !target.resize_tga_into(file, PIXEL_COPY_BOX) && file.tell64() != 0) {
        __builtin_trap();
    }
    if (!resized.is_whole(target)) __builtin_trap();
}

void one(char* data, std::size_t size) {
    MemFileIn file;
    file.open(data, static_cast<unsigned int>(size));
    TGAHeader header;
    header.read(file);
    constexpr int formats[] = {0, 3, 4, 7, 10, 11, 12, 21};
    int const format = formats[size % 8];
    read_into(data, size, header.width, header.height, format);
    read_into(data, size, header.width + 3u, header.height / 2u, formats[(size + 3) % 8]);
}

// A file of 5 by 3 pixels.
std::string picture(
    int type, int depth, int descriptor, std::string const& body, int map_bits = 0,
    int map_length = 0) {
    std::string file(18, '\0');
    file[0] = 2;
    file[2] = static_cast<char>(type);
    file[3] = static_cast<char>(map_bits ? 3 : 0);
    file[5] = static_cast<char>(map_length);
    file[7] = static_cast<char>(map_bits);
    file[12] = 5;
    file[14] = 3;
    file[16] = static_cast<char>(depth);
    file[17] = static_cast<char>(descriptor);
    return file + "id" + body;
}

std::string const packets = std::string("\x83") + "abcd" + "\x02" + "efghijklmnop" + "\x87" +
                            "qrst" + "\x7F" + std::string(40, 'x');

}  // namespace

int main(int argc, char** argv) {
    std::string const plain(64, 'p');
    return fuzz::run(
        "tga", argc, argv,
        {picture(2, 24, 0x00, plain), picture(2, 16, 0x31, plain), picture(3, 8, 0x20, plain),
         picture(10, 32, 0x18, packets), picture(10, 24, 0x30, packets),
         picture(11, 8, 0x10, packets), picture(9, 8, 0x20, "123456789" + packets, 24, 3),
         picture(1, 16, 0x00, "12345678" + plain, 16, 4)},
        one);
}
