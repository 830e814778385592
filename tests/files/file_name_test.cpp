#include "qx/files/file_name.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <atomic>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "qx/files/file_class.h"
#include "qx/files/filesystem.h"
#include "tests/files/plain_paths.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::FileName;
using QX::SearchPathCollection;
using QX::String;

std::string text_of(String const& text) {
    return std::string(text.data(), text.length());
}

String string_of(std::string const& text) {
    return String(text.data(), static_cast<unsigned int>(text.size()));
}

// Puts search paths of the case's own in place of the process's.
class OwnPaths {
public:
    explicit OwnPaths(std::vector<std::string> const& paths)
        : before_(SearchPathCollection::search_paths()) {
        SearchPathCollection& now = SearchPathCollection::search_paths();
        now.clear();
        for (std::string const& path : paths) now.append_path(string_of(path), false);
    }
    ~OwnPaths() { SearchPathCollection::search_paths() = before_; }

private:
    SearchPathCollection before_;
};

TEST(FileName, null_and_empty_names_differ) {
    FileName const null;
    EXPECT_TRUE(null.empty());
    EXPECT_TRUE(FileName("") == FileName::s_empty());
    EXPECT_TRUE(FileName::qualified("") == FileName::s_empty());
    EXPECT_EQ(FileName::s_empty().name(), "<empty_file_name>");
    EXPECT_FALSE(FileName::s_empty().empty());
    EXPECT_TRUE(FileName("..\\a").empty());
    EXPECT_FALSE(FileName("..\\a") == null);
    EXPECT_TRUE(FileName("..\\a") == FileName("data\\"));
}

TEST(FileName, spellings_of_one_file_are_one_pointer) {
    OwnPaths const paths({"c:\\game\\data\\", "extra\\", ""});
    FileName const name("foo\\bar.txt");
    for (char const* spelling :
         {"Data/Foo//BAR.txt", "data\\foo\\bar.txt", "C:/Game/Data/foo/bar.txt", "/foo/bar.txt",
          ".\\x\\..\\foo\\bar.txt", "extra/foo/bar.txt", "c:\\game\\data\\extra\\foo\\bar.txt"}) {
        EXPECT_TRUE(FileName(spelling) == name) << spelling;
        EXPECT_TRUE(FileName(String(spelling)) == name) << spelling;
    }
    EXPECT_EQ(name.name(), "foo\\bar.txt");
    EXPECT_EQ(FileName("extra\\c:\\game\\data\\a").name(), "c:\\game\\data\\a");
    EXPECT_EQ(FileName::disambiguate_file_name("EXTRA/a", true), "a");
}

TEST(FileName, the_private_forms_look_at_no_search_path) {
    OwnPaths const paths({"c:\\game\\", "c:\\game\\data\\"});
    auto const game = SearchPathCollection::search_paths().get_path(0);
    EXPECT_EQ(FileName::qualified("c:\\game\\A").name(), "c:\\game\\a");
    EXPECT_EQ(FileName::qualified("data\\a").name(), "a");
    EXPECT_EQ(FileName(String("data\\a"), true).name(), "a");
    EXPECT_EQ(FileName::compose(game, "/A", false).name(), "c:\\game\\a");
    SearchPathCollection relative("");
    EXPECT_EQ(FileName::compose(relative.get_path(0), "data/A", true).name(), "data\\a");
    EXPECT_EQ(FileName::compose(relative.get_path(0), "data/A", false).name(), "a");
    EXPECT_TRUE(FileName::compose(relative.get_path(0), "", true) == FileName::s_empty());
    EXPECT_EQ(FileName::compose(String("c:/game/x"), String("a")).name(), "x\\a");
}

TEST(FileName, orders_by_text_with_null_below_everything_even_itself) {
    FileName const null, a("a"), b("b"), high("\xC3");
    EXPECT_TRUE(null < null);
    EXPECT_TRUE(null < a);
    EXPECT_FALSE(a < null);
    EXPECT_TRUE(a < b);
    EXPECT_FALSE(b < a || a < a);
    EXPECT_TRUE(high < a);
}

