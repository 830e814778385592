// file_streams.h - plain streams on disk files: FileIn, FileOut, EndianOut, and FileInf.
//
// Small value classes without virtual operations. Nothing raises, but for an open hook and the
// memory of a String that is read: a failure is a false, a short count or an all-ones value, and
// the stream keeps the raw error number for `status()`. Almost every operation overwrites that
// number, `size` and `tell` included.
//
//     after                            error     status()
//     FileIn()                      =>  6         FILE_NOT_FOUND
//     FileOut()                     =>  3         FILE_NOT_FOUND
//     a read or write cut short     =>  38        FILE_END_OF_FILE
//     a complete read or write      =>  as it was (a 38 stays)
//     a seek, tell, size or close   =>  0, or the error's number
//
// Copies share the handle and nothing counts references: the copy that closes first wins.
// A position below zero counts from the end of the file: seek(-1) goes to the last byte.
// Threads: a stream belongs to one thread at a time.
#pragma once

#include "qx/base/export.h"
#include "qx/files/error_codes.h"
#include "qx/text/string.h"

struct _iobuf;

namespace QX {

// Called with the wide name after a file was opened. A narrow name is widened byte by byte, each
// zero-extended; without memory for that the open fails with an 8. What a hook throws passes
// through the open, and the file stays open. One pair a class, process-wide, no lock: set it before
// files are opened.
using FileOpenHook = void (*)(wchar_t const* name, void* user);

// Opens a file as FileIn does and hands out the raw handle: -1 on failure, with the reason in the
// system's last error. Calls no hook.
QX_API void* open_file(char const* name, bool no_buffering);
QX_API void* open_file(wchar_t const* name, bool no_buffering);

// Reads a file through the operating system's handle, with no buffer of its own: each `read` is
// one system read.
class FileIn {
public:
    FileIn() = default;
    FileIn(char const* name, bool no_buffering) : FileIn() { open(name, no_buffering); }
    FileIn(FileIn const&) = default;
    FileIn& operator=(FileIn const&) = default;
    // Closes if open and leaves 6 as the error.
    QX_API ~FileIn();

    // Opens an existing file for reading, shared with readers and writers; closes first if open.
    // False leaves the stream closed, with the reason in `status()`; a null name is no file's and
    // gives FILE_NOT_FOUND. With `no_buffering` the file
    // is opened unbuffered and overlapped, and read under the system's rules for such handles:
    // nothing is aligned for the caller, and plain reads of such a handle fail on most systems.
    QX_API bool open(char const* name, bool no_buffering);
    QX_API bool open(wchar_t const* name, bool no_buffering);

    // False if already closed (the error then stays) or if the system refused.
    QX_API bool close();

    // Returns the bytes transferred. The error becomes 38 if fewer than asked came, the system's
    // number if the read failed, and stays as it was after a complete read.
    QX_API unsigned int read(void* data, unsigned int bytes);

    // Reads up to and over a line end, which is neither stored nor counted, and terminates `line`.
    // The line end is 10, 13, 10 13 or 13 10. A 0 byte ends a line too. Returns the length; the
    // error is 38 if the end of the file was met. `line` has no bound: it must hold the longest.
    //
    //     "a\n\rb"  =>  "a", "b"        "a\n\nb"  =>  "a", "", "b"        "a\0b"  =>  "a", "b"
    QX_API unsigned int readln(char* line);

    // From the start, or from the end where below zero. A success clears the error.
    QX_API bool seek(int position);
    QX_API bool seek64(long long position);

    // The low 32 bits, or all 64. All ones on failure.
    QX_API unsigned int tell() const;
    QX_API unsigned long long tell64() const;
    QX_API unsigned int size() const;
    QX_API unsigned long long size64() const;

    FileErrorCodes status() const { return status_of_error(error_); }
    // The raw number behind `status()`; a reader that works ahead sets it back with `set_error`.
    unsigned int error() const { return error_; }
    void set_error(unsigned int raw) { error_ = raw; }

    // The operating system's handle, -1 when closed.
    void* os_id() const { return handle_; }
    void* handle() const { return handle_; }
    bool operator==(FileIn const& other) const { return handle_ == other.handle_; }

