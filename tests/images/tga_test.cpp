#include "qx/images/tga.h"

#include "plain_pixels.h"
#include "plain_tga.h"
#include "qx/base/windows.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using namespace QX;

namespace {

using Bytes = std::vector<unsigned char>;

TGAHeader make_header(int type, int bits, int alpha_bits, int map_bits = 0) {
    TGAHeader header;
    header.image_type = static_cast<unsigned char>(type);
    header.bits_per_pixel = static_cast<unsigned char>(bits);
    header.descriptor = static_cast<unsigned char>(alpha_bits);
    header.colour_map_bits = static_cast<unsigned char>(map_bits);
    return header;
}

std::string random_text(test::Random& random, std::size_t size) {
    std::string text(size, '\0');
    for (char& c : text) c = static_cast<char>(random.next());
    return text;
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

// A view of some size and format in memory that ends at a guard page.
struct View {
    View(test::Random& random, unsigned int width, unsigned int height)
        : format(random.below(20) ? test::formats[random.below(10)] : PIXEL_FORMAT_NONE) {
        unsigned int const row = width * (pixel_size(format) ? pixel_size(format) : 1);
        unsigned int const stride = row + random.below(2) * random.below(9);
        bytes.resize(height ? stride * (height - 1) + row : 0);
        for (auto& byte : bytes) byte = static_cast<unsigned char>(random.next());
        view = {nullptr, width, height, stride, format};
    }

    PixelAccessorDescriptor in(void* memory) const {
        return {memory, view.width, view.height, view.stride, format};
    }

    PixelFormat format;
    Bytes bytes;
    PixelAccessorDescriptor view;
};

struct Result {
    bool answer;
    unsigned long long position;
    FileErrorCodes status;
    std::string pixels;

    bool operator==(Result const&) const = default;
};

std::string text_of(void const* data, std::size_t size) {
    return std::string(static_cast<char const*>(data), size);
}

// Reads `whole` from byte `start` on.
template <typename Stream>
Result read_with(Stream& file, View const& view, TGAHeader const& header, std::size_t start) {
    test::Guarded const memory(view.bytes.data(), view.bytes.size());
    file.seek(static_cast<int>(start));
    Result result;
    result.answer = read_pixels(view.in(memory.data()), file, header);
    result.status = file.status();
    result.position = file.tell64();
    result.pixels = text_of(memory.data(), memory.size());
    return result;
}

Result read_plainly(
    std::string const& whole, View const& view, TGAHeader const& header, std::size_t start) {
    Bytes memory = view.bytes;
    test::PlainStream file{whole, start};
    Result result;
    result.answer = test::plain_read_pixels(view.in(memory.data()), file, header);
    result.status = file.was_short ? FILE_END_OF_FILE : FILE_OK;
    result.position = file.position;
    result.pixels = text_of(memory.data(), memory.size());
    return result;
}

std::string tell(TGAHeader const& header, View const& view) {
    return "type " + std::to_string(header.image_type) + ", " +
           std::to_string(header.bits_per_pixel) + " bits, map of " +
           std::to_string(header.colour_map_bits) + ", descriptor " +
           std::to_string(header.descriptor) + ", " + std::to_string(header.width) + "x" +
           std::to_string(header.height) + " into format " + std::to_string(view.format) + ", " +
           std::to_string(view.view.width) + "x" + std::to_string(view.view.height);
}

}  // namespace

TEST(TGA, reads_from_memory_what_reading_pixel_by_pixel_gives) {
    test::Random random(10);
    for (int round = 0; round < 6000; ++round) {
        TGAHeader const header = random_header(random);
        std::string const body = random_body(random, header);
        bool const fits = random.below(3);
        View const view(
            random, fits ? header.width : random.below(50), fits ? header.height : random.below(9));
        test::Guarded const memory(body.data(), body.size());
        MemFileIn file;
        file.open(memory.data(), static_cast<unsigned int>(memory.size()));
        std::size_t const start = random.below(2) ? body.size() / 4 : 0;
        Result const expected = read_plainly(body, view, header, start);
        ASSERT_TRUE(read_with(file, view, header, start) == expected)
            << "round " << round << ": " << tell(header, view);
    }
}

TEST(TGA, reads_from_a_file_what_reading_pixel_by_pixel_gives) {
    test::Random random(11);
    test::TempFolder const folder;
    for (int round = 0; round < 400; ++round) {
        std::string const body = random_body(random, make_header(10, 0, 0));
        FileIn file(folder.write("random.tga", body).c_str(), false);
        for (int turn = 0; turn < 8; ++turn) {
            TGAHeader const header = random_header(random);
            View const view(random, header.width, header.height);
            std::size_t const start = random.below(static_cast<unsigned int>(body.size()) + 1);
            Result const expected = read_plainly(body, view, header, start);
            ASSERT_TRUE(read_with(file, view, header, start) == expected)
                << "round " << round << ": " << tell(header, view);
        }
    }
}

// Larger than the window that files are read through, and than the cache.
TEST(TGA, reads_large_pictures_from_memory_and_file_alike) {
    test::Random random(12);
    test::TempFolder const folder;
    for (int const type : {2, 10, 1}) {
        TGAHeader header = make_header(type, type == 1 ? 8 : 24, 0, 24);
        header.descriptor = static_cast<unsigned char>(random.below(4) << 4);
        header.width = 1801, header.height = 1503, header.colour_map_length = 256;
        std::string body = random_text(random, 1801 * 1503 * 3 + 9000);
        View const view(random, 1801, 1503);
        Result const expected = read_plainly(body, view, header, 0);
        MemFileIn memory;
        memory.open(body.data(), static_cast<unsigned int>(body.size()));
        EXPECT_TRUE(read_with(memory, view, header, 0) == expected) << tell(header, view);
        FileIn file(folder.write("large.tga", body).c_str(), false);
        EXPECT_TRUE(read_with(file, view, header, 0) == expected) << tell(header, view);
    }
}

TEST(TGA, leaves_an_older_error_of_the_file_as_complete_reads_do) {
    test::TempFolder const folder;
    FileIn file(folder.write("two.tga", std::string(64, 'x')).c_str(), false);
    TGAHeader header = make_header(3, 8, 0);
    header.width = header.height = 2;
    unsigned char pixels[4];
    PixelAccessorDescriptor const view(pixels, 2, 2, 2, PIXEL_FORMAT_GREY8);
    file.set_error(5);
    EXPECT_TRUE(read_pixels(view, file, header));
    EXPECT_EQ(file.status(), FILE_ACCESS_DENIED);
    file.close();
    file.set_error(0);
    EXPECT_TRUE(read_pixels(view, file, header));
    EXPECT_EQ(file.error(), 6u) << "every read of a closed file fails";
}

namespace {

// Refuses reads that pass byte 30, as a lock on the rest of the file would.
BOOL WINAPI read_before_lock(HANDLE file, void* to, DWORD size, DWORD* got, OVERLAPPED* how) {
    LARGE_INTEGER at = {};
    SetFilePointerEx(file, at, &at, FILE_CURRENT);
    if (at.QuadPart + size <= 30) return ReadFile(file, to, size, got, how);
    *got = 0;
    SetLastError(ERROR_LOCK_VIOLATION);
    return FALSE;
}

}  // namespace

TEST(TGA, gets_every_pixel_before_a_read_that_fails) {
    test::TempFolder const folder;
    std::string body(100, 'x');
    for (std::size_t i = 0; i < body.size(); ++i) body[i] = static_cast<char>(i & 127);
    FileIn file(folder.write("locked.tga", body).c_str(), false);
    test::StandIn const stand_in("ReadFile", &read_before_lock);
    ASSERT_TRUE(stand_in.found());
    TGAHeader header = make_header(2, 32, 8);
    header.descriptor |= 32;
    unsigned char pixels[60];
    PixelAccessorDescriptor const view(pixels, 15, 1, 60, PIXEL_FORMAT_A8R8G8B8);
    file.seek(1);
    EXPECT_TRUE(read_pixels(view, file, header));
    EXPECT_EQ(file.error(), static_cast<unsigned int>(ERROR_LOCK_VIOLATION));
    EXPECT_EQ(file.tell(), 29u);
    EXPECT_EQ(pixels[27], 28) << "the last pixel that could be read";
    EXPECT_EQ(text_of(pixels + 56, 4), text_of(pixels + 24, 4)) << "repeats behind it";
}

TEST(TGA, classifies_headers_by_one_key) {
    struct Row {
        int type, bits, alpha_bits, map_bits;
        PixelFormat format;
    };
    constexpr Row rows[] = {
        {2, 15, 0, 0, PIXEL_FORMAT_X1R5G5B5},  {2, 16, 0, 0, PIXEL_FORMAT_X1R5G5B5},
        {10, 16, 1, 0, PIXEL_FORMAT_A1R5G5B5}, {2, 15, 1, 0, PIXEL_FORMAT_NONE},
        {2, 24, 0, 0, PIXEL_FORMAT_R8G8B8},    {2, 24, 8, 0, PIXEL_FORMAT_NONE},
        {2, 32, 0, 0, PIXEL_FORMAT_X8R8G8B8},  {10, 32, 8, 0, PIXEL_FORMAT_A8R8G8B8},
        {2, 32, 4, 0, PIXEL_FORMAT_NONE},      {3, 99, 7, 0, PIXEL_FORMAT_GREY8},
        {11, 8, 0, 0, PIXEL_FORMAT_GREY8},     {1, 8, 0, 16, PIXEL_FORMAT_X1R5G5B5},
        {9, 8, 8, 32, PIXEL_FORMAT_A8R8G8B8},  {1, 8, 3, 77, PIXEL_FORMAT_R8G8B8},
        {0, 24, 0, 0, PIXEL_FORMAT_NONE},      {4, 24, 0, 24, PIXEL_FORMAT_NONE},
        {8, 24, 0, 24, PIXEL_FORMAT_NONE},     {12, 24, 0, 24, PIXEL_FORMAT_NONE},
        {2, 36, 0, 0, PIXEL_FORMAT_A8R8G8B8},  {255, 24, 0, 24, PIXEL_FORMAT_NONE},
    };
    for (Row const& row : rows) {
        TGAHeader const header = make_header(row.type, row.bits, row.alpha_bits, row.map_bits);
        EXPECT_EQ(header.format(), row.format) << row.type << ' ' << row.bits;
        EXPECT_EQ(header.pixel_format(), row.format);
        EXPECT_EQ(header.supported(), row.format != PIXEL_FORMAT_NONE);
    }
}

TEST(TGA, keeps_header_fields_that_are_not_there_whole) {
    test::Random random(13);
    test::TempFolder const folder;
    std::string whole = random_text(random, 18 + 255);
    for (unsigned int size = 0; size <= whole.size(); size += size < 24 ? 1 : 83) {
        whole[0] = size % 2 ? 5 : '\xFF';
        std::string const text = whole.substr(0, size);
        test::Guarded const memory(text.data(), size);
        MemFileIn from_memory;
        from_memory.open(memory.data(), size);
        FileIn from_file(folder.write("header.tga", text).c_str(), false);
        TGAHeader a, b;
        a.width = b.width = 0x7777;
        a.read(from_memory);
        b.read(from_file);
        EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0) << size;
        EXPECT_EQ(a.width, size >= 14 ? *reinterpret_cast<unsigned short*>(&whole[12]) : 0x7777);
        unsigned int const length = size ? static_cast<unsigned char>(whole[0]) : 0;
        EXPECT_EQ(from_memory.status(), size < 18 + length ? FILE_END_OF_FILE : FILE_OK) << size;
        EXPECT_EQ(from_file.status(), from_memory.status());
        EXPECT_EQ(a.id[length], 0);
        bool const has_id = size >= 18 + length;
        EXPECT_EQ(std::memcmp(a.id, has_id ? &whole[18] : a.id, length), 0);
    }
}

