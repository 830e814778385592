#include <gtest/gtest.h>

#include <string>

#include "tests/harness/run_tool.h"
#include "tests/harness/temp_folder.h"

namespace {

class Qxxml : public testing::Test {
protected:
    // '@' in front of a name stands for the folder, which is taken out of what was printed.
    std::string run(std::string const& arguments) const {
        test::ToolResult const result =
            test::run_tool("qxxml", swapped(arguments, "@", folder_.path()));
        std::string const printed = swapped(result.output + result.errors, "\r", "");
        return std::to_string(result.code) + " " + swapped(printed, folder_.path(), "");
    }

    static std::string swapped(std::string text, std::string const& from, std::string const& to) {
        for (std::size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size())
            text.replace(at, from.size(), to);
        return text;
    }

    test::TempFolder const folder_;
};

TEST_F(Qxxml, check_tells_faults_with_line_and_column) {
    struct {
        char const* text;
        char const* faults;
    } const rows[] = {
        {"<?xml v='1'?>\n<a b='&lt;'>&#65;<!-- & --><c/></a >\n", nullptr},
        {"<a>\n <b>\n</a>\n", "3:1: </a> closes <b> of 2:2 | 1:1: <a> is not closed"},
        {"<a b='' b=''/>", "1:9: attribute 'b' is there twice"},
        {"<a>\n&foo; & &#x41;</a>",
         "2:1: &foo; is not a known name | 2:7: '&' begins no reference (\"&amp;\" is meant?) | "
         "2:9: &#x41; in content is read with decimal digits"},
        {"</a>", "1:1: </a> closes nothing; the rest is not read"},
    };
    std::string arguments = "check", expected = "1 0: good\n";
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        std::string const name = std::to_string(i);
        folder_.write(name.c_str(), rows[i].text);
        arguments += " @" + name;
        if (rows[i].faults)
            expected += name + ":" + swapped(rows[i].faults, " | ", "\n" + name + ":") + "\n";
    }
    EXPECT_EQ(run(arguments), expected);
}

TEST_F(Qxxml, rewrites_and_shows_files_and_loses_nothing_unasked) {
    folder_.write("in", "<?xml v=\"1\"?><b> x <!-- c --><a n='2'/> <a m='1'/></b>\n");
    folder_.write("lossy", "<a/>lost\n<b>\xC4\x80</b>");
    folder_.write("out", "old");
    struct {
        char const* arguments;
        char const* printed;
        char const* out;
    } const rows[] = {
        {"format @lossy @out",
         "1 qxxml: lossy: 2 texts cannot be written so that they are read back; --lossy writes all "
         "the same\n",
         "old"},
        {"format @in @out", "0 ",
         "<?xml v = '1'?>\n<b>\n\tx\n\t<a n = '2' />\n\t<a m = '1' />\n</b>\n"},
        {"sort @out @out", "0 ",
         "<?xml v = '1'?>\n<b>\n\tx\n\t<a m = '1' />\n\t<a n = '2' />\n</b>\n"},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(run(row.arguments), row.printed);
        EXPECT_EQ(test::read_file(folder_.file("out")), row.out);
    }
    EXPECT_EQ(run("check @none"), "1 qxxml: none: cannot be opened\n");
}

}  // namespace
