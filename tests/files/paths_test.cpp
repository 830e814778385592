#include "qx/files/filesystem.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <atomic>
#include <cstring>
#include <cwchar>
#include <map>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "qx/files/file_class.h"
#include "qx/files/file_name.h"
#include "qx/files/search_paths.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/run_tool.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

namespace classes = QX::FileClass;
namespace fs = QX::Filesystem;
using QX::FileName;
using QX::SearchPathCollection;
using QX::String;
using QX::UniString;
using Texts = std::vector<std::string>;

std::string text_of(String const& text) {
    return std::string(text.data(), text.length());
}

std::wstring text_of(UniString const& text) {
    return std::wstring(text.begin(), text.end());
}

UniString wide(std::string const& text) {
    return UniString(std::wstring(text.begin(), text.end()).c_str());
}

// --- The rules of path shaping, restated step by step -------------------------------------------

using Shaped = std::pair<std::string, bool>;  // the text, and whether it tells of a change

Shaped plain_file_name(std::string text) {
    std::size_t const size = text.size();
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c == '/') c = '\\';
    }
    for (auto at = text.find("\\\\", 1); at != text.npos; at = text.find("\\\\", 1))
        text.erase(at, 1);
    bool const changed = text.size() != size;
    if (text.size() > 1 && text[0] == '\\' && text[1] != '\\') text.erase(0, 1);
    return {text, changed};
}

Shaped plain_relative_path(std::string path) {
    std::string const before = path;
    for (auto at = path.find("\\..\\"); at != path.npos; at = path.find("\\..\\")) {
        if (at == 0) return {"", true};
        std::string const head = path.substr(0, at);
        path = head.substr(0, head.rfind('\\') + 1) + path.substr(at + 4);
    }
    if (path.find("..\\") == 0) return {"", path != before};
    for (auto at = path.find("\\.\\"); at != path.npos; at = path.find("\\.\\"))
        path.erase(at + 1, 2);
    while (path.find(".\\") == 0) path.erase(0, 2);
    return {path, path != before};
}

Shaped plain_shape(int step, std::string const& path) {
    if (step < 2) return step == 0 ? plain_file_name(path) : plain_relative_path(path);
    auto const at = path.find("data\\");
    if (at > 3) return {path, false};
    return {path.substr(at + 5), true};
}

// A path of separators, dots, letters of both cases and now and then a "data", so that every rule
// has work to do. Most are short; some reach over a block of 16, a few over the scratch or a page.
std::string random_path(test::Random& random) {
    constexpr char const* pieces[] = {"\\",  "/",      ".",      "..",    "a@[", "B`{Z",
                                      "/./", "\\..\\", "data\\", "DaTa/", "dat", "\xC3"};
    std::string path;
    unsigned int const count = random.chance(50) ? 3000 : random.below(random.chance(3) ? 40 : 9);
    for (unsigned int i = 0; i < count; ++i) path += pieces[random.below(12)];
    if (random.chance(50)) path.resize(2030 + random.below(40), 'q');
    return path;
}

// --- Texts --------------------------------------------------------------------------------------

String shape(int step, String const& path, bool* changed) {
    if (step == 0) return fs::sanitise_file_name(path, changed);
    return step == 1 ? fs::sanitise_relative_path(path, changed)
                     : fs::sanitise_path_start(path, changed);
}

TEST(Filesystem, shapes_paths_by_its_rows_and_only_ever_sets_the_flag) {
    constexpr std::tuple<int, char const*, char const*, bool> rows[] = {
        {0, "C:/Game/Data", "c:\\game\\data", false},
        {0, "a\\\\b//c", "a\\b\\c", true},
        {0, "\\foo", "foo", false},
        {0, "\\\\foo\\\\bar", "\\\\foo\\bar", true},
        {1, "a\\..\\b", "b", true},
        {1, "\\..\\a", "", true},
        {1, "..\\a", "", false},
        {1, "a\\.\\..\\b", "a\\b", true},  // climbing comes first and takes the dot for a name
        {2, "data\\a.txt", "a.txt", true},
        {2, "mydata\\x", "x", true},
        {2, "mymydata\\x", "mymydata\\x", false},
    };
    for (auto const& [step, path, shaped, changes] : rows) {
        bool changed = false, stays = true;
        EXPECT_EQ(shape(step, path, &changed), shaped) << path;
        shape(step, path, &stays);
        EXPECT_TRUE(changed == changes && stays) << path;
    }
}

