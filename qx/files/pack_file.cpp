#include "qx/files/pack_file.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "qx/files/file_streams.h"
#include "qx/memory/heap.h"

namespace QX {

namespace {

constexpr unsigned int absent_size = 0xFFFFFFFF;
constexpr unsigned int front_size = 12;  // magic, version and the two sizes
constexpr unsigned int narrowing_block = 0x8000;
constexpr unsigned long long pack_size_max = 0xFFFFFFFF;

struct BlockRelease {
    void operator()(void* block) const { custom_free(block); }
};

template <typename T>
using Block = std::unique_ptr<T[], BlockRelease>;

template <typename T>
Block<T> allocate(unsigned long long count) {
    // A block of 0 bytes counts as there.
    return Block<T>(
        static_cast<T*>(custom_malloc(std::max(count, 1ull) * sizeof(T), HEAP_GENERAL)));
}

Block<char> copy_of(char const* bytes, unsigned long long size) {
    Block<char> copy = allocate<char>(size);
    std::memcpy(copy.get(), bytes, size);
    return copy;
}

// Either kind of stream, read to the last byte asked for or not at all.
template <typename Stream>
bool read_whole(Stream& file, void* data, unsigned int bytes) {
    return file.read(data, bytes) == bytes;
}

// The header, with the mask taken off, if what follows it can be a whole index.
template <typename Stream>
bool read_header(Stream& file, unsigned long long file_size, PackMask& mask, PackHeader& header) {
    unsigned char front[front_size];
    if (!read_whole(file, front, front_size)) return false;
    if (std::memcmp(front, "PAK", 3) != 0) return false;
    header.version = front[3];
    if (header.version < '0' || header.version > '2') return false;

    bool const has_alignment = header.version != '0';
    if (has_alignment && !read_whole(file, &header.alignment, 4)) return false;
    mask.apply(front + 4, 8);
    if (has_alignment) mask.apply(&header.alignment, 4);
    std::memcpy(&header.name_size, front + 4, 4);
    std::memcpy(&header.count, front + 8, 4);
    return header.count <= header.name_size &&
           header.index_size() <= std::min(file_size, pack_size_max);
}

// Of 16-bit characters, the low byte each.
bool read_wide_names(FileIn& file, char* names, unsigned int count) {
    auto const wide = allocate<unsigned short>(narrowing_block);
    while (count) {
        unsigned int const step = std::min(count, narrowing_block);
        if (!read_whole(file, wide.get(), 2 * step)) return false;
        for (unsigned int i = 0; i < step; ++i) names[i] = static_cast<char>(wide[i]);
        names += step;
        count -= step;
    }
    return true;
}

// By way of memory that is in use already: the system's reads into fresh pages take three times as
// long as a copy does.
bool read_into_fresh(FileIn& file, void* data, unsigned int bytes) {
    char piece[16384];
    auto to = static_cast<char*>(data);
    while (bytes) {
        unsigned int const step = std::min<unsigned int>(bytes, sizeof piece);
        if (!read_whole(file, piece, step)) return false;
        std::memcpy(to, piece, step);
        to += step;
        bytes -= step;
    }
    return true;
}

bool read_names(FileIn& file, PackHeader const& header, char* names) {
    if (header.version == '2') return read_into_fresh(file, names, header.name_size);
    return read_wide_names(file, names, header.name_size);
}

template <typename Pack>
void enumerate_entries(Pack const& pack, typename Pack::EntryCallback callback, void* user) {
    if (!pack.table()) return;
    for (PackTable::Slot const& slot : *pack.table()) {
        if (slot.name) callback(pack, slot.name, slot.entry.offset, slot.entry.size, user);
    }
}

PackFileEntry const* find_entry(PackTable const* table, char const* name) {
    return table ? table->find(name) : nullptr;
}

unsigned int size_of(PackFileEntry const* entry) {
    return entry ? entry->size : absent_size;
}

unsigned int used_count(PackTable const* table) {
    return table ? table->used_count() : 0;
}

}  // namespace

AsyncPackFile::~AsyncPackFile() {
    close();
}

bool AsyncPackFile::open(char const* name, unsigned short key) {
    close();
    bool opened = false;
    try {
        opened = read_index(name, key) && AsyncIn::open(name);
    } catch (std::bad_alloc const&) {}
    if (!opened) close();
    return opened;
}

bool AsyncPackFile::read_index(char const* name, unsigned short key) {
    FileIn file;
    if (!file.open(name, false)) return false;
    unsigned long long const file_size = file.size64();
    if (file_size == ~0ull) return false;
    PackMask mask(key);
    PackHeader header;
    if (!read_header(file, file_size, mask, header)) return false;
    alignment_ = header.alignment;

    unsigned int position, bytes, sector;
    if (!aligns(position, bytes, sector, name) || header.alignment % sector != 0) return false;

    table_ = PackTable::create(header.count);
    names_ = allocate<char>(header.name_size).release();
    if (!read_names(file, header, names_)) return false;
    mask.apply(names_, header.name_size);
    auto const ends = allocate<unsigned int>(header.count);
    unsigned int const ends_size = header.count * sizeof(unsigned int);
    if (!read_into_fresh(file, ends.get(), ends_size)) return false;
    mask.apply(ends.get(), ends_size);
    return table_->fill(header, names_, ends.get(), file_size);
}

bool AsyncPackFile::close() {
    bool const closed = AsyncIn::close();
    bool const was_whole = table_ && names_;
    PackTable::destroy(table_);
    if (names_) custom_free(names_);
    table_ = nullptr;
    names_ = nullptr;
    pending_ = nullptr;  // set still if the system refused the read
    return closed && was_whole;
}

bool AsyncPackFile::contains(char const* name) const {
    return info(name) != nullptr;
}

PackFileEntry const* AsyncPackFile::info(char const* name) const {
    return find_entry(table_, name);
}

unsigned int AsyncPackFile::size(char const* name) const {
    return size_of(info(name));
}

unsigned int AsyncPackFile::count() const {
    return QX::used_count(table_);
}

void AsyncPackFile::enumerate(EntryCallback fn, void* argument) const {
    enumerate_entries(*this, fn, argument);
}

bool AsyncPackFile::read(
    void* data, char const* name, unsigned int offset, unsigned int bytes, PackCallback fn,
    void* argument) {
    PackFileEntry const* const entry = info(name);
    return entry && read(data, entry->offset + offset, bytes, fn, argument);
}

bool AsyncPackFile::read(
    void* data, unsigned int position, unsigned int bytes, PackCallback fn, void* argument) {
    if (pending_ || is_marked()) return false;
    pending_ = fn;
    return AsyncIn::read(data, position, bytes, fn ? async_read_callback : nullptr, argument);
}

void AsyncPackFile::async_read_callback(AsyncIn& in, void* argument) {
    auto& pack = static_cast<AsyncPackFile&>(in);
    PackCallback const fn = pack.pending_;
    pack.pending_ = nullptr;
    fn(pack, argument);
}

MemPackFile::~MemPackFile() {
    close();
}

bool MemPackFile::open(char const* name, unsigned short key) {
    close();
    bool opened = false;
    try {
        opened = MemFileIn::open(name) && read_index(key);
    } catch (std::bad_alloc const&) {}
    if (!opened) close();
    return opened;
}

bool MemPackFile::open(char const* data, unsigned int size, unsigned short key) {
    close();
    bool opened = false;
    try {
        opened = MemFileIn::open(data, size) && read_index(key);
    } catch (std::bad_alloc const&) {}
    if (!opened) close();
    return opened;
}

bool MemPackFile::read_index(unsigned short key) {
    PackMask mask(key);
    PackHeader header;
    if (!read_header(static_cast<MemFileIn&>(*this), size64(), mask, header)) return false;
    alignment_ = header.alignment;
    if (header.version != '2') return false;
    table_ = PackTable::create(header.count);
    names_ = pos();
    char const* const stored_ends = names_ + header.name_size;
    Block<char> ends_copy;
    if (key) {
        char* const names_copy = copy_of(names_, header.name_size).release();
        names_ = names_copy;
        owns_names_ = true;
        mask.apply(names_copy, header.name_size);
        ends_copy = copy_of(stored_ends, 4ull * header.count);
        mask.apply(ends_copy.get(), 4ull * header.count);
    }
    char const* const ends = key ? ends_copy.get() : stored_ends;
    if (!table_->fill(header, names_, ends, size64())) return false;
    return seek64(static_cast<long long>(header.index_size()));
}

bool MemPackFile::close() {
    PackTable::destroy(table_);
    if (owns_names_) custom_free(names_);
    table_ = nullptr;
    names_ = nullptr;
    owns_names_ = false;
    return MemFileIn::close();
}

bool MemPackFile::contains(char const* name) const {
    return info(name) != nullptr;
}

PackFileEntry const* MemPackFile::info(char const* name) const {
    return find_entry(table_, name);
}

unsigned int MemPackFile::size(char const* name) const {
    return size_of(info(name));
}

unsigned int MemPackFile::count() const {
    return QX::used_count(table_);
}

void MemPackFile::enumerate(EntryCallback callback, void* user) const {
    enumerate_entries(*this, callback, user);
}

char const* MemPackFile::data(char const* name) const {
    PackFileEntry const* const entry = info(name);
    if (!entry) return nullptr;
    // An empty last entry may stand behind the file's end.
    return first() + std::min<unsigned long long>(entry->offset, size64());
}

}  // namespace QX
