#include "qx/images/tga.h"

#include "plain_pixels.h"
#include "tests/harness/guarded.h"
#include "tests/harness/temp_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

using namespace QX;
using test::Bytes;

namespace {

// --- Pixels read in the plainest way: one read a pixel, a whole picture, then placed ----------

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

// One pixel, through the map where there is one.
struct ItemReader {
    PlainStream& file;
    std::size_t item_size, pixel_size;
    bool mapped;
    Bytes map;
    unsigned int first, length;
    unsigned char local[4] = {};

    void read() { file.read(local, item_size); }

    void append(Bytes& out) const {
        unsigned char pixel[4] = {};
        unsigned int index = 0;
        std::memcpy(mapped ? reinterpret_cast<unsigned char*>(&index) : pixel, local, item_size);
        if (mapped && index >= first && index - first < length)
            std::memcpy(pixel, &map[(index - first) * pixel_size], pixel_size);
        out.insert(out.end(), pixel, pixel + pixel_size);
    }
};

Bytes decode(ItemReader& items, std::size_t count, bool coded) {
    Bytes out;
    unsigned char packet = 0;
    while (out.size() < count * items.pixel_size) {
        if (coded) items.file.read(&packet, 1);
        int const pixels = coded ? (packet & 127) + 1 : 1;
        for (int i = 0; i < pixels; ++i) {
            if (i == 0 || packet < 128) items.read();
            items.append(out);
        }
    }
    return out;
}

bool plain_read_pixels(
    QX::PixelAccessorDescriptor const& to, PlainStream& file, QX::TGAHeader const& header) {
    int const type = header.image_type, depth = header.bits_per_pixel;
    bool const mapped = type == 1 || type == 9, direct = type == 2 || type == 3;
    auto const format = header.format();
    if (format == QX::PIXEL_FORMAT_NONE || (mapped && depth != 8 && depth != 16)) return false;
    unsigned int const to_size = QX::pixel_size(to.format);
    if (direct && to_size == 0) return false;

    std::size_t const size = QX::pixel_size(format);
    unsigned int const length = mapped ? header.colour_map_length : 0;
    ItemReader items = {file,   mapped ? depth / 8u : size, size,
                        mapped, Bytes(length * size),       header.colour_map_first,
                        length};
    if (length) file.read(items.map.data(), items.map.size());
    unsigned int const width = direct ? to.width : header.width;
    unsigned int const height = direct ? to.height : header.height;
    Bytes const image = decode(items, std::size_t{width} * height, type > 8);
    for (unsigned int i = 0; to_size && i < width * height; ++i) {
        unsigned int const x = header.descriptor & 16 ? width - 1 - i % width : i % width;
        unsigned int const y = header.descriptor & 32 ? i / width : height - 1 - i / width;
        if (x < to.width && y < to.height)
            test::plain_convert(
                format, &image[i * size], to.format,
                to.data + std::size_t{y} * to.stride + x * to_size);
    }
    return !(mapped && depth == 16 && format == QX::PIXEL_FORMAT_X1R5G5B5);
}

// --- Headers, bodies and views ---------------------------------------------------------------

TGAHeader make_header(int type, int bits, int alpha_bits, int map_bits = 0) {
    TGAHeader header;
    header.image_type = static_cast<unsigned char>(type);
    header.bits_per_pixel = static_cast<unsigned char>(bits);
    header.descriptor = static_cast<unsigned char>(alpha_bits);
    header.colour_map_bits = static_cast<unsigned char>(map_bits);
    return header;
}

std::string text_of(void const* data, std::size_t size) {
    return std::string(static_cast<char const*>(data), size);
}

std::string random_text(test::Random& random, std::size_t size) {
    return text_of(test::random_bytes(random, size).data(), size);
}

// A header of any supported kind, and some that are not.
TGAHeader random_header(test::Random& random) {
    static constexpr unsigned char types[] = {1, 2, 3, 9, 10, 11, 9, 10, 11, 4};
    static constexpr unsigned char depths[] = {15, 16, 24, 32, 8, 16, 32, 16};
    static constexpr unsigned char alphas[] = {0, 0, 1, 8, 0};
    TGAHeader header = make_header(
        types[random.below(10)], depths[random.below(8)], alphas[random.below(5)],
        depths[random.below(8)]);
    bool const mapped = (header.image_type & 7) == 1;
    if (mapped && random.below(8)) header.bits_per_pixel = random.below(2) ? 8 : 16;
    header.descriptor |= random.below(4) << 4;
    header.colour_map_first = static_cast<unsigned short>(random.below(3) * random.below(20));
    header.colour_map_length = static_cast<unsigned short>(random.below(300));
    header.width = static_cast<unsigned short>(random.below(40));
    header.height = static_cast<unsigned short>(random.below(7));
    return header;
}

// Packets with lengths that fit small pictures, and indices that mostly lie in the map.
std::string random_body(test::Random& random, TGAHeader const& header) {
    std::string body = random_text(random, random.below(3) ? 2500 : random.below(300));
    for (std::size_t i = 0; i < body.size(); i += 1 + random.below(4)) {
        body[i] = static_cast<char>((random.below(2) << 7) | random.below(9));
    }
    if (header.image_type < 4 && random.below(2)) body.resize(random.below(100));
    return body;
}

// A view of some size and format, and the bytes that it shows at first.
struct View : PixelAccessorDescriptor {
    View(test::Random& random, unsigned int columns, unsigned int rows) {
        width = columns, height = rows;
        format = random.below(20) ? test::formats[random.below(10)] : PIXEL_FORMAT_NONE;
        unsigned int const row = width * std::max(pixel_size(format), 1u);
        stride = row + random.below(2) * random.below(9);
        bytes = test::random_bytes(random, height ? stride * (height - 1) + row : 0);
    }

