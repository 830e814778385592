#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "qx/files/file_streams.h"
#include "qx/files/pack_file.h"
#include "tests/harness/pack_builder.h"
#include "tests/harness/run_tool.h"
#include "tests/harness/temp_folder.h"

namespace {

namespace fs = std::filesystem;

test::ToolResult qxpack(std::string const& arguments) {
    return test::run_tool("qxpack", arguments);
}

bool has(std::string const& text, std::string const& part) {
    return text.find(part) != text.npos;
}

class Qxpack : public testing::Test {
protected:
    Qxpack() {
        fs::create_directories(in_ + "\\Maps\\deep");
        folder_.write("in\\Maps\\One.txt", "first");
        folder_.write("in\\Maps\\deep\\noise.bin", std::string(300000, '\r'));
        folder_.write("in\\empty", "");
    }

    test::TempFolder folder_;
    std::string const in_ = folder_.file("in"), out_ = folder_.file("out");
};

TEST_F(Qxpack, what_goes_in_comes_out) {
    std::string const pack = in_ + "\\p.pack";
    folder_.write("in\\p.pack.partial", "left by a run that was cut off");
    // The second finds the first in the folder.
    for (std::string const options : {"--key 77 --align 16", "--key 0xFFFF --align 1", "--key 5"}) {
        std::string const key = options.substr(0, options.find("--align"));
        auto const created = qxpack("create " + options + " " + pack + " " + in_);
        EXPECT_TRUE(has(created.output, "3 entries, 300005 bytes")) << created.errors;
        auto const verified = qxpack("verify " + key + " " + pack);
        EXPECT_TRUE(has(verified.output, "good, 3 entries")) << verified.errors;
        EXPECT_EQ(has(verified.output, "not laid out for asynchronous"), key != options);
        fs::remove_all(out_);
        ASSERT_EQ(qxpack("extract " + key + " " + pack + " " + out_).code, 0u);
        for (char const* name : {"\\Maps\\One.txt", "\\Maps\\deep\\noise.bin", "\\empty"}) {
            EXPECT_TRUE(fs::exists(out_ + name)) << name;
            EXPECT_TRUE(test::read_file(out_ + name) == test::read_file(in_ + name)) << name;
        }
    }
    QX::AsyncPackFile reader;
    ASSERT_TRUE(reader.open(pack.c_str(), 5) && reader.aligned() == 4096);
    EXPECT_TRUE(reader.contains("Maps\\One.txt") && !reader.contains("maps\\one.txt"));
    auto const listed = qxpack("list --key 5 " + pack);
    EXPECT_TRUE(has(listed.output, "      4096          5  Maps\\One.txt")) << listed.output;
}

TEST_F(Qxpack, names_the_file_that_it_cannot_use) {
    auto const pack = [&](char const* name, char version, char const* first, char const* second) {
        folder_.write(name, test::build_pack({{{first, "x"}, {second, "y"}}, version}));
    };
    pack("good.pack", '2', "a", "b");
    pack("wide.pack", '1', "a", "b");
    pack("twice.pack", '2', "a", "a");
    pack("escape.pack", '2', "a", "..\\a");
    pack("case.pack", '2', "a", "A");
    struct Row {
        std::string arguments;
        unsigned long code;
        std::string said;
    };
    std::string const path = folder_.path();
    Row const rows[] = {
        {"list " + path + "missing.pack", 1, "missing.pack: can't be opened"},
        {"list " + path + "wide.pack", 1, "wide.pack: a pack with wide names"},
        {"list --key 9 " + path + "good.pack", 1, "good.pack: damaged, or another key"},
        {"verify " + path + "twice.pack", 1, "1 names stand twice"},
        {"extract " + path + "escape.pack " + out_, 1, "no name for a file"},
        {"extract " + path + "case.pack " + out_, 1, "differ by case alone"},
        {"create " + out_ + " " + path + "missing", 1, "missing: no such folder"},
        {"create --key 65536 " + out_ + " " + in_, 2, "up to 65535"},
    };
    for (Row const& row : rows) {
        auto const result = qxpack(row.arguments);
        EXPECT_EQ(result.code, row.code) << row.arguments;
        EXPECT_TRUE(has(result.errors, row.said)) << row.arguments << ": " << result.errors;
        EXPECT_EQ(result.output, "");
    }
    EXPECT_FALSE(fs::exists(out_));
}

TEST_F(Qxpack, extracts_no_name_that_the_system_would_take_for_another) {
    constexpr char const *device = "keeps for a device", *no_name = "no name for a file";
    constexpr char const* rows[][2] = {// a name, and what is said of it
                                       {"nul", device},
                                       {"a\\Con.tar.gz", device},
                                       {"com1 .txt\\b", device},
                                       {"LPT\xC2\xB9", device},
                                       {"a.\\b", no_name},
                                       {"b...", no_name},
                                       {"com10", ""},
                                       {"a.nul", ""}};
    for (auto const& [name, said] : rows) {
        test::PackRecipe recipe;
        recipe.entries = {{name, "x"}};
        std::string const pack = folder_.write("p.pack", test::build_pack(recipe));
        auto const result = qxpack("extract " + pack + " " + out_);
        EXPECT_EQ(result.code, *said ? 1u : 0u) << name;
        EXPECT_TRUE(has(result.errors, said)) << result.errors;
        EXPECT_EQ(fs::exists(out_ + '\\' + name), !*said) << name;
    }
}

TEST_F(Qxpack, refuses_4_gib_before_it_writes_anything) {
    for (char const* name : {"in\\a", "in\\b"}) {
        QX::FileOut file(folder_.file(name).c_str());
        EXPECT_TRUE(file.seek64(0x7FFFFFF0) && file.write("x", 1) == 1);  // sparse
    }
    auto const result = qxpack("create " + out_ + " " + in_);
    EXPECT_EQ(result.code, 1u);
    EXPECT_TRUE(has(result.errors, "out: would be 4 GiB or more")) << result.errors;
    EXPECT_FALSE(fs::exists(out_));
}

}  // namespace