TEST(TGA, writes_the_header_that_it_was_built_with) {
    test::TempFolder const folder;
    FileOut out(folder.file("id.tga").c_str());
    TGAHeader header(0x1234, 0x5678, PIXEL_FORMAT_A8R8G8B8, true, false, "five!");
    header.descriptor |= 0xC0;
    header.write(out);
    out.close();
    EXPECT_EQ(
        test::read_file(folder.file("id.tga")),
        std::string(
            "\5\0\2\0\0\0\0\0\0\0\0\0\x34\x12\x78\x56\x20\x18"
            "five!",
            23));
}

// Every view format into every file format and orientation, from padded rows.
TEST(TGA, writes_each_pixel_as_the_conversion_rules_tell) {
    test::Random random(14);
    test::TempFolder const folder;
    for (auto const from : test::formats) {
        for (int const to : {0, 2, 4, 7, 11, 12}) {
            bool const leftward = random.below(2), downward = random.below(2);
            unsigned int const width = 1 + random.below(40), height = 1 + random.below(4);
            unsigned int const size = pixel_size(from), stride = width * size + 3;
            std::string const pixels = random_text(random, stride * height);
            std::string expected;
            for (unsigned int i = 0; i < width * height; ++i) {
                unsigned int const x = leftward ? width - 1 - i % width : i % width;
                unsigned int const y = downward ? i / width : height - 1 - i / width;
                unsigned char pixel[4] = {};
                test::plain_convert(
                    from == PIXEL_FORMAT_GREY_EXPAND ? PIXEL_FORMAT_A8R8G8B8 : from,
                    reinterpret_cast<unsigned char const*>(&pixels[y * stride + x * size]),
                    PixelFormat(to), pixel);
                expected += text_of(pixel, pixel_size(PixelFormat(to)));
            }
            FileOut out(folder.file("out.tga").c_str());
            ConstPixelAccessorDescriptor const view(pixels.data(), width, height, stride, from);
            EXPECT_TRUE(tga_write(out, PixelFormat(to), view, leftward, downward));
            out.close();
            EXPECT_TRUE(test::read_file(folder.file("out.tga")).substr(18) == expected)
                << from << " to " << to << (leftward ? ", leftward" : "");
        }
    }
}