    Bytes bytes;
};

// All that can be seen of reading, with the view's memory ending at a guard page.
template <typename Read>
std::string outcome_of(View view, Read read) {
    test::Guarded const memory(view.bytes.data(), view.bytes.size());
    view.data = reinterpret_cast<unsigned char*>(memory.data());
    return read(view) + text_of(memory.data(), memory.size());
}

std::string told(bool answer, FileErrorCodes status, unsigned long long position) {
    return std::to_string(answer) + ' ' + std::to_string(status) + ' ' + std::to_string(position);
}

template <typename Stream>
std::string read_with(
    Stream& file, View const& view, TGAHeader const& header, std::size_t start,
    unsigned int older_error = 0) {
    return outcome_of(view, [&](PixelAccessorDescriptor const& to) {
        file.seek(static_cast<int>(start));
        if constexpr (std::is_same_v<Stream, FileIn>) file.set_error(older_error);
        bool const answer = read_pixels(to, file, header);
        FileErrorCodes const status = file.status();  // telling the place clears it
        return told(answer, status, file.tell64());
    });
}

std::string read_plainly(
    std::string const& whole, View const& view, TGAHeader const& header, std::size_t start,
    FileErrorCodes status = FILE_OK) {
    return outcome_of(view, [&](PixelAccessorDescriptor const& to) {
        PlainStream file{whole, start};
        bool const answer = plain_read_pixels(to, file, header);
        return told(answer, file.was_short ? FILE_END_OF_FILE : status, file.position);
    });
}

// An older error of a file stays, as complete reads leave it.
void expect_plain(
    test::Random& random, test::TempFolder const& folder, View const& view, TGAHeader const& header,
    std::string const& body, std::size_t start) {
    test::Guarded const guarded(body.data(), body.size());
    MemFileIn memory;
    memory.open(guarded.data(), static_cast<unsigned int>(body.size()));
    EXPECT_TRUE(read_with(memory, view, header, start) == read_plainly(body, view, header, start));
    FileIn file(folder.write("random.tga", body).c_str(), false);
    unsigned int const error = random.chance(9) ? 5 : 0;
    file.set_error(error);
    std::string const expected = read_plainly(body, view, header, start, file.status());
    EXPECT_TRUE(read_with(file, view, header, start, error) == expected) << "error " << error;
}

}  // namespace

