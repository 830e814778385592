#include "tests/harness/run_tool.h"

#include "qx/base/windows.h"
#include "tests/harness/temp_folder.h"

namespace test {

namespace {

HANDLE output_file(std::string const& path) {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    return CreateFileA(
        path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, CREATE_ALWAYS, 0, nullptr);
}

}  // namespace

std::string own_folder() {
    char program[MAX_PATH];
    GetModuleFileNameA(nullptr, program, MAX_PATH);
    std::string const path = program;
    return path.substr(0, path.rfind('\\') + 1);
}

ToolResult run_tool(std::string const& tool, std::string const& arguments) {
    TempFolder const outputs;
    std::string line = "\"" + own_folder() + tool + ".exe\" " + arguments;
    STARTUPINFOA start = {};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdOutput = output_file(outputs.file("out"));
    start.hStdError = output_file(outputs.file("err"));
    PROCESS_INFORMATION process = {};
    ToolResult result;
    if (CreateProcessA(
            nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &process)) {
        WaitForSingleObject(process.hProcess, INFINITE);
        GetExitCodeProcess(process.hProcess, &result.code);
        CloseHandle(process.hProcess);
        CloseHandle(process.hThread);
    }
    CloseHandle(start.hStdOutput);
    CloseHandle(start.hStdError);
    result.output = read_file(outputs.file("out"));
    result.errors = read_file(outputs.file("err"));
    return result;
}

}  // namespace test