TEST(TGA, refuses_to_write_what_has_no_size_or_no_format) {
    struct Row {
        unsigned int width, height;
        PixelFormat view, file;
        bool answer;
    };
    constexpr Row rows[] = {
        {0, 1, PIXEL_FORMAT_GREY8, PIXEL_FORMAT_GREY8, false},
        {65536, 1, PIXEL_FORMAT_GREY8, PIXEL_FORMAT_GREY8, false},
        {1, 0, PIXEL_FORMAT_GREY8, PIXEL_FORMAT_GREY8, false},
        {1, 1, PIXEL_FORMAT_NONE, PIXEL_FORMAT_GREY8, false},
        {1, 1, PIXEL_FORMAT_GREY8, PIXEL_FORMAT_NONE, false},
        {1, 1, PixelFormat(5), PIXEL_FORMAT_GREY8, true},  // the header alone is written
    };
    test::TempFolder const folder;
    Bytes const pixels(65536);
    for (Row const& row : rows) {
        FileOut out(folder.file("none.tga").c_str());
        ConstPixelAccessorDescriptor const view(
            pixels.data(), row.width, row.height, row.width, row.view);
        EXPECT_EQ(tga_write(out, row.file, view, false, false), row.answer);
        out.close();
        EXPECT_EQ(test::read_file(folder.file("none.tga")).size(), row.answer ? 18u : 0u);
    }
    FileOut out(folder.file("none.tga").c_str());
    ConstPixelAccessorDescriptor const odd(pixels.data(), 1, 1, 1, PixelFormat(9));
    EXPECT_FALSE(write_pixels(out, TGAHeader(1, 1, PIXEL_FORMAT_GREY8, false, false, ""), odd));
}

