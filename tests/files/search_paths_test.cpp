#include "qx/files/search_paths.h"

#include <cwchar>

#include "qx/files/file_class.h"
#include "tests/files/paths.h"
#include "tests/harness/run_tool.h"

namespace {

using namespace test;
using QX::SearchPathCollection;

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

}  // namespace
