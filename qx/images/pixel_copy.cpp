// pixel_copy.cpp - copying, converting and filling.
#include "qx/images/pixel_copy.h"

#include "qx/base/compiler.h"
#include "qx/images/pixel_copy_impl.h"
#include "qx/images/pixel_rules_impl.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace QX {

namespace pixel_rows {

namespace {

// Past this many bytes a result would push everything else out of the cache.
constexpr std::size_t streaming_size = std::size_t{8} << 20;

// Bytes converted in the nearest cache before they go out past the others.
constexpr std::size_t staging_size = 8192;

// Shorter rows would leave too many lines half written.
constexpr std::size_t streaming_row = 1024;

// `to` takes `size` bytes past the cache; its ends go the ordinary way.
void stream_bytes(unsigned char* to, unsigned char const* from, std::size_t size) {
    std::size_t const head = -reinterpret_cast<std::uintptr_t>(to) & 15;
    QX_CHECK(size >= 16);
    std::memcpy(to, from, head);
    std::size_t i = head;
    for (; i + 64 <= size; i += 64) {
        auto const* in = reinterpret_cast<__m128i const*>(from + i);
        auto* out = reinterpret_cast<__m128i*>(to + i);
        __m128i const a = _mm_loadu_si128(in), b = _mm_loadu_si128(in + 1);
        __m128i const c = _mm_loadu_si128(in + 2), d = _mm_loadu_si128(in + 3);
        _mm_stream_si128(out, a);
        _mm_stream_si128(out + 1, b);
        _mm_stream_si128(out + 2, c);
        _mm_stream_si128(out + 3, d);
    }
    std::memcpy(to + i, from + i, size - i);
}

struct Sizes {
    std::size_t to, from;  // bytes a pixel
};

void stream_row(
    unsigned char* to, unsigned char const* from, std::size_t count, Row row, Sizes sizes) {
    alignas(16) unsigned char stage[staging_size];
    std::size_t const most = (staging_size / sizes.to) & ~std::size_t{63};
    while (count) {
        std::size_t const now = std::min(count, most);
        row(stage, from, now);
        if (now * sizes.to < 64)
            std::memcpy(to, stage, now * sizes.to);
        else
            stream_bytes(to, stage, now * sizes.to);
        to += now * sizes.to;
        from += now * sizes.from;
        count -= now;
    }
}

struct Extent {
    std::size_t width, height;
};

void stream_rows(
    PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from, Extent extent,
    Row row, Sizes sizes, bool moves) {
    for (std::size_t y = 0; y != extent.height; ++y) {
        unsigned char* const target = to.data + y * to.stride;
        unsigned char const* const source = from.data + y * from.stride;
        if (moves)
            stream_bytes(target, source, extent.width * sizes.to);
        else
            stream_row(target, source, extent.width, row, sizes);
    }
    _mm_sfence();
}

}  // namespace

Kind target_kind(PixelFormat format) {
    constexpr Kind kinds[13] = {X1555, R565,  A1555,   A4444, B888,  no_kind, no_kind,
                                A8888, A8888, no_kind, A8888, X8888, G8};
    auto const index = static_cast<unsigned int>(format);
    return index < 13 ? kinds[index] : no_kind;
}

Kind source_kind(PixelFormat format) {
    return format == PIXEL_FORMAT_GREY_EXPAND ? G8 : target_kind(format);
}

Row find(Kind source, Kind target) {
    return __builtin_cpu_supports("avx2") ? wide_rows[source][target] : plain_rows[source][target];
}

void copy_bytes(unsigned char* to, unsigned char const* from, std::size_t size) {
    if (size < streaming_size) {
        std::memcpy(to, from, size);
        return;
    }
    stream_bytes(to, from, size);
    _mm_sfence();
}

void copy_rectangle(
    PixelAccessorDescriptor const& to, Kind target, ConstPixelAccessorDescriptor const& from,
    Kind source) {
    Extent extent = {std::min(to.width, from.width), std::min(to.height, from.height)};
    if (extent.width == 0 || extent.height == 0) return;

    Sizes const sizes = {kind_size(target), kind_size(source)};
    if (to.stride == extent.width * sizes.to && from.stride == extent.width * sizes.from) {
        extent = {extent.width * extent.height, 1};
    }
    Row const row = find(source, target);
    std::size_t const row_bytes = extent.width * sizes.to;
    if (row_bytes >= streaming_row && row_bytes * extent.height >= streaming_size) {
        stream_rows(to, from, extent, row, sizes, source == target);
        return;
    }
    for (std::size_t y = 0; y != extent.height; ++y) {
        row(to.data + y * to.stride, from.data + y * from.stride, extent.width);
    }
}

namespace {

// Three vectors of one pixel over and over: a whole number of pixels of every size.
struct Pattern {
    alignas(16) unsigned char bytes[48];
};

void pack_any(Kind kind, Channels const& c, unsigned char* to) {
    constexpr void (*packs[kind_count])(Channels, unsigned char*) = {
        &pack<X1555>, &pack<R565>,  &pack<A1555>, &pack<A4444>,
        &pack<B888>,  &pack<A8888>, &pack<X8888>, &pack<G8>};
    packs[kind](c, to);
}

Pattern make_pattern(Kind kind, Pixel8888 const& colour) {
    Pattern pattern;
    unsigned int const size = kind_size(kind);
    pack_any(kind, {colour.blue, colour.green, colour.red, colour.alpha}, pattern.bytes);
    for (unsigned int i = size; i != sizeof pattern.bytes; ++i) {
        pattern.bytes[i] = pattern.bytes[i - size];
    }
    return pattern;
}

void fill(unsigned char* to, std::size_t size, Pattern const& pattern) {
    auto const* in = reinterpret_cast<__m128i const*>(pattern.bytes);
    __m128i const a = _mm_load_si128(in), b = _mm_load_si128(in + 1), c = _mm_load_si128(in + 2);
    for (; size >= 48; size -= 48, to += 48) {
        auto* out = reinterpret_cast<__m128i*>(to);
        _mm_storeu_si128(out, a);
        _mm_storeu_si128(out + 1, b);
        _mm_storeu_si128(out + 2, c);
    }
    std::memcpy(to, pattern.bytes, size);
}

}  // namespace

}  // namespace pixel_rows

bool PixelAccessorDescriptor::copy(ConstPixelAccessorDescriptor const& source) const {
    auto const from = pixel_rows::source_kind(source.format);
    auto const to = pixel_rows::target_kind(format);
    if (from == pixel_rows::no_kind || to == pixel_rows::no_kind) return false;
    pixel_rows::copy_rectangle(*this, to, source, from);
    return true;
}

bool PixelAccessorDescriptor::clear(
    unsigned int x, unsigned int y, unsigned int columns, unsigned int rows,
    Pixel8888 const& colour) const {
    auto const kind = pixel_rows::target_kind(format);
    if (kind == pixel_rows::no_kind) return false;
    if (columns == 0 || rows == 0) return true;

    std::size_t const size = pixel_rows::kind_size(kind);
    auto const pattern = pixel_rows::make_pattern(kind, colour);
    unsigned char* to = data + std::size_t{y} * stride + x * size;
    for (unsigned int row = 0; row != rows; ++row, to += stride) {
        pixel_rows::fill(to, columns * size, pattern);
    }
    return true;
}

}  // namespace QX
