// qxstack.cpp - turns the stack texts of a crash log into names, by a linker map or by a module's
// own symbols.
#include "qx/base/windows.h"

#include <cxxabi.h>
#include <dbghelp.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "qx/diagnostics/call_stack.h"
#include "qx/diagnostics/map_file.h"
#include "tools/command.h"

namespace {

using tool::fail;
using tool::fail_usage;
using tool::shown;
using Offsets = std::array<unsigned int, 32>;

constexpr std::size_t stack_digits = 256;
constexpr std::size_t doubtful_digits = 128;  // shorter runs are taken for other numbers
constexpr unsigned int progress_interval_ms = 500;

char const usage[] =
    "qxstack - turns stack texts into names\n"
    "\n"
    "  qxstack map [--raw] [--skip PREFIX]... MAP LOG\n"
    "      by the linker's map MAP, which has an \"Address\" table\n"
    "  qxstack module MODULE LOG\n"
    "      by the symbols of the program or library MODULE, which is loaded but not run\n"
    "\n"
    "  --raw     names as the map has them, decorated\n"
    "  --skip    symbols that begin with PREFIX are labels inside functions\n"
    "  --help    this text\n"
    "\n"
    "LOG is any text; - reads the standard input. A stack text is a run of exactly 256\n"
    "hexadecimal digits: 32 offsets from the module's base. Offsets that nothing is known of\n"
    "print as ?.\n"
    "Exit codes: 0 names printed, 1 nothing to print or a file unreadable, 2 wrong usage.\n";

// --- The log -------------------------------------------------------------------------------------

struct LoggedStack {
    std::size_t line;
    Offsets offsets;
};

std::string read_log(std::wstring const& name) {
    bool const standard = name == L"-";
    std::FILE* const file = standard ? stdin : _wfopen(name.c_str(), L"rb");
    if (file == nullptr) fail(shown(name) + ": can't be opened");
    std::string text;
    char block[65536];
    for (std::size_t got; (got = std::fread(block, 1, sizeof block, file)) != 0;)
        text.append(block, got);
    bool const good = std::ferror(file) == 0;
    if (!standard) std::fclose(file);
    if (!good) fail(shown(name) + ": can't be read");
    return text;
}

std::vector<LoggedStack> find_stacks(std::string const& log) {
    std::vector<LoggedStack> stacks;
    std::size_t line = 1;
    for (std::size_t at = 0; at < log.size();) {
        std::size_t const run = std::strspn(log.c_str() + at, "0123456789abcdefABCDEF");
        if (run == stack_digits) {
            stacks.push_back({line, QX::stack::string_to_offsets(log.c_str() + at)});
        } else if (run >= doubtful_digits) {
            std::fprintf(
                stderr, "qxstack: line %zu: %zu digits are no stack, which has 256\n", line, run);
        }
        if (run == 0 && log[at] == '\n') ++line;
        at += run != 0 ? run : 1;
    }
    return stacks;
}

// --- Names ---------------------------------------------------------------------------------------

// Through the debug-help library that QXLibs has loaded.
std::string undecorated(std::string const& name) {
    auto const find = reinterpret_cast<decltype(&UnDecorateSymbolName)>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleA("dbghelp.dll"), "UnDecorateSymbolName")));
    char plain[2000];
    return find && find(name.c_str(), plain, sizeof plain, 0) ? plain : name;
}

std::string plain_name(std::string const& name) {
    if (name[0] == '?') return undecorated(name);
    std::unique_ptr<char, void (*)(void*)> const plain(
        abi::__cxa_demangle(name.c_str(), nullptr, nullptr, nullptr), std::free);
    return plain ? plain.get() : name;
}

// A look-up for one offset; empty where nothing is known.
using LookUp = std::function<std::string(unsigned int)>;

struct Options {
    bool raw = false;
    std::vector<std::string> skipped;
    tool::Words operands;
};

