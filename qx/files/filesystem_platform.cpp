#include "qx/files/filesystem.h"

#include "qx/base/windows.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <direct.h>
#include <io.h>
#include <sys/utime.h>

namespace QX {

namespace Filesystem {

namespace {

bool is_separator(wchar_t c) {
    return c == L'\\' || c == L'/';
}

bool is_self_or_parent(char const* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

bool is_self_or_parent(wchar_t const* name) {
    return std::wcscmp(name, L".") == 0 || std::wcscmp(name, L"..") == 0;
}

// `path` with a backslash, unless it has a separator already.
template <typename Text>
Text with_separator(Text path) {
    using Unit = typename Text::value_type;
    if (!is_separator(static_cast<wchar_t>(path.back()))) path += Unit('\\');
    return path;
}

// --- create --------------------------------------------------------------------------------------

// The last separator of either kind in a terminated text, or null if none stands behind the first
// character.
char* last_cut(char* text) {
    char* const backslash = std::strrchr(text, '\\');
    char* const slash = std::strrchr(text, '/');
    char* const last = backslash > slash ? backslash : slash;
    return last && last > text ? last : nullptr;
}

bool made_or_there(char const* path) {
    return _mkdir(path) == 0 || errno == EEXIST;
}

// Cuts `path` shorter until a prefix is there or can be made; the terminators stay as marks. False
// where nothing is left to cut.
bool make_topmost(char* path) {
    do {
        char* const cut = last_cut(path);
        if (!cut) return false;
        *cut = 0;
    } while (!made_or_there(path));
    return true;
}

// Puts the cut separators back one by one and makes each prefix.
bool make_downwards(char* path, char const* whole, std::size_t length) {
    for (std::size_t at = std::strlen(path); at != length; at = std::strlen(path)) {
        path[at] = whole[at];
        if (!made_or_there(path)) return false;
    }
    return true;
}

// --- enumerate -----------------------------------------------------------------------------------

constexpr unsigned long long ticks_a_second = 10000000;
constexpr unsigned long long seconds_from_1601_to_1970 = 11644473600;

template <typename Found>
FileInf info_of(Found const& found) {
    unsigned long long const ticks =
        static_cast<unsigned long long>(found.ftLastWriteTime.dwHighDateTime) << 32 |
        found.ftLastWriteTime.dwLowDateTime;
    FileInf info;
    info.size = found.nFileSizeLow;  // the high half is passed over
    info.time = static_cast<unsigned int>(ticks / ticks_a_second - seconds_from_1601_to_1970);
    info.readable = true;
    info.writable = !(found.dwFileAttributes & FILE_ATTRIBUTE_READONLY);
    info.directory = found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
    info.hidden = found.dwFileAttributes & FILE_ATTRIBUTE_HIDDEN;
    return info;
}

struct SystemSearch {
    using Handle = HANDLE;
    static Handle none() { return INVALID_HANDLE_VALUE; }
    static void close(Handle search) { FindClose(search); }
};

struct Narrow : SystemSearch {
    using Text = String;
    using Found = WIN32_FIND_DATAA;
    static HANDLE first(char const* pattern, Found& found) {
        return FindFirstFileA(pattern, &found);
    }
    static BOOL next(HANDLE search, Found& found) { return FindNextFileA(search, &found); }
};

struct Wide : SystemSearch {
    using Text = UniString;
    using Found = WIN32_FIND_DATAW;
    static HANDLE first(wchar_t const* pattern, Found& found) {
        return FindFirstFileW(pattern, &found);
    }
    static BOOL next(HANDLE search, Found& found) { return FindNextFileW(search, &found); }
};

// The C library's.
struct Library {
    using Text = String;
    using Found = _finddata64i32_t;
    using Handle = intptr_t;
    static Handle none() { return -1; }
    static Handle first(char const* pattern, Found& found) {
        return _findfirst64i32(pattern, &found);
    }
    static bool next(Handle search, Found& found) { return _findnext64i32(search, &found) == 0; }
    static void close(Handle search) { _findclose(search); }
};

// A search that closes itself: a callback may throw.
template <typename Width>
class Search {
public:
    explicit Search(typename Width::Text const& pattern)
        : handle_(Width::first(pattern.c_str(), found)) {}
    ~Search() {
        if (is_open()) Width::close(handle_);
    }

    Search(Search const&) = delete;
    Search& operator=(Search const&) = delete;

    bool is_open() const { return handle_ != Width::none(); }
    bool next() { return Width::next(handle_, found); }

    typename Width::Found found = {};

private:
    typename Width::Handle handle_;
};

template <typename Width, typename Visit>
void for_each(typename Width::Text const& pattern, Visit const& visit) {
    Search<Width> search(pattern);
    if (!search.is_open()) return;
    do visit(search.found);
    while (search.next());
}

// `tell` makes the caller's callback of (path, record found).
template <typename Width, typename Unit, typename Tell>
void walk(Unit const* path, Unit const* pattern, bool recursive, Tell const& tell) {
    using Text = typename Width::Text;
    Text const folder = with_separator(Text(path));
    for_each<Width>(folder + pattern, [&](auto const& found) { tell(path, found); });
    if (!recursive) return;
    for_each<Width>(folder + Unit('*'), [&](auto const& found) {
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) return;
        if (is_self_or_parent(found.cFileName)) return;
        Text const inner = folder + found.cFileName + Unit('\\');
        walk<Width>(inner.c_str(), pattern, true, tell);
    });
}

}  // namespace

bool exist(char const* path) {
    return GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES;
}

bool exist(wchar_t const* path) {
    return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES;
}

bool create(char const* path) {
    if (_mkdir(path) == 0) return true;
    if (errno != ENOENT) return errno == EEXIST;
    String shortened(path);
    if (shortened.empty()) return false;
    char* const text = shortened.begin();
    return make_topmost(text) && make_downwards(text, path, shortened.length());
}

bool remove(char const* path) {
    return std::remove(path) == 0;
}

// The inverse of the narrow form, and callers know it.
bool remove(wchar_t const* path) {
    return DeleteFileW(path) == 0;
}

bool rename(char const* from, char const* to) {
    return std::rename(from, to) == 0;
}

// Kept: a result of 2 would be a success too.
bool deldir(char const* path) {
    return (_rmdir(path) & ~2) == 0;
}

bool delall(char const* path, bool delete_self) {
    bool all = true;
    for_each<Library>(with_separator(String(path)) + '*', [&](auto const& found) {
        if (is_self_or_parent(found.name)) return;
        String const child = String(path) + '\\' + found.name;
        bool const is_folder = found.attrib & _A_SUBDIR;
        bool const gone = is_folder ? delall(child.c_str(), true) : remove(child.c_str());
        all = all && gone;
    });
    if (!delete_self) return all;
    return _rmdir(path) == 0 && all;
}

bool chmod(char const* path, bool readable, bool writable) {
    return _chmod(path, (readable ? 0x100 : 0) | (writable ? 0x80 : 0)) == 0;
}

bool touch(char const* path, unsigned int time) {
    struct __utimbuf64 times = {time, time};
    return _utime64(path, &times) == 0;
}

String cwd() {
    char path[260] = {};
    DWORD const length = GetCurrentDirectoryA(sizeof path, path);
    return length < sizeof path ? String(path) : String();
}

bool set_cwd(char const* path) {
    bool const has_drive = path[0] && path[1] == ':';
    if (!has_drive && !is_separator(static_cast<wchar_t>(path[0]))) return false;
    if (has_drive) {
        char const first = path[0] >= 'a' && path[0] <= 'z' ? 'a' : 'A';
        if (_chdrive(path[0] - first + 1) != 0) return false;
    }
    return _chdir(path) == 0;
}

void enumerate(
    void (*callback)(
        char const* path, char const* name, char const* pattern, FileInf const& info, void* user),
    char const* path, char const* pattern, void* user, bool recursive) {
    walk<Narrow>(path, pattern, recursive, [&](char const* folder, auto const& found) {
        callback(folder, found.cFileName, pattern, info_of(found), user);
    });
}

void enumerate(
    void (*callback)(
        UniString const& path, UniString const& name, UniString const& pattern, FileInf const& info,
        void* user),
    wchar_t const* path, wchar_t const* pattern, void* user, bool recursive) {
    walk<Wide>(path, pattern, recursive, [&](wchar_t const* folder, auto const& found) {
        callback(
            UniString(folder), UniString(found.cFileName), UniString(pattern), info_of(found),
            user);
    });
}

}  // namespace Filesystem

}  // namespace QX
