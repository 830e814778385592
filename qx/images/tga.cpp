// tga.cpp - headers and writing.
#include "qx/images/tga.h"

#include "qx/images/tga_impl.h"

#include <algorithm>
#include <cstring>

namespace QX {

namespace {

constexpr unsigned int fixed_size = 18;  // bytes of a header before its id

// A header's fields in the order of the file.
template <typename Header, typename Visit>
void visit_fields(Header& header, Visit visit) {
    visit(header.id_length);
    visit(header.colour_map_type);
    visit(header.image_type);
    visit(header.colour_map_first);
    visit(header.colour_map_length);
    visit(header.colour_map_bits);
    visit(header.x_origin);
    visit(header.y_origin);
    visit(header.width);
    visit(header.height);
    visit(header.bits_per_pixel);
    visit(header.descriptor);
}

template <typename Stream>
Stream& read_header(TGAHeader& header, Stream& file) {
    unsigned char bytes[255];
    unsigned int const got = file.read(bytes, fixed_size);
    unsigned int at = 0;
    visit_fields(header, [&](auto& field) {
        if (at + sizeof field <= got) std::memcpy(&field, bytes + at, sizeof field);
        at += sizeof field;
    });
    unsigned int const length = header.id_length;
    if (length && file.read(bytes, length) == length) std::memcpy(header.id, bytes, length);
    header.id[length] = 0;
    return file;
}

unsigned char depth_of(TGAFormat format) {
    switch (format) {
    case PIXEL_FORMAT_R8G8B8: return 24;
    case PIXEL_FORMAT_A8R8G8B8:
    case PIXEL_FORMAT_X8R8G8B8: return 32;
    case PIXEL_FORMAT_GREY8: return 8;
    default: return 16;
    }
}

unsigned char alpha_bits_of(TGAFormat format) {
    if (format == PIXEL_FORMAT_A1R5G5B5) return 1;
    return format == PIXEL_FORMAT_A8R8G8B8 ? 8 : 0;
}

TGAFormat format_of_key(int key, TGAFormat otherwise) {
    switch (key) {
    case 30:
    case 32: return PIXEL_FORMAT_X1R5G5B5;
    case 33: return PIXEL_FORMAT_A1R5G5B5;
    case 48: return PIXEL_FORMAT_R8G8B8;
    case 64: return PIXEL_FORMAT_X8R8G8B8;
    case 72: return PIXEL_FORMAT_A8R8G8B8;
    default: return otherwise;
    }
}

}  // namespace

TGAHeader::TGAHeader(
    unsigned short columns, unsigned short rows, TGAFormat format, bool right_to_left,
    bool top_to_bottom, char const* text)
    : image_type(format == PIXEL_FORMAT_GREY8 ? 3 : 2), width(columns), height(rows),
      bits_per_pixel(depth_of(format)) {
    descriptor = static_cast<unsigned char>(
        alpha_bits_of(format) | (right_to_left ? 16 : 0) | (top_to_bottom ? 32 : 0));
    if (!text) return;
    std::size_t const length = std::min<std::size_t>(std::strlen(text), 255);
    id_length = static_cast<unsigned char>(length);
    std::memcpy(id, text, length);
}

FileIn& TGAHeader::read(FileIn& file) {
    return read_header(*this, file);
}

MemFileIn& TGAHeader::read(MemFileIn& file) {
    return read_header(*this, file);
}

FileOut& TGAHeader::write(FileOut& file) const {
    unsigned char bytes[fixed_size + 255];
    unsigned int at = 0;
    visit_fields(*this, [&](auto& field) {
        std::memcpy(bytes + at, &field, sizeof field);
        at += sizeof field;
    });
    bytes[fixed_size - 1] &= 63;
    std::memcpy(bytes + at, id, id_length);
    file.write(bytes, at + id_length);
    return file;
}

TGAFormat TGAHeader::format() const {
    switch (image_type) {
    case 3:
    case 11: return PIXEL_FORMAT_GREY8;
    case 1:
    case 9: return format_of_key((descriptor & 15) | colour_map_bits * 2, PIXEL_FORMAT_R8G8B8);
    case 2:
    case 10: return format_of_key((descriptor & 15) | bits_per_pixel * 2, PIXEL_FORMAT_NONE);
    default: return PIXEL_FORMAT_NONE;
    }
}

PixelFormat TGAHeader::pixel_format() const {
    return format();
}

namespace tga {

namespace {

template <unsigned int SIZE>
void reverse(unsigned char* to, unsigned char const* from, std::size_t count) {
    from += count * SIZE;
    for (; count != 0; --count, to += SIZE) {
        from -= SIZE;
        std::memcpy(to, from, SIZE);
    }
}

}  // namespace

void reverse_pixels(
    unsigned char* to, unsigned char const* from, std::size_t count, unsigned int size) {
    switch (size) {
    case 1: return reverse<1>(to, from, count);
    case 2: return reverse<2>(to, from, count);
    case 3: return reverse<3>(to, from, count);
    default: return reverse<4>(to, from, count);
    }
}

}  // namespace tga

namespace {

using pixel_rows::Kind;

// Collects converted pixels, so that the file gets large writes.
class Writer {
public:
    Writer(FileOut& file, Kind from, Kind to) : file_(file), from_(from), to_(to) {}
    ~Writer() { flush(); }

