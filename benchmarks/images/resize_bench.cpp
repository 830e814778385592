// resize_bench.cpp - mip levels and scaling, per pixel of the source.
#include "benchmarks/bench.h"
#include "qx/images/resize.h"

#include <cstring>
#include <random>
#include <vector>

#if defined(QX_RIVAL_STB)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wunused-but-set-variable"
#define STB_IMAGE_RESIZE_IMPLEMENTATION
#define STB_IMAGE_RESIZE_STATIC
#include "stb/stb_image_resize.h"
#pragma GCC diagnostic pop
#endif
#if defined(QX_RIVAL_LIBYUV)
#include "libyuv/scale_argb.h"
#endif

using namespace QX;

namespace {

using Bytes = std::vector<unsigned char>;

PixelAccessorDescriptor view_of(Bytes& bytes, unsigned int side) {
    return {bytes.data(), side, side, side * 4, PIXEL_FORMAT_A8R8G8B8};
}

// One level in place, as plainly as it can be told.
__attribute__((noinline)) void plain_level(unsigned char* pixels, unsigned int side) {
    std::size_t const row = side * std::size_t{4};
    for (std::size_t y = 0; y < side; y += 2) {
        unsigned char const* const p = pixels + y * row;
        unsigned char* const out = pixels + y / 2 * row;
        for (std::size_t x = 0; x < side / 2; ++x) {
            for (std::size_t i = 0; i < 4; ++i) {
                unsigned char const* const q = p + x * 8 + i;
                out[x * 4 + i] =
                    static_cast<unsigned char>((q[0] + q[4] + q[row] + q[row + 4] + 2) >> 2);
            }
        }
    }
}

void add_rivals(
    std::vector<bench::Contender>& contenders, Bytes& from, Bytes& to, int source, int target) {
    static_cast<void>(contenders), static_cast<void>(from), static_cast<void>(to);
    static_cast<void>(source), static_cast<void>(target);
#if defined(QX_RIVAL_STB)
    contenders.push_back({"stb_image_resize, box", [&from, &to, source, target] {
                              stbir_resize_uint8_generic(
                                  from.data(), source, source, source * 4, to.data(), target,
                                  target, target * 4, 4, -1, 0, STBIR_EDGE_CLAMP, STBIR_FILTER_BOX,
                                  STBIR_COLORSPACE_LINEAR, nullptr);
                          }});
#endif
#if defined(QX_RIVAL_LIBYUV)
    contenders.push_back({"libyuv, box of averages", [&from, &to, source, target] {
                              libyuv::ARGBScale(
                                  from.data(), source * 4, source, source, to.data(), target * 4,
                                  target, target, libyuv::kFilterBox);
                          }});
#endif
}

}  // namespace

int main() {
    std::mt19937 random(9);
    Bytes from(4096 * 4096 * 4), to(from.size());
    for (auto& byte : from) byte = static_cast<unsigned char>(random());

    bench::Table const levels("mip level, per pixel of the source");
    for (unsigned int const side : {1024u, 4096u}) {
        auto const name = std::to_string(side) + " to " + std::to_string(side / 2);
        std::vector<bench::Contender> contenders = {
            {"QXLibs", [&, side] { view_of(from, side).mip_map(side); }},
            {"plain loop at -O3", [&, side] { plain_level(from.data(), side); }},
            {"memcpy of the source",
             [&, side] { std::memcpy(to.data(), from.data(), std::size_t{side} * side * 4); }}};
        add_rivals(contenders, from, to, static_cast<int>(side), static_cast<int>(side) / 2);
        levels.row(name.c_str(), double(side) * side, contenders);
    }

    bench::Table const scaling("scaling, per pixel of the source");
    struct Row {
        unsigned int source, target;
    };
    for (Row const row : {Row{4096, 1024}, Row{2048, 1500}, Row{1500, 2048}}) {
        auto const name = std::to_string(row.source) + " to " + std::to_string(row.target);
        std::vector<bench::Contender> contenders = {
            {"QXLibs, box",
             [&] { view_of(to, row.target).resize_copy_filter(view_of(from, row.source)); }},
            {"QXLibs, sample",
             [&] { view_of(to, row.target).resize_copy_sample(view_of(from, row.source)); }}};
        add_rivals(
            contenders, from, to, static_cast<int>(row.source), static_cast<int>(row.target));
        scaling.row(name.c_str(), double(row.source) * row.source, contenders);
    }
}