TEST(Filesystem, shapes_slashes_by_their_rows) {
    // Path, for Windows, for Unix, with one at its end, with none.
    char const* const rows[][5] = {
        {"", "", "", "", ""},
        {"a", "a", "a", "a\\", "a"},
        {"a/", "a\\", "a/", "a\\", "a"},
        {"a/\\", "a\\\\", "a/", "a/\\", "a"},
        {"//a\\/b", "\\\\a\\\\b", "/a/b", "//a\\/b\\", "//a\\/b"},
        {"\\/", "\\\\", "/", "\\\\", ""},
    };
    for (auto const& [path, windows, unix_form, trailing, trimmed] : rows) {
        EXPECT_EQ(fs::sanitise_to_windows(path), windows) << path;
        EXPECT_EQ(fs::sanitise_to_unix(path), unix_form) << path;
        EXPECT_EQ(fs::sanitise_trailing_slash(path), trailing) << path;
        EXPECT_EQ(fs::trim_trailing_slash(path), trimmed) << path;
    }
    EXPECT_EQ(fs::regify("Ab-1{"), "[Aa][bB]-1{");
    EXPECT_TRUE(QX::translate_back_slashes(L"\\\"\\'\\\\b/\\r") == L"\"'\\b/\r");
    for (wchar_t const* refused : {L"a\\tb", L"a\\"})
        EXPECT_TRUE(QX::translate_back_slashes(refused) == L"");
}

TEST(Filesystem, splits_paths_by_its_rows_in_both_widths) {
    // Path, parent, name, stem, extension.
    char const* const rows[][5] = {
        {"a\\b\\c", "a\\b\\", "c", "a\\b\\c", "a\\b\\c"},
        {"a\\b\\c\\", "a\\b\\", "", "a\\b\\c\\", "a\\b\\c\\"},
        {"a\\", "a\\", "", "a\\", "a\\"},
        {"a\\b/c", "a\\", "b/c", "a\\b/c", "a\\b/c"},
        {"a/b/", "a/", "", "a/b/", "a/b/"},
        {"a.b\\c", "a.b\\", "c", "a", ".b\\c"},
        {".txt", ".txt", ".txt", "", ".txt"},
        {"a.b.c", "a.b.c", "a.b.c", "a.b", ".c"},
        {"a", "a", "a", "a", "a"},
    };
    for (auto const& [path, parent, name, stem, extension] : rows) {
        EXPECT_EQ(fs::parent_directory(String(path)), parent) << path;
        EXPECT_EQ(fs::remove_parent_directory(String(path)), name) << path;
        EXPECT_EQ(fs::remove_extension(String(path)), stem) << path;
        EXPECT_TRUE(fs::parent_directory(wide(path)) == wide(parent)) << path;
        EXPECT_TRUE(fs::remove_parent_directory(wide(path)) == wide(name)) << path;
        EXPECT_TRUE(fs::remove_extension(wide(path)) == wide(stem)) << path;
        EXPECT_TRUE(fs::extension(wide(path), false) == wide(extension)) << path;
        EXPECT_EQ(fs::extension(wide(path), true).empty(), !strchr(path, '.')) << path;
    }
}

// Each text ends at a page that may not be touched.
TEST(Filesystem, knows_absolute_paths_without_reading_behind_the_terminator) {
    for (std::string const path : {"\\\\", "c:\\", "c:/", "", "\\", "c:", "c:x", "//x", "c"}) {
        test::Guarded const text(path.c_str(), path.size() + 1);
        bool const absolute = path == "\\\\" || path == "c:\\" || path == "c:/";
        EXPECT_EQ(fs::absolute_path(text.data()), absolute) << path;
    }
}

// --- The disk -----------------------------------------------------------------------------------

class OnDisk : public testing::Test {
protected:
    std::string path(char const* name) const { return folder_.file(name); }
    bool there(char const* name) const { return fs::exist(path(name).c_str()); }

    test::TempFolder folder_;
};

TEST_F(OnDisk, create_makes_missing_parents_with_either_separator) {
    for (char const* name : {"a\\b\\c", "d/e/f/", "g\\h/i\\j", "g\\h\\\\l\\m\\"}) {
        EXPECT_TRUE(fs::create(path(name).c_str()) && there(name)) << name;
        EXPECT_TRUE(fs::create(path(name).c_str())) << name;
    }
    EXPECT_TRUE(fs::create(folder_.write("file", "x").c_str()));
    EXPECT_FALSE(fs::create(path("file\\below\\it").c_str()));
    EXPECT_FALSE(fs::create("") || fs::create(path("b\\<?>\\c").c_str()));
}

