// image.cpp - the image classes, instantiated once for every pixel type.
#include "qx/images/image.h"

#include "qx/memory/heap.h"

namespace QX {

unsigned long long ImageDefaultAllocator::mem = 0;
unsigned long long ImageDefaultAllocator::hwm = 0;
unsigned long long ImageLargeAllocator::mem = 0;
unsigned long long ImageLargeAllocator::hwm = 0;

void* ImageDefaultAllocator::allocate(unsigned long long bytes) {
    return malloc_aligned(bytes, 4, HEAP_GENERAL);
}

void ImageDefaultAllocator::release(void* pixels, unsigned long long) {
    custom_free(block_of_aligned(pixels));
}

Image::~Image() = default;

namespace {

template <typename PIXEL>
constexpr PixelFormat format_of = PIXEL_FORMAT_NONE;
template <>
constexpr PixelFormat format_of<PixelX1R5G5B5> = PIXEL_FORMAT_X1R5G5B5;
template <>
constexpr PixelFormat format_of<PixelR5G6B5> = PIXEL_FORMAT_R5G6B5;
template <>
constexpr PixelFormat format_of<PixelA1R5G5B5> = PIXEL_FORMAT_A1R5G5B5;
template <>
constexpr PixelFormat format_of<PixelA4R4G4B4> = PIXEL_FORMAT_A4R4G4B4;
template <>
constexpr PixelFormat format_of<Pixel888> = PIXEL_FORMAT_R8G8B8;
template <>
constexpr PixelFormat format_of<Pixel8888> = PIXEL_FORMAT_A8R8G8B8;
template <>
constexpr PixelFormat format_of<PixelX888> = PIXEL_FORMAT_X8R8G8B8;
template <>
constexpr PixelFormat format_of<PixelGrey8> = PIXEL_FORMAT_GREY8;

}  // namespace

template <ImagePixel PIXEL, ImageStorage ALLOCATOR>
ImageType<PIXEL, ALLOCATOR>::ImageType() = default;

template <ImagePixel PIXEL, ImageStorage ALLOCATOR>
ImageType<PIXEL, ALLOCATOR>::~ImageType() {
    drop();
}

template <ImagePixel PIXEL, ImageStorage ALLOCATOR>
void ImageType<PIXEL, ALLOCATOR>::drop() {
    if (data_) ALLOCATOR::release(data_, bytes());
    data_ = nullptr;
    width_ = height_ = capacity_ = 0;
}

template <ImagePixel PIXEL, ImageStorage ALLOCATOR>
PixelFormat ImageType<PIXEL, ALLOCATOR>::format() const {
    return format_of<PIXEL>;
}

template <ImagePixel PIXEL, ImageStorage ALLOCATOR>
unsigned int ImageType<PIXEL, ALLOCATOR>::width() const {
    return width_;
}

template <ImagePixel PIXEL, ImageStorage ALLOCATOR>
unsigned int ImageType<PIXEL, ALLOCATOR>::height() const {
    return height_;
}

template <ImagePixel PIXEL, ImageStorage ALLOCATOR>
void ImageType<PIXEL, ALLOCATOR>::resize(unsigned int columns, unsigned int rows) {
    unsigned int const count = columns * rows;
    if (count > capacity_) {
        drop();
        data_ = static_cast<PIXEL*>(ALLOCATOR::allocate(count * 1ull * sizeof(PIXEL)));
        capacity_ = count;
    }
    width_ = columns;
    height_ = rows;
}

template <ImagePixel PIXEL, ImageStorage ALLOCATOR>
PixelAccessorDescriptor ImageType<PIXEL, ALLOCATOR>::pixel_accessor(
    unsigned int x, unsigned int y, unsigned int columns, unsigned int rows) {
    unsigned int const stride = width_ * static_cast<unsigned int>(sizeof(PIXEL));
    return {data_ + (y * 1ull * width_ + x), columns, rows, stride, format_of<PIXEL>};
}

template <ImagePixel PIXEL, ImageStorage ALLOCATOR>
ConstPixelAccessorDescriptor ImageType<PIXEL, ALLOCATOR>::pixel_accessor(
    unsigned int x, unsigned int y, unsigned int columns, unsigned int rows) const {
    return const_cast<ImageType*>(this)->pixel_accessor(x, y, columns, rows);
}

template <ImagePixel PIXEL, ImageStorage ALLOCATOR>
PixelAccessorDescriptor ImageType<PIXEL, ALLOCATOR>::pixel_accessor() {
    return pixel_accessor(0, 0, width_, height_);
}

template <ImagePixel PIXEL, ImageStorage ALLOCATOR>
ConstPixelAccessorDescriptor ImageType<PIXEL, ALLOCATOR>::pixel_accessor() const {
    return pixel_accessor(0, 0, width_, height_);
}

template <ImagePixel PIXEL, ImageStorage ALLOCATOR>
void ImageType<PIXEL, ALLOCATOR>::set_pixel(unsigned int x, unsigned int y, PIXEL const& pixel) {
    data_[y * 1ull * width_ + x] = pixel;
}

template <ImagePixel PIXEL, ImageStorage ALLOCATOR>
PIXEL ImageType<PIXEL, ALLOCATOR>::get_pixel(unsigned int x, unsigned int y) const {
    return data_[y * 1ull * width_ + x];
}

#define QX_IMAGE_TYPE(PIXEL)                                                                       \
    template class ImageType<PIXEL, ImageDefaultAllocator>;                                        \
    template class ImageType<PIXEL, TrackedAllocator<ImageDefaultAllocator>>;

QX_IMAGE_TYPE(PixelX1R5G5B5)
QX_IMAGE_TYPE(PixelR5G6B5)
QX_IMAGE_TYPE(PixelA1R5G5B5)
QX_IMAGE_TYPE(PixelA4R4G4B4)
QX_IMAGE_TYPE(Pixel888)
QX_IMAGE_TYPE(Pixel8888)
QX_IMAGE_TYPE(PixelX888)
QX_IMAGE_TYPE(PixelGrey8)

#undef QX_IMAGE_TYPE

}  // namespace QX
