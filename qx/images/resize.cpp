// resize.cpp - mip levels, scaling into views, colour ramps.
#include "qx/images/resize.h"

#include "qx/images/image.h"
#include "qx/images/resize_impl.h"
#include "qx/images/tga.h"

#include <cmath>
#include <cstring>
#include <new>

namespace QX {

pixel_rows::MipRow pixel_rows::find_mip(Kind kind) {
    return __builtin_cpu_supports("avx2") ? wide_mip_rows[kind] : plain_mip_rows[kind];
}

bool PixelAccessorDescriptor::mip_map(unsigned int size) const {
    return mip_map(size, size);
}

bool PixelAccessorDescriptor::mip_map(unsigned int columns, unsigned int rows) const {
    auto const kind = pixel_rows::target_kind(format);
    if (kind == pixel_rows::no_kind) return false;
    if (columns == 0 || rows == 0) return true;

    auto const row = pixel_rows::find_mip(kind);
    std::size_t const count = ((columns - 1) >> 1) + std::size_t{1};
    for (std::size_t y = 0; y < rows; y += 2) {
        unsigned char const* const upper = data + y * stride;
        row(data + y / 2 * stride, upper, upper + stride, count);
    }
    return true;
}

namespace {

// A picture of format A8R8G8B8 for a while. A row and a pixel of zeros lie behind it, where
// unclamped sampling may look.
class Temporary {
public:
    // Without memory `view().data` is null.
    Temporary(unsigned int width, unsigned int height) {
        unsigned long long const row = width * 4ull, bytes = row * height;
        if (row > 0xFFFFFFFF) return;
        try {
            auto* const pixels =
                static_cast<unsigned char*>(ImageDefaultAllocator::allocate(bytes + row + 4));
            std::memset(pixels + bytes, 0, row + 4);
            view_ = {pixels, width, height, static_cast<unsigned int>(row), PIXEL_FORMAT_A8R8G8B8};
        } catch (std::bad_alloc const&) {}
    }

    ~Temporary() {
        if (view_.data) ImageDefaultAllocator::release(view_.data, 0);
    }

    Temporary(Temporary const&) = delete;
    Temporary& operator=(Temporary const&) = delete;