TEST_F(OnDisk, delall_goes_on_behind_what_it_cannot_delete) {
    std::string const tree = path("t"), kept = path("t\\m\\kept");
    ASSERT_TRUE(fs::create(path("t\\m\\in\\x\\x\\x").c_str()));
    for (char const* name : {"t\\a;b &c", "t\\z", "t\\m\\a", "t\\m\\z", "t\\m\\kept"})
        folder_.write(name, "x");
    ASSERT_TRUE(fs::chmod(kept.c_str(), true, false));
    EXPECT_FALSE(fs::delall(path("t\\").c_str(), true));
    for (char const* name : {"t\\a;b &c", "t\\z", "t\\m\\a", "t\\m\\z", "t\\m\\in"})
        EXPECT_FALSE(there(name)) << name;
    EXPECT_TRUE(there("t\\m\\kept") && fs::chmod(kept.c_str(), true, true));
    EXPECT_TRUE(fs::delall(tree.c_str(), false) && there("t"));
    EXPECT_TRUE(fs::delall(tree.c_str(), true) && !there("t"));
    EXPECT_TRUE(fs::delall(tree.c_str(), false) && !fs::delall(tree.c_str(), true));
}

TEST_F(OnDisk, the_wide_remove_answers_the_wrong_way_round) {
    std::string const file = folder_.write("f", "x");
    EXPECT_FALSE(fs::remove(wide(file).c_str()) || fs::exist(wide(file).c_str()));
    EXPECT_TRUE(fs::remove(wide(file).c_str()));
    folder_.write("f", "x");
    EXPECT_TRUE(fs::rename(file.c_str(), path("g").c_str()) && !there("f"));
    EXPECT_FALSE(fs::deldir(path("g").c_str()) || fs::touch(file.c_str(), 1));
    EXPECT_TRUE(fs::remove(path("g").c_str()) && !fs::remove(path("g").c_str()));
    EXPECT_TRUE(fs::create(file.c_str()) && fs::deldir(file.c_str()) && !there("f"));
}

TEST_F(OnDisk, set_cwd_takes_rooted_paths_alone) {
    String const before = fs::cwd();
    ASSERT_TRUE(fs::create(path("in").c_str()) && fs::set_cwd(folder_.path().c_str()));
    for (char const* place : {"", "in", ".\\in", "?:\\", "\\no\\such"})
        EXPECT_FALSE(fs::set_cwd(place)) << place;
    EXPECT_TRUE(fs::set_cwd(path("in").c_str() + 2));  // rooted on the current drive
    EXPECT_EQ(fs::cwd(), path("in").c_str());
    EXPECT_TRUE(fs::set_cwd(before.c_str()));
}

std::string narrow(char const* text) {
    return text;
}

std::string narrow(UniString const& text) {
    return {text.begin(), text.end()};
}

template <typename Part>
void list(Part in, Part name, Part pattern, QX::FileInf const& info, void* user) {
    std::string const end = info.directory ? "\\ " : " ";
    *static_cast<std::string*>(user) += narrow(in) + narrow(name) + narrow(pattern) + end;
    EXPECT_TRUE(info.readable && !info.reserved && info.size % 5 == 0);
    EXPECT_EQ(info.size == 5, info.time == 1000000007 && info.hidden && !info.writable);
}

// Name and kind of each match, in both widths alike.
std::string listed(std::string const& path, bool recursive) {
    std::string text, same;
    fs::enumerate(list<char const*>, path.c_str(), "*.t?t", &text, recursive);
    fs::enumerate(list<UniString const&>, wide(path).c_str(), L"*.t?t", &same, recursive);
    EXPECT_EQ(same, text);
    return text;
}

TEST_F(OnDisk, enumerate_tells_files_first_and_then_every_folder_whatever_its_name) {
    ASSERT_TRUE(fs::create(path("sub\\inner.txt").c_str()));
    for (char const* name : {"a.dat", "sub\\inner.txt\\d.txt"}) folder_.write(name, "");
    std::string const file = folder_.write("b.txt", "12345");
    ASSERT_TRUE(fs::touch(file.c_str(), 1000000007));
    SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    EXPECT_EQ(listed(path("missing"), true), "");
    std::string const without = folder_.path().substr(0, folder_.path().size() - 1);
    std::string const first = without + "b.txt*.t?t ", folder = path("sub\\inner.txt*.t?t\\ ");
    EXPECT_EQ(listed(without, false), first);
    EXPECT_EQ(listed(without, true), first + folder + path("sub\\inner.txt\\d.txt*.t?t "));
    SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_NORMAL);
}

