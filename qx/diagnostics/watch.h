// watch.h - splits the textual path of a watched value, an element at a time.
//
//     path               kind       head     tail      index
//     units[3].morale    any    =>  units    morale    3
//     a.b.c              any    =>  a        b.c       (as it was)
//     units              -1     =>  units    ""        (as it was); kind is 1
//     units              -5     =>  units    ""        (as it was); kind stays -5
//     ""                 -5     =>  ""       ""        (as it was); kind is 5
//     a[x]               any    =>  a        ""        0
//     a[1.5]             any    =>  a        5]        0        the first point splits, brackets
//                                                               or not
#pragma once

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX_WATCH {

// `kind` is the client's: the last element of a path makes it positive, but for -5 and -4, which
// only an empty path does. Other elements leave it alone. `index` is the number behind the first
// "[" of the head, as far as it is digits, without the head's last character; it wraps at 64 bits.
//
// `path` may be `head` or `tail` itself, so that a loop can eat a path up. Every path is taken:
// there is no failure but exhaustion, which leaves `head` and `tail` as they were or as they
// become. No state: any thread, on its own arguments.
QX_API void parse(
    int& kind, QX::String const& path, QX::String& head, QX::String& tail,
    unsigned long long& index);

}  // namespace QX_WATCH
