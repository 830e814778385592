#include "qx/images/image.h"
#include "qx/images/tga.h"
#include "qx/memory/heap.h"

#include "tests/harness/failing_allocation.h"
#include "tests/harness/temp_folder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

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

// Overrides in the order of the slots.
struct SlotImage : ImageType<PixelGrey8> {
    mutable int called = 0;
    PixelFormat format() const override { return called = 1, PIXEL_FORMAT_GREY8; }
    unsigned int width() const override { return called = 2, 0; }
    unsigned int height() const override { return called = 3, 0; }
    void resize(unsigned int, unsigned int) override { called = 4; }
    PixelAccessorDescriptor
    pixel_accessor(unsigned int, unsigned int, unsigned int, unsigned int) override {
        return called = 5, PixelAccessorDescriptor();
    }
    ConstPixelAccessorDescriptor
    pixel_accessor(unsigned int, unsigned int, unsigned int, unsigned int) const override {
        return called = 6, ConstPixelAccessorDescriptor();
    }
    PixelAccessorDescriptor pixel_accessor() override {
        return called = 7, PixelAccessorDescriptor();
    }
    ConstPixelAccessorDescriptor pixel_accessor() const override {
        return called = 8, ConstPixelAccessorDescriptor();
    }
    bool write_tga(char const*, TGAFormat) const override { return (called = 9) != 0; }
    bool write_tga(FileOut&, TGAFormat) const override { return (called = 10) != 0; }
};

// Enough arguments for every slot: the result's place first where one is returned through memory.
TEST(Image, has_its_operations_in_the_slots_that_clients_were_built_for) {
    SlotImage image;
    using Slot =
        void* (*)(void*, void*, std::uintptr_t, std::uintptr_t, std::uintptr_t, std::uintptr_t);
    Slot const* slots;
    std::memcpy(&slots, static_cast<void*>(&image), sizeof slots);
    alignas(16) unsigned char result[64];
    for (int i = 0; i != 10; ++i) {
        bool const has_result = i >= 4 && i < 8;
        void* const self = &image;
        slots[i](has_result ? result : self, has_result ? self : result, 0, 0, 0, 0);
        EXPECT_EQ(image.called, i + 1);
    }
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

namespace {

void const* last_block;
unsigned int last_size;

void note(void const* block, unsigned int size) {
    last_block = block;
    last_size = size;
}

template <typename PIXEL, typename ALLOCATOR>
void expect_blocks(unsigned int pixel_size) {
    bool const tracked = !std::is_same_v<ALLOCATOR, ImageDefaultAllocator>;
    auto const before = ImageDefaultAllocator::mem;
    allocation_hook = &note;
    {
        ImageType<PIXEL, ALLOCATOR> image;
        image.resize(7, 3);
        EXPECT_EQ(last_size, 21 * pixel_size + 12) << image.format();
        auto const block = last_block;
        auto const pixels = reinterpret_cast<std::uintptr_t>(image.data());
        EXPECT_EQ(reinterpret_cast<void**>(image.data())[-1], block);
        EXPECT_EQ(pixels % 4, 0u);
        EXPECT_LE(pixels - reinterpret_cast<std::uintptr_t>(block), 12u);
        EXPECT_EQ(ImageDefaultAllocator::mem, before + (tracked ? 21 * pixel_size : 0));
        last_block = nullptr;
        image.resize(3, 5);
        EXPECT_EQ(last_block, nullptr) << "fewer pixels need no block";
    }
    EXPECT_NE(last_block, nullptr);
    EXPECT_EQ(last_size, 0u) << "the block is what is freed";
    allocation_hook = nullptr;
    EXPECT_EQ(ImageDefaultAllocator::mem, before);
}

template <typename PIXEL>
void expect_blocks_of_both(unsigned int pixel_size) {
    expect_blocks<PIXEL, ImageDefaultAllocator>(pixel_size);
    expect_blocks<PIXEL, TrackedAllocator<ImageDefaultAllocator>>(pixel_size);
}

}  // namespace

TEST(Image, keeps_its_block_right_before_the_pixels) {
    expect_blocks_of_both<PixelX1R5G5B5>(2);
    expect_blocks_of_both<PixelR5G6B5>(2);
    expect_blocks_of_both<PixelA1R5G5B5>(2);
    expect_blocks_of_both<PixelA4R4G4B4>(2);
    expect_blocks_of_both<Pixel888>(3);
    expect_blocks_of_both<Pixel8888>(4);
    expect_blocks_of_both<PixelX888>(4);
    expect_blocks_of_both<PixelGrey8>(1);
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