// Kept as they are, told outright.
TEST(TGA, answers_false_for_one_kind_of_map_although_it_fills_the_view) {
    for (int const bits : {8, 16}) {
        TGAHeader header = make_header(1, bits, 0, 16);
        header.width = header.height = header.colour_map_length = 1;
        header.colour_map_first = 10;
        std::string const body("\x1F\x00\x0A\x00", 4);
        MemFileIn file;
        file.open(body.data(), 4);
        unsigned char pixel[4] = {};
        PixelAccessorDescriptor const view(pixel, 1, 1, 4, PIXEL_FORMAT_A8R8G8B8);
        EXPECT_EQ(read_pixels(view, file, header), bits == 8);
        EXPECT_EQ(text_of(pixel, 4), std::string("\xFF\0\0\xFF", 4)) << "blue, by index 10";
    }
}

TEST(TGA, shows_the_staged_picture_in_the_counters) {
    TGAHeader header = make_header(10, 32, 8);
    header.width = 100, header.height = 50;
    std::string const body(10, '\xFF');
    MemFileIn file;
    file.open(body.data(), 10);
    Bytes pixels(100 * 50 * 4);
    ImageDefaultAllocator::hwm = 0;
    auto const before = ImageDefaultAllocator::mem;
    PixelAccessorDescriptor const view(pixels.data(), 100, 50, 400, PIXEL_FORMAT_A8R8G8B8);
    read_pixels(view, file, header);
    EXPECT_EQ(ImageDefaultAllocator::hwm, before + 20000);
    EXPECT_EQ(ImageDefaultAllocator::mem, before);

    header = make_header(1, 24, 0, 16);
    header.width = 200, header.height = 150;
    EXPECT_FALSE(read_pixels(view, file, header));
    EXPECT_EQ(ImageDefaultAllocator::hwm, before + 60000) << "made before its indices are refused";
}