// --- Search paths -----------------------------------------------------------------------------

Texts paths_of(SearchPathCollection const& paths) {
    Texts texts;
    for (String const& path : paths) texts.push_back(text_of(path));
    return texts;
}

class SearchPaths : public testing::Test {
protected:
    SearchPaths() { paths_.clear(); }

    // The layout that a collection settles in the case's folder.
    SearchPathCollection settled() const {
        String const before = fs::cwd();
        wcscpy(QX::FileClass::fc_paths[QX::OWC_MAPS], L"U:\\maps\xE9\\");
        EXPECT_TRUE(fs::set_cwd(folder_.path().c_str()));
        SearchPathCollection const paths;
        fs::set_cwd(before.c_str());
        std::memset(QX::FileClass::fc_paths, 0, sizeof QX::FileClass::fc_paths);
        return paths;
    }

    test::TempFolder folder_;
    SearchPathCollection paths_{"not looked at"};
};

TEST_F(SearchPaths, append_keeps_one_of_each_path_and_returns_it_as_stored) {
    EXPECT_EQ(paths_.append_path("C:/Game/Data", true), "c:\\game\\data\\");
    EXPECT_EQ(paths_.append_path("c:\\game\\data\\", true), "c:\\game\\data\\");
    EXPECT_EQ(paths_.append_path("C:/Game", false), "C:/Game");
    EXPECT_TRUE(paths_.contains_path("c:\\game\\data\\") && !paths_.contains_path("xC:/Game"));
    EXPECT_EQ(paths_.append_path("", true), "");
    EXPECT_TRUE(paths_.contains_path("anything") && !paths_.contains_path(""));
    EXPECT_EQ(paths_of(paths_), (Texts{"c:\\game\\data\\", "C:/Game", ""}));
    EXPECT_TRUE(paths_.get_path_index("C:/Game") == 1 && paths_.get_path_index("c:\\game") == -1);
}

TEST_F(SearchPaths, the_first_folder_of_working_data_is_primary_and_its_index_never_moves) {
    paths_.append_path("c:\\a\\old_working_data", true);
    EXPECT_EQ(paths_.primary_working_data_index(), 0xFFFFFFFFu);
    paths_.append_path("c:\\a\\working_data", true);
    paths_.append_path("c:\\b\\working_data", true);
    EXPECT_TRUE(
        paths_.prepend_path("C:/Front") == 3 && paths_.prepend_path("c:/a/working_data") == 2);
    paths_.remove_path("c:\\a\\old_working_data\\");
    EXPECT_TRUE(paths_.primary_working_data_index() == 1 && paths_.size() == 3);
    paths_.set_design_path("kept");
    paths_.clear();
    EXPECT_EQ(paths_.primary_working_data_index(), 0xFFFFFFFFu);
    EXPECT_EQ(paths_.get_design_path(), "kept");
}

TEST_F(SearchPaths, set_path_fills_the_gap_with_copies_and_looks_for_no_duplicates) {
    std::string const x = "x\\working_data\\";
    EXPECT_EQ(paths_.set_path("x/working_data", 3), 3);
    EXPECT_EQ(paths_of(paths_), (Texts{x, x, x, x}));
    EXPECT_EQ(paths_.primary_working_data_index(), 0xFFFFFFFFu);
    EXPECT_EQ(paths_.set_path("Y", 1), 1);
    paths_.remove_path(x.c_str());
    EXPECT_EQ(paths_.prepend_path(""), 3);
    EXPECT_EQ(paths_of(paths_), (Texts{"\\", "y\\", x, x}));
}

