// memory_streams.h - memory read and written in the manner of a file.
//
// MemBuffer is a cursor over the caller's block, TestMemBuffer the same without touching memory
// (run a serialiser over it, and `tell` gives the size needed), MemFileIn a read-only file seen as
// memory. None allocates while working. An object belongs to one thread; several MemFileIn may
// read one block at once.
//
// A position below zero counts from the end.
#pragma once

#include "qx/base/compiler.h"
#include "qx/base/export.h"
#include "qx/files/error_codes.h"
#include "qx/files/mapped_file.h"

#include <cstring>
#include <memory>

namespace QX {

namespace detail {

// What the two cursors share: the block, the place in it, and how both are told.
class MemoryCursor {
public:
    // Begins at the start of the caller's block, which must outlive the use of it. Always true.
    bool open(char* data, unsigned int size) {
        pos_ = first_ = data;
        end_ = data + size;
        return true;
    }

    // Forgets where the block ends, and frees nothing. Always true. From then on `read` and `write`
    // move nothing, `status` is FILE_END_OF_FILE and `size` means nothing; `tell` and the typed
    // transfers go on as before.
    bool close() {
        end_ = nullptr;
        return true;
    }

    // In bytes, cut to 32 bits; before the first `open` both are 0.
    unsigned int tell() const { return static_cast<unsigned int>(pos_ - first_); }
    unsigned int size() const { return static_cast<unsigned int>(end_ - first_); }

    // FILE_END_OF_FILE at the block's end and behind it, and while no block is open, else FILE_OK.
    FileErrorCodes status() const { return pos_ >= end_ ? FILE_END_OF_FILE : FILE_OK; }

    char* pos() { return pos_; }
    char const* pos() const { return pos_; }
    char* first() { return first_; }
    char const* first() const { return first_; }
    char* end() { return end_; }
    char const* end() const { return end_; }

protected:
    char* pos_ = nullptr;
    char* first_ = nullptr;
    char* end_ = nullptr;  // one past the block
};

}  // namespace detail

// A cursor over a fixed block that the caller owns. Never grows, never allocates.
class MemBuffer : public detail::MemoryCursor {
public:
    MemBuffer() = default;
    MemBuffer(char* data, unsigned int size) { open(data, size); }
    ~MemBuffer() { QX_STORE_LAST(end_, nullptr); }
    MemBuffer(MemBuffer const&) = default;
    MemBuffer& operator=(MemBuffer const&) = default;

    // Moves up to `bytes` and returns how many; a transfer that is cut short leaves no mark but
    // the count. A cursor outside the block, behind its end, moves nothing.
    QX_API unsigned int read(void* data, unsigned int bytes);
    QX_API unsigned int write(void const* data, unsigned int bytes);

    // Copies up to a 10, 13 or 0 byte, terminates `line`, and steps over the ending (10 13 and
    // 13 10 count as one). Returns the length. There is no test of the block's end, nor a bound on
    // `line`: the text needs one of the three bytes.
    QX_API unsigned int readln(char* line);

    // False if the cursor now lies outside the block: it is moved all the same.
    QX_API bool seek(int position);

    // The value's own bytes, low byte first, at the cursor. No bound is tested.
    MemBuffer& operator<<(char value) { return put(value); }
    MemBuffer& operator<<(unsigned char value) { return put(value); }
    MemBuffer& operator<<(bool value) { return put(value); }
    MemBuffer& operator<<(short value) { return put(value); }
    MemBuffer& operator<<(unsigned short value) { return put(value); }
    MemBuffer& operator<<(int value) { return put(value); }
    MemBuffer& operator<<(unsigned int value) { return put(value); }
    MemBuffer& operator<<(float value) { return put(value); }
    MemBuffer& operator<<(long long value) { return put(value); }
    MemBuffer& operator<<(unsigned long long value) { return put(value); }
    MemBuffer& operator<<(double value) { return put(value); }

    MemBuffer& operator>>(char& value) { return get(value); }
    MemBuffer& operator>>(unsigned char& value) { return get(value); }
    MemBuffer& operator>>(bool& value) { return get(value); }
    MemBuffer& operator>>(short& value) { return get(value); }
    MemBuffer& operator>>(unsigned short& value) { return get(value); }
    MemBuffer& operator>>(int& value) { return get(value); }
    MemBuffer& operator>>(unsigned int& value) { return get(value); }
    MemBuffer& operator>>(float& value) { return get(value); }
    MemBuffer& operator>>(long long& value) { return get(value); }
    MemBuffer& operator>>(unsigned long long& value) { return get(value); }
    MemBuffer& operator>>(double& value) { return get(value); }

private:
    template <typename T>
    MemBuffer& put(T value) {
        std::memcpy(pos_, &value, sizeof value);
        pos_ += sizeof value;
        return *this;
    }

