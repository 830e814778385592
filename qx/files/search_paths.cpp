#include "qx/files/search_paths.h"

#include <cstring>

#include "qx/app/process.h"
#include "qx/files/file_class.h"
#include "qx/files/file_watch.h"
#include "qx/files/filesystem.h"
#include "qx/files/search_paths_impl.h"
#include "qx/text/convert.h"

namespace QX {

namespace {

constexpr unsigned int usual_paths = 5;

SearchPathCollection* process_paths = nullptr;
SearchPathCollection* null_paths = nullptr;
BinaryDescription* description = nullptr;

template <typename T>
void destroy(T*& object) {
    delete object;
    object = nullptr;
}

bool starts_with(String const& text, String const& start) {
    return text.length() >= start.length() &&
           std::memcmp(text.data(), start.data(), start.length()) == 0;
}

bool ends_with(String const& text, String const& end) {
    return text.length() >= end.length() &&
           text.compare(text.length() - end.length(), end.length(), end) == 0;
}

String as_folder(String const& path) {
    String folder = Filesystem::sanitise_file_name(path, nullptr);
    if (folder.back() != '\\') folder += '\\';
    return folder;
}

bool is_absolute(String const& name) {
    return Filesystem::absolute_path(name.c_str());
}

bool exists(String const& path) {
    return Filesystem::exist(path.c_str());
}

String user_maps() {
    return must_fix_string_narrow(UniString(FileClass::app_directory(OWC_MAPS)));
}

}  // namespace

SearchPathCollection::SearchPathCollection() {
    paths_.reserve(usual_paths);
    release_ = Filesystem::exist("data\\boot.pack");
    if (release_)
        use_installed_layout();
    else
        use_development_layout();
}

SearchPathCollection::SearchPathCollection(char const*) {
    paths_.push_back(String());
}

SearchPathCollection::SearchPathCollection(SearchPathCollection const& other) = default;

SearchPathCollection& SearchPathCollection::operator=(SearchPathCollection const& other) = default;

SearchPathCollection::~SearchPathCollection() = default;

void SearchPathCollection::use_installed_layout() {
    append_path(Filesystem::cwd() + "\\data\\", true);
    append_path(user_maps(), true);
}

void SearchPathCollection::use_development_layout() {
    BinaryDescription const& program = BinaryDescription::binary_desc();
    String const project = program.root + program.folder;
    append_path(project + "\\working_data\\", true);
    append_path(program.root + "common\\data\\working_data\\", true);
    append_path(project + "\\old_working_data\\", true);
    append_path(project + "\\editor_working_data\\", true);
    append_path(user_maps(), true);
    design_path_ = project + "\\raw_data\\vellumdesigndata\\";
    monitor(project + "\\raw_data\\");
}

SearchPathCollection& SearchPathCollection::search_paths() {
    if (!process_paths) process_paths = new SearchPathCollection;
    return *process_paths;
}

SearchPathCollection& SearchPathCollection::s_null_collection() {
    if (!null_paths) null_paths = new SearchPathCollection("");
    return *null_paths;
}

SearchPathCollection::Paths::ConstIterator
SearchPathCollection::find_path(String const& path) const {
    Paths::ConstIterator at = paths_.begin();
    while (at != paths_.end() && *at != path) ++at;
    return at;
}

String SearchPathCollection::append_path(String const& path, bool sanitise) {
    String const stored = sanitise && !path.empty() ? as_folder(path) : path;
    if (get_path_index(stored) >= 0) return stored;
    paths_.push_back(stored);
    if (primary_working_data_index_ == s_primary_working_data_index &&
        ends_with(stored, "\\working_data\\"))
        primary_working_data_index_ = size() - 1;
    if (design_path_.empty()) find_design_path_beside(stored);
    return stored;
}

// The first character is never taken for the separator, nor is the last.
void SearchPathCollection::find_design_path_beside(String const& path) {
    if (path.length() < 3) return;
    unsigned int at = path.length() - 2;
    while (at && path[at] != '\\' && path[at] != '/') --at;
    if (!at) return;
    String const beside = path.substr(0, at) + "\\raw_data\\vellumdesigndata\\";
    if (fexist(beside)) design_path_ = beside;
}

// The result is the last place, though the path stands in front: callers rely on it.
int SearchPathCollection::prepend_path(String const& path) {
    String const stored = as_folder(path);
    int const present = get_path_index(stored);
    if (present >= 0) return present;
    paths_.insert(paths_.begin(), stored);
    return static_cast<int>(size() - 1);
}

int SearchPathCollection::set_path(String const& path, unsigned int index) {
    String const stored = as_folder(path);
    if (index < paths_.size()) {
        paths_[index] = stored;
    } else {
        paths_.reserve(index + 1ull);
        while (paths_.size() <= index) paths_.push_back(stored);
    }
    return static_cast<int>(index);
}

void SearchPathCollection::remove_path(String const& path) {
    Paths::ConstIterator const at = find_path(path);
    if (at != end()) paths_.erase(at);
}

void SearchPathCollection::clear() {
    paths_.clear();
    primary_working_data_index_ = s_primary_working_data_index;
}

bool SearchPathCollection::contains_path(String const& name) {
    if (name.empty()) return false;
    for (String const& path : paths_) {
        if (starts_with(name, path)) return true;
    }
    return false;
}

int SearchPathCollection::get_path_index(String const& path) const {
    Paths::ConstIterator const at = find_path(path);
    return at != end() ? static_cast<int>(at - begin()) : -1;
}

SearchPathCollection::Paths::ConstIterator SearchPathCollection::get_path(int index) {
    return begin() + index;
}

SearchPathCollection::Paths::ConstIterator
SearchPathCollection::find_source_of(String const& name) const {
    Paths::ConstIterator at = begin();
    while (at != end() && !exists(*at + name)) ++at;
    return at;
}

bool SearchPathCollection::fexist(String const& name) const {
    if (name.empty()) return false;
    return is_absolute(name) ? exists(name) : find_source_of(name) != end();
}

SearchPathCollection::Paths::ConstIterator
SearchPathCollection::get_source_path_for(String const& name) {
    if (!is_absolute(name)) {
        Paths::ConstIterator const found = find_source_of(name);
        if (found != end()) return found;
    }
    return s_null_collection().begin();
}

String SearchPathCollection::prepend_source_path_for(String const& name) {
    if (is_absolute(name)) return name;
    Paths::ConstIterator const found = find_source_of(name);
    return found != end() ? *found + name : String();
}

String SearchPathCollection::get_design_path() {
    return design_path_;
}

void SearchPathCollection::set_design_path(String const& path) {
    design_path_ = path;
}

void SearchPathCollection::monitor(String const& path) {
    FileChangeNotification::monitor(path);
}

BinaryDescription::BinaryDescription() {
    full_name = must_fix_string_narrow(must_fix_string_widen(get_module_filename()));
    full_name = Filesystem::sanitise_relative_path(full_name, nullptr);
    unsigned int const behind_inner = full_name.rfind('\\');
    file_name = behind_inner != String::npos ? full_name.substr(behind_inner + 1) : full_name;
    if (behind_inner == String::npos) return;
    unsigned int const behind_folder = full_name.rfind('\\', behind_inner);
    if (behind_folder == String::npos) return;
    // Without a separator in front the root is empty: the sum wraps to 0.
    unsigned int const start = full_name.rfind('\\', behind_folder) + 1;
    root = full_name.substr(0, start);
    folder = full_name.substr(start, behind_folder - start);
}

BinaryDescription& BinaryDescription::binary_desc() {
    if (!description) description = new BinaryDescription;
    return *description;
}

void destroy_search_paths() {
    destroy(null_paths);
    destroy(process_paths);
}

void destroy_binary_description() {
    destroy(description);
}

}  // namespace QX
