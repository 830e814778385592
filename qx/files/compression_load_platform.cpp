#include <algorithm>
#include <new>

#include "qx/base/windows.h"
#include "qx/files/async_in.h"
#include "qx/files/compression.h"
#include "qx/files/compression_impl.h"
#include "qx/files/file_streams.h"
#include "qx/memory/heap.h"

namespace QX {

namespace {

void* zlib_alloc(void*, unsigned int items, unsigned int size) {
    try {
        return custom_malloc(1ull * items * size, HEAP_GENERAL);
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}

void zlib_free(void*, void* block) {
    custom_free(block);
}

unsigned int sector_size(char const* name) {
    unsigned int position, size, memory;
    return AsyncIn::aligns(position, size, memory, name) ? size : 0;
}

void set_flag(AsyncIn&, void* flag) {
    *static_cast<bool*>(flag) = true;
}

// A file that comes block by block into the two halves of a buffer.
class BlockReader {
public:
    BlockReader(void* buffer, unsigned int block_size)
        : halves_{static_cast<char*>(buffer), static_cast<char*>(buffer) + block_size},
          block_size_(block_size) {}

    bool open(char const* name);

    // Asks for the next block, which goes into the half that is not being worked on.
    void ask();
    // Waits for it. False if it could not be read.
    bool wait();
    // Makes the block that has come the stream's input.
    void hand_over(z_stream& stream);

    bool is_at_end() const { return position_ == size_; }
    unsigned int size() const { return size_; }

private:
    unsigned int coming() const { return std::min(block_size_, size_ - position_); }

    AsyncIn file_;
    char* halves_[2];
    unsigned int block_size_;
    unsigned int sector_size_ = 0;
    unsigned int size_ = 0;
    unsigned int position_ = 0;  // bytes handed over
    unsigned int target_ = 1;    // the half for the next block
    bool is_asked_ = false, has_arrived_ = false;
};

bool BlockReader::open(char const* name) {
    FileInf inf;
    if (!inf.stat(name) || inf.size >= compressed_file_limit) return false;
    size_ = static_cast<unsigned int>(inf.size);
    sector_size_ = sector_size(name);
    return sector_size_ && block_size_ && file_.open(name);
}

void BlockReader::ask() {
    unsigned int const sectors = (coming() + sector_size_ - 1) / sector_size_;
    unsigned int const bytes = coming() == block_size_ ? block_size_ : sectors * sector_size_;
    has_arrived_ = false;
    is_asked_ = file_.read(halves_[target_], position_, bytes, set_flag, &has_arrived_);
}

bool BlockReader::wait() {
    if (!is_asked_) return false;
    while (!has_arrived_) SleepEx(INFINITE, TRUE);
    return file_.error() == 0;
}

void BlockReader::hand_over(z_stream& stream) {
    stream.next_in = reinterpret_cast<Bytef*>(halves_[target_]);
    stream.avail_in = coming();
    position_ += coming();
    target_ ^= 1;
}

}  // namespace

unsigned int decompress(
    void* dest, unsigned int dest_size, char const* source_file, void* buffer,
    unsigned int buffer_size,
    void (*progress)(
        void* dest, unsigned int out_so_far, unsigned int in_so_far, unsigned int in_total,
        void* user),
    void* user) {
    BlockReader reader(buffer, buffer_size);
    if (!reader.open(source_file)) return 0;
    z_stream stream = {};
    stream.zalloc = zlib_alloc;
    stream.zfree = zlib_free;
    stream.next_out = static_cast<Bytef*>(dest);
    stream.avail_out = dest_size;
    auto const report = [&] {
        if (progress) progress(dest, stream.total_out, stream.total_in, reader.size(), user);
    };

    report();
    if (reader.is_at_end()) return 0;
    reader.ask();
    if (!reader.wait()) return 0;
    reader.hand_over(stream);
    if (inflateInit_(&stream, zlib_wanted_version, zlib_record_size) != Z_OK) return 0;
    for (bool more = true; more;) {
        more = !reader.is_at_end();
        if (more) reader.ask();
        inflate(&stream, Z_NO_FLUSH);
        report();
        if (!more || !reader.wait()) break;
        reader.hand_over(stream);
    }
    inflate(&stream, Z_FINISH);
    report();
    inflateEnd(&stream);
    return stream.total_out;
}

}  // namespace QX
