#include <gtest/gtest.h>

#include <string>

#include "qx/base/windows.h"
#include "tests/harness/temp_folder.h"

namespace {

// Runs the tool beside this program; gives its exit code and, cleared of the folder's path, what
// it printed.
class Tool {
public:
    std::string run(std::string arguments) {
        char program[MAX_PATH];
        GetModuleFileNameA(nullptr, program, MAX_PATH);
        std::string const here = program;
        std::string command =
            "\"" + here.substr(0, here.rfind('\\') + 1) + "qxxml.exe\" " + arguments;

        std::string const output = folder_.file("output.txt");
        SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
        HANDLE const file = CreateFileA(
            output.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, CREATE_ALWAYS, 0, nullptr);
        STARTUPINFOA startup = {};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdOutput = startup.hStdError = file;
        PROCESS_INFORMATION process = {};
        DWORD code = 0xFFFFFFFF;
        if (CreateProcessA(
                nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, folder_.path().c_str(),
                &startup, &process)) {
            WaitForSingleObject(process.hProcess, 60000);
            GetExitCodeProcess(process.hProcess, &code);
            CloseHandle(process.hThread);
            CloseHandle(process.hProcess);
        }
        CloseHandle(file);
        std::string text = test::read_file(output);
        std::erase(text, '\r');
        return std::to_string(code) + " " + text;
    }

    void write(char const* name, std::string const& text) { folder_.write(name, text); }
    std::string read(char const* name) { return test::read_file(folder_.file(name)); }

private:
    test::TempFolder folder_;
};

TEST(Qxxml, check_tells_faults_with_line_and_column) {
    struct {
        char const* text;
        char const* faults;
    } const rows[] = {
        {"<a>\n <b>\n</a>\n", "3:1: </a> closes <b> of 2:2 | 1:1: <a> is not closed"},
        {"<a b=1>", "1:6: the value of 'b' has no quotes"},
        {"<a\nb/>", "2:1: attribute 'b' has no value"},
        {"<a b='x>", "1:6: the value of 'b' has no end"},
        {"<a b='' b=''/>", "1:9: attribute 'b' is there twice"},
        {"<a>\n&foo; & &#x41;</a>",
         "2:1: &foo; is not a known name | 2:7: '&' begins no reference (\"&amp;\" is meant?) | "
         "2:9: &#x41; in content is read with decimal digits"},
        {"<a b='&#65536;'/>", "1:7: &#65536; is no number up to 65535"},
        {"</a>", "1:1: </a> closes nothing; the rest is not read"},
        {"x\n<!-- ->", "2:1: the comment has no end"},
        {"<?p q='1'?/>", "1:1: a processing instruction is read as a tag | 1:10: "
                         "attribute '?' has no value"},
        {"<a", "1:1: <a has no '>'"},
        {"\xEF\xBB\xBF<a/>", "1:1: begins with a byte above ASCII (a byte order mark?), which is "
                             "refused"},
    };
    Tool tool;
    tool.write("good.xml", "<?xml v='1'?>\n<a b='&lt;'>&#65;<!-- & --><c/></a >\n");
    std::string arguments = "check good.xml", expected = "1 good.xml: good\n";
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        std::string const name = std::to_string(i) + ".xml";
        tool.write(name.c_str(), rows[i].text);
        arguments += " " + name;
        std::string faults = name + ":" + rows[i].faults + "\n";
        for (std::size_t at; (at = faults.find(" | ")) != faults.npos;)
            faults.replace(at, 3, "\n" + name + ":");
        expected += faults;
    }
    EXPECT_EQ(tool.run(arguments), expected);
}

TEST(Qxxml, format_sort_and_strip_rewrite_a_file) {
    Tool tool;
    tool.write("in.xml", "<?xml v=\"1\"?><b> x <!-- c --><a n='2'/> <a m='1'/></b>\n");
    EXPECT_EQ(tool.run("format in.xml out.xml"), "0 ");
    std::string const formatted =
        "<?xml v = '1'?>\n<b>\n\tx\n\t<a n = '2' />\n\t<a m = '1' />\n</b>\n";
    EXPECT_EQ(tool.read("out.xml"), formatted);
    EXPECT_EQ(tool.run("format out.xml out.xml"), "0 ");
    EXPECT_EQ(tool.read("out.xml"), formatted);
    EXPECT_EQ(tool.run("sort in.xml out.xml"), "0 ");
    EXPECT_EQ(
        tool.read("out.xml"),
        "<?xml v = '1'?>\n<b>\n\tx\n\t<a m = '1' />\n\t<a n = '2' />\n</b>\n");
    EXPECT_EQ(tool.run("strip in.xml out.xml"), "0 ");
    EXPECT_EQ(tool.read("out.xml"), "<?xml v=\"1\"?><b> x <a n='2'/> <a m='1'/></b>\n");
}

TEST(Qxxml, nothing_is_lost_unasked_and_wrong_use_is_told) {
    Tool tool;
    tool.write("in.xml", "<a/>lost<b>\xC4\x80</b>");
    tool.write("out.xml", "old");
    EXPECT_EQ(
        tool.run("format in.xml out.xml"),
        "1 qxxml: in.xml: 2 texts cannot be written so that they are read back; --lossy writes "
        "all the same\n");
    EXPECT_EQ(tool.read("out.xml"), "old");
    EXPECT_EQ(tool.run("format --raw --lossy in.xml out.xml").substr(0, 2), "0 ");
    EXPECT_EQ(tool.read("out.xml"), "<a /><b>&#x0100;</b>");

    EXPECT_EQ(tool.run("check none.xml"), "1 qxxml: none.xml: cannot be opened\n");
    EXPECT_EQ(tool.run("sort in.xml").substr(0, 2), "2 ");
    EXPECT_EQ(tool.run("check --by x in.xml").substr(0, 2), "2 ");
    EXPECT_EQ(tool.run("--help").substr(0, 8), "0 qxxml ");
}

}  // namespace
