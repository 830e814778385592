// entities.h - the named characters of XML text: those of HTML 4 (Latin-1, symbols, special), and
// `apos`.
//
//     find_entity("eacute")  =>  233        find_entity("Lt")  =>  0
//     entity_name(8364)      =>  "euro"     entity_name('a')   =>  null
//
// Constant tables: any thread may look things up at any time.
#pragma once

#include <string_view>

#include "qx/base/export.h"

namespace QX {

// One named character: its name without '&' and ';', and its UTF-16 unit.
struct Entity {
    char const* name;
    unsigned short code;
};

// 253 entries, names and codes each unique. `apos` is the one that HTML 4 lacks.
constexpr unsigned int entity_count = 253;
QX_API extern Entity const entity_table[entity_count];

// The code of a name, told by case; 0 for one that is not known.
QX_API unsigned int find_entity(std::string_view name);

// The name of a 16-bit code, or null.
QX_API char const* entity_name(unsigned int code);

}  // namespace QX
