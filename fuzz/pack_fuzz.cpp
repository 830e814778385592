// pack_fuzz.cpp - any bytes, opened as a plain or keyed pack: refused, or every promise kept.
#include <string>

#include "fuzz/driver.h"
#include "qx/files/pack_file.h"
#include "tests/harness/pack_builder.h"

namespace {

void require(bool kept) {
    if (!kept) __builtin_trap();
}

// Entries lie in the pack, each name is found at its own slot, and no other is.
void check(QX::MemPackFile const& pack, std::size_t size) {
    unsigned int used = 0;
    std::string const longer_than_any(size, '~');
    for (QX::PackTable::Slot const& slot : *pack.table()) {
        if (!slot.name) continue;
        ++used;
        require(pack.info(slot.name) == &slot.entry);
        require(!pack.contains((slot.name + longer_than_any).c_str()));
        require(slot.entry.size == 0 || slot.entry.offset + 0ull + slot.entry.size <= size);
    }
    require(used == pack.count());
}

void one(char* data, std::size_t size) {
    for (unsigned short const key : {0, 7}) {
        QX::MemPackFile pack;
        bool const opened = pack.open(data, static_cast<unsigned int>(size), key);
        require((pack.table() != nullptr) == opened && (pack.names() != nullptr) == opened);
        if (opened) check(pack, size);
    }
}

std::string seed(unsigned int alignment, unsigned short key) {
    test::PackRecipe recipe;
    recipe.alignment = alignment;
    recipe.key = key;
    recipe.entries = {{"a", "x"}, {"maps\\b", "four"}, {"a", "yz"}, {"", ""}, {"q", "end"}};
    recipe.pad_end = false;
    return test::build_pack(recipe);
}

}  // namespace

int main(int argc, char** argv) {
    return fuzz::run("pack", argc, argv, {seed(1, 0), seed(16, 7), seed(64, 0)}, one);
}
