#include "qx/files/filesystem.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <string>
#include <sys/stat.h>

#include "tests/files/plain_paths.h"
#include "tests/harness/guarded.h"
#include "tests/harness/temp_folder.h"

namespace {

namespace fs = QX::Filesystem;
using QX::String;
using QX::UniString;
using test::text_of;

class Filesystem : public testing::Test {
protected:
    std::string path(char const* name) const { return folder_.file(name); }
    bool there(char const* name) const { return fs::exist(path(name).c_str()); }

    test::TempFolder folder_;
};

String shape(int step, String const& path, bool* changed) {
    if (step == 0) return fs::sanitise_file_name(path, changed);
    return step == 1 ? fs::sanitise_relative_path(path, changed)
                     : fs::sanitise_path_start(path, changed);
}

TEST_F(Filesystem, shapes_paths_by_its_rows_and_only_ever_sets_the_flag) {
    struct Row {
        int step;
        char const *path, *shaped;
        bool changed;
    };
    constexpr Row rows[] = {
        {0, "C:/Game/Data", "c:\\game\\data", false},
        {0, "A@[`{\xC0", "a@[`{\xC0", false},
        {0, "a\\\\b//c", "a\\b\\c", true},
        {0, "\\foo", "foo", false},
        {0, "/foo", "foo", false},
        {0, "\\\\foo\\\\bar", "\\\\foo\\bar", true},
        {0, "\\\\\\foo", "\\\\foo", true},
        {0, "\\", "\\", false},
        {1, "a\\b\\..\\c", "a\\c", true},
        {1, "a\\..\\b", "b", true},
        {1, "\\..\\a", "", true},
        {1, "..\\a", "", false},
        {1, ".\\.\\a", "a", true},
        {1, "a\\.\\b", "a\\b", true},
        {1, "a\\..", "a\\..", false},
        {1, "a\\.\\..\\b", "a\\b", true},  // climbing comes first and takes the dot for a name
        {2, "data\\a.txt", "a.txt", true},
        {2, "..\\data\\a.txt", "a.txt", true},
        {2, "mydata\\x", "x", true},
        {2, "mymydata\\x", "mymydata\\x", false},
        {2, "mydata1\\data\\x", "mydata1\\data\\x", false},
    };
    for (Row const& row : rows) {
        bool changed = false, stays = true;
        EXPECT_EQ(shape(row.step, row.path, &changed), row.shaped) << row.path;
        shape(row.step, row.path, &stays);
        EXPECT_TRUE(changed == row.changed && stays) << row.path;
    }
}

TEST_F(Filesystem, shapes_random_paths_of_any_length_as_the_plain_rules_do) {
    test::Random random;
    for (int i = 0; i < 20000; ++i) {
        std::string const path = test::random_path(random);
        test::Shaped const expected[] = {
            test::plain_file_name(path), test::plain_relative_path(path),
            test::plain_path_start(path)};
        for (int step = 0; step < 3; ++step) {
            bool changed = false;
            ASSERT_EQ(text_of(shape(step, path.c_str(), &changed)), expected[step].text) << path;
            ASSERT_EQ(changed, expected[step].changed) << path << " step " << step;
        }
    }
}

TEST_F(Filesystem, shapes_slashes_by_their_rows) {
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
    EXPECT_EQ(fs::sanitise_to_unix(std::string(5000, 'a').c_str()).length(), 5000u);
    EXPECT_EQ(fs::regify("Ab-1{"), "[Aa][bB]-1{");
}

UniString wide(std::string const& text) {
    return UniString(std::wstring(text.begin(), text.end()).c_str());
}

TEST_F(Filesystem, splits_paths_by_its_rows_in_both_widths) {
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
TEST_F(Filesystem, knows_absolute_paths_without_reading_behind_the_terminator) {
    for (std::string const path : {"\\\\", "c:\\", "c:/", "", "\\", "c:", "c:x", "//x", "c"}) {
        test::Guarded const text(path.c_str(), path.size() + 1);
        bool const absolute = path == "\\\\" || path == "c:\\" || path == "c:/";
        EXPECT_EQ(fs::absolute_path(text.data()), absolute) << path;
    }
}

TEST_F(Filesystem, reads_back_slashes_as_escapes) {
    wchar_t const* const rows[][2] = {
        {L"a\\nb/\\r", L"a\nb/\r"},
        {L"\\\"\\'\\\\", L"\"'\\"},
        {L"a\\0b\\q", L"a"},
        {L"a\\tb", L""},
        {L"a\\", L""}};
    for (auto const& [text, meant] : rows)
        EXPECT_TRUE(QX::translate_back_slashes(text) == meant) << text;
}

// --- The disk ------------------------------------------------------------------------------------

TEST_F(Filesystem, creates_missing_parents_with_either_separator) {
    for (char const* name : {"a\\b\\c", "d/e/f/", "g\\h/i\\j", "g\\h\\\\l\\m\\"}) {
        EXPECT_TRUE(fs::create(path(name).c_str()) && there(name)) << name;
        EXPECT_TRUE(fs::create(path(name).c_str())) << name;
    }
    EXPECT_TRUE(fs::create(folder_.write("file", "x").c_str()));
    EXPECT_FALSE(fs::create(path("file\\below\\it").c_str()));
    EXPECT_FALSE(fs::create("") || fs::create(path("b\\<?>\\c").c_str()));
}

TEST_F(Filesystem, delall_goes_on_behind_what_it_cannot_delete) {
    std::string const tree = path("t"), kept = path("t\\kept");
    ASSERT_TRUE(fs::create(path("t\\m\\in\\x\\x\\x").c_str()));
    for (char const* name : {"t\\a;b &c", "t\\z", "t\\m\\a", "t\\m\\locked", "t\\m\\z", "t\\kept"})
        folder_.write(name, "x");
    ASSERT_TRUE(fs::chmod(kept.c_str(), true, false));
    HANDLE const lock = CreateFileA(
        path("t\\m\\locked").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_FALSE(fs::delall(path("t\\").c_str(), true));
    for (char const* name : {"t\\a;b &c", "t\\z", "t\\m\\a", "t\\m\\z", "t\\m\\in"})
        EXPECT_FALSE(there(name)) << name;
    EXPECT_TRUE(there("t\\m\\locked") && there("t\\kept"));
    CloseHandle(lock);
    EXPECT_TRUE(fs::chmod(kept.c_str(), true, true));
    EXPECT_TRUE(fs::delall(tree.c_str(), false) && there("t"));
    EXPECT_TRUE(fs::delall(tree.c_str(), true) && !there("t"));
    EXPECT_TRUE(fs::delall(tree.c_str(), false) && !fs::delall(tree.c_str(), true));
}

TEST_F(Filesystem, the_wide_remove_answers_the_wrong_way_round) {
    std::string const file = folder_.write("f", "x");
    EXPECT_FALSE(fs::remove(wide(file).c_str()) || fs::exist(wide(file).c_str()));
    EXPECT_TRUE(fs::remove(wide(file).c_str()));
    folder_.write("f", "x");
    EXPECT_TRUE(fs::rename(file.c_str(), path("g").c_str()) && !there("f"));
    EXPECT_FALSE(fs::deldir(path("g").c_str()) || fs::touch(file.c_str(), 1));
    EXPECT_TRUE(fs::remove(path("g").c_str()) && !fs::remove(path("g").c_str()));
    EXPECT_TRUE(fs::create(file.c_str()) && fs::deldir(file.c_str()) && !there("f"));
}

TEST_F(Filesystem, set_cwd_takes_rooted_paths_alone) {
    String const before = fs::cwd();
    ASSERT_TRUE(fs::create(path("in").c_str()) && fs::set_cwd(folder_.path().c_str()));
    for (char const* place : {"", "in", ".\\in", "1:\\", "?:\\", "\\no\\such"})
        EXPECT_FALSE(fs::set_cwd(place)) << place;
    EXPECT_EQ(fs::cwd() + '\\', folder_.path().c_str());
    EXPECT_TRUE(fs::set_cwd(path("in").c_str() + 2));  // rooted on the current drive
    EXPECT_EQ(fs::cwd(), path("in").c_str());
    EXPECT_TRUE(fs::set_cwd(before.c_str()));
}

// Name and kind of each match, in both widths alike.
std::string listed(std::string const& path, bool recursive) {
    static auto const note = [](void* user, std::string const& text, QX::FileInf const& info) {
        static_cast<std::string*>(user)->append(text).append(info.directory ? "\\ " : " ");
        EXPECT_TRUE(info.readable && !info.reserved && info.size % 5 == 0);
        EXPECT_EQ(info.size == 5, info.time == 1000000007 && info.hidden && !info.writable);
    };
    std::string narrow, wide_form;
    fs::enumerate(
        [](char const* in, char const* name, char const* pattern, QX::FileInf const& info,
           void* user) { note(user, std::string(in) + "|" + name + pattern, info); },
        path.c_str(), "*.t?t", &narrow, recursive);
    fs::enumerate(
        [](UniString const& in, UniString const& name, UniString const& pattern,
           QX::FileInf const& info, void* user) {
            UniString const text = in + L'|' + name + pattern;
            note(user, std::string(text.begin(), text.end()), info);
        },
        wide(path).c_str(), L"*.t?t", &wide_form, recursive);
    EXPECT_EQ(narrow, wide_form);
    return narrow;
}

TEST_F(Filesystem, enumerates_files_first_and_then_every_folder_whatever_its_name) {
    ASSERT_TRUE(fs::create(path("sub\\inner.txt").c_str()));
    for (char const* name : {"a.dat", "sub\\c.tat", "sub\\inner.txt\\d.txt"})
        folder_.write(name, "");
    std::string const file = folder_.write("b.txt", "12345");
    ASSERT_TRUE(fs::touch(file.c_str(), 1000000007));
    SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    std::string const without = folder_.path().substr(0, folder_.path().size() - 1);
    EXPECT_EQ(listed(folder_.path(), false), folder_.path() + "|b.txt*.t?t ");
    EXPECT_EQ(listed(path("missing"), true), "");
    std::string const all = listed(without, true);
    std::string const first = without + "|b.txt*.t?t ", c = path("sub\\|c.tat*.t?t "),
                      inner = path("sub\\|inner.txt*.t?t\\ "),
                      last = path("sub\\inner.txt\\|d.txt*.t?t ");
    EXPECT_TRUE(all == first + c + inner + last || all == first + inner + c + last) << all;
    SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_NORMAL);
}

}  // namespace
