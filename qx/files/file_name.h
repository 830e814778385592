// file_name.h - FileName, the identity of a data file, and the end of the file system's state.
//
// A FileName is a pointer to a normalised text in a table that only grows: two spellings of one
// file are one value, compared by one pointer comparison.
//
// The public form makes a name as seen from the search paths: the text goes through
// sanitise_file_name, sanitise_relative_path and sanitise_path_start (filesystem.h), then each
// search path that stands at its start is cut off, in order, later ones from what is left.
//
//     FileName("Data/Foo//BAR.txt")            =>  "foo\bar.txt"
//     FileName("data\foo\bar.txt")             =>  the same pointer
//     FileName("c:\game\data\foo\bar.txt")     =>  the same pointer, with that search path
//     FileName("")                             =>  s_empty(), whose text is "<empty_file_name>"
//     FileName("..\a")                         =>  a name of length 0
//     FileName::qualified("data\a.txt")        =>  "a.txt", search paths not looked at
//     FileName::compose("data", "a.txt")       =>  "a.txt"
//     FileName::compose(path, "a.txt", true)   =>  path and text joined with nothing between, and
//                                                  a "data\" at the start kept
//
// The first public name makes the process-wide search paths and so looks at the disk.
//
// Failure: only exhaustion throws (std::bad_alloc), and then no name was made. A null text faults.
// Threads: names may be made and read on any thread at once; a name that is known already takes no
// lock. The search paths have none: set them up before. The texts never change and last until
// destroy_filesystem.
#pragma once

#include "qx/base/export.h"
#include "qx/files/file_streams.h"
#include "qx/files/search_paths.h"
#include "qx/text/string.h"

namespace QX {

class FileName {
public:
    // The null name.
    FileName() = default;
    FileName(FileName const&) = default;
    FileName& operator=(FileName const&) = default;

    // The name as seen from the search paths; s_empty() for the empty text.
    QX_API FileName(char const* path);
    QX_API FileName(String const& path);

    // Names that the search paths are not looked at for: "data\" is dropped from the start, and
    // that is all.
    QX_API static FileName qualified(String const& path);

    // The public form of folder + "\" + name.
    QX_API static FileName compose(String const& folder, String const& name);

    // As `qualified`, of *path + name; `keep_start` leaves a "data\" in front where it is.
    QX_API static FileName compose(
        DynamicArray<String, DefaultAllocator>::ConstIterator const& path, String const& name,
        bool keep_start);

    // The text that the public form makes a name of. The flag is not looked at.
    QX_API static String disambiguate_file_name(String const& path, bool unused);

    // The text. A null name has none.
    String const& name() const { return *name_; }

    // True for the null name and for one of length 0; false for s_empty().
    bool empty() const { return !name_ || name_->empty(); }

    bool operator==(FileName other) const { return name_ == other.name_; }

    // A null name is below every name, itself included; others compare by text.
    QX_API bool operator<(FileName other) const;

    // What the empty text makes.
    QX_API static FileName const& s_empty();

private:
    // The short form of all private names. The flag of the first is not looked at.
    QX_API FileName(String const& path, bool unused);
    QX_API FileName(
        DynamicArray<String, DefaultAllocator>::ConstIterator const& path, String const& name,
        bool keep_start);

    String const* name_ = nullptr;
};

static_assert(sizeof(FileName) == 8);

// Reads a string as file_streams.h tells and makes the public form of it.
QX_API FileIn& operator>>(FileIn& file, FileName& name);

// Ends the null collection, the search paths, the names and the binary description. Nothing of the
// file system's state may be used afterwards; every FileName is then dangling.
QX_API void destroy_filesystem();

}  // namespace QX