TEST(TGA, reads_what_reading_pixel_by_pixel_gives) {
    test::Random random(10);
    test::TempFolder const folder;
    for (int round = 0; round < 4000 && !HasFailure(); ++round) {
        TGAHeader const header = random_header(random);
        std::string const body = random_body(random, header);
        bool const fits = random.below(3);
        View const view(
            random, fits ? header.width : random.below(50), fits ? header.height : random.below(9));
        std::size_t const start = random.below(2) * random.below(body.size() / 4 + 1);
        expect_plain(random, folder, view, header, body, start);
    }
}

// Larger than the window that files are read through, and than the cache.
TEST(TGA, reads_large_pictures_from_memory_and_file_alike) {
    test::Random random(12);
    test::TempFolder const folder;
    for (int const type : {2, 10, 1}) {
        TGAHeader header = make_header(type, type == 1 ? 8 : 24, 0, 24);
        header.width = 1801, header.height = 1503, header.colour_map_length = 256;
        std::string const body = random_text(random, 1801 * 1503 * 3 + 9000);
        View const view(random, 1801, 1503);
        expect_plain(random, folder, view, header, body, 0);
    }
}

TEST(TGA, classifies_headers_by_one_key) {
    constexpr int rows[][5] = {// type, bits, alpha bits, map's bits, format
                               {2, 15, 0, 0, 0},  {10, 16, 1, 0, 2}, {2, 15, 1, 0, 21},
                               {2, 24, 8, 0, 21}, {2, 32, 0, 0, 11}, {2, 32, 4, 0, 21},
                               {3, 99, 7, 0, 12}, {9, 8, 8, 32, 7},  {1, 8, 3, 77, 4},
                               {0, 24, 0, 0, 21}, {2, 36, 0, 0, 7},  {255, 24, 0, 24, 21}};
    for (auto const& [type, bits, alpha_bits, map_bits, format] : rows) {
        TGAHeader const header = make_header(type, bits, alpha_bits, map_bits);
        EXPECT_EQ(header.format(), format) << type << ' ' << bits;
        EXPECT_EQ(header.pixel_format(), format);
        EXPECT_EQ(header.supported(), format != PIXEL_FORMAT_NONE);
    }
}

TEST(TGA, keeps_header_fields_that_are_not_there_whole) {
    test::Random random(13);
    test::TempFolder const folder;
    for (unsigned int size : {0u, 1u, 13u, 14u, 17u, 18u, 20u, 23u, 104u, 272u, 273u}) {
        std::string text = random_text(random, size);
        if (size) text[0] = size < 24 ? 5 : '\xFF';
        MemFileIn memory;
        memory.open(text.data(), size);
        FileIn file(folder.write("header.tga", text).c_str(), false);
        TGAHeader a, b;
        a.width = b.width = 0x7777;
        a.read(memory);
        b.read(file);
        EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0) << size;
        EXPECT_EQ(a.width, size >= 14 ? *reinterpret_cast<unsigned short*>(&text[12]) : 0x7777);
        bool const whole = size >= 18u + a.id_length;
        EXPECT_EQ(memory.status(), whole ? FILE_OK : FILE_END_OF_FILE) << size;
        EXPECT_EQ(file.status(), memory.status());
        EXPECT_TRUE(!whole || text_of(a.id, a.id_length) == text.substr(18, a.id_length)) << size;
        EXPECT_EQ(a.id[a.id_length], 0);
    }
}

TEST(TGA, writes_the_header_that_it_was_built_with) {
    test::TempFolder const folder;
    FileOut out(folder.file("id.tga").c_str());
    TGAHeader header(0x1234, 0x5678, PIXEL_FORMAT_A8R8G8B8, true, false, "five!");
    header.descriptor |= 0xC0;
    header.write(out);
    out.close();
    constexpr char expected[] = "\5\0\2\0\0\0\0\0\0\0\0\0\x34\x12\x78\x56\x20\x18"
                                "five!";
    EXPECT_EQ(test::read_file(folder.file("id.tga")), text_of(expected, 23));
}