TEST(TGA, reads_nothing_from_a_memory_file_that_stands_past_its_end) {
    std::string const text = "a\n\r";
    char line[8];
    unsigned char pixels[64];
    PixelAccessorDescriptor const view(pixels, 8, 8, 8, PIXEL_FORMAT_GREY8);
    for (int const type : {3, 11}) {
        MemFileIn file;
        file.open(text.data(), 2);
        file.readln(line);
        ASSERT_EQ(file.tell(), 3u) << "the pair is stepped over whole";
        TGAHeader header = make_header(type, 8, 0);
        header.width = header.height = 8;
        EXPECT_TRUE(read_pixels(view, file, header));
        EXPECT_EQ(file.status(), FILE_END_OF_FILE);
        EXPECT_EQ(file.tell(), 3u);
        EXPECT_EQ(pixels[0] + pixels[63], 0);
    }
}

TEST(TGA, ends_quickly_on_a_few_bytes_that_promise_the_largest_picture) {
    TGAHeader header = make_header(10, 32, 8);
    header.width = header.height = 0xFFFF;
    std::string const body = "\x82"
                             "abcd\x01"
                             "efgh12";
    MemFileIn file;
    file.open(body.data(), static_cast<unsigned int>(body.size()));
    unsigned int pixels[64 * 4];
    PixelAccessorDescriptor const view(pixels, 64, 4, 256, PIXEL_FORMAT_A8R8G8B8);
    EXPECT_TRUE(read_pixels(view, file, header));
    EXPECT_EQ(pixels[0], 0x68673231u) << "the last pixel, as far as it came";
    EXPECT_EQ(file.status(), FILE_END_OF_FILE);
}
