#include "qx/files/filesystem.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <algorithm>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "tests/files/plain_paths.h"
#include "tests/harness/guarded.h"
#include "tests/harness/temp_folder.h"

namespace {

namespace fs = QX::Filesystem;
using QX::String;
using QX::UniString;

std::string text_of(String const& text) {
    return std::string(text.data(), text.length());
}

struct ChangeRow {
    char const* path;
    char const* shaped;
    bool changed;
};

// clang-format off
constexpr ChangeRow file_name_rows[] = {
    {"",                "",               false},
    {"C:/Game/Data",    "c:\\game\\data", false},
    {"a\\\\b//c",       "a\\b\\c",        true},
    {"a/\\b",           "a\\b",           true},
    {"\\foo",           "foo",            false},
    {"/foo",            "foo",            false},
    {"\\\\foo\\\\bar",  "\\\\foo\\bar",   true},
    {"\\\\foo",         "\\\\foo",        false},
    {"//\\foo",         "\\\\foo",        true},
    {"\\",              "\\",             false},
    {"\\\\",            "\\\\",           false},
    {"\\a\\\\b",        "a\\b",           true},
    {"@AZ[`az{\xC0",    "@az[`az{\xC0",   false},
    {"0123456789abcde\\\\f", "0123456789abcde\\f", true},  // across a block of 16
};

constexpr ChangeRow relative_rows[] = {
    {"",                  "",         false},
    {"a\\b\\..\\c",       "a\\c",     true},
    {"a\\..\\b",          "b",        true},
    {"a\\b\\..\\..\\c",   "c",        true},
    {"a\\..\\..\\b",      "",         true},
    {"\\..\\a",           "",         true},
    {"..\\a",             "",         false},
    {".\\.\\a",           "a",        true},
    {"a\\.\\.\\b",        "a\\b",     true},
    {"a\\.\\..\\b",       "a\\b",     true},   // climbing comes first and takes the dot for a name
    {"a\\..",             "a\\..",    false},
    {"a..\\b",            "a..\\b",   false},
    {"a.\\b",             "a.\\b",    false},
    {"a/../b",            "a/../b",   false},
};

constexpr ChangeRow start_rows[] = {
    {"data\\a.txt",       "a.txt",         true},
    {"..\\data\\a.txt",   "a.txt",         true},
    {"xdata\\data\\a",    "data\\a",       true},
    {"xxxxdata\\a",       "xxxxdata\\a",   false},
    {"mydata\\data\\x",   "data\\x",       true},
    {"mymydata\\data\\x", "mymydata\\data\\x", false},
    {"Data\\x",           "Data\\x",       false},
    {"data/x",            "data/x",        false},
    {"data",              "data",          false},
    {"data\\",            "",              true},
};
// clang-format on

template <typename Rows, typename Function>
void expect_rows(Rows const& rows, Function function) {
    for (ChangeRow const& row : rows) {
        bool changed = false;
        EXPECT_EQ(text_of(function(row.path, &changed)), row.shaped) << row.path;
        EXPECT_EQ(changed, row.changed) << row.path;
        changed = true;
        function(row.path, &changed);
        EXPECT_TRUE(changed) << row.path;
    }
}

TEST(Filesystem, shapes_paths_by_its_rows_and_only_ever_sets_the_flag) {
    expect_rows(file_name_rows, fs::sanitise_file_name);
    expect_rows(relative_rows, [](String path, bool* changed) {
        return fs::sanitise_relative_path(path, changed);
    });
    expect_rows(start_rows, fs::sanitise_path_start);
}

TEST(Filesystem, shapes_random_paths_of_any_length_as_the_plain_rules_do) {
    test::Random random;
    for (int i = 0; i < 20000; ++i) {
        std::string const path = test::random_path(random);
        String const text(path.data(), static_cast<unsigned int>(path.size()));
        test::Shaped const expected[] = {
            test::plain_file_name(path), test::plain_relative_path(path),
            test::plain_path_start(path)};
        bool changed[3] = {};
        String const shaped[] = {
            fs::sanitise_file_name(text, &changed[0]),
            fs::sanitise_relative_path(text, &changed[1]),
            fs::sanitise_path_start(text, &changed[2])};
        for (int step = 0; step < 3; ++step) {
            ASSERT_EQ(text_of(shaped[step]), expected[step].text) << path << " step " << step;
            ASSERT_EQ(changed[step], expected[step].changed) << path << " step " << step;
        }
    }
}

TEST(Filesystem, shapes_slashes_by_their_rows) {
    struct Row {
        char const *path, *windows, *unix_form, *trailing, *trimmed;
    };
    // clang-format off
    constexpr Row rows[] = {
        {"",         "",         "",      "",            ""},
        {"a",        "a",        "a",     "a\\",         "a"},
        {"a/",       "a\\",      "a/",    "a\\",         "a"},
        {"a/\\",     "a\\\\",    "a/",    "a/\\",        "a"},
        {"//a\\/b",  "\\\\a\\\\b", "/a/b", "//a\\/b\\",  "//a\\/b"},
        {"\\/",      "\\\\",     "/",     "\\\\",        ""},
    };
    // clang-format on
    for (Row const& row : rows) {
        EXPECT_EQ(fs::sanitise_to_windows(row.path), row.windows) << row.path;
        EXPECT_EQ(fs::sanitise_to_unix(row.path), row.unix_form) << row.path;
        EXPECT_EQ(fs::sanitise_trailing_slash(row.path), row.trailing) << row.path;
        EXPECT_EQ(fs::trim_trailing_slash(row.path), row.trimmed) << row.path;
    }
    std::string const runs = [] {
        std::string text;
        for (int i = 0; i < 3000; ++i) text += "ab/\\";
        return text;
    }();
    EXPECT_EQ(fs::sanitise_to_unix(runs.c_str()).length(), 9000u);
    EXPECT_EQ(fs::regify("Ab-1{"), "[Aa][bB]-1{");
}

TEST(Filesystem, splits_paths_by_its_rows_in_both_widths) {
    struct Row {
        char const *path, *parent, *name, *stem, *extension;
    };
    // clang-format off
    constexpr Row rows[] = {
        {"a\\b\\c",   "a\\b\\",  "c",    "a\\b\\c",  "a\\b\\c"},
        {"a\\b\\c\\", "a\\b\\",  "",     "a\\b\\c\\", "a\\b\\c\\"},
        {"a\\",       "a\\",     "",     "a\\",      "a\\"},
        {"a\\b/c",    "a\\",     "b/c",  "a\\b/c",   "a\\b/c"},
        {"a\\b/",     "a\\",     "b/",   "a\\b/",    "a\\b/"},
        {"a/b\\",     "a/",      "",     "a/b\\",    "a/b\\"},
        {"a/b/",      "a/",      "",     "a/b/",     "a/b/"},
        {"a.b\\c",    "a.b\\",   "c",    "a",        ".b\\c"},
        {".txt",      ".txt",    ".txt", "",         ".txt"},
        {"a.b.",      "a.b.",    "a.b.", "a.b",      "."},
        {"",          "",        "",     "",         ""},
    };
    // clang-format on
    auto const wide = [](char const* text) {
        return UniString(std::wstring(text, text + strlen(text)).c_str());
    };
    for (Row const& row : rows) {
        EXPECT_EQ(fs::parent_directory(String(row.path)), row.parent) << row.path;
        EXPECT_EQ(fs::remove_parent_directory(String(row.path)), row.name) << row.path;
        EXPECT_EQ(fs::remove_extension(String(row.path)), row.stem) << row.path;
        EXPECT_TRUE(fs::parent_directory(wide(row.path)) == wide(row.parent)) << row.path;
        EXPECT_TRUE(fs::remove_parent_directory(wide(row.path)) == wide(row.name)) << row.path;
        EXPECT_TRUE(fs::remove_extension(wide(row.path)) == wide(row.stem)) << row.path;
        EXPECT_TRUE(fs::extension(wide(row.path), false) == wide(row.extension)) << row.path;
        bool const dotted = strchr(row.path, '.');
        UniString const expected = dotted ? wide(row.extension) : UniString();
        EXPECT_TRUE(fs::extension(wide(row.path), true) == expected) << row.path;
    }
}

// Each text ends at a page that may not be touched.
TEST(Filesystem, knows_absolute_paths_without_reading_behind_the_terminator) {
    struct Row {
        char const* path;
        bool absolute;
    };
    constexpr Row rows[] = {{"", false},    {"\\", false},   {"\\\\", true}, {"\\\\x", true},
                            {"c:", false},  {"c:\\", true},  {"c:/", true},  {"c:x", false},
                            {"//x", false}, {"\\:\\", true}, {"c", false},   {"cc:\\", false}};
    for (Row const& row : rows) {
        test::Guarded const path(row.path, strlen(row.path) + 1);
        EXPECT_EQ(fs::absolute_path(reinterpret_cast<char const*>(path.data())), row.absolute)
            << row.path;
    }
}

TEST(Filesystem, reads_back_slashes_as_escapes) {
    struct Row {
        wchar_t const *text, *meant;
    };
    constexpr Row rows[] = {
        {L"a\\nb\\r", L"a\nb\r"},
        {L"\\\"\\'\\\\", L"\"'\\"},
        {L"a\\0b\\q", L"a"},
        {L"a\\tb", L""},
        {L"a\\", L""},
        {L"", L""},
        {L"a/b", L"a/b"}};
    for (Row const& row : rows)
        EXPECT_TRUE(QX::translate_back_slashes(row.text) == row.meant) << row.text;
}

TEST(Filesystem, inert_operations_do_nothing) {
    QX_STD::VECTOR<String, QX_STD::ALLOCATOR<String>, QX_STD::DETAIL::VECTOR_TRAITS> found;
    found.push_back("kept");
    EXPECT_FALSE(fs::globsearch("*", found));
    EXPECT_EQ(found.size(), 1u);
    fs::force_opened_files_limit(1);
}

// --- The disk ------------------------------------------------------------------------------------

TEST(Filesystem, creates_missing_parents_with_either_separator) {
    test::TempFolder const folder;
    char const* const paths[] = {"a\\b\\c", "d/e/f/", "g\\h/i\\j", "k", "g\\h\\\\l\\m\\"};
    for (char const* path : paths) {
        EXPECT_TRUE(fs::create(folder.file(path).c_str())) << path;
        EXPECT_TRUE(fs::exist(folder.file(path).c_str())) << path;
        EXPECT_TRUE(fs::create(folder.file(path).c_str())) << path;
    }
    folder.write("file", "x");
    EXPECT_TRUE(fs::create(folder.file("file").c_str()));
    EXPECT_FALSE(fs::create(folder.file("file\\below\\it").c_str()));
    EXPECT_FALSE(fs::create(""));
    EXPECT_FALSE(fs::create(folder.file("b\\<?>\\c").c_str()));
}

TEST(Filesystem, creates_deep_trees_and_deletes_them) {
    test::TempFolder const folder;
    std::string deep = folder.path() + "deep";
    while (deep.size() < 220) deep += "\\x";
    ASSERT_TRUE(fs::create(deep.c_str()));
    folder.write("deep\\x\\x\\a;b &c", "odd name");
    EXPECT_TRUE(fs::delall(folder.file("deep").c_str(), false));
    EXPECT_TRUE(fs::exist(folder.file("deep").c_str()));
    EXPECT_FALSE(fs::exist(folder.file("deep\\x").c_str()));
    EXPECT_TRUE(fs::delall(folder.file("deep").c_str(), true));
    EXPECT_FALSE(fs::exist(folder.file("deep").c_str()));
    EXPECT_TRUE(fs::delall(folder.file("deep").c_str(), false));
    EXPECT_FALSE(fs::delall(folder.file("deep").c_str(), true));
}

TEST(Filesystem, delall_goes_on_behind_what_it_cannot_delete) {
    test::TempFolder const folder;
    ASSERT_TRUE(fs::create(folder.file("t\\m\\in").c_str()));
    for (char const* name : {"t\\a", "t\\z", "t\\m\\a", "t\\m\\locked", "t\\m\\z", "t\\read_only"})
        folder.write(name, "x");
    ASSERT_TRUE(fs::chmod(folder.file("t\\read_only").c_str(), true, false));
    HANDLE const lock = CreateFileA(
        folder.file("t\\m\\locked").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(lock, INVALID_HANDLE_VALUE);

    EXPECT_FALSE(fs::delall((folder.path() + "t\\").c_str(), true));
    for (char const* name : {"t\\a", "t\\z", "t\\m\\a", "t\\m\\z", "t\\m\\in"})
        EXPECT_FALSE(fs::exist(folder.file(name).c_str())) << name;
    EXPECT_TRUE(fs::exist(folder.file("t\\m\\locked").c_str()));
    EXPECT_TRUE(fs::exist(folder.file("t\\read_only").c_str()));

    CloseHandle(lock);
    EXPECT_TRUE(fs::chmod(folder.file("t\\read_only").c_str(), true, true));
    EXPECT_TRUE(fs::delall(folder.file("t").c_str(), true));
}

TEST(Filesystem, the_wide_remove_answers_the_wrong_way_round) {
    test::TempFolder const folder;
    std::string const path = folder.write("f", "x");
    std::wstring const wide(path.begin(), path.end());
    EXPECT_FALSE(fs::remove(wide.c_str()));
    EXPECT_FALSE(fs::exist(wide.c_str()));
    EXPECT_TRUE(fs::remove(wide.c_str()));
    folder.write("f", "x");
    EXPECT_TRUE(fs::remove(path.c_str()));
    EXPECT_FALSE(fs::remove(path.c_str()));
}

TEST(Filesystem, renames_touches_and_removes) {
    test::TempFolder const folder;
    std::string const from = folder.write("from", "x");
    std::string const to = folder.file("to");
    EXPECT_TRUE(fs::rename(from.c_str(), to.c_str()));
    EXPECT_FALSE(fs::rename(from.c_str(), to.c_str()));

    EXPECT_TRUE(fs::touch(to.c_str(), 1234567890));
    struct _stat64 found = {};
    ASSERT_EQ(_stat64(to.c_str(), &found), 0);
    EXPECT_EQ(found.st_mtime, 1234567890);
    EXPECT_EQ(found.st_atime, 1234567890);
    EXPECT_FALSE(fs::touch(from.c_str(), 1));

    EXPECT_FALSE(fs::chmod(from.c_str(), true, true));
    EXPECT_FALSE(fs::deldir(to.c_str()));
    ASSERT_TRUE(fs::create(folder.file("d").c_str()));
    EXPECT_TRUE(fs::deldir(folder.file("d").c_str()));
    EXPECT_FALSE(fs::deldir(folder.file("d").c_str()));
}

TEST(Filesystem, set_cwd_takes_rooted_paths_alone) {
    test::TempFolder const folder;
    String const before = fs::cwd();
    ASSERT_TRUE(fs::create(folder.file("in").c_str()));
    ASSERT_TRUE(fs::set_cwd(folder.path().c_str()));
    String const inside = fs::cwd();
    EXPECT_EQ(String(folder.path().c_str()), inside + '\\');

    for (char const* path : {"", "in", ".\\in", "1:\\", "?:\\", "\\no\\such"})
        EXPECT_FALSE(fs::set_cwd(path)) << path;
    EXPECT_EQ(fs::cwd(), inside);

    // The rest of the path behind "X:" is a slash-rooted path on the current drive.
    EXPECT_TRUE(fs::set_cwd((folder.path().substr(2) + "in").c_str()));
    EXPECT_EQ(fs::cwd(), inside + "\\in");
    EXPECT_TRUE(fs::set_cwd(before.c_str()));
}

// --- enumerate -----------------------------------------------------------------------------------

struct Seen {
    std::string path, name;
    QX::FileInf info;
};

void note(
    char const* path, char const* name, char const* pattern, QX::FileInf const& info, void* user) {
    EXPECT_STREQ(pattern, "*.t?t");
    static_cast<std::vector<Seen>*>(user)->push_back({path, name, info});
}

void note_wide(
    UniString const& path, UniString const& name, UniString const& pattern, QX::FileInf const& info,
    void* user) {
    EXPECT_TRUE(pattern == L"*.t?t");
    Seen const seen = {
        std::string(path.begin(), path.end()), std::string(name.begin(), name.end()), info};
    static_cast<std::vector<Seen>*>(user)->push_back(seen);
}

std::vector<Seen> listed(std::string const& path, bool recursive) {
    std::vector<Seen> narrow, wide;
    fs::enumerate(note, path.c_str(), "*.t?t", &narrow, recursive);
    std::wstring const wide_path(path.begin(), path.end());
    fs::enumerate(note_wide, wide_path.c_str(), L"*.t?t", &wide, recursive);
    EXPECT_EQ(narrow.size(), wide.size());
    for (std::size_t i = 0; i < std::min(narrow.size(), wide.size()); ++i) {
        EXPECT_EQ(narrow[i].path + narrow[i].name, wide[i].path + wide[i].name);
        EXPECT_EQ(narrow[i].info.size, wide[i].info.size);
        EXPECT_EQ(narrow[i].info.time, wide[i].info.time);
    }
    return narrow;
}

TEST(Filesystem, enumerates_files_first_and_then_every_folder_whatever_its_name) {
    test::TempFolder const folder;
    ASSERT_TRUE(fs::create(folder.file("sub\\inner.txt").c_str()));
    for (char const* name : {"b.txt", "a.dat", "sub\\c.tat", "sub\\inner.txt\\d.txt"})
        folder.write(name, "x");
    std::string const without = folder.path().substr(0, folder.path().size() - 1);
    EXPECT_EQ(listed(folder.path(), false).size(), 1u);
    EXPECT_EQ(listed(without + "\\missing", true).size(), 0u);

    auto seen = listed(without, true);
    ASSERT_EQ(seen.size(), 4u);
    EXPECT_EQ(seen[0].path, without);
    EXPECT_EQ(seen[0].name, "b.txt");
    std::sort(seen.begin() + 1, seen.begin() + 3, [](Seen const& a, Seen const& b) {
        return a.name < b.name;
    });
    EXPECT_EQ(seen[1].path + seen[1].name, without + "\\sub\\c.tat");
    EXPECT_EQ(seen[2].path + seen[2].name, without + "\\sub\\inner.txt");
    EXPECT_TRUE(seen[2].info.directory);
    EXPECT_EQ(seen[3].path + seen[3].name, without + "\\sub\\inner.txt\\d.txt");
}

TEST(Filesystem, enumerate_fills_the_record_from_the_search) {
    test::TempFolder const folder;
    std::string const path = folder.write("a.txt", "12345");
    ASSERT_TRUE(fs::touch(path.c_str(), 1000000007));
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    auto const seen = listed(folder.path(), false);
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    ASSERT_EQ(seen.size(), 1u);
    QX::FileInf const& info = seen[0].info;
    EXPECT_EQ(info.size, 5u);
    EXPECT_EQ(info.time, 1000000007u);
    EXPECT_TRUE(info.readable && info.hidden);
    EXPECT_FALSE(info.writable || info.directory || info.reserved);
}

}  // namespace
