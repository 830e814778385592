// The time to load the library, beside an empty DLL with the same import table.
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
    // A copy, so that it is another module than the one this program is linked with.
    std::string const copy = beside_this_program("QXLibs_copy.dll");
    CopyFileA(beside_this_program("QXLibs.dll").c_str(), copy.c_str(), FALSE);
    std::string const empty = beside_this_program("empty.dll");

    bench::Table const table("loading");
    table.row(
        "load and free", 1,
        {{"QXLibs", [&] { load_and_free(copy); }},
         {"empty DLL, same imports", [&] { load_and_free(empty); }}});
    DeleteFileA(copy.c_str());
}
