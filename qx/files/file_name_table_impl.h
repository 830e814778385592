// file_name_table_impl.h - the set of all names: it only grows, and is read without a lock.
//
// A name's string and its characters stand side by side in blocks that are given back all at once:
// finding a name then costs one look at a slot and one at the name.
//
// Slots are open-addressed and at most three quarters full. A slot is one word, written once: 16
// bits of the name's hash above the 48 of its address. When the slots fill up, a table twice as
// large is published; those before stay until the end, because a reader may still be in them. A
// reader that finds nothing there has the writer look again under the lock.
#pragma once

#include <atomic>
#include <cstdint>

#include "qx/text/string.h"

namespace QX {

class FileNameTable {
public:
    FileNameTable();
    ~FileNameTable();

    FileNameTable(FileNameTable const&) = delete;
    FileNameTable& operator=(FileNameTable const&) = delete;

    static std::uint64_t hash_of(char const* text, unsigned int length);

    // Null if the text is not there. On any thread.
    String const* find(char const* text, unsigned int length, std::uint64_t hash) const;

    // The stored text, taken in if it was not there. One thread at a time.
    String const* insert(char const* text, unsigned int length, std::uint64_t hash);

private:
    struct Slots {
        Slots* smaller;
        std::uint64_t mask;  // the number of slots, a power of two, less 1
        std::atomic<std::uint64_t> slot[1];
    };

    struct Block {
        Block* older;
    };

    static Slots* make_slots(std::uint64_t count, Slots* smaller);
    static void put(Slots& slots, std::uint64_t word, std::uint64_t hash);
    void grow();
    String const* store(char const* text, unsigned int length);
    char* take_room(std::uint64_t bytes);

    std::atomic<Slots*> slots_;
    std::uint64_t names_ = 0;
    Block* blocks_ = nullptr;
    char* room_ = nullptr;  // what is left of the newest block
    std::uint64_t room_bytes_ = 0;
};

}  // namespace QX