TEST_F(SearchPaths, finds_names_in_the_order_of_the_paths) {
    ASSERT_TRUE(fs::create(folder_.file("one\\sub").c_str()));
    ASSERT_TRUE(fs::create(folder_.file("two").c_str()));
    for (char const* name : {"one\\a", "two\\a", "two\\b"}) folder_.write(name, "x");
    String const one = paths_.append_path(folder_.file("one").c_str(), true);
    String const two = paths_.append_path(folder_.file("two").c_str(), true);
    String const rooted = two + "b", gone = "c:\\gone", none = "";
    // Name, the path that it is found in, and both together.
    String const rows[][3] = {{"a", one, one + "a"},     {"b", two, two + "b"},
                              {"sub", one, one + "sub"}, {"gone", none, none},
                              {rooted, none, rooted},    {gone, none, gone}};
    for (auto const& [name, source, full] : rows) {
        EXPECT_EQ(paths_.fexist(name), full != none && full != gone) << name.c_str();
        auto const found = paths_.get_source_path_for(name);
        EXPECT_EQ(*found, source) << name.c_str();
        EXPECT_EQ(found == SearchPathCollection::s_null_collection().get_path(0), source == none);
        EXPECT_EQ(paths_.prepend_source_path_for(name), full);
    }
    EXPECT_FALSE(paths_.fexist(""));
}

TEST_F(SearchPaths, a_design_folder_beside_an_appended_path_is_taken_once) {
    std::string const design = folder_.file("p\\raw_data\\vellumdesigndata\\");
    for (char const* parent : {"p", "q"}) {
        std::string const beside = folder_.file(parent);
        ASSERT_TRUE(fs::create((beside + "\\raw_data\\vellumdesigndata").c_str()));
        paths_.append_path((beside + "/data/").c_str(), false);
        EXPECT_EQ(text_of(paths_.get_design_path()), design);
    }
}

TEST_F(SearchPaths, a_boot_pack_below_the_working_folder_makes_the_installed_layout) {
    ASSERT_TRUE(fs::create(folder_.file("data\\boot.pack").c_str()));
    SearchPathCollection const paths = settled();
    EXPECT_TRUE(paths.release() && paths.primary_working_data_index() == 0xFFFFFFFF);
    std::string const data = plain_file_name(folder_.file("data\\")).first;
    EXPECT_EQ(paths_of(paths), (Texts{data, "u:\\maps\xC3\xA9\\"}));
}

TEST_F(SearchPaths, without_one_the_program_settles_the_development_layout) {
    SearchPathCollection paths = settled();
    std::string const program = test::own_folder();
    std::string const project = program.substr(0, program.rfind('\\', program.size() - 2));
    std::string const root = project.substr(0, project.rfind('\\') + 1);
    Texts expected = {
        project + "\\working_data\\", root + "common\\data\\working_data\\",
        project + "\\old_working_data\\", project + "\\editor_working_data\\",
        "u:\\maps\xC3\xA9\\"};
    for (std::string& path : expected) path = plain_file_name(path).first;
    EXPECT_EQ(paths_of(paths), expected);
    EXPECT_TRUE(!paths.release() && paths.primary_working_data_index() == 0);
    EXPECT_EQ(text_of(paths.get_design_path()), project + "\\raw_data\\vellumdesigndata\\");
}

// --- Names ------------------------------------------------------------------------------------

// Puts search paths of the case's own in place of the process's.
class OwnPaths {
public:
    explicit OwnPaths(Texts const& paths) {
        SearchPathCollection::search_paths().clear();
        for (std::string const& path : paths)
            SearchPathCollection::search_paths().append_path(path.c_str(), false);
    }
    ~OwnPaths() { SearchPathCollection::search_paths() = before_; }

private:
    SearchPathCollection before_ = SearchPathCollection::search_paths();
};

TEST(FileName, null_and_empty_names_differ_and_null_is_below_everything_even_itself) {
    FileName const null;
    EXPECT_TRUE(null.empty() && FileName("..\\a").empty() && !FileName::s_empty().empty());
    EXPECT_TRUE(FileName("") == FileName::s_empty() && FileName::qualified("") == FileName(""));
    EXPECT_TRUE(FileName("..\\a") == FileName("data\\") && !(FileName("..\\a") == null));
    EXPECT_EQ(FileName::s_empty().name(), "<empty_file_name>");
    test::TempFolder const folder;
    QX::FileIn file(folder.write("f", std::string("\x05\0A/b.C\0\0", 9)).c_str(), false);
    FileName first, second;
    file >> first >> second;
    EXPECT_TRUE(first == FileName("a\\b.c") && second == FileName(""));
    FileName const a("a"), b("b"), high("\xC3");
    EXPECT_TRUE(null < null && null < a && a < b && high < a);
    EXPECT_FALSE(a < null || b < a || a < a);
}