// Every view format into every file format and orientation, from padded rows.
TEST(TGA, writes_each_pixel_as_the_conversion_rules_tell) {
    test::Random random(14);
    test::TempFolder const folder;
    for (auto const from : test::formats) {
        for (int const kind : {0, 2, 4, 7, 11, 12}) {
            auto const to = PixelFormat(kind);
            unsigned int const width = 1 + random.below(40), height = 1 + random.below(4);
            unsigned int const stride = width * pixel_size(from) + 3, row = width * pixel_size(to);
            Bytes const pixels = test::random_bytes(random, stride * height);
            ConstPixelAccessorDescriptor view(pixels.data(), width, height, stride, from);
            FileOut out(folder.file("out.tga").c_str());
            EXPECT_TRUE(tga_write(out, to, view, random.below(2), random.below(2)));
            out.close();

            std::string const bytes = test::read_file(folder.file("out.tga"));
            MemFileIn file;
            file.open(bytes.data(), static_cast<unsigned int>(bytes.size()));
            TGAHeader header;
            header.read(file);
            Bytes read(row * height), expected(row * height);
            PlainStream plain{bytes, 18};
            plain_read_pixels({read.data(), width, height, row, to}, plain, header);
            if (from == PIXEL_FORMAT_GREY_EXPAND) view.format = PIXEL_FORMAT_A8R8G8B8;
            test::plain_copy({expected.data(), width, height, row, to}, view);
            EXPECT_TRUE(read == expected && plain.position == bytes.size()) << from << " to " << to;
        }
    }
}

TEST(TGA, refuses_to_write_what_has_no_size_or_no_format) {
    constexpr unsigned int rows[][5] = {
        // width, height, the view's format, the file's, bytes written
        {0, 1, 12, 12, 0}, {65536, 1, 12, 12, 0}, {1, 0, 12, 12, 0}, {1, 1, 21, 12, 0},
        {1, 1, 12, 21, 0}, {1, 1, 12, 12, 19},    {1, 1, 5, 12, 18}};
    test::TempFolder const folder;
    Bytes const pixels(65536);
    for (auto const& [width, height, from, to, written] : rows) {
        FileOut out(folder.file("none.tga").c_str());
        ConstPixelAccessorDescriptor const view(
            pixels.data(), width, height, width, PixelFormat(from));
        EXPECT_EQ(tga_write(out, PixelFormat(to), view, false, false), written != 0);
        out.close();
        EXPECT_EQ(test::read_file(folder.file("none.tga")).size(), written);
        EXPECT_EQ(write_pixels(out, make_header(3, 8, 0), view), from == 12);
    }
}

TEST(TGA, shows_the_staged_picture_in_the_counters) {
    auto const before = ImageDefaultAllocator::hwm = ImageDefaultAllocator::mem;
    unsigned char pixels[4];
    PixelAccessorDescriptor const view(pixels, 1, 1, 4, PIXEL_FORMAT_A8R8G8B8);
    TGAHeader header = make_header(10, 32, 8);
    header.width = 100, header.height = 50;
    MemFileIn file;
    file.open("", 0);
    read_pixels(view, file, header);
    EXPECT_EQ(ImageDefaultAllocator::hwm, before + 20000);
    header.image_type = 1, header.bits_per_pixel = 24, header.colour_map_bits = 32;
    header.width = 150;
    EXPECT_FALSE(read_pixels(view, file, header));
    EXPECT_EQ(ImageDefaultAllocator::hwm, before + 30000) << "made before its indices are refused";
    EXPECT_EQ(ImageDefaultAllocator::mem, before);
}

TEST(TGA, ends_quickly_on_a_few_bytes_that_promise_the_largest_picture) {
    TGAHeader header = make_header(10, 32, 8);
    header.width = header.height = 0xFFFF;
    unsigned char pixels[64 * 4 * 4] = {};
    MemFileIn file;
    file.open("\202abcd\1efgh12", 12);
    EXPECT_TRUE(read_pixels({pixels, 64, 4, 256, PIXEL_FORMAT_A8R8G8B8}, file, header));
    EXPECT_EQ(text_of(pixels, 4), "12gh") << "the last pixel, as far as it came";
    EXPECT_EQ(file.status(), FILE_END_OF_FILE);
}
