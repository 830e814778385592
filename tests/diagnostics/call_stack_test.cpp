#include "qx/diagnostics/call_stack.h"

#include <gtest/gtest.h>

#include "qx/base/compiler.h"
#include "qx/base/windows.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <dbghelp.h>
#include <psapi.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Frames = std::array<void*, 32>;
using Offsets = std::array<unsigned int, 32>;
namespace stack = QX::stack;

// --- The shell -----------------------------------------------------------------------------------

TEST(CallStack, captures_nothing_and_is_equal_to_all_others) {
    QX::CallStack first;
    QX::CallStack second(true, 7);
    first.capture(2);
    EXPECT_TRUE(first == second);
    EXPECT_FALSE(first < second);
    EXPECT_EQ(first.size() + first.hash(), 0u);
    QX::CallStack::Symbol const symbol = second.fetch(0);
    EXPECT_STREQ(symbol.name, "");
    EXPECT_STREQ(symbol.file, "<not-found>");
    EXPECT_EQ(symbol.line, 0u);
    first.hash_ = 0x80000000;
    EXPECT_TRUE(second < first);
    second = first;
    EXPECT_TRUE(first == second);
}

TEST(CallStack, has_its_fields_where_clients_expect_them) {
    EXPECT_EQ(offsetof(QX::CallStack, hash_), 0u);
    EXPECT_EQ(offsetof(QX::CallStack, trace_), 8u);
    EXPECT_EQ(offsetof(QX::CallStack, size_), 72u);
    EXPECT_EQ(offsetof(QX::CallStack::Symbol, file), 64u);
    QX::CallStack const stack;
    EXPECT_EQ(stack.trace(), stack.trace_);
}

// --- Text ----------------------------------------------------------------------------------------

TEST(StackText, is_256_digits_and_reads_back) {
    test::Random random;
    for (int round = 0; round < 300; ++round) {
        Offsets offsets = {};
        for (unsigned int& offset : offsets)
            if (round != 0) offset = static_cast<unsigned int>(random.next() >> random.below(64));
        char plain[300] = {};
        for (std::size_t i = 0; i < 32; ++i) std::sprintf(plain + 8 * i, "%08x", offsets[i]);
        test::Guarded text(257);
        stack::offsets_to_string(offsets, text.data());
        EXPECT_STREQ(text.data(), plain);
        EXPECT_EQ(stack::string_to_offsets(text.data()), offsets);
    }
}

TEST(StackText, that_is_short_or_no_number_reads_as_zeros) {
    struct Row {
        char const* text;
        unsigned int first, second;
    };
    Row const rows[] = {
        {"", 0, 0},
        {"12", 0x12, 0},
        {"0000000A", 10, 0},
        {"0000000aFFFFFFFF", 10, 0xFFFFFFFF},
        {"zzzzzzzz00000001", 0, 1},
        {"12zz   400000001", 0x12, 1},
    };
    for (Row const& row : rows) {
        test::Guarded const text(row.text, std::strlen(row.text) + 1);
        Offsets const read = stack::string_to_offsets(text.data());
        EXPECT_EQ(read[0], row.first) << row.text;
        EXPECT_EQ(read[1], row.second) << row.text;
        EXPECT_EQ(std::count(read.begin() + 2, read.end(), 0u), 30);
    }
}

// --- Capture -------------------------------------------------------------------------------------

__attribute__((noinline, noipa)) void trace_at_depth(int depth, Frames& frames, int skip) {
    if (depth > 0)
        trace_at_depth(depth - 1, frames, skip);
    else
        stack::trace(frames, skip);
    QX_KEEP_FRAME();
}

std::size_t count_of(Frames const& frames) {
    return static_cast<std::size_t>(
        std::find(frames.begin(), frames.end(), nullptr) - frames.begin());
}

TEST(Trace, sees_each_call_and_leaves_the_entries_behind_alone) {
    Frames shallow = {}, deep = {}, skipped = {};
    trace_at_depth(0, shallow, 0);
    trace_at_depth(4, deep, 0);
    ASSERT_LT(count_of(deep), 32u) << "the case needs a shorter stack to begin with";
    EXPECT_EQ(count_of(deep), count_of(shallow) + 4);
    trace_at_depth(4, skipped, 2);
    EXPECT_EQ(count_of(skipped), count_of(deep) - 2);
    EXPECT_EQ(skipped[0], deep[2]);

    Frames marked;
    marked.fill(&marked);
    trace_at_depth(0, marked, 0);
    EXPECT_EQ(marked[31], &marked);
    trace_at_depth(60, marked, 0);
    EXPECT_EQ(std::count(marked.begin(), marked.end(), nullptr), 0);
    EXPECT_NE(marked[31], &marked);
}

