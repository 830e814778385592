// tga_read.cpp - pixels from a stream into a view.
//
// Bytes are read ahead and the stream is put right afterwards; pictures that the contract stages
// in a temporary image are decoded a row at a time, straight into the view's format. Neither can be
// seen but as speed.
#include "qx/images/tga.h"

#include "qx/images/tga_impl.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

namespace QX {

namespace {

using pixel_rows::Kind;
using pixel_rows::kind_size;

using Block = std::unique_ptr<unsigned char[]>;

// The bytes that lie ready, and how to get more. A reader asks with `need` and steps `next`.
struct Source {
    unsigned char const* next = nullptr;
    unsigned char const* limit = nullptr;
    bool was_short = false;  // a request met the end, or a read that failed

    // True if `size` bytes lie ready; if not, those that do are the last. `unit` is the size of
    // the reads that a caller of the plain stream would make.
    bool need(std::size_t size, std::size_t unit) {
        if (size <= ready() || refill(*this, size, unit)) return true;
        was_short = true;
        return false;
    }

    std::size_t ready() const { return static_cast<std::size_t>(limit - next); }

    bool (*refill)(Source& self, std::size_t size, std::size_t unit);
};

class MemorySource : public Source {
public:
    explicit MemorySource(MemFileIn& file) : file_(file) {
        next = begin_ = reinterpret_cast<unsigned char const*>(file.pos());
        // The stream may stand past its end, behind a line end that was cut in two there.
        limit = std::max(next, reinterpret_cast<unsigned char const*>(file.end()));
        refill = [](Source&, std::size_t, std::size_t) { return false; };
    }

    ~MemorySource() {
        if (next != begin_) file_.seek64(static_cast<long long>(file_.tell64() + (next - begin_)));
        if (was_short) file_.set_status(FILE_END_OF_FILE);
    }

    MemorySource(MemorySource const&) = delete;
    MemorySource& operator=(MemorySource const&) = delete;

private:
    MemFileIn& file_;
    unsigned char const* begin_;
};

// Reads ahead where the handle can seek. After a read that failed it goes on in small steps, so
// that whatever can still be had is had.
class FileSource : public Source {
public:
    // No request may be larger than `window_size`.
    FileSource(FileIn& file, std::size_t window_size)
        : file_(file), error_(file.error()), size_(window_size), window_(new unsigned char[size_]) {
        window_start_ = file.tell64();
        reads_ahead_ = window_start_ != ~0ull;
        file.set_error(error_);
        next = limit = window_.get();
        refill = [](Source& self, std::size_t size, std::size_t unit) {
            return static_cast<FileSource&>(self).fill(size, unit);
        };
    }

    ~FileSource() {
        auto const used = static_cast<unsigned long long>(next - window_.get());
        if (seeks_) file_.seek64(static_cast<long long>(window_start_ + used));
        file_.set_error(was_short ? short_error_ : error_);
    }

    FileSource(FileSource const&) = delete;
    FileSource& operator=(FileSource const&) = delete;

private:
    bool fill(std::size_t size, std::size_t unit) {
        slide();
        while (ready() < size && !ended_) {
            std::size_t const room = size_ - ready();
            std::size_t const wanted = reads_ahead_ ? room : std::min(unit, room);
            read(static_cast<unsigned int>(wanted));
        }
        return ready() >= size;
    }

    // Moves what lies ready to the window's start.
    void slide() {
        std::size_t const kept = ready();
        window_start_ += static_cast<unsigned long long>(next - window_.get());
        std::memmove(window_.get(), next, kept);
        next = window_.get();
        limit = next + kept;
    }

    void read(unsigned int wanted) {
        if (reads_ahead_) seeks_ = true;
        unsigned int const got = file_.read(const_cast<unsigned char*>(limit), wanted);
        limit += got;
        if (got == wanted) return;
        short_error_ = file_.error();
        if (reads_ahead_ && file_.status() != FILE_END_OF_FILE)
            reads_ahead_ = false;
        else
            ended_ = true;
    }

    FileIn& file_;
    unsigned int error_;
    unsigned int short_error_ = 0;
    bool reads_ahead_;
    bool seeks_ = false;
    bool ended_ = false;
    unsigned long long window_start_;  // where the window's first byte lies in the file
    std::size_t size_;
    Block window_;
};

// Puts pixels that come in the file's order into their places in a view.
class Landing {
public:
    // The picture's size is the file's; what lies outside the view is dropped.
    Landing(
        PixelAccessorDescriptor const& view, Kind kind, unsigned int descriptor, std::size_t width,
        std::size_t height)
        : view_(view), from_(kind), to_(pixel_rows::target_kind(view.format)),
          upward_(!(descriptor & tga::top_to_bottom)), leftward_(descriptor & tga::right_to_left),
          width_(width), height_(height), columns_(std::min<std::size_t>(view.width, width)),
          rows_(std::min<std::size_t>(view.height, height)),
          streams_(pixel_rows::is_for_streaming(columns_ * kind_size(to_), rows_)) {
        if (to_ == pixel_rows::no_kind) columns_ = rows_ = 0;
    }

