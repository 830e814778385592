#include "qx/files/search_paths.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "qx/files/file_class.h"
#include "qx/files/filesystem.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

namespace fs = QX::Filesystem;
using QX::SearchPathCollection;
using QX::String;

std::string text_of(String const& text) {
    return std::string(text.data(), text.length());
}

std::vector<std::string> paths_of(SearchPathCollection const& paths) {
    std::vector<std::string> texts;
    for (String const& path : paths) texts.push_back(text_of(path));
    return texts;
}

using Texts = std::vector<std::string>;

SearchPathCollection no_paths() {
    SearchPathCollection paths("");
    paths.clear();
    return paths;
}

std::string folded(std::string const& path) {
    return text_of(fs::sanitise_file_name(path.c_str(), nullptr));
}

TEST(SearchPaths, append_keeps_one_of_each_path_and_returns_it_as_stored) {
    SearchPathCollection paths("not looked at");
    EXPECT_EQ(paths_of(paths), Texts{""});
    EXPECT_FALSE(paths.release());
    paths.clear();
    EXPECT_EQ(paths.append_path("C:/Game/Data", true), "c:\\game\\data\\");
    EXPECT_EQ(paths.append_path("c:\\game\\data\\", true), "c:\\game\\data\\");
    EXPECT_EQ(paths.append_path("C:/Game", false), "C:/Game");
    EXPECT_EQ(paths.append_path("", true), "");
    EXPECT_EQ(paths.append_path("", false), "");
    EXPECT_EQ(paths_of(paths), (Texts{"c:\\game\\data\\", "C:/Game", ""}));
    EXPECT_EQ(paths.get_path_index("C:/Game"), 1);
    EXPECT_EQ(paths.get_path_index("c:\\game"), -1);
    EXPECT_EQ(*paths.get_path(1), "C:/Game");
}

TEST(SearchPaths, the_first_folder_of_working_data_is_primary_and_its_index_never_moves) {
    SearchPathCollection paths = no_paths();
    paths.append_path("c:\\a\\old_working_data", true);
    EXPECT_EQ(paths.primary_working_data_index(), 0xFFFFFFFFu);
    paths.append_path("c:\\a\\working_data", true);
    paths.append_path("c:\\b\\working_data", true);
    EXPECT_EQ(paths.primary_working_data_index(), 1u);
    paths.prepend_path("c:\\front");
    paths.remove_path("c:\\a\\old_working_data\\");
    paths.remove_path("c:\\missing");
    EXPECT_EQ(paths.primary_working_data_index(), 1u);
    EXPECT_EQ(paths.size(), 3u);
    paths.set_design_path("kept");
    paths.clear();
    EXPECT_EQ(
        paths.primary_working_data_index(), SearchPathCollection::s_primary_working_data_index);
    EXPECT_EQ(paths.get_design_path(), "kept");
}

TEST(SearchPaths, prepend_answers_with_the_last_place) {
    SearchPathCollection paths = no_paths();
    paths.append_path("a", true);
    paths.append_path("b", true);
    EXPECT_EQ(paths.prepend_path("C"), 2);
    EXPECT_EQ(paths_of(paths), (Texts{"c\\", "a\\", "b\\"}));
    EXPECT_EQ(paths.prepend_path("A/"), 1);
    EXPECT_EQ(paths.size(), 3u);
    EXPECT_EQ(paths.prepend_path(""), 3);
    EXPECT_EQ(*paths.begin(), "\\");
}

TEST(SearchPaths, set_path_fills_the_gap_with_copies_and_looks_for_no_duplicates) {
    SearchPathCollection paths = no_paths();
    EXPECT_EQ(paths.set_path("x/working_data", 3), 3);
    std::string const x = "x\\working_data\\";
    EXPECT_EQ(paths_of(paths), (Texts{x, x, x, x}));
    EXPECT_EQ(paths.primary_working_data_index(), 0xFFFFFFFFu);
    EXPECT_EQ(paths.set_path("Y", 1), 1);
    EXPECT_EQ(paths_of(paths), (Texts{x, "y\\", x, x}));
    paths.remove_path(x.c_str());
    EXPECT_EQ(paths_of(paths), (Texts{"y\\", x, x}));

    SearchPathCollection copy(paths);
    copy.set_path("z", 0);
    EXPECT_EQ(*paths.begin(), "y\\");
    paths = copy;
    EXPECT_EQ(paths_of(paths), paths_of(copy));
}

