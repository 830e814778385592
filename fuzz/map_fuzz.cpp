// map_fuzz.cpp - any bytes are a linker map, and any text is a stack.
#include <windows.h>

#include <cstdio>
#include <string>

#include "fuzz/driver.h"
#include "qx/diagnostics/call_stack.h"
#include "qx/diagnostics/map_file.h"

namespace {

char const map[] =
    " game\n\n Preferred load address is 0000000140000000\n\n"
    "  Address         Publics by Value              Rva+Base               Lib:Object\n\n"
    " 0000:00000000       __ImageBase                0000000140000000     <linker-defined>\n"
    " 0001:00000000       first                      0000000140001000 f   a.obj\n"
    " 0001:00000014       Label_inner                0000000140001014     a.obj\n"
    " 0001:00000020       second                     0000000140001020 f   b.obj\n"
    " 0001:00000030       third                      0000000140001030 f   b.obj\n\n"
    " entry point at        0001:00000000\n";

std::string const file = [] {
    char folder[MAX_PATH];
    GetTempPathA(MAX_PATH, folder);
    return std::string(folder) + "qx_map_fuzz_" + std::to_string(GetCurrentProcessId()) + ".map";
}();

void write(char const* data, std::size_t size) {
    std::FILE* const out = std::fopen(file.c_str(), "wb");
    std::fwrite(data, 1, size, out);
    std::fclose(out);
}

// Names are pieces of the file, in place of offsets that are not 0.
void read_as_map(std::string const& bytes) {
    char label[] = "se";
    char* prefixes[] = {label, nullptr};
    std::array<unsigned int, 32> const offsets = {0x1001, 0x1021, 0x1015, 0x1021, 0x800, 0, 0x900};
    auto const names = QX::stack::symbolicate_from_map(offsets, file.c_str(), prefixes);
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i].empty()) continue;
        if (i >= 5 || bytes.find(names[i].c_str()) == bytes.npos) __builtin_trap();
    }
}

void one(char* data, std::size_t size) {
    write(data, size);
    read_as_map(std::string(data, size));
    if (size == 0) return;
    data[size - 1] = 0;
    char text[257];
    QX::stack::offsets_to_string(QX::stack::string_to_offsets(data), text);
}

}  // namespace

int main(int argc, char** argv) {
    int const result =
        fuzz::run("map", argc, argv, {map, "  Address\n\n a __ImageBase 1\n b c 2\n"}, one);
    DeleteFileA(file.c_str());
    return result;
}