    // Takes the next `count` pixels.
    void put(unsigned char const* pixels, std::size_t count) {
        while (count != 0) {
            std::size_t taken = whole_rows(pixels, count);
            if (taken == 0) {
                taken = std::min(count, width_ - x_);
                part(pixels, taken);
            }
            advance(taken);
            pixels += taken * kind_size(from_);
            count -= taken;
        }
    }

    // The same for a whole row.
    void put_row(unsigned char const* pixels) {
        if (sees_row())
            put(pixels, width_);
        else
            advance(width_);
    }

private:
    // Whether any pixel of the next row lies in the view.
    bool sees_row() const { return row() < rows_; }

    // The next pixel's row in the picture.
    std::size_t row() const { return upward_ ? height_ - 1 - y_ : y_; }

    unsigned char* at(std::size_t x, std::size_t y) const {
        return view_.data + y * view_.stride + x * kind_size(to_);
    }

    void advance(std::size_t count) {
        x_ += count;
        y_ += x_ / width_;
        x_ %= width_;
    }

    // As many whole rows as go in one step; 0 if none do.
    std::size_t whole_rows(unsigned char const* pixels, std::size_t count) {
        std::size_t rows = count / width_, columns = columns_;
        if (leftward_ || x_ != 0 || rows == 0 || rows_ != height_ || columns_ == 0) return 0;
        auto const stride = static_cast<std::ptrdiff_t>(view_.stride);
        std::size_t const row_bytes = width_ * kind_size(from_);
        std::size_t const taken = rows * width_;
        if (!upward_ && columns == width_ && view_.stride == columns * kind_size(to_)) {
            columns = taken;  // without gaps: one long row
            rows = 1;
        }
        pixel_rows::convert_rows(
            {at(0, row()), upward_ ? -stride : stride, to_},
            {pixels, static_cast<std::ptrdiff_t>(row_bytes), from_}, columns, rows, streams_);
        return taken;
    }

    // Pixels of one row.
    void part(unsigned char const* pixels, std::size_t count) {
        if (!sees_row()) return;
        if (leftward_) return part_leftward(pixels, count);
        if (x_ < columns_) convert(x_, pixels, std::min(count, columns_ - x_));
    }

    void part_leftward(unsigned char const* pixels, std::size_t count) {
        constexpr std::size_t most = 512;
        unsigned char turned[most * 4];
        unsigned int const size = kind_size(from_);
        std::size_t end = width_ - x_;  // one past the place of the first pixel
        std::size_t const hidden = end > columns_ ? std::min(count, end - columns_) : 0;
        pixels += hidden * size;
        count -= hidden;
        end -= hidden;
        while (count != 0) {
            std::size_t const now = std::min(count, most);
            tga::reverse_pixels(turned, pixels, now, size);
            end -= now;
            convert(end, turned, now);
            pixels += now * size;
            count -= now;
        }
    }

    void convert(std::size_t x, unsigned char const* pixels, std::size_t count) const {
        pixel_rows::convert_rows({at(x, row()), 0, to_}, {pixels, 0, from_}, count, 1, false);
    }

    PixelAccessorDescriptor view_;
    Kind from_, to_;
    bool upward_, leftward_;
    std::size_t width_, height_;
    std::size_t columns_, rows_;  // of the picture, as far as the view goes
    bool streams_;
    std::size_t x_ = 0, y_ = 0;  // of the next pixel, in the file's order
};

// Bytes that decoding may write behind a row.
constexpr std::size_t slack = 64;

Block make_row(std::size_t bytes) {
    return Block(new unsigned char[bytes + slack]);
}

// The item in the low bytes. No wider load follows narrow stores: that would wait for them.
template <std::size_t SIZE>
std::uint64_t item_bits(unsigned char const* item) {
    if constexpr (SIZE == 3) return item_bits<2>(item) | std::uint64_t{item[2]} << 16;
    std::uint64_t bits = 0;
    std::memcpy(&bits, item, SIZE);
    return bits;
}

// `count` copies of one item; up to `slack` bytes more are written.
template <std::size_t SIZE>
void repeat(unsigned char* to, std::uint64_t bits, std::size_t count) {
    unsigned char* const end = to + count * SIZE;
    if constexpr (SIZE == 3) {  // six words hold sixteen items
        std::uint64_t const words[6] = {
            bits | bits << 24 | bits << 48,
            bits >> 16 | bits << 8 | bits << 32 | bits << 56,
            bits >> 8 | bits << 16 | bits << 40,
            words[0],
            words[1],
            words[2]};
        for (; to < end; to += sizeof words) std::memcpy(to, words, sizeof words);
    } else {
        std::uint64_t const factors[] = {0, 0x0101010101010101, 0x0001000100010001, 0, 0x100000001};
        __m128i const all = _mm_set1_epi64x(static_cast<long long>(bits * factors[SIZE]));
        for (; to < end; to += 32) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(to), all);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 16), all);
        }
    }
}

