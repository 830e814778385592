// search_paths.h - the ordered folders that data is read from, and where the program stands.
//
// The process-wide collection settles the layout when it is made:
//
//     layout        installed                   development
//     where         "data\boot.pack" exists     it does not
//                   below the working folder
//     release()     true                        false
//     paths         "<working folder>\data\"    "<project>\working_data\", which is primary
//                   the user's folder "maps\"   "<root>common\data\working_data\"
//                                               "<project>\old_working_data\"
//                                               "<project>\editor_working_data\"
//                                               the user's folder "maps\"
//     design path   ""                          "<project>\raw_data\vellumdesigndata\"
//     watched       nothing                     "<project>\raw_data\"
//
// For the program c:\a\b\c\d.exe the root is "c:\a\" and the project "c:\a\b"; the user's folders
// are told in file_class.h.
//
// A relative name is looked for as path + name under each path in order, with nothing put between
// the two. An absolute name (Filesystem::absolute_path) is tested as it stands. Folders count as
// files.
//
// Failure: nothing raises but exhaustion; paths that don't exist are stored like others. Threads:
// no locks. Set the paths up before names are made on several threads.
#pragma once

#include "qx/base/dynamic_array.h"
#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

// An ordered list of folders, as told above.
class SearchPathCollection {
public:
    using Paths = DynamicArray<String, DefaultAllocator>;

    // The primary index while no path qualifies.
    static constexpr unsigned int s_primary_working_data_index = 0xFFFFFFFF;

    // Looks at the disk and settles the layout, as told above.
    QX_API SearchPathCollection();

    // One path, the empty text. The argument is not looked at.
    QX_API SearchPathCollection(char const*);

    // Copies have paths, design path, index and flag of their own. Neither looks at the disk; where
    // memory runs out while assigning, std::bad_alloc leaves the collection valid.
    QX_API SearchPathCollection(SearchPathCollection const& other);
    QX_API SearchPathCollection& operator=(SearchPathCollection const& other);
    QX_API ~SearchPathCollection();

    // The process-wide collection, and one that holds the empty path alone. Both are made on first
    // use and last until destroy_filesystem (file_name.h).
    QX_API static SearchPathCollection& search_paths();
    QX_API static SearchPathCollection& s_null_collection();

    // Adds `path` to the end unless it is there already, and returns it as stored. With `sanitise`,
    // a text that is not empty goes through sanitise_file_name and gets a backslash at its end:
    //
    //     "C:/Game/Data", true  =>  "c:\game\data\"
    //
    // The first path that ends in "\working_data\" becomes primary. Where no design path is set and
    // "raw_data\vellumdesigndata\" stands beside the folder, that becomes the design path.
    QX_API String append_path(String const& path, bool sanitise);

    // Puts the sanitised path in front and returns the index of the LAST path; where it is there
    // already, its index. The primary index is not moved.
    //
    //     into a collection of two  =>  2, and the path has index 0
    QX_API int prepend_path(String const& path);

    // Replaces the path at `index` by the sanitised `path`; behind the end, fills up with copies
    // of it. Returns `index`. Looks for no duplicates and leaves the primary index alone.
    QX_API int set_path(String const& path, unsigned int index);

    // Removes the first path that equals the text. The primary index is not moved.
    QX_API void remove_path(String const& path);

    // Removes all paths; none is primary then. The design path stays.
    QX_API void clear();

    // Whether some path stands at the start of `name`. The empty path stands at the start of any
    // name but the empty one.
    QX_API bool contains_path(String const& name);

    // The index of the path that equals the text, or -1.
    QX_API int get_path_index(String const& path) const;

    // Unchecked.
    QX_API Paths::ConstIterator get_path(int index);

    // False for the empty name.
    QX_API bool fexist(String const& name) const;

    // The first path under which `name` exists. For a name that is absolute or not found, the
    // empty path of the null collection.
    QX_API Paths::ConstIterator get_source_path_for(String const& name);

    // The first path + name that exists, or the empty text. An absolute name comes back as it is.
    QX_API String prepend_source_path_for(String const& name);

    // The folder of the design data, or the empty text.
    QX_API String get_design_path();
    QX_API void set_design_path(String const& path);

    unsigned int primary_working_data_index() const { return primary_working_data_index_; }
    bool release() const { return release_; }
    unsigned int size() const { return static_cast<unsigned int>(paths_.size()); }
    Paths::Iterator begin() { return paths_.begin(); }
    Paths::Iterator end() { return paths_.end(); }
    Paths::ConstIterator begin() const { return paths_.begin(); }
    Paths::ConstIterator end() const { return paths_.end(); }
    Paths const& working_data() const { return paths_; }

private:
    QX_API void monitor(String const& path);

    void use_installed_layout();
    void use_development_layout();
    void find_design_path_beside(String const& path);
    Paths::ConstIterator find_path(String const& path) const;
    Paths::ConstIterator find_source_of(String const& name) const;

    bool release_ = false;
    String design_path_;
    Paths paths_;
    unsigned int primary_working_data_index_ = s_primary_working_data_index;
};

// Where the running program stands. Backslashes alone cut:
//
//     "c:\a\b\c\d.exe"  =>  root "c:\a\", folder "b", file_name "d.exe"
//
// Of "c:\c\d.exe" the root is empty and the folder "c:"; nearer to the drive both are empty.
struct BinaryDescription {
    String full_name;
    String root;    // up to and with the separator in front of `folder`
    String folder;  // two levels above the file
    String file_name;

    // Asks the system for the running program's name.
    QX_API BinaryDescription();

    // Made on first use; lasts until destroy_filesystem.
    QX_API static BinaryDescription& binary_desc();
};

}  // namespace QX