TEST(SearchPaths, contains_path_asks_for_the_start_of_the_name) {
    SearchPathCollection paths = no_paths();
    EXPECT_FALSE(paths.contains_path("a"));
    paths.append_path("c:\\game", true);
    EXPECT_TRUE(paths.contains_path("c:\\game\\x"));
    EXPECT_TRUE(paths.contains_path("c:\\game\\"));
    EXPECT_FALSE(paths.contains_path("c:\\game"));
    EXPECT_FALSE(paths.contains_path("x\\c:\\game\\"));
    paths.append_path("", false);
    EXPECT_TRUE(paths.contains_path("anything"));
    EXPECT_FALSE(paths.contains_path(""));
}

TEST(SearchPaths, finds_names_in_the_order_of_the_paths) {
    test::TempFolder const folder;
    ASSERT_TRUE(fs::create(folder.file("one\\sub").c_str()));
    ASSERT_TRUE(fs::create(folder.file("two").c_str()));
    folder.write("one\\a", "x");
    folder.write("two\\a", "x");
    std::string const b = folder.write("two\\b", "x");
    SearchPathCollection paths = no_paths();
    String const one = paths.append_path(folder.file("one").c_str(), true);
    String const two = paths.append_path(folder.file("two").c_str(), true);

    struct Row {
        String name, source;
        bool exists;
    };
    Row const rows[] = {{"a", one, true},           {"b", two, true},       {"sub", one, true},
                        {"missing", "", false},     {"", one, false},       {b.c_str(), "", true},
                        {"c:\\missing", "", false}, {"\\\\?\\x", "", false}};
    for (Row const& row : rows) {
        EXPECT_EQ(paths.fexist(row.name), row.exists) << row.name.c_str();
        auto const source = paths.get_source_path_for(row.name);
        EXPECT_EQ(*source, row.source) << row.name.c_str();
        auto const null_path = SearchPathCollection::s_null_collection().get_path(0);
        EXPECT_EQ(source == null_path, row.source.empty()) << row.name.c_str();
        bool const absolute = fs::absolute_path(row.name.c_str());
        String const full = absolute || row.source.empty() ? String() : row.source + row.name;
        EXPECT_EQ(paths.prepend_source_path_for(row.name), absolute ? row.name : full);
    }
}

TEST(SearchPaths, a_design_folder_beside_an_appended_path_is_taken_once) {
    test::TempFolder const folder;
    for (char const* name : {"p\\raw_data\\vellumdesigndata", "q\\raw_data\\vellumdesigndata"})
        ASSERT_TRUE(fs::create(folder.file(name).c_str()));
    SearchPathCollection paths = no_paths();
    paths.append_path("\\x", true);
    paths.append_path(folder.file("missing\\working_data").c_str(), true);
    EXPECT_EQ(paths.get_design_path(), "");
    paths.append_path(folder.file("p/data/").c_str(), false);
    std::string const design = folder.file("p\\raw_data\\vellumdesigndata\\");
    EXPECT_EQ(folded(text_of(paths.get_design_path())), folded(design));
    paths.append_path(folder.file("q/data/").c_str(), false);
    EXPECT_EQ(folded(text_of(paths.get_design_path())), folded(design));
}

// --- Layouts -------------------------------------------------------------------------------------

wchar_t const* given_program;

DWORD WINAPI give_program(HMODULE, LPWSTR name, DWORD size) {
    std::wcsncpy(name, given_program, size);
    return static_cast<DWORD>(std::wcslen(given_program));
}