// Copies in whole vectors; up to `rough` bytes more are read and written.
constexpr std::size_t rough = 64;

void copy_roughly(unsigned char* to, unsigned char const* from, std::size_t size) {
    unsigned char* const end = to + size;
    for (; to < end; to += 32, from += 32) std::memcpy(to, from, 32);
}

// Pixels of a stream, in packets or plain, converted from SIZE to OUT bytes as they come. Behind
// the end of the stream the last one repeats.
template <std::size_t SIZE, std::size_t OUT>
class Decoder {
public:
    // Without `row` nothing is converted.
    Decoder(Source& source, bool coded, pixel_rows::Row row)
        : source_(source), row_(row), coded_(coded) {
        if (!coded) left_ = ~std::size_t{0};
        if (SIZE == 3 && OUT == 4) {
            unsigned char converted[4];
            row(converted, stored_, 1);  // of black, nothing else
            fourth_byte_ = item_bits<4>(converted);
        }
    }

    // The next `count` pixels. `to` has `slack` bytes behind them.
    void fill(unsigned char* to, std::size_t count) {
        while (count != 0) {
            if (source_.was_short) return repeat<OUT>(to, last_, count);
            if (left_ == 0) start_packet();
            std::size_t const now = std::min(left_, count);
            if (is_run_)
                repeat<OUT>(to, last_, now);
            else
                copy(to, now);
            to += now * OUT;
            left_ -= now;
            count -= now;
        }
    }

    // A packet is read to its end, whatever became of the picture.
    void finish() {
        if (!coded_ || is_run_ || left_ == 0 || source_.was_short) return;
        if (source_.need(left_ * SIZE, SIZE))
            source_.next += left_ * SIZE;
        else
            source_.next = source_.limit;
    }

private:
    void start_packet() {
        if (source_.need(1, 1)) packet_ = *source_.next++;
        left_ = (packet_ & 127u) + 1;
        is_run_ = packet_ & 128;
        if (is_run_) read_last();
    }

    void read_last() {
        if (source_.need(SIZE, SIZE)) {
            last_ = convert_one(source_.next);
            std::memcpy(stored_, source_.next, SIZE);
            source_.next += SIZE;
            return;
        }
        std::memcpy(stored_, source_.next, source_.ready());  // the part that is there
        source_.next = source_.limit;
        last_ = convert_one(stored_);
    }

    void copy(unsigned char* to, std::size_t count) {
        std::size_t const whole = source_.need(count * SIZE, SIZE) ? count : source_.ready() / SIZE;
        convert(to, source_.next, whole, source_.ready() >= whole * SIZE + rough);
        source_.next += whole * SIZE;
        if (whole != 0) std::memcpy(stored_, source_.next - SIZE, SIZE);
        if (whole == count) return;
        read_last();
        repeat<OUT>(to + whole * OUT, last_, count - whole);
    }

    std::uint64_t convert_one(unsigned char const* pixel) const {
        if (SIZE == OUT && !row_) return item_bits<SIZE>(pixel);
        if (SIZE == 3 && OUT == 4) return item_bits<SIZE>(pixel) | fourth_byte_;
        unsigned char converted[4];
        row_(converted, pixel, 1);
        return item_bits<OUT>(converted);
    }

    // With room behind both sides whole blocks are converted, which goes faster.
    void
    convert(unsigned char* to, unsigned char const* from, std::size_t count, bool has_room) const {
        if constexpr (SIZE == OUT) {
            if (!row_ && has_room) return copy_roughly(to, from, count * SIZE);
            if (!row_) return static_cast<void>(std::memcpy(to, from, count * SIZE));
        }
        row_(to, from, has_room ? (count + 15) & ~std::size_t{15} : count);
    }

