// compression_fuzz.cpp - any bytes expand to a whole stream's text or to 0, in memory and in every
// wrapper, and nothing is written outside the output; what expands is compressed and given back.
#include "fuzz/driver.h"
#include "qx/files/compression.h"

#include <cstring>
#include <string>

#include "tests/harness/guarded.h"

namespace {

using namespace QX;

constexpr unsigned int room = 3000;

void expand(char* data, unsigned int size, COMPRESSION_FORMAT format, unsigned int dest_size) {
    static test::Guarded text(room);
    char* const dest = text.data() + room - dest_size;
    unsigned int const count = decompress_specific_format(dest, dest_size, data, size, format);
    if (count > dest_size) __builtin_trap();
    if (count == 0) return;
    char bytes[room + 100], back[room];
    unsigned int const packed =
        compress_specific_format(bytes, sizeof bytes, dest, count, format, count % 10);
    if (packed == 0) __builtin_trap();
    if (decompress_specific_format(back, count, bytes, packed, format) != count) __builtin_trap();
    if (std::memcmp(back, dest, count) != 0) __builtin_trap();
}

void one(char* data, std::size_t size) {
    for (unsigned int format = 0; format < 3; ++format) {
        expand(
            data, static_cast<unsigned int>(size), static_cast<COMPRESSION_FORMAT>(format), room);
        expand(data, static_cast<unsigned int>(size), static_cast<COMPRESSION_FORMAT>(format), 40);
    }
}

std::string packed(std::string text, unsigned int format, unsigned int level) {
    std::string bytes(text.size() + 100, '\0');
    bytes.resize(compress_specific_format(
        bytes.data(), static_cast<unsigned int>(bytes.size()), text.data(),
        static_cast<unsigned int>(text.size()), static_cast<COMPRESSION_FORMAT>(format), level));
    return bytes;
}

}  // namespace

int main(int argc, char** argv) {
    std::string text;
    for (int i = 0; i < 300; ++i) text += static_cast<char>(i * i / 7 % 61);
    return fuzz::run(
        "compression", argc, argv,
        {packed("a short text", 0, 6), packed("a short text", 1, 6), packed("a short text", 2, 6),
         packed(text, 0, 9), packed(text, 1, 1), packed(text, 2, 9), packed(text, 0, 0)},
        one);
}
