// load_bench.cpp - the time to load the library, beside an empty DLL with the same import table.
//
// This program alone is not linked with the library, which then loads at its own base. What both
// import stays loaded throughout.
#include <windows.h>

#include <cstdio>
#include <string>

#include "benchmarks/bench.h"

namespace {

std::string beside_this_program(char const* name) {
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string const whole = path;
    return whole.substr(0, whole.rfind('\\') + 1) + name;
}

void load_and_free(std::string const& path) {
    HMODULE const module = LoadLibraryA(path.c_str());
    if (!module) std::printf("%s: cannot be loaded\n", path.c_str());
    bench::keep(module);
    FreeLibrary(module);
}

}  // namespace

int main() {
    std::string const library = beside_this_program("QXLibs.dll");
    std::string const empty = beside_this_program("empty.dll");
    std::string const keeper = beside_this_program("empty_copy.dll");
    CopyFileA(empty.c_str(), keeper.c_str(), FALSE);
    HMODULE const imports = LoadLibraryA(keeper.c_str());

    bench::Table const table("loading");
    table.row(
        "load and free", 1,
        {{"QXLibs", [&] { load_and_free(library); }},
         {"empty DLL, same imports", [&] { load_and_free(empty); }}});
    FreeLibrary(imports);
    DeleteFileA(keeper.c_str());
}