    Source& source_;
    pixel_rows::Row row_;
    std::size_t left_ = 0;  // pixels of the packet that are still to come
    bool coded_;
    bool is_run_ = false;
    unsigned char packet_ = 0;
    unsigned char stored_[SIZE] = {};  // the last pixel as it came
    std::uint64_t last_ = 0;           // and converted
    std::uint64_t fourth_byte_ = 0;    // that pixels of three bytes get
};

// A colour map. An index that it does not cover gives zeros.
class Palette {
public:
    Palette(Source& source, TGAHeader const& header, std::size_t entry_size)
        : first_(header.colour_map_first), length_(header.colour_map_length), size_(entry_size),
          slots_(new std::uint32_t[length_ + 1u]()) {
        std::size_t const bytes = length_ * size_;
        if (bytes == 0) return;
        std::size_t const got = source.need(bytes, bytes) ? bytes : source.ready();
        for (std::size_t at = 0; at < got; at += size_) {
            std::memcpy(&slots_[at / size_ + 1], source.next + at, std::min(size_, got - at));
        }
        source.next += got;
    }

    // `to` has `slack` bytes behind the pixels.
    template <typename INDEX>
    void look_up(unsigned char* to, unsigned char const* indices, std::size_t count) const {
        for (; count != 0; --count, to += size_, indices += sizeof(INDEX)) {
            INDEX index;
            std::memcpy(&index, indices, sizeof index);
            unsigned int const offset = index - first_;
            std::memcpy(to, &slots_[offset < length_ ? offset + 1 : 0], 4);
        }
    }

private:
    unsigned int first_, length_;
    std::size_t size_;
    std::unique_ptr<std::uint32_t[]> slots_;  // the first is the one of zeros
};

struct Picture {
    std::size_t width, height;
    bool coded;
};

// Lands every row that `fill` makes. Once the stream has ended, all further ones are alike.
template <typename Fill>
void land_rows(Source& source, Landing& landing, std::size_t height, Fill fill) {
    bool settled = false;
    unsigned char const* row = nullptr;
    for (; height != 0; --height) {
        if (!settled) {
            settled = source.was_short;
            row = fill();
        }
        landing.put_row(row);
    }
}

template <std::size_t SIZE, std::size_t OUT>
void decode(Source& source, Landing& landing, Picture const& picture, pixel_rows::Row row) {
    Decoder<SIZE, OUT> decoder(source, picture.coded, row);
    Block const pixels = make_row(picture.width * OUT);
    land_rows(source, landing, picture.height, [&] {
        decoder.fill(pixels.get(), picture.width);
        return pixels.get();
    });
    decoder.finish();
}

template <typename INDEX>
void decode_mapped(
    Source& source, Landing& landing, Picture const& picture, Palette const& palette) {
    Decoder<sizeof(INDEX), sizeof(INDEX)> decoder(source, picture.coded, nullptr);
    Block const indices = make_row(picture.width * sizeof(INDEX));
    Block const pixels = make_row(picture.width * 4);
    land_rows(source, landing, picture.height, [&] {
        decoder.fill(indices.get(), picture.width);
        palette.look_up<INDEX>(pixels.get(), indices.get(), picture.width);
        return pixels.get();
    });
    decoder.finish();
}

template <std::size_t SIZE>
void decode_to(
    Source& source, Landing& landing, Picture const& picture, pixel_rows::Row row,
    unsigned int size) {
    switch (size) {
    case 1: return decode<SIZE, 1>(source, landing, picture, row);
    case 2: return decode<SIZE, 2>(source, landing, picture, row);
    case 3: return decode<SIZE, 3>(source, landing, picture, row);
    default: return decode<SIZE, 4>(source, landing, picture, row);
    }
}

// Into the view's kind at once, or as it is for a view of none.
void read_coded(
    PixelAccessorDescriptor const& view, Source& source, TGAHeader const& header,
    Picture const& picture, Kind kind) {
    Kind to = pixel_rows::target_kind(view.format);
    if (to == pixel_rows::no_kind) to = kind;
    pixel_rows::Row const row = to == kind ? nullptr : pixel_rows::find(kind, to);
    Landing landing(view, to, header.descriptor, picture.width, picture.height);
    switch (kind_size(kind)) {
    case 1: return decode_to<1>(source, landing, picture, row, kind_size(to));
    case 2: return decode_to<2>(source, landing, picture, row, kind_size(to));
    case 3: return decode_to<3>(source, landing, picture, row, kind_size(to));
    default: return decode_to<4>(source, landing, picture, row, kind_size(to));
    }
}

