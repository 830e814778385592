#include "qx/files/file_name.h"

#include "qx/base/windows.h"

#include <atomic>
#include <map>
#include <new>
#include <thread>

#include "qx/files/search_paths.h"
#include "tests/files/paths.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

namespace {

using namespace test;
using QX::FileName;
using QX::SearchPathCollection;

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

}  // namespace
