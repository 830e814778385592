// command.h - what the command-line tools share: their arguments, and how they fail.
//
// A tool is `TOOL COMMAND [OPTION]... OPERAND...`, with "--help" anywhere:
//
//     int main() {
//         return tool::run("qxtool", usage, [](std::wstring const& command, tool::Words words) {
//             if (command != L"list") tool::fail_usage(tool::shown(command) + ": no such command");
//             ...
//             return 0;
//         });
//     }
//
// Exit codes: 0 done, 1 failed, 2 wrong usage. Messages are UTF-8, on the error stream and behind
// the tool's name; those about wrong usage have the usage behind them.
#pragma once

#include "qx/base/windows.h"

#include <shellapi.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "qx/text/convert.h"

namespace tool {

constexpr int exit_failed = 1;
constexpr int exit_usage = 2;

using Words = std::vector<std::wstring>;

// What ends the program with a message.
struct Failure {
    int code;
    std::string text;
};

[[noreturn]] inline void fail(std::string const& text) {
    throw Failure{exit_failed, text};
}

[[noreturn]] inline void fail_usage(std::string const& text) {
    throw Failure{exit_usage, text};
}

// As UTF-8.
inline std::string shown(std::wstring const& text) {
    return QX::must_fix_string_narrow(QX::UniString(text.c_str())).c_str();
}

// Hands each option to `take`, as its text and a function that gives the word behind it as well
// (empty where there is none), and returns the other words. `take` answers whether it knows the
// option. A dash alone is no option.
template <typename Take>
Words take_options(Words const& words, Take take) {
    Words operands;
    for (std::size_t i = 0; i < words.size(); ++i) {
        std::wstring const& word = words[i];
        auto const value = [&] { return i + 1 < words.size() ? words[++i] : std::wstring(); };
        if (word.size() < 2 || word[0] != L'-')
            operands.push_back(word);
        else if (!take(word, value))
            fail_usage(shown(word) + ": no such option");
    }
    return operands;
}

inline Words command_line() {
    int count = 0;
    wchar_t** const arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    if (arguments == nullptr) fail("the command line can't be read");
    Words words(arguments + 1, arguments + count);
    LocalFree(arguments);
    return words;
}

// Runs `work(command, words behind it)`, which returns the exit code.
template <typename Work>
int run(char const* name, char const* usage, Work work) {
    try {
        Words words = command_line();
        if (std::find(words.begin(), words.end(), L"--help") != words.end()) {
            std::fputs(usage, stdout);
            return 0;
        }
        if (words.empty()) fail_usage("a command is missing");
        std::wstring const command = words[0];
        words.erase(words.begin());
        return work(command, words);
    } catch (Failure const& failure) {
        std::fflush(stdout);
        std::fprintf(stderr, "%s: %s\n", name, failure.text.c_str());
        if (failure.code == exit_usage) std::fprintf(stderr, "\n%s", usage);
        return failure.code;
    } catch (std::exception const& error) {
        std::fflush(stdout);
        std::fprintf(stderr, "%s: %s\n", name, error.what());
        return exit_failed;
    }
}

}  // namespace tool
