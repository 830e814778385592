// pixel_copy.cpp - copying, converting and filling.
#include "qx/images/pixel_copy.h"

#include "qx/base/compiler.h"
#include "qx/images/pixel_copy_impl.h"
#include "qx/images/pixel_copy_rules_impl.h"

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

// How far before its use memory is asked for: reading goes half as fast without.
constexpr std::size_t ahead_distance = 2048;

// Asks for the bytes that will be read, `step` of them at a time.
struct Ahead {
    unsigned char const* next;
    std::size_t step;

    void advance() {
        _mm_prefetch(reinterpret_cast<char const*>(next), _MM_HINT_T0);
        if (step > 64) _mm_prefetch(reinterpret_cast<char const*>(next + 64), _MM_HINT_T0);
        next += step;
    }
};

// `to` takes `size` bytes past the cache; its ends go the ordinary way.
void stream_bytes(unsigned char* to, unsigned char const* from, std::size_t size, Ahead ahead) {
    std::size_t const head = -reinterpret_cast<std::uintptr_t>(to) & 15;
    QX_CHECK(size >= 16);
    std::memcpy(to, from, head);
    std::size_t i = head;
    for (; i + 64 <= size; i += 64) {
        ahead.advance();
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

// While one piece goes out, the next is asked for.
void stream_row(
    unsigned char* to, unsigned char const* from, std::size_t count, Row row, Sizes sizes) {
    alignas(16) unsigned char stage[staging_size];
    std::size_t const most = (staging_size / sizes.to) & ~std::size_t{63};
    while (count) {
        std::size_t const now = std::min(count, most), bytes = now * sizes.to;
        row(stage, from, now);
        from += now * sizes.from;
        if (bytes < 64)
            std::memcpy(to, stage, bytes);
        else
            stream_bytes(to, stage, bytes, {from, 64 * sizes.from / sizes.to});
        to += bytes;
        count -= now;
    }
}

void stream_rows(
    TargetRows const& to, SourceRows const& from, std::size_t width, std::size_t height, Row row) {
    Sizes const sizes = {kind_size(to.kind), kind_size(from.kind)};
    unsigned char* target = to.data;
    unsigned char const* source = from.data;
    for (; height != 0; --height, target += to.stride, source += from.stride) {
        if (to.kind == from.kind)
            stream_bytes(target, source, width * sizes.to, {source + ahead_distance, 64});
        else
            stream_row(target, source, width, row, sizes);
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

bool is_for_streaming(std::size_t row_bytes, std::size_t rows) {
    return row_bytes >= streaming_row && row_bytes * rows >= streaming_size;
}

void convert_rows(
    TargetRows const& to, SourceRows const& from, std::size_t width, std::size_t height,
    bool streaming) {
    Row const row = find(from.kind, to.kind);
    if (streaming) {
        stream_rows(to, from, width, height, row);
        return;
    }
    unsigned char* target = to.data;
    unsigned char const* source = from.data;
    for (; height != 0; --height, target += to.stride, source += from.stride) {
        row(target, source, width);
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
    using namespace pixel_rows;
    TargetRows const to = {data, stride, target_kind(format)};
    SourceRows const from = {source.data, source.stride, source_kind(source.format)};
    if (from.kind == no_kind || to.kind == no_kind) return false;

    std::size_t columns = std::min(width, source.width), rows = std::min(height, source.height);
    if (columns == 0 || rows == 0) return true;
    if (stride == columns * kind_size(to.kind) && source.stride == columns * kind_size(from.kind)) {
        columns *= rows;  // without gaps: one long row
        rows = 1;
    }
    convert_rows(to, from, columns, rows, is_for_streaming(columns * kind_size(to.kind), rows));
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