TEST(FileName, spellings_of_one_file_are_one_pointer_but_private_forms_look_at_no_search_path) {
    OwnPaths const paths({"c:\\game\\data\\", "extra\\", ""});
    FileName const name("foo\\bar.txt");
    for (char const* spelling :
         {"Data/Foo//BAR.txt", "data\\foo\\bar.txt", "C:/Game/Data/foo/bar.txt", "/foo/bar.txt",
          ".\\x\\..\\foo\\bar.txt", "extra/foo/bar.txt", "c:\\game\\data\\extra\\foo\\bar.txt"})
        EXPECT_TRUE(FileName(spelling) == name && FileName(String(spelling)) == name) << spelling;
    EXPECT_EQ(name.name(), "foo\\bar.txt");
    EXPECT_EQ(FileName("extra\\c:\\game\\data\\a").name(), "c:\\game\\data\\a");
    EXPECT_EQ(FileName::disambiguate_file_name("EXTRA/a", true), "a");
    EXPECT_EQ(FileName::compose(String("c:/game/data"), String("a")).name(), "a");
    auto const data = SearchPathCollection::search_paths().get_path(0);
    EXPECT_EQ(FileName::qualified("c:\\game\\data\\A").name(), "c:\\game\\data\\a");
    EXPECT_EQ(FileName::compose(data, "/A", false).name(), "c:\\game\\data\\a");
    EXPECT_EQ(FileName(String("data\\a"), true).name(), "a");
}

// Each text has one pointer for good, whatever the table does meanwhile, and nothing is read behind
// a text's end.
TEST(FileName, random_paths_become_the_texts_of_the_plain_rules) {
    Texts const search_paths = {"a\\", "", "b", "z\\..", "a\\b\\"};
    OwnPaths const paths(search_paths);
    SearchPathCollection const nothing("");
    test::Random random;
    std::map<std::string, String const*> known;
    for (int i = 0; i < 20000; ++i) {
        std::string const path = random_path(random);
        std::string expected = path;
        for (int step = 0; step < 3; ++step) {
            bool changed = false;
            auto const [alone, tells] = plain_shape(step, path);
            ASSERT_EQ(text_of(shape(step, path.c_str(), &changed)), alone) << path;
            ASSERT_EQ(changed, tells) << path << " step " << step;
            expected = plain_shape(step, expected).first;
        }
        if (path.empty()) expected = "<empty_file_name>";
        test::Guarded const text(path.c_str(), path.size() + 1);
        FileName const name = FileName::compose(nothing.begin(), text.data(), false);
        ASSERT_EQ(text_of(name.name()), expected) << path;
        ASSERT_EQ(known.emplace(expected, &name.name()).first->second, &name.name()) << path;
        for (std::string const& start : search_paths) {
            if (expected.compare(0, start.size(), start) == 0) expected.erase(0, start.size());
        }
        ASSERT_EQ(text_of(FileName(text.data()).name()), expected) << path;
    }
    for (auto const& [text, name] : known) ASSERT_EQ(text_of(*name), text);
}

// So many that some differ by their text alone and not by what the table's slots hold of them.
TEST(FileName, a_crowd_of_names_stay_apart) {
    for (int i = 0; i < 150000; ++i) {
        std::string const text = "crowd_" + std::to_string(i * 7919);
        ASSERT_EQ(text_of(FileName(text.c_str()).name()), text);
    }
}

TEST(FileName, an_allocation_that_fails_leaves_the_table_whole_and_unlocked) {
    std::string const longest(100000, 'n');  // takes a block for itself
    unsigned int failures = 0;
    for (bool fired = true; fired;) {
        test::FailingAllocation const failing(failures + 1);
        try {
            EXPECT_EQ(FileName(longest.c_str()).name().length(), longest.size());
        } catch (std::bad_alloc const&) {
            ++failures;
        }
        fired = failing.fired();
    }
    EXPECT_GE(failures, 2u);
    std::thread([] { EXPECT_FALSE(FileName("after failures").empty()); }).join();
}

std::atomic<int> layouts_settled = 0;
void* real_attributes;

DWORD WINAPI slow_attributes(LPCSTR name) {
    if (std::strcmp(name, "data\\boot.pack") == 0) {
        ++layouts_settled;
        Sleep(200);
    }
    return reinterpret_cast<decltype(&GetFileAttributesA)>(real_attributes)(name);
}

