#include "qx/images/image.h"
#include "qx/memory/heap.h"

#include "tests/harness/failing_allocation.h"
#include "tests/harness/temp_folder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <new>

using namespace QX;

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
}

// The place of a result that is returned through memory comes first.
TEST(Image, has_its_operations_in_the_slots_that_clients_were_built_for) {
    ImageType<Pixel888> image;
    void* slots[8];
    std::memcpy(slots, *reinterpret_cast<void**>(&image), sizeof slots);
    using Slot = unsigned int (*)(void*, unsigned int, unsigned int);
    constexpr unsigned int expected[] = {PIXEL_FORMAT_R8G8B8, 10, 5};
    reinterpret_cast<Slot>(slots[3])(&image, 10, 5);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(reinterpret_cast<Slot>(slots[i])(&image, 0, 0), expected[i]);
    for (int i = 4; i < 8; ++i) {
        using Views = void (*)(PixelAccessorDescriptor*, void*, int, int, int, int);
        PixelAccessorDescriptor view;
        reinterpret_cast<Views>(slots[i])(&view, &image, 3, 2, 4, 1);
        auto* const pixels = reinterpret_cast<unsigned char*>(image.data());
        EXPECT_EQ(view.data, i < 6 ? pixels + 2 * 30 + 9 : pixels) << i;
        EXPECT_EQ(view.width * view.height, i < 6 ? 4u : 50u) << i;
        EXPECT_EQ(view.stride * 100 + view.format, 3004u) << i;
    }
}

namespace {

void const* last_block;
unsigned int last_size;

void note(void const* block, unsigned int size) {
    last_block = block;
    last_size = size;
}

template <typename PIXEL, typename ALLOCATOR>
void expect_image(PixelFormat format, unsigned int tracked) {
    auto const before = ImageDefaultAllocator::hwm = ImageDefaultAllocator::mem;
    allocation_hook = &note;
    {
        ImageType<PIXEL, ALLOCATOR> image;
        EXPECT_EQ(image.format(), format);
        image.resize(7, 3);
        EXPECT_EQ(last_size, 21 * pixel_size(format) + 12) << format;
        auto const block = last_block;
        auto const pixels = reinterpret_cast<std::uintptr_t>(image.data());
        EXPECT_EQ(reinterpret_cast<void**>(image.data())[-1], block);
        EXPECT_EQ(pixels % 4, 0u);
        image.resize(40, 1);
        EXPECT_EQ(ImageDefaultAllocator::mem, before + tracked * 40 * pixel_size(format));
    }
    EXPECT_EQ(last_size, 0u) << "the block is what is freed";
    allocation_hook = nullptr;
    EXPECT_EQ(ImageDefaultAllocator::mem, before);
    EXPECT_EQ(ImageDefaultAllocator::hwm, before + tracked * 40 * pixel_size(format));
}

}  // namespace

TEST(Image, keeps_its_block_right_before_the_pixels_and_counts_while_tracked) {
    expect_image<PixelX1R5G5B5, ImageDefaultAllocator>(PIXEL_FORMAT_X1R5G5B5, 0);
    expect_image<Pixel888, ImageDefaultAllocator>(PIXEL_FORMAT_R8G8B8, 0);
    expect_image<Pixel8888, TrackedAllocator<ImageDefaultAllocator>>(PIXEL_FORMAT_A8R8G8B8, 1);
}

TEST(Image, is_empty_after_storage_was_refused) {
    auto const before = ImageDefaultAllocator::mem;
    ImageType<Pixel8888, TrackedAllocator<ImageDefaultAllocator>> image;
    image.resize(2, 2);
    test::FailingAllocation const failing(1);
    EXPECT_THROW(image.resize(3, 3), std::bad_alloc);
    EXPECT_EQ(image.width() + image.height() + image.capacity(), 0u);
    EXPECT_EQ(ImageDefaultAllocator::mem, before);
}

TEST(Image, writes_its_file_bottom_row_first) {
    test::TempFolder const folder;
    ImageType<PixelGrey8> image;
    image.resize(1, 2);
    for (unsigned char i = 0; i < 2; ++i)
        image.set_pixel(0, i, {static_cast<unsigned char>(i + 'a')});
    EXPECT_TRUE(image.write_tga(folder.file("image.tga").c_str(), PIXEL_FORMAT_GREY8));
    EXPECT_EQ(test::read_file(folder.file("image.tga")).substr(18), "ba");
    EXPECT_FALSE(image.write_tga(folder.file("no\\folder.tga").c_str(), PIXEL_FORMAT_GREY8));
}
