#include "qx/files/compression.h"

#include "qx/files/compression_impl.h"

namespace QX {

namespace {

constexpr int memory_level = 8;

int window_bits(COMPRESSION_FORMAT format) {
    switch (format) {
    case COMPRESSION_FORMAT_RAW: return -15;
    case COMPRESSION_FORMAT_GZIP: return 31;
    default: return 15;
    }
}

z_stream stream_over(void* dest, unsigned int dest_size, void* source, unsigned int source_size) {
    z_stream stream = {};
    stream.next_in = static_cast<Bytef*>(source);
    stream.avail_in = source_size;
    stream.next_out = static_cast<Bytef*>(dest);
    stream.avail_out = dest_size;
    return stream;
}

bool is_stuck(z_stream const& stream, unsigned int in_before, unsigned int out_before) {
    return stream.avail_in == in_before && stream.avail_out == out_before;
}

// Expands all that there is, however many calls that takes. False for anything but a whole stream.
bool inflate_whole(z_stream& stream) {
    for (;;) {
        unsigned int const in_before = stream.avail_in, out_before = stream.avail_out;
        int const result = inflate(&stream, Z_FINISH);
        if (result == Z_STREAM_END) return true;
        if (result != Z_OK && result != Z_BUF_ERROR) return false;
        if (is_stuck(stream, in_before, out_before)) return false;
    }
}

}  // namespace

unsigned int compress_specific_format(
    void* dest, unsigned int dest_size, void* source, unsigned int source_size,
    COMPRESSION_FORMAT format, unsigned int level) {
    z_stream stream = stream_over(dest, dest_size, source, source_size);
    int result = deflateInit2_(
        &stream, static_cast<int>(level), Z_DEFLATED, window_bits(format), memory_level,
        Z_DEFAULT_STRATEGY, zlib_wanted_version, zlib_record_size);
    if (result != Z_OK) {
        deflateEnd(&stream);
        return 0;
    }
    do result = deflate(&stream, Z_FINISH);
    while (result == Z_OK);
    // A call that the library refuses, as with a null `dest`, leaves the stream unended.
    if (result != Z_STREAM_END && result != Z_BUF_ERROR) return 0;
    deflateEnd(&stream);
    return result == Z_STREAM_END ? stream.total_out : 0;
}

unsigned int compress(
    void* dest, unsigned int dest_size, void* source, unsigned int source_size,
    unsigned int level) {
    return compress_specific_format(
        dest, dest_size, source, source_size, COMPRESSION_FORMAT_ZLIB, level);
}

unsigned int decompress_specific_format(
    void* dest, unsigned int dest_size, void* source, unsigned int source_size,
    COMPRESSION_FORMAT format) {
    z_stream stream = stream_over(dest, dest_size, source, source_size);
    if (inflateInit2_(&stream, window_bits(format), zlib_wanted_version, zlib_record_size) != Z_OK)
        return 0;
    bool const whole = inflate_whole(stream);
    inflateEnd(&stream);
    return whole ? stream.total_out : 0;
}

unsigned int
decompress(void* dest, unsigned int dest_size, void* source, unsigned int source_size) {
    return decompress_specific_format(
        dest, dest_size, source, source_size, COMPRESSION_FORMAT_ZLIB);
}

}  // namespace QX
