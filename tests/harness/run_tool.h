// run_tool.h - runs a tool that lies beside the test program.
#pragma once

#include <string>

namespace test {

// The folder of the test program, where the tools lie as well. Ends with a backslash.
std::string own_folder();

struct ToolResult {
    unsigned long code = 99;  // as long as the tool could not be started
    std::string output;       // what it printed, byte for byte
    std::string errors;
};

// `tool` is the name without ".exe".
ToolResult run_tool(std::string const& tool, std::string const& arguments);

}  // namespace test