    // Replaces the pair and returns the old function; the old `user` goes to `old_user` unless
    // that is null. A null `fn` turns the hook off.
    QX_API static FileOpenHook hook_open(FileOpenHook fn, void* user, void** old_user);

private:
    bool finish_open(void* handle);

    void* handle_ = reinterpret_cast<void*>(~0ull);
    mutable unsigned int error_ = 6;
};

// A string in a file: a 16-bit length, low byte first, then that many bytes. If the length can't
// be read whole, what came of it is the length; if the body is short, zeros stand behind it. The
// stream's error tells.
QX_API FileIn& operator>>(FileIn& file, String& text);

// Writes a file through the C library's buffered stream. On a closed stream `write` gives 0 and
// the other operations fail as the C library does for a bad argument, but for `flush`.
class FileOut {
public:
    FileOut() = default;
    explicit FileOut(char const* name) { open(name, false, true); }
    FileOut(FileOut const&) = default;
    FileOut& operator=(FileOut const&) = default;
    // Closes if open and leaves 6 as the error.
    QX_API ~FileOut();

    // Creates or empties the file, or goes on behind its end with `append`. Closes first if open.
    // The third argument is accepted and not looked at. `name` may not be null, here and in
    // FileInf; false where the C library refuses, with its errno as the error.
    QX_API bool open(char const* name, bool append, bool unused);
    QX_API bool open(wchar_t const* name, bool append, bool unused);

    // False if already closed (the error then stays) or if the last bytes could not be written.
    QX_API bool close();

    // A success leaves the error alone. On a closed stream flushes every open one of the process,
    // as the C library has it.
    QX_API bool flush();

    // Returns the bytes written. If that is short, the error is 38 at the end of the file, else
    // the stream's `ferror` value.
    QX_API unsigned int write(void const* data, unsigned int bytes);

    // As on FileIn.
    QX_API bool seek(int position);
    QX_API bool seek64(long long position);

    // All ones on failure.
    QX_API unsigned int tell() const;
    QX_API unsigned long long tell64() const;

    FileErrorCodes status() const { return status_of_error(error_); }
    // The raw number behind `status()`.
    unsigned int error() const { return error_; }
    void set_error(unsigned int raw) { error_ = raw; }

    // The C library's stream, null when closed.
    _iobuf* file() const { return file_; }

    // As on FileIn, with a pair of its own. No open of this class ever calls it.
    QX_API static FileOpenHook hook_open(FileOpenHook fn, void* user, void** old_user);

private:
    bool finish_open(_iobuf* file);

    _iobuf* file_ = nullptr;
    mutable unsigned int error_ = 3;
};

// A FileOut that may reverse the bytes of each multi-byte value. The caller's data stays as it is.
//
//     write4 of 1 2 3 4, swapping  =>  4 3 2 1 in the file
class EndianOut : public FileOut {
public:
    EndianOut() = default;
    EndianOut(bool swap, char const* name) : FileOut(name), swap_(swap) {}

    // As FileOut's; `swap` holds until the next open.
    QX_API bool open(bool swap, char const* name, bool append);

    // Each writes one value of so many bytes and returns the bytes written. `write16` reverses its
    // 16 bytes as one unit: it suits one 128-bit value and not four floats.
    unsigned int write1(void const* value) { return write(value, 1); }
    QX_API unsigned int write2(void const* value);
    QX_API unsigned int write4(void const* value);
    QX_API unsigned int write8(void const* value);
    QX_API unsigned int write16(void const* value);

    // Plain bytes; never swaps.
    unsigned int writes(char const* text, unsigned int bytes) { return write(text, bytes); }

    bool swap() const { return swap_; }

private:
    unsigned int write_value(void const* value, unsigned int bytes);

    bool swap_ = false;
};

// One file's attributes.
struct FileInf {
    unsigned long long size = 0;  // in bytes
    unsigned int time = 0;        // of the last write, in seconds since 1970, cut to 32 bits
    bool readable = false;
    bool writable = false;
    bool directory = false;
    bool hidden = false;
    bool reserved = false;

    // Fills all but `hidden` and `reserved`, which keep what they held. False leaves the whole
    // record alone.
    QX_API bool stat(char const* name);
    QX_API bool stat(wchar_t const* name);
};

}  // namespace QX
