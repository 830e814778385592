// map_file.h - names for stack offsets, out of the map that the linker wrote.
//
// The map's table begins behind a line that has "Address" in its columns 2 to 8 (counted from 0)
// and one blank line. Its entries are sorted by address, which includes the image base:
//
//       Address         Publics by Value              Rva+Base               Lib:Object
//
//      0000:00000000       __ImageBase                0000000180000000     <linker-defined>
//      0001:00000000       first                      0000000180001000     a.obj
//      0001:00000040       second                     0000000180001040     a.obj
//
//     offset 0x1004  =>  "first"
//     offset 0x1040  =>  "second"  (if an entry follows)
#pragma once

#include <array>

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX::stack {

// The name of the function that each offset lies in, as the map has it (decorated), up to the first
// zero; the rest is empty. Symbols that begin with one of these are labels inside functions and
// are passed over: "Label_", "MY_$", "ExceptionLabel_", "RandomData_", "cpuidLabel_",
// "syscallLabel_", and the texts of `ignored_prefixes` up to its null.
//
// The offsets are merged with the table in one pass that takes one symbol for one offset: of two
// offsets in one function the higher one gets the name of the function behind it. Equal offsets
// get the first one's name. An offset needs a symbol behind its own function to be resolved.
//
// `map_file_name` is UTF-8. A file that can't be opened or has no such table gives 32 empty names;
// one that ends early, or has a line that is no entry, what was resolved up to there. Neither
// pointer may be null. Exhaustion throws std::bad_alloc. Threads: any; nothing is kept.
QX_API std::array<String, 32> symbolicate_from_map(
    std::array<unsigned int, 32> const& offsets, char const* map_file_name,
    char** ignored_prefixes);

}  // namespace QX::stack