bool is_mapped(TGAHeader const& header) {
    return (header.image_type & 7) == 1;
}

void read_staged(
    PixelAccessorDescriptor const& to, Source& source, TGAHeader const& header, Kind kind) {
    Picture const picture = {header.width, header.height, header.image_type > 8};
    bool const empty = picture.width == 0 || picture.height == 0;
    if (!is_mapped(header)) {
        if (!empty) read_coded(to, source, header, picture, kind);
        return;
    }
    Palette const palette(source, header, kind_size(kind));
    if (empty) return;
    Landing landing(to, kind, header.descriptor, picture.width, picture.height);
    if (header.bits_per_pixel == 8)
        decode_mapped<unsigned char>(source, landing, picture, palette);
    else
        decode_mapped<unsigned short>(source, landing, picture, palette);
}

// `chunk` is how many bytes may be asked for at once.
void read_direct(
    PixelAccessorDescriptor const& to, Source& source, TGAHeader const& header, Kind kind,
    std::size_t chunk) {
    std::size_t const size = kind_size(kind);
    std::size_t left = std::size_t{to.width} * to.height;
    Landing landing(to, kind, header.descriptor, to.width, to.height);
    unsigned char last[4] = {};
    while (left != 0 && !source.was_short) {
        std::size_t const now = std::min(left, chunk / size);
        std::size_t const whole = source.need(now * size, size) ? now : source.ready() / size;
        landing.put(source.next, whole);
        source.next += whole * size;
        if (whole != 0) std::memcpy(last, source.next - size, size);
        left -= whole;
    }
    if (left == 0) return;
    std::memcpy(last, source.next, source.ready());
    source.next = source.limit;
    unsigned char same[3072];
    for (std::size_t i = 0; i != sizeof same; ++i) same[i] = last[i % size];
    for (; left != 0; left -= std::min(left, sizeof same / size)) {
        landing.put(same, std::min(left, sizeof same / size));
    }
}

// The temporary image that the contract stages pictures in, as its counters show it.
void count_staging(TGAHeader const& header, std::size_t pixel_size) {
    unsigned long long const bytes = header.width * 1ull * header.height * pixel_size;
    TrackedAllocator<ImageDefaultAllocator>::count(bytes);
    ImageDefaultAllocator::mem -= bytes;
}

// How a header's pixels are read, and whether they can be.
enum class Way { none, direct, staged };

// The staged picture shows in the counters even where the depth of its indices is refused.
Way choose_way(TGAHeader const& header, PixelFormat view_format) {
    if (!header.supported()) return Way::none;
    if (header.image_type == 2 || header.image_type == 3) {
        return pixel_size(view_format) ? Way::direct : Way::none;
    }
    count_staging(header, pixel_size(header.format()));
    bool const has_depth = header.bits_per_pixel == 8 || header.bits_per_pixel == 16;
    return is_mapped(header) && !has_depth ? Way::none : Way::staged;
}

bool read_from(
    PixelAccessorDescriptor const& to, Source& source, TGAHeader const& header, Way way,
    std::size_t chunk) {
    TGAFormat const format = header.format();
    Kind const kind = pixel_rows::target_kind(format);
    if (way == Way::direct) {
        read_direct(to, source, header, kind, chunk);
        return true;
    }
    read_staged(to, source, header, kind);
    // Kept as it is: this one kind of map answers false after all its work.
    return !(is_mapped(header) && header.bits_per_pixel == 16 && format == PIXEL_FORMAT_X1R5G5B5);
}

// Enough for the pixels of a small picture, any map and any row.
std::size_t window_size(TGAHeader const& header, Way way, PixelAccessorDescriptor const& to) {
    constexpr std::size_t most = 256 * 1024;
    if (way == Way::staged && is_mapped(header)) return most;
    std::size_t const pixels = way == Way::direct ? std::size_t{to.width} * to.height
                                                  : std::size_t{header.width} * header.height;
    return std::min(most, std::max<std::size_t>(pixels, 1024) * 4);
}

}  // namespace

bool read_pixels(PixelAccessorDescriptor const& to, FileIn& file, TGAHeader const& header) {
    Way const way = choose_way(header, to.format);
    if (way == Way::none) return false;
    std::size_t const window = window_size(header, way, to);
    FileSource source(file, window);
    return read_from(to, source, header, way, window);
}

bool read_pixels(PixelAccessorDescriptor const& to, MemFileIn& file, TGAHeader const& header) {
    Way const way = choose_way(header, to.format);
    if (way == Way::none) return false;
    MemorySource source(file);
    return read_from(to, source, header, way, ~std::size_t{0});
}

}  // namespace QX
