#include "qx/files/memory_streams.h"

#include "qx/base/compiler.h"

namespace QX {

namespace {

// `bytes`, or what is left of the block if that is less.
unsigned int limited(char const* pos, char const* end, unsigned int bytes) {
    long long const left = end - pos;
    if (left >= bytes) return bytes;
    return left > 0 ? static_cast<unsigned int>(left) : 0;
}

// Steps over one line ending: a byte of the pair takes the other of the pair with it.
char* skip_ending(char* pos, char feed, char carriage_return) {
    if ((*pos == feed && pos[1] == carriage_return) || (*pos == carriage_return && pos[1] == feed))
        ++pos;
    return pos + 1;
}

char* find_ending(char* pos, char feed, char carriage_return) {
    while (*pos != feed && *pos != carriage_return && *pos != 0) ++pos;
    return pos;
}

}  // namespace

unsigned int MemBuffer::read(void* data, unsigned int bytes) {
    bytes = limited(pos_, end_, bytes);
    if (bytes) std::memcpy(data, pos_, bytes);
    pos_ += bytes;
    return bytes;
}

unsigned int MemBuffer::write(void const* data, unsigned int bytes) {
    bytes = limited(pos_, end_, bytes);
    if (bytes) std::memcpy(pos_, data, bytes);
    pos_ += bytes;
    return bytes;
}

unsigned int MemBuffer::readln(char* line) {
    char* const ending = find_ending(pos_, '\n', '\r');
    auto const length = static_cast<unsigned int>(ending - pos_);
    std::memcpy(line, pos_, length);
    line[length] = 0;
    pos_ = skip_ending(ending, '\n', '\r');
    return length;
}

bool MemBuffer::seek(int position) {
    pos_ = (position < 0 ? end_ : first_) + position;
    return pos_ >= first_ && pos_ <= end_;
}

// No memory is touched, so the difference may wrap where the cursor is past the end.
unsigned int TestMemBuffer::write(void const*, unsigned int bytes) {
    if (end_ - pos_ < static_cast<long long>(bytes)) bytes = static_cast<unsigned int>(end_ - pos_);
    pos_ += bytes;
    return bytes;
}

unsigned int TestMemBuffer::readln(char*) {
    char* const ending = find_ending(pos_, 'n', 'r');
    auto const length = static_cast<unsigned int>(ending - pos_);
    pos_ = skip_ending(ending, 'n', 'r');
    return length;
}

bool TestMemBuffer::seek(int position) {
    pos_ = (position < 0 ? end_ : first_) + position;
    return pos_ >= first_ && pos_ <= end_;
}

MemFileIn::~MemFileIn() {
    close();
    QX_KEEP_STORES();
}

bool MemFileIn::finish_open(unsigned long long size) {
    if (size == 0) return false;
    view_ = map(0, size);
    if (!view_->data()) return false;
    pos_ = first_ = view_->data();
    end_ = first_ + size;
    mapped_ = true;
    status_ = FILE_OK;
    return true;
}

bool MemFileIn::open(char const* name) {
    close();
    return finish_open(UnbufferedFileInPlatform::open(name));
}

bool MemFileIn::open(wchar_t const* name) {
    close();
    return finish_open(UnbufferedFileInPlatform::open(name));
}

bool MemFileIn::open(char const* data, unsigned int size) {
    pos_ = first_ = data;
    end_ = data + size;
    status_ = FILE_OK;
    return true;
}

bool MemFileIn::close() {
    if (mapped_) {
        view_.reset();
        UnbufferedFileInPlatform::close();
        mapped_ = false;
    }
    pos_ = first_ = end_ = nullptr;
    status_ = FILE_NOT_FOUND;
    return true;
}

unsigned int MemFileIn::read(void* data, unsigned int bytes) {
    unsigned int const count = limited(pos_, end_, bytes);
    if (count) std::memcpy(data, pos_, count);
    pos_ = count < bytes ? end_ : pos_ + count;
    status_ = count < bytes ? FILE_END_OF_FILE : FILE_OK;
    return count;
}

unsigned int MemFileIn::readln(char* line) {
    unsigned int length = 0;
    while (pos_ < end_) {
        char const c = *pos_++;
        line[length] = c;
        if (c == 0) return length;
        if (c != '\n' && c != '\r') {
            ++length;
            continue;
        }
        // Behind a mapping there may be no page to look at; within its last page there are zeros.
        bool const in_mapping = view_ && first_ == view_->data();
        char const partner = c == '\n' ? '\r' : '\n';
        if ((pos_ < end_ || !in_mapping) && *pos_ == partner) ++pos_;
        line[length] = 0;
        status_ = FILE_OK;
        return length;
    }
    line[length] = 0;
    status_ = FILE_END_OF_FILE;
    return length;
}

bool MemFileIn::seek(int position) {
    return seek64(position);
}

bool MemFileIn::seek64(long long position) {
    unsigned long long const whole = size64();
    unsigned long long const distance =
        position < 0 ? 0 - static_cast<unsigned long long>(position) : position;
    if (distance > whole) {
        status_ = FILE_SEEK_OUT_OF_RANGE;
        return false;
    }
    pos_ = position < 0 ? end_ - distance : first_ + distance;
    status_ = FILE_OK;
    return true;
}

}  // namespace QX