// Each offset by itself: together the map's reader gives one symbol to one offset only.
LookUp look_up_in_map(Options const& options) {
    std::wstring const& name = options.operands[0];
    if (GetFileAttributesW(name.c_str()) == INVALID_FILE_ATTRIBUTES)
        fail(shown(name) + ": can't be opened");
    return [map = shown(name), options](unsigned int offset) {
        std::vector<char*> prefixes;
        for (std::string const& prefix : options.skipped)
            prefixes.push_back(const_cast<char*>(prefix.c_str()));
        prefixes.push_back(nullptr);
        auto const names = QX::stack::symbolicate_from_map({offset}, map.c_str(), prefixes.data());
        std::string const found = names[0].c_str();
        return options.raw || found.empty() ? found : plain_name(found);
    };
}

LookUp look_up_in_module(Options const& options) {
    std::wstring const& name = options.operands[0];
    HMODULE const module = LoadLibraryExW(name.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    if (module == nullptr) fail(shown(name) + ": can't be loaded");
    if (!QX::stack::load_symbols(true)) fail("the debug-help library does not start");
    return [module](unsigned int offset) {
        std::array<void*, 32> frames = {reinterpret_cast<char*>(module) + offset};
        std::string symbol, place;
        QX::stack::symbolicate(
            frames,
            [&](char* file, unsigned int line) {
                place = " (" + std::string(file) + ":" + std::to_string(line) + ")";
            },
            [&](char* found) { symbol = plain_name(found); }, {}, {});
        return symbol + place;
    };
}

// --- Printing ------------------------------------------------------------------------------------

// Looks each offset up once, and says how far it is where that takes long.
class Namer {
public:
    explicit Namer(LookUp look_up) : look_up_(std::move(look_up)), told_at_(GetTickCount64()) {}

    void find_all(std::vector<LoggedStack> const& stacks) {
        for (LoggedStack const& stack : stacks) {
            for (unsigned int offset : stack.offsets) {
                if (offset == 0) break;
                names_.emplace(offset, "");
            }
        }
        std::size_t done = 0;
        for (auto& [offset, name] : names_) {
            name = look_up_(offset);
            if (!name.empty()) ++found_;
            tell_progress(++done);
        }
    }

    std::size_t found() const { return found_; }
    char const* name_of(unsigned int offset) const {
        std::string const& name = names_.at(offset);
        return name.empty() ? "?" : name.c_str();
    }

private:
    void tell_progress(std::size_t done) {
        if (GetTickCount64() - told_at_ < progress_interval_ms) return;
        told_at_ = GetTickCount64();
        std::fprintf(stderr, "qxstack: %zu of %zu addresses\n", done, names_.size());
    }

    LookUp look_up_;
    std::map<unsigned int, std::string> names_;
    std::size_t found_ = 0;
    unsigned long long told_at_;
};

void print(LoggedStack const& stack, std::size_t number, Namer const& namer) {
    std::printf("stack %zu, line %zu\n", number, stack.line);
    for (std::size_t i = 0; i < stack.offsets.size() && stack.offsets[i] != 0; ++i)
        std::printf("  %2zu  %08x  %s\n", i, stack.offsets[i], namer.name_of(stack.offsets[i]));
}

void name_log(Options const& options, LookUp look_up) {
    std::vector<LoggedStack> const stacks = find_stacks(read_log(options.operands[1]));
    if (stacks.empty()) fail(shown(options.operands[1]) + ": no stack text in it");
    Namer namer(std::move(look_up));
    namer.find_all(stacks);
    for (std::size_t i = 0; i < stacks.size(); ++i) print(stacks[i], i + 1, namer);
    if (namer.found() == 0) fail(shown(options.operands[0]) + ": knows none of the addresses");
}

Options parse_options(tool::Words const& words, bool for_map) {
    Options options;
    options.operands = tool::take_options(words, [&](std::wstring const& option, auto value) {
        if (!for_map) return false;
        if (option == L"--raw") return options.raw = true;
        if (option != L"--skip") return false;
        options.skipped.push_back(shown(value()));
        if (options.skipped.back().empty()) fail_usage("--skip takes a prefix");
        return true;
    });
    if (options.operands.size() != 2) fail_usage("two files are wanted");
    return options;
}

int run(std::wstring const& command, tool::Words const& words) {
    bool const by_map = command == L"map";
    if (!by_map && command != L"module") fail_usage(shown(command) + ": no such command");
    Options const options = parse_options(words, by_map);
    name_log(options, by_map ? look_up_in_map(options) : look_up_in_module(options));
    return 0;
}

}  // namespace

int main() {
    return tool::run("qxstack", usage, run);
}
