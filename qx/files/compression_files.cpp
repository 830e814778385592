#include <memory>
#include <new>

#include "qx/files/compression.h"
#include "qx/files/compression_impl.h"
#include "qx/files/file_streams.h"
#include "qx/memory/heap.h"

namespace QX {

namespace {

constexpr unsigned int in_buffer_size = 1048576;
constexpr unsigned int out_buffer_size = 2097152;
// Streaming uses so much of the output buffer.
constexpr unsigned int out_block_size = 1048576;

struct Release {
    void operator()(Bytef* block) const { custom_free(block); }
};
using Buffer = std::unique_ptr<Bytef, Release>;

// A source and, unless only the size is asked for, a destination, with a buffer each.
class Transfer {
public:
    bool open(char const* dest_file, char const* source_file);

    bool is_single_block() const { return remaining_ <= in_buffer_size; }
    unsigned int compress_block(unsigned int level);

    // Runs `step` of the library over the whole file.
    unsigned int run(z_stream& stream, int (*step)(z_stream*, int));

private:
    bool allocate();
    bool read_block(z_stream& stream);
    bool write(unsigned int bytes);
    bool finish_writing();

    FileIn source_;
    FileOut dest_;
    bool is_writing_ = false;
    Buffer in_, out_;
    unsigned int remaining_ = 0;  // bytes of the source not yet read
};

bool Transfer::allocate() {
    try {
        in_.reset(static_cast<Bytef*>(custom_malloc(in_buffer_size, HEAP_GENERAL)));
        out_.reset(static_cast<Bytef*>(custom_malloc(out_buffer_size, HEAP_GENERAL)));
    } catch (std::bad_alloc const&) {
        return false;
    }
    return true;
}

bool Transfer::open(char const* dest_file, char const* source_file) {
    FileInf inf;
    if (!inf.stat(source_file) || inf.size >= compressed_file_limit) return false;
    remaining_ = static_cast<unsigned int>(inf.size);
    if (!source_.open(source_file, false) || !allocate()) return false;
    is_writing_ = dest_file != nullptr;
    return !is_writing_ || dest_.open(dest_file, false, true);
}

bool Transfer::write(unsigned int bytes) {
    return !is_writing_ || dest_.write(out_.get(), bytes) == bytes;
}

// The last bytes may only now meet a full disk.
bool Transfer::finish_writing() {
    return !is_writing_ || dest_.close();
}

bool Transfer::read_block(z_stream& stream) {
    unsigned int const size = remaining_ < in_buffer_size ? remaining_ : in_buffer_size;
    if (size && source_.read(in_.get(), size) != size) return false;
    remaining_ -= size;
    stream.next_in = in_.get();
    stream.avail_in = size;
    return true;
}

unsigned int Transfer::compress_block(unsigned int level) {
    unsigned int const size = remaining_;
    if (source_.read(in_.get(), size) != size) return 0;
    unsigned int const bytes = compress(out_.get(), out_buffer_size, in_.get(), size, level);
    return write(bytes) && finish_writing() ? bytes : 0;
}

unsigned int Transfer::run(z_stream& stream, int (*step)(z_stream*, int)) {
    bool is_moving = true;
    stream.avail_out = out_block_size;
    while (is_moving) {
        if (stream.avail_out != out_block_size && !write(out_block_size - stream.avail_out))
            return 0;
        stream.next_out = out_.get();
        stream.avail_out = out_block_size;
        if (stream.avail_in == 0 && !read_block(stream)) return 0;
        unsigned int const in_before = stream.avail_in;
        step(&stream, remaining_ ? Z_NO_FLUSH : Z_FINISH);
        is_moving = stream.avail_in != in_before || stream.avail_out != out_block_size;
    }
    return remaining_ == 0 && finish_writing() ? stream.total_out : 0;
}

}  // namespace

unsigned int compress(char const* dest_file, char const* source_file, unsigned int level) {
    Transfer transfer;
    if (!transfer.open(dest_file, source_file)) return 0;
    if (transfer.is_single_block()) return transfer.compress_block(level);
    z_stream stream = {};
    if (deflateInit_(&stream, static_cast<int>(level), zlib_wanted_version, zlib_record_size) !=
        Z_OK)
        return 0;
    unsigned int const bytes = transfer.run(stream, deflate);
    deflateEnd(&stream);
    return bytes;
}

unsigned int decompress(char const* dest_file, char const* source_file) {
    Transfer transfer;
    if (!transfer.open(dest_file, source_file)) return 0;
    z_stream stream = {};
    if (inflateInit_(&stream, zlib_wanted_version, zlib_record_size) != Z_OK) return 0;
    unsigned int const bytes = transfer.run(stream, inflate);
    inflateEnd(&stream);
    return bytes;
}

}  // namespace QX
