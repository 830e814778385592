#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "qx/diagnostics/call_stack.h"
#include "tests/harness/run_tool.h"
#include "tests/harness/temp_folder.h"

#include <string>

namespace {

using Result = test::ToolResult;

Result qxstack(std::string const& arguments) {
    return test::run_tool("qxstack", arguments);
}

bool has(std::string const& text, std::string const& part) {
    return text.find(part) != text.npos;
}

std::string stack_text(std::array<unsigned int, 32> const& offsets) {
    char text[257];
    QX::stack::offsets_to_string(offsets, text);
    return text;
}

char const map[] = "  Address         Publics by Value              Rva+Base\n\n"
                   " 0000:00000000  __ImageBase     0000000140000000\n"
                   " 0001:00000000  ?first@@YAXXZ   0000000140001000\n"
                   " 0001:00000010  _ZN4game4stepEv 0000000140001010\n"
                   " 0001:00000018  Inner_label     0000000140001018\n"
                   " 0001:00000020  last            0000000140001020\n";

TEST(QxStack, names_every_stack_of_a_log_by_a_map) {
    test::TempFolder const folder;
    std::string const log = "started\r\ncrash: " + stack_text({0x1011, 0x1001, 0x1012, 0x9000}) +
                            "\r\n" + std::string(200, '0') + "\r\nagain <" + stack_text({0x1019}) +
                            ">\r\n";
    std::string const files =
        folder.write("game.map", map) + "\" \"" + folder.write("crash.log", log);
    Result const result = qxstack("map \"" + files + "\"");
    EXPECT_EQ(result.code, 0u);
    EXPECT_EQ(
        result.output, "stack 1, line 2\r\n"
                       "   0  00001011  game::step()\r\n"
                       "   1  00001001  void __cdecl first(void)\r\n"
                       "   2  00001012  game::step()\r\n"
                       "   3  00009000  ?\r\n"
                       "stack 2, line 4\r\n"
                       "   0  00001019  Inner_label\r\n");
    EXPECT_TRUE(has(result.errors, "line 3: 200 digits are no stack")) << result.errors;
    Result const raw = qxstack("map --raw --skip Inner \"" + files + "\"");
    EXPECT_TRUE(has(raw.output, "00001019  _ZN4game4stepEv")) << raw.output;
}

TEST(QxStack, names_addresses_of_a_module_by_its_symbols) {
    test::TempFolder const folder;
    auto const library = reinterpret_cast<char const*>(GetModuleHandleA("QXLibs.dll"));
    auto const place = reinterpret_cast<char const*>(GetProcAddress(
        GetModuleHandleA("QXLibs.dll"), "_ZN2QX5stack17offsets_to_stringERKSt5arrayIjLy32EEPc"));
    std::string const log = stack_text({static_cast<unsigned int>(place - library) + 4});
    std::string const module = " \"" + test::own_folder() + "QXLibs.dll\" ";
    Result const result = qxstack("module" + module + folder.write("crash.log", log));
    EXPECT_TRUE(has(result.output, "offsets_to_string")) << result.errors;
    EXPECT_TRUE(has(result.output, "call_stack.cpp:")) << result.output;
}

TEST(QxStack, tells_what_went_wrong) {
    test::TempFolder const folder;
    std::string const good = " " + folder.write("game.map", map);
    std::string const log = " " + folder.write("crash.log", stack_text({0x1001}));
    std::string const empty = " " + folder.write("empty.log", "nothing here");
    std::string const none = " " + folder.file("none");
    std::pair<std::string, std::string> const rows[] = {
        {"", "2 qxstack: a command is missing\r\n\r\nqxstack - turns"},
        {"fly", "2 qxstack: fly: no such command"},
        {"map" + good, "2 qxstack: two files are wanted"},
        {"module --raw" + good + log, "2 qxstack: --raw: no such option"},
        {"map" + good + log + " --skip", "2 qxstack: --skip takes a prefix"},
        {"map" + good + none, "1 qxstack: " + none.substr(1) + ": can't be opened"},
        {"map" + good + empty, "1 qxstack: " + empty.substr(1) + ": no stack text in it"},
        {"map" + empty + log, "1 qxstack: " + empty.substr(1) + ": knows none of the addresses"},
        {"module" + none + log, "1 qxstack: " + none.substr(1) + ": can't be loaded"},
    };
    for (auto const& [arguments, told] : rows) {
        Result const result = qxstack(arguments);
        EXPECT_EQ((std::to_string(result.code) + " " + result.errors).find(told), 0u) << arguments;
    }
    EXPECT_EQ(qxstack("map --help").code, 0u);
}

}  // namespace
