// uuid.h - universally unique identifiers and their text.
//
//     Uuid id = create_uuid();
//     uuid_to_string(id)                        =>  "7d444840-9dc0-11d1-b245-5ffdce74fad2"
//     uuid_from_string(uuid_to_string(id))      =>  id
//
// Nothing here fails but by exhaustion (std::bad_alloc). Threads: no shared state.
#pragma once

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

// 16 bytes in the system's layout: three little-endian words, then bytes.
struct Uuid {
    unsigned int data1;
    unsigned short data2;
    unsigned short data3;
    unsigned char data4[8];

    bool operator==(Uuid const&) const = default;
};

static_assert(sizeof(Uuid) == 16);

// A new identifier from the system.
QX_API Uuid create_uuid();

// 36 characters, in lower case, without braces.
QX_API String uuid_to_string(Uuid const& id);

// Text of that form in either case. For anything else: what the system leaves in a record of
// zeros, with no report.
QX_API Uuid uuid_from_string(String const& text);

}  // namespace QX
