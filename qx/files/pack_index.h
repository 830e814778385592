// pack_index.h - what a pack says about itself: entries, the key's mask, and the table of names.
//
// The layout of pack files is told in docs/formats/pack.md. This room knows bytes and memory only;
// pack_file.h reads packs.
#pragma once

#include "qx/base/export.h"

namespace QX {

// The place of one entry in a pack.
struct PackFileEntry {
    unsigned int offset = 0;  // of the first byte, from the start of the pack
    unsigned int size = 0;    // in bytes
};

// The stream of bytes that masks a keyed pack's index: Marsaglia's 32-bit xorshift with the shifts
// 13, 17 and 5, begun at key * 0x9E3779B9, each word handed out low byte first. Masking and
// unmasking are the same operation. With key 0 it changes nothing.
//
//     key 1     =>  19 46 0C 51 3E 55 2E E0 ...
//     key 1234  =>  EA 10 C4 AA 46 D4 F1 33 ...
class PackMask {
public:
    explicit PackMask(unsigned short key) : word_(key * 0x9E3779B9u) {}

    // Goes on in the stream where the last call ended.
    void apply(void* data, unsigned long long bytes) {
        if (word_ == 0) return;
        auto const first = static_cast<unsigned char*>(data);
        for (unsigned long long i = 0; i < bytes; ++i) first[i] ^= next();
    }

private:
    unsigned char next() {
        if (given_ == 4) {
            word_ ^= word_ << 13;
            word_ ^= word_ >> 17;
            word_ ^= word_ << 5;
            given_ = 0;
        }
        return static_cast<unsigned char>(word_ >> (8 * given_++));
    }

    unsigned int word_;       // 0 for no mask: a stream never comes to 0
    unsigned int given_ = 4;  // bytes of `word_` handed out
};

// The sizes that a pack begins with.
struct PackHeader {
    unsigned char version = '2';
    unsigned int name_size = 0;  // of the name block, in characters, terminators included
    unsigned int count = 0;      // of entries, those with equal names counted each
    unsigned int alignment = 1;  // entries begin at multiples of it; a power of two

    // Bytes of the header, the name block and the whole index.
    unsigned int size() const { return version == '0' ? 12 : 16; }
    unsigned long long name_bytes() const { return version == '2' ? name_size : 2ull * name_size; }
    unsigned long long index_size() const { return size() + name_bytes() + 4ull * count; }
};

// `x` rounded up to a multiple of `alignment`. In 64 bits, so that nothing wraps.
constexpr unsigned long long pack_round_up(unsigned long long x, unsigned int alignment) {
    return (x + alignment - 1) & ~(static_cast<unsigned long long>(alignment) - 1);
}

// The table from name to place: open addressing over 2 * count + 1 slots, linear probes.
//
// The slot order is part of the contract, for enumeration shows it: a name's home is its hash
// modulo the slot count, and the hash is two 16-bit sums, of the sign-extended bytes at even
// places (low half) and at odd places (high half). That hash is weak, so look-ups go through a
// side index of less than 8 bytes a name, with a strong one. Names are compared byte by byte.
//
// One block of the default heap. The names are not copied: they must outlive the table.
// Threads: a filled table doesn't change, and may be read from any.
class alignas(16) PackTable {
public:
    struct Slot {
        char const* name;  // null for a free slot
        PackFileEntry entry;
    };

    // Lays out an empty table for `count` entries. Throws std::bad_alloc.
    QX_API static PackTable* create(unsigned int count);
    QX_API static void destroy(PackTable* table);

    // Enters `header.count` names, the last of equal names winning. `ends` holds the 32-bit offset
    // behind each entry, at any address; `file_size` is the whole pack's. False if a name lacks its
    // terminator, or an entry ends before it starts or behind the file; the table is then fit for
    // `destroy` only. Throws std::bad_alloc.
    QX_API bool fill(
        PackHeader const& header, char const* names, void const* ends,
        unsigned long long file_size);

    // The entry of `name`, or null.
    QX_API PackFileEntry const* find(char const* name) const;

    // Slots in use.
    unsigned int used_count() const { return used_count_; }
    unsigned int slot_count() const { return slot_count_; }
    Slot const* begin() const { return slots_; }
    Slot const* end() const { return slots_ + slot_count_; }

private:
    PackTable() = default;

    struct Entering;

    bool prepare_batch(Entering& entering, unsigned int count);
    void enter(Entering& entering, unsigned int number);

    unsigned int const* group_of(unsigned long long hash) const;
    unsigned int const* next_group(unsigned int const* group) const;
    // The slot of a name among the words of `group` that are set in `matches`, or null.
    Slot* find_in_group(
        unsigned int const* group, unsigned int matches, char const* name,
        unsigned int length) const;

    Slot* slots_;
    // The side index: groups of four words, each a tag above and a slot's number + 1 below, or 0
    // for free. A name is in the first group from its home on that had a free word.
    unsigned int* index_;
    char const* names_end_;    // behind the name block
    unsigned int slot_count_;  // 2 * count + 1
    unsigned int used_count_;
    unsigned int group_count_;  // 15 / 32 of the entry count, and one
    unsigned int slot_mask_;    // of an index word, the bits of the slot's number
};

}  // namespace QX
