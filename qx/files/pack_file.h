// pack_file.h - read-only archives of many files: packs.
//
// Opening a pack reads only its index and builds a table from name to place; docs/formats/pack.md
// tells the format. AsyncPackFile reads entries with unbuffered, asynchronous input straight into
// the caller's memory; MemPackFile maps the whole pack. Neither writes packs (the tool qxpack
// does), and no list of packs is kept: whoever has several asks each in turn.
//
// Names are case-sensitive and must be given exactly as stored. Of equal names the last wins.
// `info` points into the table and stays valid until `close`. Of a closed pack every name is
// absent; of an open one, a null name faults.
//
// Threads: a pack serves one thread, but its look-ups may be made from any while it is open.
#pragma once

#include "qx/base/export.h"
#include "qx/files/async_in.h"
#include "qx/files/memory_streams.h"
#include "qx/files/pack_index.h"

namespace QX {

// A pack for asynchronous reading. Its entries start on multiples of `aligned()`, which `open`
// requires to be a multiple of the drive's sector size, so that they can be read without buffer.
class AsyncPackFile : public AsyncIn {
public:
    using PackCallback = void (*)(AsyncPackFile& pack, void* user);
    using EntryCallback = void (*)(
        AsyncPackFile const& pack, char const* name, unsigned int offset, unsigned int size,
        void* user);

    // Closed. Dying closes, which waits for a read in flight and its callback.
    AsyncPackFile() = default;
    QX_API ~AsyncPackFile();

    AsyncPackFile(AsyncPackFile const&) = delete;
    AsyncPackFile& operator=(AsyncPackFile const&) = delete;

    // `key` is 0 for a plain pack. Closes first. False, and closed, for a file that can't be
    // opened, such as one of a null name, and for anything that is no whole pack: a wrong magic or
    // version, a short file, names without terminators, entries that do not fit the file, an
    // alignment that the drive's sector size does not divide, or memory that can't be had.
    QX_API bool open(char const* name, unsigned short key);

    // Waits, alertably, until the callback of a read in flight has run; a read that the system
    // refused is not waited for. True if the pack was open and the file closed well.
    QX_API bool close();

    QX_API bool contains(char const* name) const;
    // Null if absent.
    QX_API PackFileEntry const* info(char const* name) const;
    using AsyncIn::size;
    // 0xFFFFFFFF if absent.
    QX_API unsigned int size(char const* name) const;
    // The number of different names.
    QX_API unsigned int count() const;
    // The alignment of the entries, in bytes.
    unsigned int aligned() const { return alignment_; }

    // Calls back for each name in the table's order, which is that of a hash and not the file's.
    // The callback may not be null unless there are no names; the name that it gets is the table's.
    QX_API void enumerate(EntryCallback callback, void* user) const;

    // Reads `bytes` from `offset` in the entry, or from `position` in the file, as AsyncIn::read
    // does: file position, count and memory must meet the drive's alignment, so the last, partial
    // sector of an entry is read whole. Nothing is checked against the entry's size. False for an
    // absent name, and while a read is in flight, touching nothing; otherwise when AsyncIn::read
    // is. With a null callback the call returns when the read has ended.
    QX_API bool read(
        void* data, char const* name, unsigned int offset, unsigned int bytes,
        PackCallback callback, void* user);
    QX_API bool
    read(void* data, unsigned int position, unsigned int bytes, PackCallback callback, void* user);

    PackTable const* table() const { return table_; }
    char const* names() const { return names_; }
    // The callback of the read in flight, null if none.
    PackCallback pending_callback() const { return pending_; }

protected:
    // Clears the pending callback and goes on into it. A new read may be started from there.
    QX_API static void async_read_callback(AsyncIn& in, void* user);

private:
    bool read_index(char const* name, unsigned short key);

    PackTable* table_ = nullptr;
    PackCallback pending_ = nullptr;
    char* names_ = nullptr;  // owned
    unsigned int alignment_ = 0;
};

// A pack seen as memory. Version '2' only; without a key nothing is copied.
class MemPackFile : public MemFileIn {
public:
    using EntryCallback = void (*)(
        MemPackFile const& pack, char const* name, unsigned int offset, unsigned int size,
        void* user);

    // Closed. Dying closes.
    MemPackFile() = default;
    QX_API ~MemPackFile();

    // As AsyncPackFile::open, without the test of the alignment.
    QX_API bool open(char const* name, unsigned short key);

    // The same for a whole pack in the caller's block, which must outlive this object's use of it.
    QX_API bool open(char const* data, unsigned int size, unsigned short key);

    // Always true.
    QX_API bool close();

    QX_API bool contains(char const* name) const;
    // Null if absent.
    QX_API PackFileEntry const* info(char const* name) const;
    using MemFileIn::size;
    // 0xFFFFFFFF if absent.
    QX_API unsigned int size(char const* name) const;
    QX_API unsigned int count() const;
    unsigned int aligned() const { return alignment_; }
    // As on AsyncPackFile.
    QX_API void enumerate(EntryCallback callback, void* user) const;

    // The entry's first byte in the mapping, or null if absent. Valid until `close`.
    QX_API char const* data(char const* name) const;

    PackTable const* table() const { return table_; }
    char const* names() const { return names_; }

private:
    bool read_index(unsigned short key);

    PackTable* table_ = nullptr;
    char const* names_ = nullptr;  // in the mapping, or a copy of a keyed pack's
    unsigned int alignment_ = 0;
    bool owns_names_ = false;
};

}  // namespace QX
