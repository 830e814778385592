// convert.h - UTF-8 to UTF-16 units and back, and ASCII case.
//
// Narrow text is UTF-8, wide text UTF-16 code units; nothing looks at the locale. Each unit is
// encoded by itself, in one to three bytes: surrogate halves are not combined, and no four-byte
// form is ever written or read.
//
//     U+0000 to U+007F   <=>  0xxxxxxx
//     U+0080 to U+07FF   <=>  110xxxxx 10xxxxxx
//     U+0800 to U+FFFF   <=>  1110xxxx 10xxxxxx 10xxxxxx
//
//     L"\x20AC"        <=>  "\xE2\x82\xAC"
//     L"\xD83D\xDE00"  <=>  "\xED\xA0\xBD\xED\xB8\x80"
//
// The decoder steps by the lead byte alone and validates nothing: a byte without bit 7 stands for
// itself, one with bit 7 but not bit 5 takes one more byte, one with both takes two. So a stray
// continuation byte is read as a lead, and a four-byte lead as one of three. A sequence that the
// terminator cuts short ends the text before it.
//
// Nothing here fails but by exhaustion (std::bad_alloc), and that only where a string is made. Null
// faults. Threads: no shared state.
#pragma once

#include "qx/text/string.h"

namespace QX {

// Encode or decode up to the terminator, write a terminator and return its address. `target` has
// room for utf8_length(source) + 1 and does not overlap the source.
QX_API char* utf8_encode(char* target, wchar_t const* source);
QX_API wchar_t* utf8_decode(wchar_t* target, char const* source);

// What the decoder will write in units, or the encoder in bytes; the terminator excluded.
//
//     utf8_length("\xC3\xA9")  =>  1
//     utf8_length(L"\x20AC")   =>  3
QX_API unsigned int utf8_length(char const* text);
QX_API unsigned int utf8_length(wchar_t const* text);

// The same for strings, up to their first terminator. The narrow text must be well-formed to the
// caller's own knowledge. Results have exactly the capacity that they need.
QX_API String must_fix_string_narrow(UniString const& text);
QX_API UniString must_fix_string_widen(String const& text);

// Change the 26 ASCII letters and nothing else, up to the length. A text that is moved in is
// changed and handed back in its own block; an empty one is the empty text.
QX_API String lowercase(String text);
QX_API UniString lowercase(UniString text);
QX_API String uppercase(String text);
QX_API UniString uppercase(UniString text);

}  // namespace QX