TEST(FileName, is_read_from_a_file_as_a_string) {
    test::TempFolder const folder;
    std::string const path = folder.write("f", std::string("\x05\0A/b.C\0\0", 9));
    QX::FileIn file(path.c_str(), false);
    FileName name;
    file >> name;
    EXPECT_TRUE(name == FileName("a\\b.c"));
    file >> name;
    EXPECT_TRUE(name == FileName::s_empty());
}

// Each text has one pointer for good, whatever the table does meanwhile, and two texts never share.
TEST(FileName, random_paths_become_the_texts_of_the_plain_rules) {
    std::vector<std::string> const search_paths = {"a\\", "", "b", "z\\..", "a\\b\\"};
    OwnPaths const paths(search_paths);
    test::Random random;
    std::map<std::string, String const*> known;
    for (int i = 0; i < 30000; ++i) {
        std::string const path = test::random_path(random);
        if (path.empty()) continue;
        bool const keep_start = random.chance(2);
        bool const is_public = random.chance(2);
        std::string const expected = is_public ? test::plain_long_form(path, search_paths)
                                               : test::plain_short_form(path, keep_start);
        SearchPathCollection nothing("");
        FileName const name =
            is_public ? FileName(string_of(path))
                      : FileName::compose(nothing.get_path(0), string_of(path), keep_start);
        ASSERT_EQ(text_of(name.name()), expected) << path;
        auto const [place, fresh] = known.emplace(expected, &name.name());
        ASSERT_EQ(place->second, &name.name()) << path << (fresh ? "" : " again");
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

// Texts of every length around the block of 16 and the scratch of 2048, at a page that may not be
// touched.
TEST(FileName, reads_nothing_behind_the_text) {
    for (unsigned int length = 1; length < 2080; length == 70 ? length = 2030 : ++length) {
        std::string text(length, 'q');
        for (unsigned int i = 0; i < length; i += 5) text[i] = "/.A\\"[i % 4];
        test::Guarded const guarded(text.c_str(), length + 1);
        std::string const expected = test::plain_short_form(text, false);
        ASSERT_EQ(text_of(FileName(guarded.data()).name()), expected) << length;
        ASSERT_EQ(text_of(FileName(guarded.data()).name()), expected) << length << " again";
    }
}

TEST(FileName, an_allocation_that_fails_leaves_the_table_whole_and_unlocked) {
    std::string const longest(100000, 'n');  // takes a block for itself
    unsigned int failures = 0;
    for (bool fired = true; fired;) {
        test::FailingAllocation const failing(failures + 1);
        try {
            FileName const name(longest.c_str());
            EXPECT_EQ(name.name().length(), longest.size());
        } catch (std::bad_alloc const&) {
            ++failures;
        }
        fired = failing.fired();
    }
    EXPECT_GE(failures, 2u);
    std::thread([] { EXPECT_FALSE(FileName("after failures").empty()); }).join();
}

TEST(FileName, threads_that_make_the_same_names_get_the_same_pointers) {
    constexpr int names = 6000;
    FileName::s_empty();
    std::vector<std::vector<String const*>> made(4, std::vector<String const*>(names));
    std::vector<std::thread> threads;
    for (auto& own : made) {
        threads.emplace_back([&own, salt = threads.size()] {
            test::Random random(salt);
            for (int round = 0; round < 3 * names; ++round) {
                unsigned int const n = random.below(names);
                std::string const text = "Threads/unit_" + std::to_string(n) + ".model";
                String const* const name = &FileName(text.c_str()).name();
                if (own[n] && own[n] != name) std::abort();
                own[n] = name;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (int n = 0; n < names; ++n) {
        std::string const text = "threads\\unit_" + std::to_string(n) + ".model";
        String const* const name = &FileName(text.c_str()).name();
        ASSERT_EQ(text_of(*name), text);
        for (auto const& own : made) ASSERT_TRUE(!own[n] || own[n] == name) << text;
    }
}

// --- In a process of its own ---------------------------------------------------------------------

// Runs one disabled case of this program there and gives its exit code.
DWORD run_apart(std::string const& folder, std::string const& name, std::string const& more) {
    char program[MAX_PATH];
    GetModuleFileNameA(nullptr, program, MAX_PATH);
    std::string line = std::string("\"") + program + "\" --gtest_also_run_disabled_tests" +
                       " --gtest_brief=1 --gtest_filter=FileNameApart.DISABLED_" + name + " " +
                       more;
    STARTUPINFOA start = {};
    start.cb = sizeof start;
    PROCESS_INFORMATION process = {};
    if (!CreateProcessA(
            program, line.data(), nullptr, nullptr, FALSE, 0, nullptr, folder.c_str(), &start,
            &process))
        return ~0u;
    DWORD code = ~0u;
    WaitForSingleObject(process.hProcess, 60000);
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return code;
}

unsigned int table_spin_count = 0;

BOOL WINAPI note_spin_count(LPCRITICAL_SECTION section, DWORD count) {
    table_spin_count = count;
    InitializeCriticalSection(section);
    return TRUE;
}

// Run by the case below, in a folder with a boot pack.
TEST(FileNameApart, DISABLED_installed) {
    test::StandIn const section("InitializeCriticalSectionAndSpinCount", note_spin_count);
    std::string const here = text_of(QX::Filesystem::cwd());
    EXPECT_EQ(FileName((here + "\\DATA\\a.txt").c_str()).name(), "a.txt");
    EXPECT_EQ(table_spin_count, 10000u);
    SearchPathCollection& paths = SearchPathCollection::search_paths();
    EXPECT_TRUE(paths.release());
    EXPECT_EQ(paths.size(), 2u);
    QX::Filesystem::remove("data\\boot.pack");
    FileName const later("b");
    EXPECT_TRUE(SearchPathCollection::search_paths().release());
    SearchPathCollection::s_null_collection();
    QX::BinaryDescription::binary_desc();
    QX::destroy_filesystem();
}

// Run with both texts on the command line, which the executable's own folder then completes.
TEST(FileNameApart, DISABLED_command_line) {
    FileName const name("a");
    std::wstring const maps = QX::FileClass::app_directory(QX::OWC_MAPS);
    EXPECT_NE(maps.find(L"\\Brassmoor_"), maps.npos) << std::string(maps.begin(), maps.end());
    EXPECT_NE(maps.find(L"_autotest\\maps\\"), maps.npos);
    SearchPathCollection& paths = SearchPathCollection::search_paths();
    EXPECT_FALSE(paths.release());
    EXPECT_EQ(paths.size(), 5u);
    QX::destroy_filesystem();
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

// Run in a fresh process: names of the short form look at no search path, so these come later.
TEST(FileNameApart, DISABLED_first_public_names) {
    test::StandIn const attributes("GetFileAttributesA", slow_attributes);
    ASSERT_TRUE(attributes.found());
    real_attributes = attributes.original();
    EXPECT_EQ(FileName::qualified("a.txt").name(), "a.txt");
    EXPECT_EQ(layouts_settled, 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back(
            [] { EXPECT_TRUE(FileName("a.txt") == FileName::qualified("A.txt")); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(layouts_settled, 1);
    QX::destroy_filesystem();
}

TEST(FileName, first_public_names_on_several_threads_make_the_search_paths_once) {
    test::TempFolder const folder;
    EXPECT_EQ(run_apart(folder.path(), "first_public_names", ""), 0u);
}

TEST(FileName, the_first_name_settles_the_layout_and_the_end_takes_all_down) {
    test::TempFolder const folder;
    ASSERT_TRUE(QX::Filesystem::create(folder.file("data").c_str()));
    folder.write("data\\boot.pack", "");
    EXPECT_EQ(run_apart(folder.path(), "installed", ""), 0u);
    EXPECT_EQ(run_apart(folder.path(), "command_line", "branch_profile -sptest"), 0u);
}

}  // namespace