    template <typename T>
    MemBuffer& get(T& value) {
        std::memcpy(&value, pos_, sizeof value);
        pos_ += sizeof value;
        return *this;
    }
};

// MemBuffer's interface, moving the cursor and nothing else: reading leaves the values as they
// are, writing leaves the block as it is.
class TestMemBuffer : public detail::MemoryCursor {
public:
    TestMemBuffer() = default;
    TestMemBuffer(char* data, unsigned int size) { open(data, size); }
    ~TestMemBuffer() { QX_STORE_LAST(end_, nullptr); }
    TestMemBuffer(TestMemBuffer const&) = default;
    TestMemBuffer& operator=(TestMemBuffer const&) = default;

    // Move the cursor as such a transfer would and return what it would move; touch nothing.
    unsigned int read(void* data, unsigned int bytes) { return write(data, bytes); }
    QX_API unsigned int write(void const* data, unsigned int bytes);

    // Looks at the block, writes nothing to `line`. The two bytes that end a line are the letters
    // 'n' and 'r' here, so a real line ending ends nothing; 0 does.
    //
    //     "one"  =>  1, and the cursor behind the 'n'
    QX_API unsigned int readln(char* line);

    // As on MemBuffer: moves first and tests afterwards.
    QX_API bool seek(int position);

    TestMemBuffer& operator<<(char) { return step(1); }
    TestMemBuffer& operator<<(unsigned char) { return step(1); }
    TestMemBuffer& operator<<(bool) { return step(1); }
    TestMemBuffer& operator<<(short) { return step(2); }
    TestMemBuffer& operator<<(unsigned short) { return step(2); }
    TestMemBuffer& operator<<(int) { return step(4); }
    TestMemBuffer& operator<<(unsigned int) { return step(4); }
    TestMemBuffer& operator<<(float) { return step(4); }
    TestMemBuffer& operator<<(long long) { return step(8); }
    TestMemBuffer& operator<<(unsigned long long) { return step(8); }
    TestMemBuffer& operator<<(double) { return step(8); }

    TestMemBuffer& operator>>(char&) { return step(1); }
    TestMemBuffer& operator>>(unsigned char&) { return step(1); }
    TestMemBuffer& operator>>(bool&) { return step(1); }
    TestMemBuffer& operator>>(short&) { return step(2); }
    TestMemBuffer& operator>>(unsigned short&) { return step(2); }
    TestMemBuffer& operator>>(int&) { return step(4); }
    TestMemBuffer& operator>>(unsigned int&) { return step(4); }
    TestMemBuffer& operator>>(float&) { return step(4); }
    TestMemBuffer& operator>>(long long&) { return step(8); }
    TestMemBuffer& operator>>(unsigned long long&) { return step(8); }
    TestMemBuffer& operator>>(double&) { return step(8); }

private:
    TestMemBuffer& step(unsigned int width) {
        pos_ += width;
        return *this;
    }
};

// A read-only file seen as memory: a mapping of the whole file, or a block that the caller keeps.
class MemFileIn : public UnbufferedFileInPlatform {
public:
    MemFileIn() = default;
    QX_API ~MemFileIn();

    // Maps the whole file; closes first. False for a file that is missing, empty or can't be
    // mapped, with the reason in `status()`.
    QX_API bool open(char const* name);
    QX_API bool open(wchar_t const* name);

    // Looks at the caller's block. Does not close what was open before. Always true.
    QX_API bool open(char const* data, unsigned int size);

    // Safe in any state, and always true. Handles go back only if a mapping was open. Place and
    // size are 0 from then on, and the three pointers null.
    QX_API bool close();

    // Returns the bytes copied; fewer than asked at the end, with FILE_END_OF_FILE.
    QX_API unsigned int read(void* data, unsigned int bytes);

    // Reads up to and over a line end, as FileIn::readln does. Returns the length. `status()` is
    // FILE_OK after a line end, FILE_END_OF_FILE if the data ended first, and stays as it was
    // after a 0 byte. In a caller's block the byte behind a 10 or 13 is looked at even if it lies
    // behind the block. `line` has no bound.
    QX_API unsigned int readln(char* line);

    // A target outside the data gives false and FILE_SEEK_OUT_OF_RANGE; the cursor stays.
    QX_API bool seek(int position);
    QX_API bool seek64(long long position);

    unsigned int tell() const { return static_cast<unsigned int>(tell64()); }
    unsigned long long tell64() const { return static_cast<unsigned long long>(pos_ - first_); }
    unsigned int size() const { return static_cast<unsigned int>(size64()); }
    unsigned long long size64() const { return static_cast<unsigned long long>(end_ - first_); }

    // FILE_NOT_FOUND while closed.
    FileErrorCodes status() const { return status_; }
    void set_status(FileErrorCodes value) { status_ = value; }

    char const* pos() const { return pos_; }
    char const* first() const { return first_; }
    char const* end() const { return end_; }
    // Whether the data is a mapping that this object made.
    bool mapped() const { return mapped_; }
    // The mapping, null when there is none.
    std::unique_ptr<MappedFilePlatform> const& view() const { return view_; }

private:
    bool finish_open(unsigned long long size);

    char const* pos_ = nullptr;
    char const* first_ = nullptr;
    char const* end_ = nullptr;  // one past the data
    bool mapped_ = false;
    std::unique_ptr<MappedFilePlatform> view_;
};

}  // namespace QX