    void put(unsigned char const* pixels, std::size_t count) {
        std::size_t const size = pixel_rows::kind_size(to_);
        while (count != 0) {
            if (sizeof buffer_ - used_ < size) flush();
            std::size_t const now = std::min(count, (sizeof buffer_ - used_) / size);
            pixel_rows::find(from_, to_)(buffer_ + used_, pixels, now);
            used_ += now * size;
            pixels += now * pixel_rows::kind_size(from_);
            count -= now;
        }
    }

    void put_reversed(unsigned char const* pixels, std::size_t count) {
        constexpr std::size_t most = 512;
        unsigned char turned[most * 4];
        unsigned int const size = pixel_rows::kind_size(from_);
        while (count != 0) {
            std::size_t const now = std::min(count, most);
            count -= now;
            tga::reverse_pixels(turned, pixels + count * size, now, size);
            put(turned, now);
        }
    }

private:
    void flush() {
        if (used_) file_.write(buffer_, static_cast<unsigned int>(used_));
        used_ = 0;
    }

    FileOut& file_;
    Kind from_, to_;
    std::size_t used_ = 0;
    unsigned char buffer_[16384];
};

bool is_file_format(TGAFormat format) {
    switch (format) {
    case PIXEL_FORMAT_X1R5G5B5:
    case PIXEL_FORMAT_A1R5G5B5:
    case PIXEL_FORMAT_R8G8B8:
    case PIXEL_FORMAT_A8R8G8B8:
    case PIXEL_FORMAT_X8R8G8B8:
    case PIXEL_FORMAT_GREY8: return true;
    default: return false;
    }
}

}  // namespace

bool write_pixels(
    FileOut& file, TGAHeader const& header, ConstPixelAccessorDescriptor const& from) {
    TGAFormat const format = header.format();
    Kind const kind = pixel_rows::target_kind(from.format);
    if (!is_file_format(format) || kind == pixel_rows::no_kind) return false;

    Writer writer(file, kind, pixel_rows::target_kind(format));
    bool const top_to_bottom = header.descriptor & tga::top_to_bottom;
    for (unsigned int i = 0; i != from.height; ++i) {
        std::size_t const y = top_to_bottom ? i : from.height - 1 - i;
        unsigned char const* const row = from.data + y * from.stride;
        if (header.descriptor & tga::right_to_left)
            writer.put_reversed(row, from.width);
        else
            writer.put(row, from.width);
    }
    return true;
}

bool tga_write(
    FileOut& file, TGAFormat format, ConstPixelAccessorDescriptor const& from, bool right_to_left,
    bool top_to_bottom) {
    auto const width = static_cast<unsigned short>(from.width);
    if (format == PIXEL_FORMAT_NONE || from.format == PIXEL_FORMAT_NONE) return false;
    if (width == 0 || from.height == 0) return false;

    TGAHeader const header(
        width, static_cast<unsigned short>(from.height), format, right_to_left, top_to_bottom, "");
    header.write(file);
    write_pixels(file, header, from);
    return true;
}

bool Image::write_tga(char const* path, TGAFormat format) const {
    FileOut file;
    if (!file.open(path, false, true)) return false;
    return write_tga(file, format);
}

bool Image::write_tga(FileOut& file, TGAFormat format) const {
    return tga_write(file, format, pixel_accessor(), false, false);
}

}  // namespace QX
