// pixel_copy_bench.cpp - every conversion against the plain loop and a copy of as many bytes.
//
// Arguments: side of the image (default 1024), then one source kind to look at alone.
#include "benchmarks/bench.h"
#include "qx/images/pixel_copy.h"
#include "qx/images/pixel_copy_rules_impl.h"

#include <cstring>
#include <random>

using namespace QX;
using namespace QX::pixel_rows;

namespace {

constexpr PixelFormat formats[kind_count] = {
    PIXEL_FORMAT_X1R5G5B5, PIXEL_FORMAT_R5G6B5,   PIXEL_FORMAT_A1R5G5B5, PIXEL_FORMAT_A4R4G4B4,
    PIXEL_FORMAT_R8G8B8,   PIXEL_FORMAT_A8R8G8B8, PIXEL_FORMAT_X8R8G8B8, PIXEL_FORMAT_GREY8};
constexpr char const* names[kind_count] = {"X1555", "565",   "A1555", "4444",
                                           "888",   "A8888", "X8888", "grey"};

template <Kind S, Kind D>
__attribute__((noinline)) void
plain_loop(unsigned char* __restrict to, unsigned char const* __restrict from, std::size_t count) {
    for (std::size_t i = 0; i != count; ++i) {
        if constexpr (S == D)
            std::memcpy(to + i * kind_size(D), from + i * kind_size(S), kind_size(S));
        else
            pack<D>(unpack<S>(from + i * kind_size(S)), to + i * kind_size(D));
    }
}

struct Images {
    std::vector<unsigned char> from, to;
    unsigned int side;
};

template <Kind S, Kind D>
void measure(bench::Table const& table, Images& images) {
    unsigned int const side = images.side;
    std::size_t const count = std::size_t{side} * side;
    std::size_t const moved = count * std::max(kind_size(S), kind_size(D));
    PixelAccessorDescriptor const to(images.to.data(), side, side, side * kind_size(D), formats[D]);
    ConstPixelAccessorDescriptor const from(
        images.from.data(), side, side, side * kind_size(S), formats[S]);
    std::string const name = std::string(names[S]) + " to " + names[D];
    int const repeats = std::max(1u, 1024 / side * 1024 / side);
    table.row(
        name.c_str(), double(count * kind_size(D)) * repeats,
        {{"QXLibs",
          [&] {
              for (int i = 0; i < repeats; ++i) to.copy(from);
          }},
         {"plain loop at -O3",
          [&] {
              for (int i = 0; i < repeats; ++i)
                  plain_loop<S, D>(images.to.data(), images.from.data(), count);
          }},
         {"memcpy of the larger side's bytes", [&] {
              for (int i = 0; i < repeats; ++i)
                  std::memcpy(images.to.data(), images.from.data(), moved);
          }}});
}

template <Kind S>
void measure_from(bench::Table const& table, Images& images) {
    measure<S, X1555>(table, images), measure<S, R565>(table, images);
    measure<S, A1555>(table, images), measure<S, A4444>(table, images);
    measure<S, B888>(table, images), measure<S, A8888>(table, images);
    measure<S, X8888>(table, images), measure<S, G8>(table, images);
}

}  // namespace

int main(int argc, char** argv) {
    unsigned int const side = argc > 1 ? static_cast<unsigned int>(std::atoi(argv[1])) : 1024;
    int const only = argc > 2 ? std::atoi(argv[2]) : -1;
    Images images = {{}, {}, side};
    images.from.resize(std::size_t{side} * side * 4);
    images.to.resize(images.from.size());
    std::mt19937 random(3);
    for (auto& byte : images.from) byte = static_cast<unsigned char>(random());

    bench::Table const table("pixel conversion, per byte of the result");
    void (*const all[kind_count])(bench::Table const&, Images&) = {
        &measure_from<X1555>, &measure_from<R565>,  &measure_from<A1555>, &measure_from<A4444>,
        &measure_from<B888>,  &measure_from<A8888>, &measure_from<X8888>, &measure_from<G8>};
    for (int kind = 0; kind < kind_count; ++kind) {
        if (only < 0 || only == kind) all[kind](table, images);
    }
}