// --- Live names ----------------------------------------------------------------------------------

// The calls of all sinks, a text each.
struct Calls {
    std::vector<std::string> list;

    Offsets symbolicate(Frames& frames) {
        return stack::symbolicate(
            frames,
            [this](char* file, unsigned int line) {
                list.push_back("line " + std::string(file) + ":" + std::to_string(line));
            },
            [this](char* name) { list.push_back(std::string("symbol ") + name); },
            [this](char* name) { list.push_back(std::string("module ") + name); },
            [this] { list.push_back("end"); });
    }
};

TEST(Symbolicate, names_function_file_and_module_of_a_frame) {
    Frames frames = {};
    trace_at_depth(1, frames, 1);
    frames[2] = nullptr;
    Calls calls;
    Offsets const offsets = calls.symbolicate(frames);
    ASSERT_EQ(calls.list.size(), 8u);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_NE(calls.list[4 * i].find("call_stack_test.cpp:"), std::string::npos);
        EXPECT_NE(calls.list[4 * i + 1].find("trace_at_depth"), std::string::npos);
        EXPECT_EQ(calls.list[4 * i + 2], "module diagnostics_test");
        EXPECT_EQ(calls.list[4 * i + 3], "end");
        auto const base = reinterpret_cast<std::uintptr_t>(GetModuleHandleA(nullptr));
        EXPECT_EQ(offsets[i], reinterpret_cast<std::uintptr_t>(frames[i]) - base);
    }
    EXPECT_EQ(std::count(offsets.begin() + 2, offsets.end(), 0u), 30);
}

TEST(Symbolicate, without_sinks_gives_the_offsets_alone) {
    Frames frames = {};
    trace_at_depth(3, frames, 0);
    Frames again = frames;
    Calls calls;
    EXPECT_EQ(stack::symbolicate(frames, {}, {}, {}, {}), calls.symbolicate(again));
}

DWORD64 const known_base = 0x7100000000;

BOOL WINAPI no_symbol(HANDLE, DWORD64, DWORD64*, SYMBOL_INFO*) {
    return FALSE;
}

// Knows the modules of addresses with a 1 in bit 4 only.
BOOL WINAPI find_module(HANDLE, DWORD64 address, IMAGEHLP_MODULE64* module) {
    if ((address & 0x10) == 0) return FALSE;
    std::strcpy(module->ModuleName, "known");
    module->BaseOfImage = known_base + 0x1000;
    return TRUE;
}

TEST(Symbolicate, goes_on_with_what_it_has_when_a_look_up_fails) {
    test::StandIn const symbols("SymFromAddr", no_symbol);
    test::StandIn const modules("SymGetModuleInfo64", find_module);
    Frames frames = {};
    unsigned int const places[] = {0x2000, 0x3010, 0x3000, 0x4010};
    for (std::size_t i = 0; i < 4; ++i) frames[i] = reinterpret_cast<void*>(known_base + places[i]);
    frames[5] = frames[0];
    Calls calls;
    Offsets const offsets = calls.symbolicate(frames);
    EXPECT_EQ(
        calls.list,
        (std::vector<std::string>{"end", "module known", "end", "end", "module known", "end"}));
    EXPECT_EQ(offsets[0], 0x2000u);
    EXPECT_EQ(offsets[1], 0x2010u);
    EXPECT_EQ(offsets[2], 0x2000u);
    EXPECT_EQ(offsets[3], 0x3010u);
    EXPECT_EQ(offsets[5], 0u);
}

// --- Loading -------------------------------------------------------------------------------------

// The debug-help library as a script: what it answers and what it was asked.
struct Script {
    std::string search_path;
    std::size_t least_size = 0;  // smaller buffers are refused
    std::size_t program_size = 0;
    int good_starts = 0;
    std::vector<std::string> asked;
};

Script* script;

DWORD WINAPI set_options(DWORD options) {
    char text[32];
    std::sprintf(text, "options %lx", options);
    script->asked.push_back(text);
    return options;
}

BOOL WINAPI start(HANDLE, char const* path, BOOL invade) {
    script->asked.push_back(std::string("start ") + (path ? path : "-") + (invade ? "" : " alone"));
    return script->good_starts-- > 0;
}

BOOL WINAPI clean_up(HANDLE) {
    script->asked.push_back("clean up");
    return TRUE;
}

