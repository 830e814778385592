// driver.h - feeds a reader every prefix and one-byte change of its seeds, then random mutations.
//
// Each input is a writable copy that ends at a page which may not be touched. A fault or an input
// that takes over two seconds ends the run with code 2 or 3 and writes the input to
// "<target>-found.bin" in the current folder.
//
//     void one(char* data, std::size_t size) { ... }
//     int main(int argc, char** argv) { return fuzz::run("xml", argc, argv, {"<a/>"}, one); }
//
// Arguments: ROUNDS (default 20000), then SEED. One input: --replay FILE.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace fuzz {

using Target = void (*)(char* data, std::size_t size);

int run(
    char const* name, int argc, char** argv, std::vector<std::string> const& seeds, Target target);

}  // namespace fuzz
