// tga_bench.cpp - reading TGA pictures from memory and through a file, into a warm view.
#include "benchmarks/bench.h"
#include "qx/images/resize.h"
#include "qx/images/tga.h"

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#if defined(QX_RIVAL_STB)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_TGA
#define STBI_NO_STDIO
#include "stb/stb_image.h"
#pragma GCC diagnostic pop
#endif

using namespace QX;

namespace {

constexpr unsigned int side = 2048;

// One third flat, one third stepped, one third noise, in tiles.
std::vector<unsigned char> make_picture(unsigned int depth) {
    std::mt19937 random(8);
    std::vector<unsigned char> picture(std::size_t{side} * side * depth);
    for (std::size_t i = 0; i != picture.size(); ++i) {
        std::size_t const x = i / depth % side, y = i / depth / side, tile = (x / 64 + y / 64) % 3;
        unsigned int const level = tile == 0 ? 40u : tile == 1 ? unsigned(x / 8 % 256) : random();
        picture[i] = static_cast<unsigned char>(level + (tile == 2 ? 0 : i % depth));
    }
    return picture;
}

std::string make_header(unsigned int type, unsigned int depth) {
    std::string header(18, '\0');
    header[2] = static_cast<char>(type);
    header[13] = header[15] = side >> 8;
    header[16] = static_cast<char>(depth * 8);
    header[17] = static_cast<char>(32 | (depth == 4 ? 8 : 0));
    return header;
}

// Packets do not cross rows.
std::string pack(std::vector<unsigned char> const& picture, unsigned int depth) {
    std::string out;
    auto const* const pixels = reinterpret_cast<char const*>(picture.data());
    auto const same = [&](std::size_t i) {
        return !std::memcmp(pixels + i * depth, pixels + (i + 1) * depth, depth);
    };
    for (std::size_t i = 0; i != std::size_t{side} * side;) {
        std::size_t const end = std::min((i / side + 1) * side, i + 128);
        std::size_t j = i + 1;
        if (j < end && same(i)) {
            while (j < end && same(j - 1)) ++j;
            out += static_cast<char>(127 + j - i);
            out.append(pixels + i * depth, depth);
        } else {
            while (j < end && !(j + 1 < end && same(j))) ++j;
            out += static_cast<char>(j - i - 1);
            out.append(pixels + i * depth, (j - i) * depth);
        }
        i = j;
    }
    return out;
}

template <typename Stream>
void read(Stream& file, std::vector<unsigned char>& out) {
    TGAHeader header;
    file.seek(0);
    header.read(file);
    read_pixels({out.data(), side, side, side * 4, PIXEL_FORMAT_A8R8G8B8}, file, header);
}

void measure(
    bench::Table const& table, char const* name, std::string const& bytes,
    std::vector<unsigned char>& out, std::vector<unsigned char> const& expected) {
    std::FILE* const written = std::fopen("tga_bench.tga", "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), written);
    std::fclose(written);
    FileIn file("tga_bench.tga", false);
    MemFileIn memory;
    memory.open(bytes.data(), static_cast<unsigned int>(bytes.size()));
    std::vector<unsigned char> copy(bytes.size());

    std::vector<bench::Contender> contenders = {
        {"QXLibs, from memory", [&] { read(memory, out); }},
        {"QXLibs, through a file", [&] { read(file, out); }},
        {"memcpy of the file's bytes",
         [&] { std::memcpy(copy.data(), bytes.data(), bytes.size()); }},
        {"memset of the picture", [&] { std::memset(out.data(), 1, out.size()); }},
    };
#if defined(QX_RIVAL_STB)
    contenders.push_back({"stb_image", [&] {
                              int w, h, n;
                              stbi_image_free(stbi_load_from_memory(
                                  reinterpret_cast<stbi_uc const*>(bytes.data()),
                                  static_cast<int>(bytes.size()), &w, &h, &n, 4));
                          }});
#endif
    table.row(name, side * double{side} * 4, contenders);
    read(memory, out);
    if (out != expected) std::printf("wrong pixels\n");
    file.close();
    std::remove("tga_bench.tga");
}

}  // namespace

int main() {
    bench::Table const table("TGA, 2048 by 2048 into 32 bits, per byte of the result");
    std::vector<unsigned char> out(std::size_t{side} * side * 4), expected(out.size());
    for (unsigned int const depth : {3u, 4u}) {
        auto const picture = make_picture(depth);
        auto const format = depth == 3 ? PIXEL_FORMAT_R8G8B8 : PIXEL_FORMAT_A8R8G8B8;
        PixelAccessorDescriptor(expected.data(), side, side, side * 4, PIXEL_FORMAT_A8R8G8B8)
            .copy(ConstPixelAccessorDescriptor(picture.data(), side, side, side * depth, format));
        std::string const raw(reinterpret_cast<char const*>(picture.data()), picture.size());
        bool const is_24 = depth == 3;
        measure(
            table, is_24 ? "24-bit raw" : "32-bit raw", make_header(2, depth) + raw, out, expected);
        measure(
            table, is_24 ? "24-bit run-length" : "32-bit run-length",
            make_header(10, depth) + pack(picture, depth), out, expected);
    }
}
