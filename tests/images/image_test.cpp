#include "qx/images/image.h"
#include "qx/images/tga.h"

#include "tests/harness/failing_allocation.h"
#include "tests/harness/temp_folder.h"

#include <gtest/gtest.h>

#include <new>

using namespace QX;

using Tracked = ImageType<Pixel8888, TrackedAllocator<ImageDefaultAllocator>>;

TEST(Image, keeps_its_storage_until_more_pixels_are_needed) {
    ImageType<PixelGrey8> image;
    EXPECT_EQ(image.width(), 0u);
    image.resize(4, 4);
    for (unsigned char i = 0; i < 16; ++i) image.set_pixel(i % 4, i / 4, {i});
    auto const* const pixels = image.data();
    image.resize(2, 8);
    EXPECT_EQ(image.get_pixel(1, 7).value, 15) << "the same pixels with shorter rows";
    image.resize(1, 1);
    image.resize(4, 4);
    EXPECT_EQ(image.data(), pixels);
    EXPECT_EQ(image.capacity(), 16u);
    image.resize(17, 1);
    EXPECT_EQ(image.capacity(), 17u);
}

TEST(Image, shows_any_rectangle_of_itself) {
    ImageType<Pixel888> image;
    image.resize(10, 5);
    auto const part = image.pixel_accessor(3, 2, 4, 2);
    EXPECT_EQ(part.data, reinterpret_cast<unsigned char*>(image.data()) + 2 * 30 + 9);
    EXPECT_EQ(part.width, 4u);
    EXPECT_EQ(part.height, 2u);
    EXPECT_EQ(part.stride, 30u);
    EXPECT_EQ(part.format, PIXEL_FORMAT_R8G8B8);
    part.clear(0, 0, 4, 2, {1, 2, 3, 4});
    EXPECT_EQ(image.get_pixel(6, 3).red, 3);
    auto const whole = static_cast<Image const&>(image).pixel_accessor();
    EXPECT_EQ(whole.width * whole.height, 50u);
}

TEST(Image, tells_the_format_of_each_pixel_type) {
    EXPECT_EQ(ImageType<PixelX1R5G5B5>().format(), 0);
    EXPECT_EQ(ImageType<PixelR5G6B5>().format(), 1);
    EXPECT_EQ(ImageType<PixelA1R5G5B5>().format(), 2);
    EXPECT_EQ(ImageType<PixelA4R4G4B4>().format(), 3);
    EXPECT_EQ(ImageType<Pixel888>().format(), 4);
    EXPECT_EQ(ImageType<Pixel8888>().format(), 7);
    EXPECT_EQ(ImageType<PixelX888>().format(), 11);
    EXPECT_EQ(ImageType<PixelGrey8>().format(), 12);
}

TEST(Image, is_counted_while_tracked) {
    auto const before = ImageDefaultAllocator::mem;
    ImageDefaultAllocator::hwm = before;
    {
        Tracked image;
        image.resize(10, 10);
        EXPECT_EQ(ImageDefaultAllocator::mem, before + 400);
        image.resize(20, 10);
        EXPECT_EQ(ImageDefaultAllocator::mem, before + 800);
        EXPECT_EQ(ImageDefaultAllocator::hwm, before + 800) << "the old is given back first";
        ImageType<Pixel8888> untracked;
        untracked.resize(99, 99);
        EXPECT_EQ(ImageDefaultAllocator::mem, before + 800);
    }
    EXPECT_EQ(ImageDefaultAllocator::mem, before);
    EXPECT_EQ(ImageDefaultAllocator::hwm, before + 800);
    EXPECT_EQ(ImageLargeAllocator::mem + ImageLargeAllocator::hwm, 0u);
}

TEST(Image, is_empty_after_storage_was_refused) {
    auto const before = ImageDefaultAllocator::mem;
    Tracked image;
    image.resize(2, 2);
    {
        test::FailingAllocation const failing(1);
        EXPECT_THROW(image.resize(3, 3), std::bad_alloc);
        EXPECT_TRUE(failing.fired());
    }
    EXPECT_EQ(image.width() + image.height() + image.capacity(), 0u);
    EXPECT_EQ(ImageDefaultAllocator::mem, before);
    image.resize(2, 2);
}

TEST(Image, comes_back_from_its_file_bottom_row_first) {
    test::TempFolder const folder;
    ImageType<Pixel8888> image, again;
    image.resize(3, 2);
    for (unsigned char i = 0; i < 6; ++i) image.set_pixel(i % 3, i / 3, {i, 10, 20, 30});
    Image const& written = image;
    EXPECT_TRUE(written.write_tga(folder.file("image.tga").c_str(), PIXEL_FORMAT_A8R8G8B8));
    EXPECT_EQ(test::read_file(folder.file("image.tga"))[18], 3) << "the bottom row's first pixel";

    FileIn file(folder.file("image.tga").c_str(), false);
    TGAHeader header;
    header.read(file);
    EXPECT_EQ(header.descriptor, 8);
    again.resize(header.width, header.height);
    EXPECT_TRUE(read_pixels(again.pixel_accessor(), file, header));
    for (unsigned char i = 0; i < 6; ++i) EXPECT_EQ(again.get_pixel(i % 3, i / 3).blue, i);
    EXPECT_FALSE(written.write_tga(folder.file("no\\folder.tga").c_str(), PIXEL_FORMAT_R8G8B8));
}
