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

#include "tests/files/plain_paths.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/guarded.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::FileName;
using QX::SearchPathCollection;
using QX::String;
using test::text_of;

// Puts search paths of the case's own in place of the process's.
class OwnPaths {
public:
    explicit OwnPaths(std::vector<std::string> const& paths)
        : before_(SearchPathCollection::search_paths()) {
        SearchPathCollection::search_paths().clear();
        for (std::string const& path : paths)
            SearchPathCollection::search_paths().append_path(path.c_str(), false);
    }
    ~OwnPaths() { SearchPathCollection::search_paths() = before_; }

private:
    SearchPathCollection before_;
};

TEST(FileName, null_and_empty_names_differ) {
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
}

TEST(FileName, orders_by_text_with_null_below_everything_even_itself) {
    FileName const null, a("a"), b("b"), high("\xC3");
    EXPECT_TRUE(null < null && null < a && a < b && high < a);
    EXPECT_FALSE(a < null || b < a || a < a);
}

TEST(FileName, spellings_of_one_file_are_one_pointer) {
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
}

TEST(FileName, the_private_forms_look_at_no_search_path) {
    OwnPaths const paths({"c:\\game\\"});
    auto const game = SearchPathCollection::search_paths().get_path(0);
    EXPECT_EQ(FileName::qualified("c:\\game\\A").name(), "c:\\game\\a");
    EXPECT_EQ(FileName(String("data\\a"), true).name(), "a");
    EXPECT_EQ(FileName::compose(game, "/A", false).name(), "c:\\game\\a");
}

// Each text has one pointer for good, whatever the table does meanwhile, and nothing is read behind
// a text's end.
TEST(FileName, random_paths_become_the_texts_of_the_plain_rules) {
    std::vector<std::string> const search_paths = {"a\\", "", "b", "z\\..", "a\\b\\"};
    OwnPaths const paths(search_paths);
    SearchPathCollection const nothing("");
    test::Random random;
    std::map<std::string, String const*> known;
    for (int i = 0; i < 20000; ++i) {
        std::string const path = test::random_path(random);
        bool const is_public = random.chance(2), keep_start = !is_public && random.chance(2);
        std::string expected = test::plain_name(path, keep_start);
        for (std::string const& start : search_paths) {
            if (is_public && expected.compare(0, start.size(), start) == 0)
                expected.erase(0, start.size());
        }
        if (path.empty()) expected = "<empty_file_name>";
        test::Guarded const text(path.c_str(), path.size() + 1);
        FileName const name = is_public
                                  ? FileName(text.data())
                                  : FileName::compose(nothing.begin(), text.data(), keep_start);
        ASSERT_EQ(text_of(name.name()), expected) << path;
        ASSERT_EQ(known.emplace(expected, &name.name()).first->second, &name.name()) << path;
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

TEST(FileName, threads_that_make_the_same_names_get_the_same_pointers) {
    constexpr unsigned int names = 6000, count = 4;
    std::vector<String const*> made[count];
    std::vector<std::thread> threads;
    for (auto& own : made) {
        threads.emplace_back([&own] {
            for (unsigned int n = 0; n < names; ++n)
                own.push_back(
                    &FileName(("Threads/" + std::to_string(n * 7919 % 4001)).c_str()).name());
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (unsigned int n = 0; n < names; ++n) {
        ASSERT_EQ(text_of(*made[0][n]), "threads\\" + std::to_string(n * 7919 % 4001));
        for (auto const& own : made) ASSERT_EQ(own[n], made[0][n]) << n;
    }
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
TEST(FileNameDeathTest, first_public_names_on_several_threads_make_the_search_paths_once) {
    auto const body = [] {
        test::StandIn const attributes("GetFileAttributesA", slow_attributes);
        real_attributes = attributes.original();
        EXPECT_EQ(FileName::qualified("a.txt").name(), "a.txt");
        EXPECT_EQ(layouts_settled, 0);  // names of the short form look at no search path
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
            threads.emplace_back([] { EXPECT_EQ(FileName("A.txt").name(), "a.txt"); });
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(layouts_settled, 1);
        SearchPathCollection::s_null_collection();
        QX::destroy_filesystem();
        std::exit(testing::Test::HasFailure());
    };
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

}  // namespace