// In a process of its own, which has no search paths yet and ends its file system.
TEST(FileNameDeathTest, threads_that_make_the_first_names_get_one_pointer_for_each) {
    auto const body = [] {
        test::StandIn const attributes("GetFileAttributesA", slow_attributes);
        real_attributes = attributes.original();
        EXPECT_EQ(FileName::qualified("a.txt").name(), "a.txt");
        EXPECT_EQ(layouts_settled, 0);  // names of the short form look at no search path
        std::vector<String const*> made[4];
        std::vector<std::thread> threads;
        for (auto& own : made) {
            threads.emplace_back([&own] {
                for (int n = 0; n < 6000; ++n)
                    own.push_back(
                        &FileName(("T/" + std::to_string(n * 7919 % 4001)).c_str()).name());
            });
        }
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(layouts_settled, 1);
        for (unsigned int n = 0; n < 6000; ++n) {
            EXPECT_EQ(text_of(*made[0][n]), "t\\" + std::to_string(n * 7919 % 4001));
            for (auto const& own : made) EXPECT_EQ(own[n], made[0][n]) << n;
        }
        SearchPathCollection::s_null_collection();
        QX::destroy_filesystem();
        std::exit(testing::Test::HasFailure());
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

// --- File classes --------------------------------------------------------------------------------

// What the stand-ins answer.
char const* given_command_line;
wchar_t const* given_program;
std::wstring given_profile;  // none where it is empty

DWORD WINAPI tell_program(HMODULE, LPWSTR name, DWORD size) {
    std::wcsncpy(name, given_program, size);
    return static_cast<DWORD>(std::wcslen(given_program));
}

HRESULT WINAPI tell_profile(HWND, int folder, HANDLE, DWORD, LPWSTR path) {
    EXPECT_EQ(folder, 0x801A);
    std::wcscpy(path, given_profile.c_str());
    return given_profile.empty() ? E_FAIL : S_OK;
}

// A profile in a folder of the case's own, and a command line and program that the case sets.
class FileClass : public testing::Test {
protected:
    FileClass() {
        given_command_line = "game.exe";
        given_profile.assign(folder_.path().begin(), folder_.path().end() - 1);
    }
    ~FileClass() override {
        std::wstring().swap(given_profile);
        forget();
    }

    static void forget() { std::memset(classes::fc_paths, 0, sizeof classes::fc_paths); }
    static std::wstring maps() { return text_of(classes::get_path(QX::OWC_MAPS)); }
    static std::wstring below_profile(std::wstring const& rest) {
        return given_profile + L"\\The Tarnwick Guild\\Brassmoor" + rest;
    }

    test::TempFolder folder_;
    test::StandIn line_{"GetCommandLineA", +[] { return given_command_line; }};
    test::StandIn program_{"GetModuleFileNameW", tell_program};
    test::StandIn profile_{"SHGetFolderPathW", tell_profile};
};

// The hash pins every text and category.
TEST_F(FileClass, knows_its_63_kinds) {
    std::wstring all;
    for (int number = 0; number < 63; ++number) {
        auto const kind = static_cast<QX::OS_WRITE_CLASS>(number);
        all += std::wstring(classes::write_class_extension(kind)) + L'|';
        all += std::wstring(classes::write_class_directory(kind)) + L'|';
        all += static_cast<wchar_t>(classes::write_class_category(kind));
    }
    unsigned int hash = 0;
    for (wchar_t const c : all) hash = hash * 31 + c;
    EXPECT_EQ(hash, 1745022533u);
}

TEST_F(FileClass, the_command_line_and_the_program_choose_the_application_folder) {
    constexpr std::tuple<char const*, wchar_t const*, wchar_t const*> rows[] = {
        {"x-sptestify", L"c:\\dev\\trunk\\g.exe", L"_autotest"},
        {"branch_profile", L"c:\\dev\\trunk\\binaries\\x64\\g.exe", L"_dev"},
        {"branch_profile", L"c:\\dev\\t\\src\\..\\binaries\\g.exe", L"_dev"},
        {"branch_profile", L"c:\\a\\binaries\\c\\src\\..\\g.exe", L"_binaries"},
        {"branch_profile", L"c:\\g.exe", L""},
        {"branch_profile -sptest", L"c:\\dev\\trunk\\g.exe", L"_trun_autotest"},
    };
    for (auto const& [line, program, application] : rows) {
        given_command_line = line;
        given_program = program;
        EXPECT_EQ(maps(), below_profile(application + std::wstring(L"\\maps\\"))) << program;
    }
}

// The key is one that no other case asks for.
TEST_F(FileClass, the_registry_value_names_the_base) {
    wchar_t const path[] = L"Software\\The Tarnwick Guild\\Brassmoor_key_autotest";
    given_command_line = "branch_profile -sptest";
    given_program = L"c:\\keys\\g.exe";
    EXPECT_EQ(maps(), below_profile(L"_key_autotest\\maps\\"));
    RegSetKeyValueW(HKEY_CURRENT_USER, path, L"HomePath", REG_SZ, L"c:\\home", 16);
    EXPECT_EQ(maps(), L"c:\\home\\Brassmoor_key_autotest\\maps\\");
    RegDeleteKeyW(HKEY_CURRENT_USER, path);
    RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\The Tarnwick Guild");
}

TEST_F(FileClass, names_get_the_extension_that_they_lack) {
    std::wstring const saves = below_profile(L"\\save_games\\");
    wchar_t const* const rows[][2] = {
        {L".save", L".save"}, {L"save", L"save.save"}, {L"a%s.SAVE", L"a%s.SAVE.save"},
        {L"a", L"a.save"},    {L"a.save", L"a.save"},  {L"a.SAVE", L"a.SAVE.save"}};
    for (auto const& [name, full] : rows) {
        EXPECT_EQ(text_of(classes::create_file_name(QX::OWC_SAVE_GAME, name)), saves + full);
        UniString const same = name;
        EXPECT_EQ(text_of(classes::create_file_name(QX::OWC_SAVE_GAME, same)), saves + full);
    }
    EXPECT_EQ(text_of(classes::create_file_name(QX::OWC_MAPS, L"a")), maps() + L"a");
}

// Without a profile every folder is empty.
TEST_F(FileClass, the_full_folder_is_kept_once_asked_for) {
    std::wstring const first = below_profile(L"\\chat\\");
    EXPECT_EQ(classes::app_directory(QX::OWC_CHAT), first);
    EXPECT_EQ(text_of(classes::get_directory(QX::OWC_CHAT, UniString(L"x\\y"))), first + L"x\\y");
    EXPECT_TRUE(fs::exist((first + L"x\\y").c_str()));
    given_profile.clear();
    EXPECT_EQ(classes::owc_details(QX::OWC_CHAT).first, first);
    EXPECT_EQ(maps(), L"");
    EXPECT_EQ(text_of(classes::create_file_name(QX::OWC_SAVE_GAME, L"a")), L"a.save");

    static int searches;
    searches = 0;
    test::StandIn const search(
        "FindFirstFileW", +[](wchar_t const*, WIN32_FIND_DATAW*) {
            ++searches;
            return INVALID_HANDLE_VALUE;
        });
    classes::nuke_directory(QX::OWC_SAVE_GAME);
    EXPECT_TRUE(search.found() && searches == 0);
}

TEST_F(FileClass, a_folder_of_256_characters_is_used_but_not_kept) {
    std::size_t const rest = wcslen(L"\\The Tarnwick Guild\\Brassmoor\\chat\\");
    std::wstring const drive = given_profile.substr(0, 3);
    for (std::size_t length : {255, 256, 259}) {
        given_profile = drive + std::wstring(length - rest - 3, L'p');
        forget();
        EXPECT_EQ(classes::app_directory(QX::OWC_CHAT), below_profile(L"\\chat\\"));
        EXPECT_EQ(classes::fc_paths[QX::OWC_CHAT][0] != 0, length == 255) << length;
    }
}

TEST_F(FileClass, deletes_one_file_or_all_with_the_extension) {
    std::wstring const saves = classes::app_directory(QX::OWC_SAVE_GAME);
    std::wstring const files[] = {saves + L"a.save", saves + L"b.save", saves + L"c.other"};
    for (std::wstring const& file : files)
        ASSERT_TRUE(QX::FileOut().open(file.c_str(), false, true));
    auto const there = [&](int i) { return fs::exist(files[i].c_str()); };
    classes::delete_file(QX::OWC_SAVE_GAME, L"a");
    EXPECT_TRUE(!there(0) && there(1));
    classes::nuke_directory(QX::OWC_SAVE_GAME);
    EXPECT_TRUE(!there(1) && there(2));
}

}  // namespace
