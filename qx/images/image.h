// image.h - images that own their pixels.
//
//     ImageType<Pixel8888> image;              0 by 0, holds nothing
//     image.resize(64, 32);                    room for 2048 pixels, their values undefined
//     image.pixel_accessor().clear(0, 0, 64, 32, {0, 0, 0, 255});
//     image.resize(32, 64);                    the same 2048 pixels, read with the new row length
//     image.write_tga("out.tga", PIXEL_FORMAT_A8R8G8B8);
//
// Rows are packed without gaps: the stride is width * size of a pixel. Storage never shrinks.
// It comes from the default heap, and where that has none left `resize` throws std::bad_alloc and
// leaves the image 0 by 0. Images have no locks, and the counters below are plain integers: their
// totals hold only if tracked images are resized on one thread at a time.
#pragma once

#include <concepts>

#include "qx/base/export.h"
#include "qx/images/pixel.h"

namespace QX {

class FileOut;

// Storage of images. The counters are moved by TrackedAllocator alone.
struct ImageDefaultAllocator {
    QX_API static unsigned long long mem;  // bytes that tracked images hold now
    QX_API static unsigned long long hwm;  // the most that they ever held

    // Room for `bytes` of pixels in a block of the default heap, 12 bytes longer, whose address
    // lies in the 8 bytes before the pixels. Throws std::bad_alloc.
    QX_API static void* allocate(unsigned long long bytes);
    // Frees the block of `allocate`, which may not be null; `bytes` is not looked at.
    QX_API static void release(void* pixels, unsigned long long bytes);
};

// Counters for hosts that keep large images elsewhere. Nothing here moves them.
struct ImageLargeAllocator {
    QX_API static unsigned long long mem;
    QX_API static unsigned long long hwm;
};

// Another allocator's storage, counted in that allocator's `mem` and `hwm`.
template <typename ALLOCATOR>
struct TrackedAllocator {
    static void* allocate(unsigned long long bytes) {
        void* const pixels = ALLOCATOR::allocate(bytes);
        count(bytes);
        return pixels;
    }

    static void release(void* pixels, unsigned long long bytes) {
        ALLOCATOR::mem -= bytes;
        ALLOCATOR::release(pixels, bytes);
    }

    static void count(unsigned long long bytes) {
        ALLOCATOR::mem += bytes;
        if (ALLOCATOR::hwm < ALLOCATOR::mem) ALLOCATOR::hwm = ALLOCATOR::mem;
    }
};

// The abstract root: what can be done with an image of any format. No fields.
class QX_API Image {
public:
    virtual PixelFormat format() const = 0;
    virtual unsigned int width() const = 0;
    virtual unsigned int height() const = 0;

    // Where width * height (in 32 bits) is not more than the capacity, only the two sizes change
    // and the pixels stay as they lie. Otherwise new storage is taken: the pixels are undefined.
    virtual void resize(unsigned int width, unsigned int height) = 0;

    // Views of a rectangle and of the whole image, good until the next `resize` that allocates.
    virtual PixelAccessorDescriptor
    pixel_accessor(unsigned int x, unsigned int y, unsigned int width, unsigned int height) = 0;
    virtual ConstPixelAccessorDescriptor pixel_accessor(
        unsigned int x, unsigned int y, unsigned int width, unsigned int height) const = 0;
    virtual PixelAccessorDescriptor pixel_accessor() = 0;
    virtual ConstPixelAccessorDescriptor pixel_accessor() const = 0;

    // Writes a TGA file of that format, bottom row first. False if the file can't be created or
    // the format or a size can't be written; what failed later shows in the stream alone. `path`
    // may not be null.
    virtual bool write_tga(char const* path, TGAFormat format) const;
    virtual bool write_tga(FileOut& file, TGAFormat format) const;

    virtual ~Image();
};

// What the library holds images of; the compiler refuses any other.
template <typename PIXEL>
concept ImagePixel = std::same_as<PIXEL, Pixel888> || std::same_as<PIXEL, Pixel8888> ||
    std::same_as<PIXEL, PixelX888> || std::same_as<PIXEL, PixelGrey8> ||
    std::same_as<PIXEL, PixelX1R5G5B5> || std::same_as<PIXEL, PixelR5G6B5> ||
    std::same_as<PIXEL, PixelA1R5G5B5> || std::same_as<PIXEL, PixelA4R4G4B4>;

// And in what storage.
template <typename ALLOCATOR>
concept ImageStorage = std::same_as<ALLOCATOR, ImageDefaultAllocator> ||
    std::same_as<ALLOCATOR, TrackedAllocator<ImageDefaultAllocator>>;

// An image of one pixel type.
template <ImagePixel PIXEL, ImageStorage ALLOCATOR = ImageDefaultAllocator>
class ImageType : public Image {
public:
    QX_API ImageType();
    ImageType(ImageType const&) = delete;
    ImageType& operator=(ImageType const&) = delete;
    QX_API ~ImageType() override;

    // As told at Image; the format is the one of PIXEL.
    QX_API PixelFormat format() const override;
    QX_API unsigned int width() const override;
    QX_API unsigned int height() const override;
    QX_API void resize(unsigned int width, unsigned int height) override;
    QX_API PixelAccessorDescriptor pixel_accessor(
        unsigned int x, unsigned int y, unsigned int width, unsigned int height) override;
    QX_API ConstPixelAccessorDescriptor pixel_accessor(
        unsigned int x, unsigned int y, unsigned int width, unsigned int height) const override;
    QX_API PixelAccessorDescriptor pixel_accessor() override;
    QX_API ConstPixelAccessorDescriptor pixel_accessor() const override;

    // The pixel at data()[y * width() + x]. Nothing is checked.
    QX_API virtual void set_pixel(unsigned int x, unsigned int y, PIXEL const& pixel);
    QX_API virtual PIXEL get_pixel(unsigned int x, unsigned int y) const;

    unsigned int capacity() const { return capacity_; }  // in pixels
    PIXEL* data() { return data_; }
    PIXEL const* data() const { return data_; }

private:
    unsigned long long bytes() const { return capacity_ * 1ull * sizeof(PIXEL); }
    void drop();

    unsigned int width_ = 0;
    unsigned int height_ = 0;
    unsigned int capacity_ = 0;
    PIXEL* data_ = nullptr;
};

}  // namespace QX
