// async_in.h - one overlapped, unbuffered read at a time, straight into the caller's memory.
//
// A read completes on the thread that issued it, during that thread's alertable waits and nowhere
// else (SleepEx and its kin), so an AsyncIn needs no lock and stays with its thread. A thread that
// never waits alertably never gets its callback.
//
// Position, byte count and memory of a read must all be multiples of the drive's sector size,
// which `aligns` tells: the system refuses others.
#pragma once

#include "qx/base/export.h"
#include "qx/files/error_codes.h"
#include "qx/files/file_streams.h"

namespace QX {

class AsyncIn {
public:
    // Called on the issuing thread when a read has ended, well or not: look at `status()`. From
    // here a new read may be issued or the object closed. It may be destroyed here as well, unless
    // it is a `close` of the same object that waits for the read.
    using Callback = void (*)(AsyncIn& in, void* user);

    AsyncIn() = default;
    explicit AsyncIn(char const* name) : AsyncIn() { open(name); }
    AsyncIn(AsyncIn const&) = default;
    // Copies all fields; a read in flight stays with the object that issued it.
    AsyncIn& operator=(AsyncIn const&) = default;
    // Closes, which waits for a read in flight, and leaves 6 as the error.
    QX_API ~AsyncIn();

    // Opens an existing file, shared with readers only; closes first. The result is the only
    // report: a failed open, such as one of a null name, leaves the status FILE_OK.
    QX_API bool open(char const* name);

    // Waits alertably until a read in flight has completed. False if already closed. A read that
    // the system refused at once is not waited for.
    QX_API bool close();

    // Reads `bytes` from `position` (the first 4 GiB can be reached) into `data`. With a callback
    // returns at once; without one waits, alertably, until the read has completed. False if a read
    // is in flight, changing nothing, or if the system refuses, with the reason in `status()`;
    // after a refusal further reads are false too, until the object is opened anew. How many
    // bytes came is not told.
    QX_API bool
    read(void* data, unsigned int position, unsigned int bytes, Callback callback, void* user);

    // As on FileIn.
    QX_API unsigned int size() const;
    QX_API unsigned long long size64() const;

    // The last error; if there is none, FILE_PENDING while a read is in flight, else FILE_OK.
    QX_API FileErrorCodes status() const;

    // Sets all three to the sector size of `drive`: a letter, or 0 for the current drive. False,
    // and three zeros, if it can't be told.
    QX_API static bool
    aligns(unsigned int& position, unsigned int& size, unsigned int& memory, char drive);
    // The same for the drive that `name`, which may not be null, begins with, or the current drive.
    QX_API static bool
    aligns(unsigned int& position, unsigned int& size, unsigned int& memory, char const* name);

    // As on FileIn, with a pair of its own.
    QX_API static FileOpenHook hook_open(FileOpenHook fn, void* user, void** old_user);

    // The operating system's handle, -1 when closed.
    void* handle() const { return handle_; }
    unsigned int error() const { return error_; }
    Callback callback() const { return callback_; }
    void* user() const { return user_; }

protected:
    // Whether a read of this very object is on its way, so that a completion is still to come.
    bool is_reading() const { return marker_ == this && !refused_; }
    // Whether `read` would be refused because of an earlier read.
    bool is_marked() const { return marker_ != nullptr; }

private:
    friend struct AsyncCompletion;

    // The system's overlapped record: two words that it writes, the offset, the event. The event
    // is free for the caller's use in such reads: it marks a read in flight with this object's
    // address, which is how the completion finds it.
    unsigned long long internal_[2] = {};
    unsigned int offset_ = 0;
    unsigned int offset_high_ = 0;
    AsyncIn* marker_ = nullptr;

    void* handle_ = reinterpret_cast<void*>(~0ull);
    mutable unsigned int error_ = 6;
    bool refused_ = false;  // the marker stands for a read that never began
    Callback callback_ = nullptr;
    void* user_ = nullptr;
};

// Sector sizes, asked of the system once a drive. Filled without a lock: each writer stores the
// same value.
class AsyncInPlatform {
public:
    // Slot 0 for the current drive, 1 to 26 for 'A' to 'Z'; 0 means not yet asked.
    QX_API static unsigned int alignments[27];

    // The sector size in bytes, at least 8. 0 for anything but 0 and the letters of both cases,
    // and for a drive that the system knows nothing of.
    QX_API static unsigned int alignment(char drive);
};

// The sector size of the current drive.
class DiskGeometry {
public:
    // Asks the system; 512 if it does not know.
    QX_API static void init();

    QX_API static unsigned long long s_bytes_per_sector;
    // The size negated: AND with it rounds down to a sector.
    QX_API static unsigned long long s_bytes_per_sector_mask;
};

}  // namespace QX