TEST(SearchPaths, a_boot_pack_below_the_working_folder_makes_the_installed_layout) {
    test::TempFolder const folder;
    String const before = fs::cwd();
    wcscpy(QX::FileClass::fc_paths[QX::OWC_MAPS], L"U:\\maps\xE9\\");
    folder.write("data", "");  // a file of that name is no pack
    ASSERT_TRUE(fs::set_cwd(folder.path().c_str()));
    EXPECT_FALSE(SearchPathCollection().release());
    fs::remove("data");
    ASSERT_TRUE(fs::create("data\\boot.pack"));  // a folder exists as well as a file does
    SearchPathCollection const paths;
    EXPECT_TRUE(paths.release());
    EXPECT_EQ(paths_of(paths), (Texts{folded(folder.path()) + "data\\", "u:\\maps\xC3\xA9\\"}));
    EXPECT_EQ(paths.primary_working_data_index(), 0xFFFFFFFFu);
    EXPECT_EQ(paths.paths_.capacity(), 5u);
    fs::set_cwd(before.c_str());
    std::memset(QX::FileClass::fc_paths, 0, sizeof QX::FileClass::fc_paths);
}

TEST(SearchPaths, without_one_the_program_settles_the_development_layout) {
    test::TempFolder const folder;
    String const before = fs::cwd();
    wcscpy(QX::FileClass::fc_paths[QX::OWC_MAPS], L"u:\\maps\\");
    ASSERT_TRUE(fs::set_cwd(folder.path().c_str()));
    SearchPathCollection paths;
    fs::set_cwd(before.c_str());
    std::memset(QX::FileClass::fc_paths, 0, sizeof QX::FileClass::fc_paths);

    QX::BinaryDescription const& program = QX::BinaryDescription::binary_desc();
    std::string const project = text_of(program.root + program.folder);
    std::string const low = folded(project);
    EXPECT_FALSE(paths.release());
    EXPECT_EQ(
        paths_of(paths),
        (Texts{
            low + "\\working_data\\",
            folded(text_of(program.root)) + "common\\data\\working_data\\",
            low + "\\old_working_data\\", low + "\\editor_working_data\\", "u:\\maps\\"}));
    EXPECT_EQ(paths.primary_working_data_index(), 0u);
    EXPECT_EQ(text_of(paths.get_design_path()), project + "\\raw_data\\vellumdesigndata\\");
}

TEST(BinaryDescription, cuts_the_program_s_name_in_four) {
    struct Row {
        wchar_t const* program;
        char const *full, *root, *folder, *file;
    };
    // clang-format off
    constexpr Row rows[] = {
        {L"c:\\a\\b\\c\\d.exe", "c:\\a\\b\\c\\d.exe", "c:\\a\\", "b", "d.exe"},
        {L"c:\\b\\c\\d.exe",    "c:\\b\\c\\d.exe",    "c:\\",    "b", "d.exe"},
        {L"c:\\a\\b\\x\\..\\c\\d.exe", "c:\\a\\b\\c\\d.exe", "c:\\a\\", "b", "d.exe"},
        {L"c:\\\xE9\\B/b\\c\\d", "c:\\\xC3\xA9\\B/b\\c\\d", "c:\\\xC3\xA9\\", "B/b", "d"},
        {L"c:\\c\\d.exe",       "c:\\c\\d.exe",       "",        "c:", "d.exe"},
        {L"c:\\d.exe",          "c:\\d.exe",          "",        "",  "d.exe"},
        {L"d.exe",              "d.exe",              "",        "",  "d.exe"},
    };
    // clang-format on
    test::StandIn const program("GetModuleFileNameW", give_program);
    ASSERT_TRUE(program.found());
    for (Row const& row : rows) {
        given_program = row.program;
        QX::BinaryDescription const description;
        EXPECT_EQ(description.full_name, row.full);
        EXPECT_EQ(description.root, row.root) << row.full;
        EXPECT_EQ(description.folder, row.folder) << row.full;
        EXPECT_EQ(description.file_name, row.file) << row.full;
    }
}

}  // namespace
