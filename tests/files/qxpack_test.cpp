#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "qx/files/file_streams.h"
#include "tests/harness/pack_builder.h"
#include "tests/harness/run_tool.h"
#include "tests/harness/temp_folder.h"

namespace {

namespace fs = std::filesystem;

// What the tool printed, in whichever stream, and the code that it ended with.
std::string qxpack(std::string const& arguments) {
    test::ToolResult const result = test::run_tool("qxpack", arguments);
    return result.output + result.errors + "code " + std::to_string(result.code);
}

testing::AssertionResult has(std::string const& text, std::string const& part) {
    if (text.find(part) != text.npos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << part << " is not in " << text;
}

class Qxpack : public testing::Test {
protected:
    test::TempFolder folder_;
    std::string const in_ = folder_.file("in"), out_ = folder_.file("out");
};

TEST_F(Qxpack, what_goes_in_comes_out) {
    std::string const pack = in_ + "\\p.pack";
    fs::create_directories(in_ + "\\Maps\\deep");
    folder_.write("in\\Maps\\One.txt", "first");
    folder_.write("in\\Maps\\deep\\noise.bin", std::string(300000, '\r'));
    folder_.write("in\\empty", "");
    folder_.write("in\\p.pack.partial", "left by a run that was cut off");
    // The second finds the first in the folder.
    for (std::string const options : {"--key 77 --align 16", "--key 5"}) {
        std::string const key = options.substr(0, options.find("--align"));
        EXPECT_TRUE(
            has(qxpack("create " + options + " " + pack + " " + in_), "3 entries, 300005 bytes"));
        std::string const verified = qxpack("verify " + key + " " + pack);
        EXPECT_TRUE(has(verified, "good, 3 entries"));
        EXPECT_EQ(bool(has(verified, "not laid out for asynchronous")), key != options);
        fs::remove_all(out_);
        EXPECT_TRUE(has(qxpack("extract " + key + " " + pack + " " + out_), "code 0"));
        for (char const* name : {"\\Maps\\One.txt", "\\Maps\\deep\\noise.bin", "\\empty"}) {
            EXPECT_TRUE(fs::exists(out_ + name)) << name;
            EXPECT_TRUE(test::read_file(out_ + name) == test::read_file(in_ + name)) << name;
        }
    }
    EXPECT_TRUE(has(qxpack("list --key 5 " + pack), "      4096          5  Maps\\One.txt"));
    for (char const* name : {"in\\a", "in\\b"}) {
        QX::FileOut file(folder_.file(name).c_str());
        EXPECT_TRUE(file.seek64(0x7FFFFFF0) && file.write("x", 1) == 1);  // sparse
    }
    std::string const large = qxpack("create " + out_ + "2 " + in_);
    EXPECT_TRUE(has(large, "out2: would be 4 GiB or more") && has(large, "code 1"));
    EXPECT_FALSE(fs::exists(out_ + "2"));
}

TEST_F(Qxpack, refuses_packs_by_their_names_and_names_that_the_system_takes_for_another) {
    constexpr char const *device = "keeps for a device", *no_name = "no name for a file";
    constexpr char const* rows[][3] = {
        {"com10", "a.nul", "code 0"},   {"a", "A", "differ by case alone"},
        {"a", "..\\a", no_name},        {"a", "a.\\b", no_name},
        {"a", "b...", no_name},         {"a", "nul", device},
        {"a", "a\\Con.tar.gz", device}, {"a", "com1 .txt\\b", device},
        {"a", "LPT\xC2\xB9", device}};
    for (auto const& [first, second, reason] : rows) {
        std::string const pack =
            folder_.write("p", test::build_pack({{{first, "x"}, {second, "y"}}}));
        std::string const said = qxpack("extract " + pack + " " + out_);
        bool const is_good = reason == rows[0][2];
        EXPECT_TRUE(has(said, reason) && has(said, is_good ? "code 0" : "code 1")) << second;
        EXPECT_EQ(fs::exists(out_), is_good) << second;
        fs::remove_all(out_);
    }
    std::string const pack = folder_.write("p", test::build_pack({{{"a", "x"}, {"a", "y"}}}));
    EXPECT_TRUE(has(qxpack("verify " + pack), "1 names stand twice"));
    EXPECT_TRUE(has(qxpack("list --key 9 " + pack), "p: damaged, or another key"));
    folder_.write("p", test::build_pack({{{"a", "x"}}, '1'}));
    EXPECT_TRUE(has(qxpack("list " + pack), "p: a pack with wide names"));
    EXPECT_TRUE(has(qxpack("list " + in_), "in: can't be opened"));
    EXPECT_TRUE(has(qxpack("create --key 65536 " + out_ + " " + in_), "up to 65535"));
}

}  // namespace
