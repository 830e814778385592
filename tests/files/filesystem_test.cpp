#include "qx/base/windows.h"

#include <tuple>

#include "tests/files/paths.h"
#include "tests/harness/guarded.h"

namespace {

using namespace test;

UniString wide(std::string const& text) {
    return UniString(std::wstring(text.begin(), text.end()).c_str());
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

}  // namespace
