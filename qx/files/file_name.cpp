#include "qx/files/file_name.h"

#include <atomic>
#include <cstring>

#include "qx/files/file_name_table_impl.h"
#include "qx/files/filesystem_impl.h"
#include "qx/files/search_paths_impl.h"
#include "qx/tasks/mutex.h"

namespace QX {

namespace {

using path_shape::Path;
using path_shape::Scratch;

constexpr unsigned int table_spin_count = 10000;

std::atomic<FileNameTable*> file_name_table = nullptr;

// Whether a public name has made the search paths. Before that it needs the lock to do so, even
// where names of the short form have made the table.
std::atomic<bool> search_paths_made = false;

// Made by the first name, gone at exit.
CriticalSectionDeclaration& table_lock() {
    static CriticalSectionDeclaration lock(table_spin_count);
    return lock;
}

class TableLock {
public:
    TableLock() { table_lock().acquire(); }
    ~TableLock() { table_lock().release(); }

    TableLock(TableLock const&) = delete;
    TableLock& operator=(TableLock const&) = delete;
};

bool starts_with(Path const& path, String const& start) {
    return path.length >= start.length() &&
           std::memcmp(path.text, start.data(), start.length()) == 0;
}

// A first byte settles most paths without a call.
void cut_search_paths(Path& path) {
    SearchPathCollection const& paths = SearchPathCollection::search_paths();
    for (String const& start : paths) {
        if (start.empty() || path.length == 0 || path.text[0] != start.data()[0]) continue;
        if (!starts_with(path, start)) continue;
        path.text += start.length();
        path.length -= start.length();
    }
}

struct LongForm {
    static bool is_ready() { return search_paths_made.load(std::memory_order_acquire); }
    static void note_ready() { search_paths_made.store(true, std::memory_order_release); }

    Path operator()(char* scratch, char const* text, unsigned int length) const {
        Path path = path_shape::fold(scratch, text, length);
        path_shape::resolve(path);
        path_shape::drop_start(path);
        cut_search_paths(path);
        return path;
    }
};

struct ShortForm {
    bool keep_start;

    static bool is_ready() { return true; }
    static void note_ready() {}

    Path operator()(char* scratch, char const* text, unsigned int length) const {
        Path path = path_shape::fold(scratch, text, length);
        path_shape::resolve(path);
        if (!keep_start) path_shape::drop_start(path);
        return path;
    }
};

// The first name of all makes the table, and with it what shaping reads, under the lock.
template <typename Form>
QX_NOINLINE String const* take_in(char const* text, unsigned int length, Form form) {
    Scratch scratch(length);
    TableLock const lock;
    Path const path = form(scratch.text(), text, length);
    Form::note_ready();
    FileNameTable* table = file_name_table.load(std::memory_order_relaxed);
    if (!table) {
        table = new FileNameTable;
        file_name_table.store(table, std::memory_order_release);
    }
    return table->insert(path.text, path.length, FileNameTable::hash_of(path.text, path.length));
}

template <typename Form>
String const* known_name(char const* text, unsigned int length, Form form) {
    FileNameTable const* const table = file_name_table.load(std::memory_order_acquire);
    if (!table || !Form::is_ready()) return nullptr;
    Scratch scratch(length);
    Path const path = form(scratch.text(), text, length);
    return table->find(path.text, path.length, FileNameTable::hash_of(path.text, path.length));
}

template <typename Form>
String const* intern(char const* text, unsigned int length, Form form) {
    if (QX_UNLIKELY(length == 0)) return &FileName::s_empty().name();
    String const* const known = known_name(text, length, form);
    return QX_LIKELY(known != nullptr) ? known : take_in(text, length, form);
}

}  // namespace

FileName::FileName(char const* path)
    : name_(intern(path, String::traits_type::length(path), LongForm())) {}

FileName::FileName(String const& path) : name_(intern(path.data(), path.length(), LongForm())) {}

FileName::FileName(String const& path, bool)
    : name_(intern(path.data(), path.length(), ShortForm{false})) {}

FileName::FileName(
    DynamicArray<String, DefaultAllocator>::ConstIterator const& path, String const& name,
    bool keep_start) {
    String const joined = *path + name;
    name_ = intern(joined.data(), joined.length(), ShortForm{keep_start});
}

FileName FileName::qualified(String const& path) {
    return FileName(path, false);
}

FileName FileName::compose(String const& folder, String const& name) {
    return FileName(folder + '\\' + name);
}

FileName FileName::compose(
    DynamicArray<String, DefaultAllocator>::ConstIterator const& path, String const& name,
    bool keep_start) {
    return FileName(path, name, keep_start);
}

String FileName::disambiguate_file_name(String const& path, bool) {
    Scratch scratch(path.length());
    Path const shaped = LongForm()(scratch.text(), path.data(), path.length());
    return String(shaped.text, shaped.length);
}

bool FileName::operator<(FileName other) const {
    if (!name_) return true;
    return other.name_ && name_->compare(*other.name_) < 0;
}

FileName const& FileName::s_empty() {
    static FileName const empty("<empty_file_name>");
    return empty;
}

FileIn& operator>>(FileIn& file, FileName& name) {
    String text;
    file >> text;
    name = FileName(text);
    return file;
}

void destroy_filesystem() {
    destroy_search_paths();
    search_paths_made = false;
    delete file_name_table.exchange(nullptr);
    destroy_binary_description();
}

}  // namespace QX
