#include "qx/images/image.h"
#include "qx/memory/heap.h"

#include "tests/harness/failing_allocation.h"
#include "tests/harness/temp_folder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <new>

using namespace QX;

// The place of a result that is returned through memory comes first.
TEST(Image, has_its_operations_in_the_slots_that_clients_were_built_for) {
    ImageType<Pixel888> image;
    void* const* const slots = *reinterpret_cast<void***>(&image);
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

std::pair<void const*, unsigned int> seen;  // by the hook

template <typename PIXEL, typename ALLOCATOR>
void expect_image(PixelFormat format, unsigned int tracked) {
    auto const before = ImageDefaultAllocator::hwm = ImageDefaultAllocator::mem;
    auto const after = before + tracked * 40 * pixel_size(format);
    allocation_hook = [](void const* block, unsigned int size) { seen = {block, size}; };
    {
        ImageType<PIXEL, ALLOCATOR> image;
        image.resize(7, 3);
        EXPECT_TRUE(image.format() == format && seen.second == 21 * pixel_size(format) + 12);
        void* block;  // its address stands before the pixels, at any multiple of 4
        std::memcpy(&block, reinterpret_cast<char const*>(image.data()) - 8, 8);
        EXPECT_EQ(block, seen.first);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(image.data()) % 4, 0u);
        auto const* const pixels = image.data();
        image.resize(1, 1);
        image.resize(3, 7);
        EXPECT_TRUE(image.data() == pixels && image.capacity() == 21);
        image.resize(40, 1);
        EXPECT_EQ(ImageDefaultAllocator::mem, after);
    }
    EXPECT_EQ(seen.second, 0u) << "the block is what is freed";
    allocation_hook = nullptr;
    EXPECT_TRUE(ImageDefaultAllocator::mem == before && ImageDefaultAllocator::hwm == after);
}

}  // namespace

TEST(Image, keeps_one_block_until_more_pixels_are_needed_and_counts_while_tracked) {
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
    image.resize(2, 2);
    for (unsigned char i = 0; i < 4; ++i)
        image.set_pixel(i % 2, i / 2, {static_cast<unsigned char>('a' + i)});
    EXPECT_EQ(image.get_pixel(1, 1).value, 'd');
    EXPECT_TRUE(image.write_tga(folder.file("image.tga").c_str(), PIXEL_FORMAT_GREY8));
    EXPECT_EQ(test::read_file(folder.file("image.tga")).substr(18), "cdab");
    EXPECT_FALSE(image.write_tga(folder.file("no\\folder.tga").c_str(), PIXEL_FORMAT_GREY8));
}