    explicit operator bool() const { return view_.data != nullptr; }
    PixelAccessorDescriptor const& view() const { return view_; }

private:
    PixelAccessorDescriptor view_;
};

bool is_filter(PixelCopyFilter filter) {
    return filter >= PIXEL_COPY_SAMPLE && filter <= PIXEL_COPY_BOX;
}

// Both views are of format A8R8G8B8.
bool scale(
    PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from,
    PixelCopyFilter filter) {
    if (!is_filter(filter)) return false;
    if (to.width == 0 || to.height == 0) return true;
    if (from.width == 0 || from.height == 0) return false;
    if (filter == PIXEL_COPY_SAMPLE) {
        resample::sample(to, from);
        return true;
    }
    bool const divides = from.width % to.width == 0 && from.height % to.height == 0;
    if (filter == PIXEL_COPY_BOX && divides) {
        resample::average_blocks(to, from);
        return true;
    }
    try {
        bool const wide = __builtin_cpu_supports("avx2");
        resample::weigh(
            to, from, filter == PIXEL_COPY_BOX,
            wide ? resample::wide_kernels : resample::plain_kernels);
        return true;
    } catch (std::bad_alloc const&) {
        return false;
    }
}

bool scale_from_any(
    PixelAccessorDescriptor const& to, ConstPixelAccessorDescriptor const& from,
    PixelCopyFilter filter) {
    if (from.format == PIXEL_FORMAT_A8R8G8B8) return scale(to, from, filter);
    Temporary const source(from.width, from.height);
    return source && source.view().copy(from) && scale(to, source.view(), filter);
}

}  // namespace

bool PixelAccessorDescriptor::resize_copy(
    ConstPixelAccessorDescriptor const& source, PixelCopyFilter filter) const {
    if (format == PIXEL_FORMAT_A8R8G8B8) return scale_from_any(*this, source, filter);
    Temporary const target(width, height);
    return target && scale_from_any(target.view(), source, filter) && copy(target.view());
}

bool PixelAccessorDescriptor::resize_copy_filter(ConstPixelAccessorDescriptor const& source) const {
    return resize_copy(source, PIXEL_COPY_BOX);
}

bool PixelAccessorDescriptor::resize_copy_sample(ConstPixelAccessorDescriptor const& source) const {
    return resize_copy(source, PIXEL_COPY_SAMPLE);
}

namespace {

// Whatever fails, the caller puts the stream back to `start`.
template <typename Stream>
bool read_into(
    PixelAccessorDescriptor const& to, Stream& file, PixelCopyFilter filter, long long start) {
    TGAHeader header;
    header.read(file);
    if (!header.supported()) return false;
    if (header.width == to.width && header.height == to.height) {
        return read_pixels(to, file, header);
    }
    file.seek64(start);
    header.read(file);
    Temporary const picture(header.width, header.height);
    return picture && read_pixels(picture.view(), file, header) &&
           to.resize_copy(picture.view(), filter);
}

template <typename Stream>
bool read_or_put_back(PixelAccessorDescriptor const& to, Stream& file, PixelCopyFilter filter) {
    auto const start = static_cast<long long>(file.tell64());
    if (read_into(to, file, filter, start)) return true;
    file.seek64(start);
    return false;
}

}  // namespace

bool PixelAccessorDescriptor::resize_tga_into(FileIn& file, PixelCopyFilter filter) const {
    return read_or_put_back(*this, file, filter);
}

bool PixelAccessorDescriptor::resize_tga_into(MemFileIn& file, PixelCopyFilter filter) const {
    return read_or_put_back(*this, file, filter);
}

namespace {

// A triangle wave of height n over a cycle of 3n; the rest of the cycle is 0.
unsigned int triangle(unsigned long long v, unsigned int n) {
    unsigned long long const distance = v > n ? v - n : n - v;
    return distance < n ? static_cast<unsigned int>(n - distance) : 0;
}

struct Weights {
    unsigned int blue, green, red;
};

Weights weights_at(unsigned int i, unsigned int n) {
    unsigned long long const cycle = 3ull * n, at = 3ull * i;
    return {
        triangle(at % cycle, n), triangle((2ull * n + at) % cycle, n),
        triangle((n + at) % cycle, n)};
}

// Unsigned on purpose: a difference below 0 wraps.
unsigned int share(unsigned int weight, unsigned char from, unsigned char to, unsigned int n) {
    return weight * (static_cast<unsigned int>(to) - from) / n;
}

unsigned char rounded(float value) {
    return static_cast<unsigned char>(static_cast<int>(value > 0 ? value + 0.5f : value - 0.5f));
}

unsigned char sine_share(float angle, unsigned char from, unsigned char to) {
    float const s = std::sin(angle);
    return rounded(static_cast<float>(to) - s * s * static_cast<float>(to - from));
}

}  // namespace

void generate_primary_colours(Pixel888* out, unsigned int count, Pixel888 from, Pixel888 to) {
    for (unsigned int i = 0; i != count; ++i) {
        Weights const w = weights_at(i, count);
        out[i].blue =
            static_cast<unsigned char>(from.blue + share(w.blue, from.blue, to.blue, count));
        out[i].green =
            static_cast<unsigned char>(from.green + share(w.green, from.green, to.green, count));
        out[i].red = static_cast<unsigned char>(from.red + share(w.red, from.red, to.red, count));
    }
}

void generate_secondary_colours(Pixel888* out, unsigned int count, Pixel888 from, Pixel888 to) {
    for (unsigned int i = 0; i != count; ++i) {
        Weights const w = weights_at(i, count);
        out[i].blue =
            static_cast<unsigned char>(to.blue - share(w.blue, from.blue, to.blue, count));
        out[i].green =
            static_cast<unsigned char>(to.green - share(w.green, from.green, to.green, count));
        out[i].red = static_cast<unsigned char>(to.red - share(w.red, from.red, to.red, count));
    }
}

void generate_tertiary_colours(Pixel888* out, unsigned int count, Pixel888 from, Pixel888 to) {
    for (unsigned int i = 0; i != count; ++i) {
        float const angle =
            static_cast<float>(i) * 3.14159265f * (1.0f / static_cast<float>(count));
        out[i].red = sine_share(angle, from.red, to.red);
        out[i].green = sine_share(angle + 2.0943952f, from.green, to.green);
        out[i].blue = sine_share(angle + 4.1887903f, from.blue, to.blue);
    }
}

}  // namespace QX
