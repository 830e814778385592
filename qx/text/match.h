// match.h - replacing parts of a text, and wildcards as file names have them.
//
// No text may be null. Replacing throws std::bad_alloc on exhaustion, matching never fails.
// Threads: no shared state.
#pragma once

#include "qx/text/string.h"

namespace QX {

// Replaces the first match of `from` until there is none, in what was put in as well:
//
//     replace("aXbXc", "X", "--")  =>  "a--b--c"
//     replace("aab", "ab", "b")    =>  "b"    the second match arises from the first replacement
//     replace("aaaa", "aa", "a")   =>  "a"
//
// Where that could not end, what was put in is not looked at again:
//
//     replace("aba", "a", "aa")    =>  "aabaa"
//     replace("ab", "", "-")       =>  "-ab"
//     replace("", "", "-")         =>  ""
//
// Other pairs may still make a text grow without end ("ab" by "bbaa"), up to std::bad_alloc.
QX_API String replace(String text, String const& from, String const& to);
QX_API UniString replace(UniString text, UniString const& from, UniString const& to);

// Whether `pattern` fits the whole of `name`. `*` stands for any run, the empty one too, `?` for
// exactly one character; ASCII letters fit in either case. A dot is a character like others, but
// for the pattern "*.*", alone or behind another `*`, which fits everything, as does "*":
//
//     ("file.txt", "f?le.*")  =>  true
//     ("noext", "*.*")        =>  true
//     ("noext", "*.")         =>  false
//     ("", "***")             =>  true
//     ("", "?")               =>  false
QX_API bool matches_dos_pattern(char const* name, char const* pattern);
QX_API bool matches_dos_pattern(wchar_t const* name, wchar_t const* pattern);

}  // namespace QX