BOOL WINAPI get_path(HANDLE, char* path, DWORD size) {
    if (size < script->least_size) return FALSE;
    std::strcpy(path, script->search_path.c_str());
    return TRUE;
}

DWORD WINAPI get_program(HANDLE, HMODULE, char* name, DWORD size) {
    std::string const full = "C:\\" + std::string(script->program_size, 'P') + "\\Game.exe";
    if (size < full.size() + 1) return 0;
    std::strcpy(name, full.c_str());
    return static_cast<DWORD>(full.size());
}

struct LoadRow {
    Script script;
    bool deferred;
    bool result;
    std::vector<std::string> asked;
};

std::string restarted(std::string const& path) {
    return "start " + path;
}

// In the order in which one process goes through them: none is loaded but by the last.
std::vector<LoadRow> load_rows() {
    std::string const own = "C:\\PP\\Symbols";
    std::string const server = ";srv*\\\\symbols\\store";
    std::string const lower(300, 'a'), upper(300, 'A'), folders(300, 'P');
    std::string const options = "options 80000412", first = "start -", clean = "clean up";
    auto full = [&](Script from, std::string const& path) {
        from.good_starts = 1;
        if (from.program_size == 0) from.program_size = 2;
        return LoadRow{from, true, false, {options, first, clean, restarted(path)}};
    };
    std::vector<LoadRow> rows = {{{"", 0, 2, 0, {}}, false, false, {options, first, clean}}};
    rows.push_back(full({"", 0, 0, 0, {}}, ".;" + own + server));
    rows.push_back(full({"D:\\Sym", 0, 0, 0, {}}, "d:\\sym;" + own + server));
    rows.push_back(full({own, 0, 0, 0, {}}, "c:\\pp\\symbols;" + own + server));
    rows.push_back(full(
        {"SRV*D:\\Cache*\\\\Symbols\\Store", 0, 0, 0, {}},
        "srv*d:\\cache*\\\\symbols\\store;" + own));
    rows.push_back(full({upper, 301, 0, 0, {}}, lower + ";" + own + server));
    rows.push_back(full({"A", 16384, 0, 0, {}}, "a;" + own + server));
    rows.push_back(full({"A", 16385, 0, 0, {}}, ".;" + own + server));
    rows.push_back(full({"A", 0, 300, 0, {}}, "a;C:\\" + folders + "\\Symbols" + server));
    LoadRow last = full({"", 0, 0, 0, {}}, ".;" + own + server);
    last.script.good_starts = 2;
    last.result = true;
    rows.push_back(last);
    rows.push_back({{}, false, true, {}});
    return rows;
}

// The number of rows that went wrong, each told on the error stream.
int run_load_rows() {
    test::StandIn const stand_ins[] = {
        {"SymSetOptions", set_options},
        {"SymInitialize", start},
        {"SymCleanup", clean_up},
        {"SymGetSearchPath", get_path},
        {"GetModuleFileNameExA", get_program},
    };
    int faults = 0;
    for (test::StandIn const& stand_in : stand_ins) faults += !stand_in.found();
    for (LoadRow& row : load_rows()) {
        script = &row.script;
        bool const result = stack::load_symbols(row.deferred);
        if (result == row.result && row.script.asked == row.asked) continue;
        ++faults;
        std::fprintf(stderr, "answered %d\n", result);
        for (auto const& asked : row.script.asked) std::fprintf(stderr, "  %s\n", asked.c_str());
    }
    return faults;
}

TEST(LoadSymbolsDeathTest, first_call_fixes_the_mode_and_the_path_is_widened) {
    EXPECT_EXIT(std::exit(run_load_rows()), testing::ExitedWithCode(0), "");
}

int run_deferred_first() {
    test::StandIn const options("SymSetOptions", set_options);
    test::StandIn const starting("SymInitialize", start);
    Script deferred;
    script = &deferred;
    Frames frames = {};
    stack::symbolicate(frames, {}, {}, {}, {});
    stack::symbolicate(frames, {}, {}, {}, {});
    bool const as_told = deferred.asked == std::vector<std::string>{"options 80000416", "start -"};
    stack::load_symbols(false);
    return as_told && deferred.asked[2] == "options 80000416" ? 0 : 1;
}

TEST(LoadSymbolsDeathTest, first_symbolication_loads_them_deferred) {
    EXPECT_EXIT(std::exit(run_deferred_first()), testing::ExitedWithCode(0), "");
}

}  // namespace
