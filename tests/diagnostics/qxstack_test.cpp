#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "qx/diagnostics/call_stack.h"
#include "tests/harness/run_tool.h"
#include "tests/harness/temp_folder.h"

namespace {

std::string stack_text(std::array<unsigned int, 32> const& offsets) {
    char text[257];
    QX::stack::offsets_to_string(offsets, text);
    return text;
}

// The exit code and all that the tool says.
std::string qxstack(std::string const& arguments) {
    test::ToolResult const result = test::run_tool("qxstack", arguments);
    return std::to_string(result.code) + "\r\n" + result.output + result.errors;
}

TEST(QxStack, names_every_stack_of_a_log_by_a_map) {
    test::TempFolder const folder;
    std::string const map = folder.write(
        "game.map", "  Address         Publics by Value              Rva+Base\n\n"
                    " 0000:00000000  __ImageBase     0000000140000000\n"
                    " 0001:00000000  ?first@@YAXXZ   0000000140001000\n"
                    " 0001:00000010  _ZN4game4stepEv 0000000140001010\n"
                    " 0001:00000018  Inner_label     0000000140001018\n"
                    " 0001:00000020  last            0000000140001020\n");
    std::string const log = folder.write(
        "crash.log", "started\r\ncrash: " + stack_text({0x1011, 0x1001, 0x1012, 0x9000}) + "\r\n" +
                         std::string(200, '0') + "\r\nagain <" + stack_text({0x1019}) + ">\r\n");
    EXPECT_EQ(
        qxstack("map --skip Inner " + map + " " + log),
        "0\r\nstack 1, line 2\r\n"
        "   0  00001011  game::step()\r\n"
        "   1  00001001  void __cdecl first(void)\r\n"
        "   2  00001012  game::step()\r\n"
        "   3  00009000  ?\r\n"
        "stack 2, line 4\r\n"
        "   0  00001019  game::step()\r\n"
        "qxstack: line 3: 200 digits are no stack, which has 256\r\n");
    std::string const unknown = qxstack("module " + test::own_folder() + "QXLibs.dll " + map);
    EXPECT_EQ(unknown, "1\r\nqxstack: " + map + ": no stack text in it\r\n");
}

TEST(QxStack, names_addresses_of_a_module_by_its_symbols) {
    test::TempFolder const folder;
    std::array<void*, 32> frames = {};
    QX::stack::trace(frames, 0);
    auto const* const library = reinterpret_cast<char*>(GetModuleHandleA("QXLibs.dll"));
    auto const offset = static_cast<unsigned int>(static_cast<char*>(frames[0]) - library);
    std::string const log = folder.write("crash.log", stack_text({offset}));
    std::string const told = qxstack("module " + test::own_folder() + "QXLibs.dll " + log);
    EXPECT_NE(told.find("QX::stack::trace"), told.npos) << told;
    EXPECT_NE(told.find("call_stack_platform.cpp:"), told.npos) << told;
}

TEST(QxStack, tells_what_went_wrong) {
    std::pair<char const*, char const*> const rows[] = {
        {"", "2\r\nqxstack: a command is missing\r\n\r\nqxstack - turns"},
        {"module --raw one two", "2\r\nqxstack: --raw: no such option"},
        {"map none none", "1\r\nqxstack: none: can't be opened\r\n"},
    };
    for (auto const& [arguments, told] : rows)
        EXPECT_EQ(qxstack(arguments).find(told), 0u) << qxstack(arguments);
}

}  // namespace
