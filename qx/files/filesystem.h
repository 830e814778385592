// filesystem.h - free functions on plain paths: shaping, splitting, and thin disk operations.
//
// Paths are in Windows form. Narrow disk operations hand their text to the system as it is. Each
// row below shows run-time text: a single backslash is one character.
//
// Shaping:
//
//     sanitise_file_name                  sanitise_relative_path
//     "C:/Game/Data"  =>  "c:\game\data"  "a\b\..\c"  =>  "a\c"   *
//     "a\\b//c"       =>  "a\b\c"   *     "a\..\b"    =>  "b"     *
//     "\foo"          =>  "foo"           "\..\a"     =>  ""      *
//     "/foo"          =>  "foo"           "..\a"      =>  ""
//     "\\foo\\bar"    =>  "\\foo\bar" *   ".\.\a"     =>  "a"     *
//     "\\\foo"        =>  "\\foo"   *     "a\.\b"     =>  "a\b"   *
//     "\"             =>  "\"             "a\.."      =>  "a\.."
//                                         "a\.\..\b"  =>  "a\b"   *
//     sanitise_path_start
//     "data\a.txt"     =>  "a.txt"  *     sanitise_trailing_slash
//     "..\data\a.txt"  =>  "a.txt"  *     ""      =>  ""
//     "mydata\x"       =>  "x"      *     "a"     =>  "a\"
//     "mymydata\x"     =>  as it is       "a/"    =>  "a\"
//                                         "a/\"   =>  "a/\"
//     trim_trailing_slash                 sanitise_to_unix
//     "a/\"            =>  "a"            "//a\/b"  =>  "/a/b"
//     "\/"             =>  ""             sanitise_to_windows
//     regify                              "//a\/b"  =>  "\\a\\b"
//     "Ab-1{"          =>  "[Aa][bB]-1{"
//
// The rows with a star set `*changed`. A change of case or of the slash's direction does not, nor
// does a path that is emptied because it begins with "..\". `changed` may be null and is never
// cleared.
//
// Splitting. The last separator is the last backslash; a slash counts only where there is no
// backslash at all, so that "a\b/c" is cut behind the first character:
//
//     parent_directory             remove_parent_directory
//     "a\b\c"  =>  "a\b\"          "a\b\c"  =>  "c"
//     "a\b\c\" =>  "a\b\"          "a\b\c\" =>  ""
//     "a\b/c"  =>  "a\"            "a\b/c"  =>  "b/c"
//     "a\"     =>  "a\"            "a"      =>  "a"
//     extension                    remove_extension
//     "a.b.c"  =>  ".c"            "a.b.c"  =>  "a.b"
//     "a.b\c"  =>  ".b\c"          ".txt"   =>  ""
//     "a"      =>  "" with the flag, else "a"
//
// Failure: nothing raises but exhaustion (std::bad_alloc); disk operations answer false. Paths of
// any length are shaped alike. Threads: no state.
#pragma once

#include "qx/base/export.h"
#include "qx/base/standard_containers.h"
#include "qx/files/file_streams.h"
#include "qx/text/string.h"

namespace QX {

namespace Filesystem {

// --- Shaping -------------------------------------------------------------------------------------

// Lower-cases 'A' to 'Z', turns slashes into backslashes, drops a single leading one and makes one
// of each run behind the second character. Two leading ones stay: they begin a network path.
QX_API String sanitise_file_name(String const& path, bool* changed);

// Resolves "\..\" and "\.\", then drops ".\" from the start. Knows backslashes only.
QX_API String sanitise_relative_path(String path, bool* changed);

// Drops everything up to the first "data\", if that begins within the first four characters.
QX_API String sanitise_path_start(String const& path, bool* changed);

// By the rows above; nothing but separators changes.
QX_API String sanitise_to_windows(String const& path);
QX_API String sanitise_to_unix(String const& path);
QX_API String sanitise_trailing_slash(String const& path);
QX_API String trim_trailing_slash(String const& path);

// A pattern that finds `text` in either case: each ASCII letter as itself and its other case.
QX_API String regify(String const& text);

// --- Splitting -----------------------------------------------------------------------------------

// Two backslashes in front, or a colon as second character with a separator of either kind behind
// it. What stands before the colon is not looked at. Null faults.
QX_API bool absolute_path(char const* path);

// By the rows above, in the whole path: none looks at the disk.
QX_API UniString extension(UniString const& path, bool empty_if_none);
QX_API String remove_extension(String const& path);
QX_API UniString remove_extension(UniString const& path);
QX_API String parent_directory(String const& path);
QX_API UniString parent_directory(UniString const& path);
QX_API String remove_parent_directory(String const& path);
QX_API UniString remove_parent_directory(UniString const& path);

// --- The disk ------------------------------------------------------------------------------------

// Paths, patterns and callbacks may not be null.

// Folders count as well.
QX_API bool exist(char const* path);
QX_API bool exist(wchar_t const* path);

// Makes a folder and what is missing above it. True where it exists already, even as a file.
QX_API bool create(char const* path);

// The narrow form is true where the file was removed. The wide form is true where it was NOT.
QX_API bool remove(char const* path);
QX_API bool remove(wchar_t const* path);

// False where `to` exists already.
QX_API bool rename(char const* from, char const* to);

// Removes an empty folder.
QX_API bool deldir(char const* path);

// Removes everything in a folder, and the folder too with `delete_self`. Goes on after a failure
// and deletes all it can; true where nothing failed. A folder that can't be searched counts as
// empty.
QX_API bool delall(char const* path, bool delete_self);

// Sets or takes away the read-only attribute; true where that could be done.
QX_API bool chmod(char const* path, bool readable, bool writable);

// Sets the times of last access and last write; seconds since 1970.
QX_API bool touch(char const* path, unsigned int time);

// Without a separator at its end; empty where it does not fit 260 bytes.
QX_API String cwd();

// Changes the drive, where one is named, and the folder. Relative paths are refused.
QX_API bool set_cwd(char const* path);

// Calls `callback` for each match of `pattern` in `path`, folders, "." and ".." included, then, if
// `recursive`, does the same in every folder of `path` whatever its name: the paths handed over
// there end in a backslash. Path, name and pattern are valid for the call. The record's size and
// time have 32 bits, `readable` is true and `reserved` false. A path that can't be searched gives
// no call. The callback may delete what it is told of.
QX_API void enumerate(
    void (*callback)(
        char const* path, char const* name, char const* pattern, FileInf const& info, void* user),
    char const* path, char const* pattern, void* user, bool recursive);
QX_API void enumerate(
    void (*callback)(
        UniString const& path, UniString const& name, UniString const& pattern, FileInf const& info,
        void* user),
    wchar_t const* path, wchar_t const* pattern, void* user, bool recursive);

// --- Kept so that clients link -------------------------------------------------------------------

// False; leaves the vector alone.
QX_API bool globsearch(
    String const& pattern,
    QX_STD::VECTOR<String, QX_STD::ALLOCATOR<String>, QX_STD::DETAIL::VECTOR_TRAITS>& found);
QX_API void force_opened_files_limit(int limit);  // does nothing

}  // namespace Filesystem

// Reads a text in which the backslash is an escape. "\0" ends the text; any other escape, and a
// backslash at the end, make the whole result empty.
//
//     a\nb    =>  a, line feed, b        a\0b  =>  a
//     \"\'\\  =>  "'\                    a\tb  =>  (empty)
QX_API UniString translate_back_slashes(UniString const& text);

}  // namespace QX
