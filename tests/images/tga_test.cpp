#include "qx/images/tga.h"

#include "plain_pixels.h"
#include "tests/harness/guarded.h"
#include "tests/harness/temp_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

using namespace QX;
using namespace test;

namespace {

// --- Pixels read in the plainest way -------------------------------------------------------------

struct PlainStream {
    // What is left, if that is less.
    void read(void* to, std::size_t size) {
        std::size_t const now = std::min(size, bytes.size() - position);
        if (now != 0) std::memcpy(to, bytes.data() + position, now);
        position += now;
        if (now < size) error = FILE_END_OF_FILE;
    }
    FileErrorCodes status() const { return error; }
    std::size_t tell64() const { return position; }

    std::string const& bytes;
    std::size_t position = 0;
    FileErrorCodes error = FILE_OK;
};

// One read an item, and one for the map.
bool read_pixels(PixelAccessorDescriptor const& to, PlainStream& file, TGAHeader const& header) {
    int const type = header.image_type, depth = header.bits_per_pixel;
    bool const mapped = type == 1 || type == 9, direct = type == 2 || type == 3, coded = type > 8;
    auto const format = header.format();
    if (format == PIXEL_FORMAT_NONE || (mapped && depth != 8 && depth != 16)) return false;
    if (direct && pixel_size(to.format) == 0) return false;

    unsigned int const size = pixel_size(format);
    unsigned int const length = mapped ? header.colour_map_length : 0;
    Bytes map(length * size);
    file.read(map.data(), map.size());
    unsigned int const width = direct ? to.width : header.width;
    unsigned int const height = direct ? to.height : header.height;
    auto const place = [&](unsigned int i, unsigned char const* pixel) {
        unsigned int const x = header.descriptor & 16 ? width - 1 - i % width : i % width;
        unsigned int const y = header.descriptor & 32 ? i / width : height - 1 - i / width;
        if (i < width * height && x < to.width && y < to.height && pixel_size(to.format))
            plain_convert(
                format, pixel, to.format,
                to.data + std::size_t{y} * to.stride + x * pixel_size(to.format));
    };
    unsigned char packet = 0, item[4] = {}, unmapped[4] = {};
    for (unsigned int i = 0; i < width * height;) {
        if (coded) file.read(&packet, 1);
        unsigned int const end = i + 1 + packet % 128;
        for (bool first = true; i < end; ++i, first = false) {
            if (first || packet < 128) file.read(item, mapped ? depth / 8 : size);
            unsigned int const entry = (item[0] | item[1] << 8) - header.colour_map_first;
            unsigned char const* const found = entry < length ? &map[entry * size] : unmapped;
            place(i, mapped ? found : item);
        }
    }
    return !(mapped && depth == 16 && format == PIXEL_FORMAT_X1R5G5B5);
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

std::string random_text(Random& random, std::size_t size) {
    return text_of(random_bytes(random, size).data(), size);
}

// A header of any supported kind, and some that are not.
TGAHeader random_header(Random& random) {
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
std::string random_body(Random& random, TGAHeader const& header) {
    std::string body = random_text(random, random.below(3) ? 2500 : random.below(300));
    for (std::size_t i = 0; i < body.size(); i += 1 + random.below(4)) {
        body[i] = static_cast<char>((random.below(2) << 7) | random.below(9));
    }
    if (header.image_type < 4 && random.below(2)) body.resize(random.below(100));
    return body;
}

// All that can be seen of reading, with the view's memory ending at a guard page.
template <typename Stream>
std::string outcome_of(Stream& file, View const& view, TGAHeader const& header) {
    Guarded const memory(view.bytes.data(), view.bytes.size());
    bool const answer = read_pixels(view.of(memory.data()), file, header);
    auto const status = file.status();  // telling the place clears it
    return std::to_string(answer) + ' ' + std::to_string(status) + ' ' +
           std::to_string(file.tell64()) + ' ' + text_of(memory.data(), memory.size());
}

class TGA : public testing::Test {
protected:
    // An older error of a file stays, as complete reads leave it.
    void expect_plain(
        View const& view, TGAHeader const& header, std::string const& body, unsigned int start) {
        Guarded const guarded(body.data(), body.size());
        MemFileIn memory;
        memory.open(guarded.data(), static_cast<unsigned int>(body.size()));
        FileIn file(folder_.write("random.tga", body).c_str(), false);
        EXPECT_TRUE(memory.seek64(start) && file.seek64(start));
        file.set_error(random_.chance(9) ? 5 : 0);
        PlainStream of_memory{body, start}, of_file{body, start, file.status()};
        EXPECT_TRUE(outcome_of(memory, view, header) == outcome_of(of_memory, view, header));
        EXPECT_TRUE(outcome_of(file, view, header) == outcome_of(of_file, view, header));
    }

    Random random_;
    TempFolder const folder_;
};

}  // namespace

TEST_F(TGA, reads_what_reading_pixel_by_pixel_gives) {
    for (int round = 0; round < 4000 && !HasFailure(); ++round) {
        TGAHeader const header = random_header(random_);
        std::string const body = random_body(random_, header);
        bool const fits = random_.below(3);
        View const view(
            random_, fits ? header.width : random_.below(50),
            fits ? header.height : random_.below(9),
            random_.chance(20) ? PIXEL_FORMAT_NONE : any_format(random_));
        unsigned int const start = random_.below(2) * random_.below(body.size() / 4 + 1);
        expect_plain(view, header, body, start);
    }
}

// Larger than the window that files are read through, and than the cache.
TEST_F(TGA, reads_large_pictures_from_memory_and_file_alike) {
    for (int const type : {2, 10, 1}) {
        TGAHeader header = make_header(type, type == 1 ? 8 : 24, 0, 24);
        header.width = 1801, header.height = 1503, header.colour_map_length = 256;
        std::string const body = random_text(random_, 1801 * 1503 * 3 + 9000);
        expect_plain({random_, 1801, 1503, any_format(random_)}, header, body, 0);
    }
}

TEST_F(TGA, classifies_headers_by_one_key) {
    constexpr int rows[][5] = {// type, bits, alpha bits, map's bits, format
                               {2, 15, 0, 0, 0},  {10, 16, 1, 0, 2}, {2, 15, 1, 0, 21},
                               {2, 24, 8, 0, 21}, {2, 32, 0, 0, 11}, {2, 32, 4, 0, 21},
                               {3, 99, 7, 0, 12}, {9, 8, 8, 32, 7},  {1, 8, 3, 77, 4},
                               {0, 24, 0, 0, 21}, {2, 36, 0, 0, 7},  {255, 24, 0, 24, 21}};
    for (auto const& [type, bits, alpha_bits, map_bits, format] : rows) {
        TGAHeader const header = make_header(type, bits, alpha_bits, map_bits);
        EXPECT_EQ(header.format(), format) << type << ' ' << bits;
        EXPECT_TRUE(header.pixel_format() == format && header.supported() == (format != 21));
    }
}

TEST_F(TGA, keeps_header_fields_that_are_not_there_whole) {
    for (unsigned int size : {0u, 1u, 13u, 14u, 17u, 18u, 20u, 23u, 104u, 272u, 273u}) {
        std::string text = random_text(random_, size);
        if (size) text[0] = size < 24 ? 5 : '\xFF';
        MemFileIn memory;
        memory.open(text.data(), size);
        TGAHeader a;
        a.width = 0x7777;
        a.read(memory);
        EXPECT_EQ(a.width, size >= 14 ? *reinterpret_cast<unsigned short*>(&text[12]) : 0x7777);
        bool const whole = size >= 18u + a.id_length;
        EXPECT_EQ(memory.status(), whole ? FILE_OK : FILE_END_OF_FILE) << size;
        EXPECT_TRUE(!whole || text_of(a.id, a.id_length) == text.substr(18, a.id_length)) << size;
        EXPECT_EQ(a.id[a.id_length], 0);
    }
}

TEST_F(TGA, writes_the_header_that_it_was_built_with) {
    FileOut out(folder_.file("id.tga").c_str());
    TGAHeader header(0x1234, 0x5678, PIXEL_FORMAT_A8R8G8B8, true, false, "five!");
    header.descriptor |= 0xC0;
    header.write(out);
    out.close();
    constexpr char expected[] = "\5\0\2\0\0\0\0\0\0\0\0\0\x34\x12\x78\x56\x20\x18"
                                "five!";
    EXPECT_EQ(read_file(folder_.file("id.tga")), text_of(expected, 23));
    EXPECT_EQ(TGAHeader(1, 1, PIXEL_FORMAT_GREY8, false, false, nullptr).id_length, 0);
}

// Every view format into every file format and orientation, from padded rows.
TEST_F(TGA, writes_each_pixel_as_the_conversion_rules_tell) {
    for (auto const from : formats) {
        for (int const kind : {0, 2, 4, 7, 11, 12}) {
            auto const to = PixelFormat(kind);
            View view(random_, 1 + random_.below(40), 1 + random_.below(4), from);
            unsigned int const row = view.width * pixel_size(to);
            view.data = view.bytes.data();
            FileOut out(folder_.file("out.tga").c_str());
            EXPECT_TRUE(tga_write(out, to, view, random_.below(2), random_.below(2)));
            out.close();

            std::string const bytes = read_file(folder_.file("out.tga"));
            MemFileIn file;
            file.open(bytes.data(), static_cast<unsigned int>(bytes.size()));
            TGAHeader header;
            header.read(file);
            Bytes read(row * view.height), expected(read.size());
            PlainStream plain{bytes, 18};
            read_pixels({read.data(), view.width, view.height, row, to}, plain, header);
            if (from == PIXEL_FORMAT_GREY_EXPAND) view.format = PIXEL_FORMAT_A8R8G8B8;
            plain_copy({expected.data(), view.width, view.height, row, to}, view);
            EXPECT_TRUE(read == expected && plain.position == bytes.size()) << from << " to " << to;
        }
    }
}

TEST_F(TGA, refuses_to_write_what_has_no_size_or_no_format) {
    constexpr unsigned int rows[][5] = {
        // width, height, the view's format, the file's, bytes written
        {0, 1, 12, 12, 0}, {65536, 1, 12, 12, 0}, {1, 0, 12, 12, 0}, {1, 1, 21, 12, 0},
        {1, 1, 12, 21, 0}, {1, 1, 12, 12, 19},    {1, 1, 5, 12, 18}};
    Bytes const pixels(65536);
    for (auto const& [width, height, from, to, written] : rows) {
        FileOut out(folder_.file("none.tga").c_str());
        ConstPixelAccessorDescriptor const view(
            pixels.data(), width, height, width, PixelFormat(from));
        EXPECT_EQ(tga_write(out, PixelFormat(to), view, false, false), written != 0);
        out.close();
        EXPECT_EQ(read_file(folder_.file("none.tga")).size(), written);
        EXPECT_EQ(write_pixels(out, make_header(3, 8, 0), view), from == 12);
    }
}

TEST_F(TGA, shows_the_staged_picture_in_the_counters) {
    auto const before = ImageDefaultAllocator::hwm = ImageDefaultAllocator::mem;
    unsigned char pixels[4];
    PixelAccessorDescriptor const view(pixels, 1, 1, 4, PIXEL_FORMAT_A8R8G8B8);
    MemFileIn file;
    file.open("", 0);
    // The second is made before its indices are refused.
    for (int const type : {10, 1}) {
        TGAHeader header = make_header(type, type == 1 ? 24 : 32, 8, 32);
        header.width = type == 1 ? 150 : 100, header.height = 50;
        EXPECT_EQ(read_pixels(view, file, header), type == 10);
        EXPECT_EQ(ImageDefaultAllocator::hwm, before + header.width * 200) << type;
    }
    EXPECT_EQ(ImageDefaultAllocator::mem, before);
}

TEST_F(TGA, ends_quickly_on_a_few_bytes_that_promise_the_largest_picture) {
    TGAHeader header = make_header(10, 32, 8);
    header.width = header.height = 0xFFFF;
    unsigned char pixels[64 * 4 * 4] = {};
    MemFileIn file;
    file.open("\202abcd\1efgh12", 12);
    EXPECT_TRUE(read_pixels({pixels, 64, 4, 256, PIXEL_FORMAT_A8R8G8B8}, file, header));
    EXPECT_EQ(text_of(pixels, 4), "12gh") << "the last pixel, as far as it came";
    EXPECT_EQ(file.status(), FILE_END_OF_FILE);
}

// Run by scripts/check_tga_foreign.sh, which has put files by another maker, each with its pixels
// beside it, into a folder.
TEST(ForeignTGA, DISABLED_reads_what_the_other_maker_wrote) {
    char const* const folder = std::getenv("QX_FOREIGN_TGA");
    for (int number = 0; std::string const name :
                         {"plain_24", "packed_24", "plain_32", "packed_32", "plain_grey",
                          "packed_grey", "plain_map", "packed_map"}) {
        std::string const path = std::string(folder) + "/" + name;
        FileIn file((path + ".tga").c_str(), false);
        TGAHeader header;
        header.read(file);
        ImageType<Pixel8888> image;
        image.resize(header.width, header.height);
        EXPECT_TRUE(read_pixels(image.pixel_accessor(), file, header)) << name;
        unsigned int const count = image.width() * image.height();
        // Grey is alpha too in this library, but not for others.
        for (unsigned int i = 0; header.format() == PIXEL_FORMAT_GREY8 && i < count; ++i)
            image.data()[i].alpha = 255;

        EXPECT_EQ(read_file(path + ".raw"), text_of(image.data(), count * 4)) << name;
        FileOut out((path + ".out.tga").c_str());
        tga_write(out, PIXEL_FORMAT_A8R8G8B8, image.pixel_accessor(), number % 2, number / 2 % 2);
        ++number;
    }
}
