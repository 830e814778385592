// mapped_file.h - files seen as memory: a read-only mapping, views of it, and raw handles.
//
// UnbufferedFileInPlatform is the base of what reads through a mapping; UnbufferedFileIn pulls
// mapped pages in and copies them in a way that another thread can call off.
//
// Threads: an object belongs to one at a time; the memory of a view may be read by any.
#pragma once

#include "qx/base/export.h"
#include "qx/files/error_codes.h"

#include <memory>

namespace QX {

// Two raw handles; -1 means none. Owns nothing.
struct FileAndMapping {
    void* file = reinterpret_cast<void*>(~0ull);
    void* mapping = reinterpret_cast<void*>(~0ull);
};

// One view of a mapping, unmapped when it dies. A view that could not be made has null data.
class MappedFilePlatform {
public:
    // Views `size` bytes from `offset` on, high in the address space where that can be had, so
    // that the low addresses are left to the heaps. `offset` needs no alignment.
    QX_API MappedFilePlatform(void* mapping, unsigned long long offset, unsigned long long size);
    QX_API ~MappedFilePlatform();

    MappedFilePlatform(MappedFilePlatform const&) = delete;
    MappedFilePlatform& operator=(MappedFilePlatform const&) = delete;

    // A copy of the bytes in memory of its own. The view stays mapped. Null if there is no view.
    QX_API std::unique_ptr<char, std::default_delete<char>> to_RAM();

    // Where the view was mapped, which may lie before the data.
    char* view() const { return view_; }
    // The first byte asked for; null if the view could not be made.
    char* data() const { return data_; }
    // The bytes asked for.
    unsigned long long size() const { return size_; }

private:
    char* view_ = nullptr;
    char* data_ = nullptr;
    unsigned long long size_;
};

// A file with a read-only mapping of the whole of it. For deriving from.
class UnbufferedFileInPlatform {
public:
    UnbufferedFileInPlatform(UnbufferedFileInPlatform const&) = delete;
    UnbufferedFileInPlatform& operator=(UnbufferedFileInPlatform const&) = delete;

protected:
    UnbufferedFileInPlatform() = default;
    // Takes the two handles without owning them. Opens `name` if there is no file handle, and
    // makes the mapping if there is none.
    QX_API UnbufferedFileInPlatform(char const* name, FileAndMapping handles);
    QX_API UnbufferedFileInPlatform(wchar_t const* name, FileAndMapping handles);
    QX_API ~UnbufferedFileInPlatform();

    // Closes the mapping handle, then the file handle, each only if owned. Nothing is reported.
    QX_API void close();

    // Opens a plain buffered handle, shared with readers only, and maps the file. Returns the
    // size; 0 for failure, with the reason in the status. An empty file can't be mapped: 0, and
    // its handle stays owned until the next `open` or the end. A null name is no file's.
    QX_API unsigned long long open(char const* name);
    QX_API unsigned long long open(wchar_t const* name);

    FileAndMapping file_and_mapping() const { return {file_, mapping_}; }

    // Never null; look at the view's data.
    QX_API std::unique_ptr<MappedFilePlatform, std::default_delete<MappedFilePlatform>>
    map(unsigned long long offset, unsigned long long size);

    FileErrorCodes status() const { return status_; }
    // Bit 0: the file handle is this object's to close; bit 1: the mapping handle.
    unsigned int owned() const { return owned_; }
    void* file_handle() const { return file_; }
    void* mapping_handle() const { return mapping_; }

    FileErrorCodes status_ = FILE_NOT_FOUND;

private:
    unsigned long long finish_open(void* file);
    unsigned long long make_mapping();

    unsigned int owned_ = 0;
    void* file_ = reinterpret_cast<void*>(~0ull);
    void* mapping_ = reinterpret_cast<void*>(~0ull);
};

// Copying and touching of mapped memory. Where there is a `stop`, it is looked at before each page
// and before the tail; when another thread has made it true, the work ends where it stands. Neither
// pointer may be null unless `bytes` is 0; memory that can't be read faults.
class UnbufferedFileIn {
public:
    QX_API static void copy(void* to, void* from, unsigned long long bytes);
    QX_API static void copy(void* to, void* from, unsigned long long bytes, bool volatile& stop);

    // Reads one byte of each page from `data` on, so that the pages are brought in: one page and
    // one byte are two reads, a page apart.
    QX_API static void touch(void* data, unsigned long long bytes);
    QX_API static void touch(void* data, unsigned long long bytes, bool volatile& stop);
};

// Closes the file handle alone: the mapping handle stays open. False where the system refuses.
QX_API bool close_file(FileAndMapping handles);

// Moves the file to `position` from its start. FILE_OK, or what status_of_error makes of the
// system's refusal.
QX_API FileErrorCodes set_file_pointer(FileAndMapping handles, unsigned long long position);

}  // namespace QX
