// pack_builder.h - writes packs by the letter of their format, good ones and bad ones.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace test {

struct PackRecipe {
    std::vector<std::pair<std::string, std::string>> entries;  // name and bytes, in order
    char version = '2';
    unsigned int alignment = 512;
    unsigned short key = 0;
    bool pad_end = true;  // up to the alignment behind the last entry
};

std::string build_pack(PackRecipe const& recipe);

// Puts a 32-bit number, low byte first, over the bytes at `at`.
void put_number(std::string& bytes, std::size_t at, unsigned int number);

}  // namespace test
