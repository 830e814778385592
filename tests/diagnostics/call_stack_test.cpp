#include "qx/diagnostics/call_stack.h"

#include <gtest/gtest.h>

#include "qx/base/compiler.h"
#include "qx/base/windows.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

#include <dbghelp.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace {

using Frames = std::array<void*, 32>;
using Offsets = std::array<unsigned int, 32>;
namespace stack = QX::stack;

TEST(CallStack, captures_nothing_and_is_equal_to_all_others) {
    QX::CallStack first, second(true, 7);
    first.capture(2);
    EXPECT_TRUE(first == second && !(first < second));
    EXPECT_EQ(first.size() + first.hash(), 0u);
    EXPECT_STREQ(second.fetch(0).name, "");
    EXPECT_STREQ(second.fetch(0).file, "<not-found>");
    EXPECT_EQ(second.fetch(0).line, 0u);
    first.hash_ = 0x80000000;
    EXPECT_TRUE(second < first);
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
    for (std::string const text : {"", "12", "0000000aFFFFFFF", "zzzzzzzz00000001"}) {
        Offsets expected = {};
        if (text == "12") expected = {0x12};
        if (text[0] == '0') expected = {10, 0xFFFFFFF};
        if (text[0] == 'z') expected = {0, 1};
        test::Guarded const guarded(text.c_str(), text.size() + 1);
        EXPECT_EQ(stack::string_to_offsets(guarded.data()), expected) << text;
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

TEST(Trace, sees_each_call_and_leaves_the_entries_behind_alone) {
    Frames shallow, deep, skipped;
    for (Frames* frames : {&shallow, &deep, &skipped}) frames->fill(&deep);
    trace_at_depth(0, shallow, 0);
    trace_at_depth(4, deep, 0);
    trace_at_depth(4, skipped, 2);
    auto const left = [&](Frames& f) { return std::count(f.begin(), f.end(), &deep); };
    ASSERT_GT(left(deep), 0) << "the case needs a shorter stack to begin with";
    EXPECT_EQ(left(shallow), left(deep) + 4);
    EXPECT_EQ(left(skipped), left(deep) + 2);
    EXPECT_EQ(skipped[0], deep[2]);
    trace_at_depth(60, deep, 0);
    EXPECT_EQ(left(deep) + std::count(deep.begin(), deep.end(), nullptr), 0);
}

// --- Live names ----------------------------------------------------------------------------------

// The calls of all sinks, a line each.
Offsets symbolicate(Frames& frames, std::string& calls) {
    return stack::symbolicate(
        frames,
        [&](char* file, unsigned int) {
            calls += std::string(file).substr(std::string(file).find_last_of("\\/") + 1);
        },
        [&](char* name) { calls += std::string(" symbol ").append(name, 14); },
        [&](char* name) { calls += std::string(" module ") + name; }, [&] { calls += "\n"; });
}

TEST(Symbolicate, names_function_file_and_module_of_a_frame) {
    Frames frames = {};
    trace_at_depth(1, frames, 1);
    frames[2] = nullptr;
    std::string calls;
    Offsets const offsets = symbolicate(frames, calls);
    std::string const frame = "call_stack_test.cpp symbol trace_at_depth module diagnostics_test\n";
    EXPECT_EQ(calls, frame + frame);
    Offsets expected = {};
    auto const* const base = reinterpret_cast<char*>(GetModuleHandleA(nullptr));
    for (int i = 0; i < 2; ++i) expected[i] = static_cast<char*>(frames[i]) - base;
    EXPECT_EQ(offsets, expected);
    EXPECT_EQ(stack::symbolicate(frames, {}, {}, {}, {}), expected);
}

BOOL WINAPI no_symbol(HANDLE, DWORD64, DWORD64*, SYMBOL_INFO*) {
    return FALSE;
}

// Knows the modules of addresses with a 1 in bit 4 only.
BOOL WINAPI find_module(HANDLE, DWORD64 address, IMAGEHLP_MODULE64* module) {
    std::strcpy(module->ModuleName, "known");
    module->BaseOfImage = 0x7100001000;
    return (address & 0x10) != 0;
}

TEST(Symbolicate, goes_on_with_what_it_has_when_a_look_up_fails) {
    test::StandIn const symbols("SymFromAddr", no_symbol);
    test::StandIn const modules("SymGetModuleInfo64", find_module);
    Frames frames = {};
    unsigned int const places[] = {0x2000, 0x3010, 0x3000, 0x4010};
    for (int i = 0; i < 4; ++i) frames[i] = reinterpret_cast<void*>(0x7100000000 + places[i]);
    frames[5] = frames[0];
    std::string calls;
    EXPECT_EQ(symbolicate(frames, calls), (Offsets{0x2000, 0x2010, 0x2000, 0x3010}));
    EXPECT_EQ(calls, "\n module known\n\n module known\n");
}

// --- Loading -------------------------------------------------------------------------------------

// The debug-help library as a script: what it answers, and what it was asked.
std::string search_path;
std::size_t least_size;  // smaller buffers are refused
int good_starts;
std::string asked;

DWORD WINAPI set_options(DWORD options) {
    asked += "options " + std::to_string(options & 4) + std::to_string(options & ~4) + "|";
    return options;
}

BOOL WINAPI start(HANDLE, char const* path, BOOL invade) {
    asked += std::string("start ") + (path ? path : "-") + (invade ? "|" : " alone|");
    return good_starts-- > 0;
}

BOOL WINAPI clean_up(HANDLE) {
    asked += "clean up|";
    return TRUE;
}

BOOL WINAPI get_path(HANDLE, char* path, DWORD size) {
    if (size < least_size) return FALSE;
    std::strcpy(path, search_path.c_str());
    return TRUE;
}

// Whether the library asks for just this.
bool asks(bool deferred, bool answer, std::string const& expected) {
    asked.clear();
    bool const answered = stack::load_symbols(deferred);
    if (asked != expected) std::fprintf(stderr, "%s\n%s\n", asked.c_str(), expected.c_str());
    return answered == answer && asked == expected;
}

int run_loads(bool deferred_first) {
    test::StandIn const options("SymSetOptions", set_options), starting("SymInitialize", start),
        cleaning("SymCleanup", clean_up), asking("SymGetSearchPath", get_path);
    char program[MAX_PATH];
    GetModuleFileNameA(nullptr, program, MAX_PATH);
    *std::strrchr(program, '\\') = 0;
    std::string const own = std::string(";") + program + "\\Symbols";
    std::string lower = own.substr(1);
    for (char& c : lower) c = static_cast<char>(std::tolower(c));
    std::string const server = ";srv*\\\\symbols\\store";
    std::string const begin = std::string(deferred_first ? "options 4" : "options 0") +
                              "2147484690|start -|clean up|";  // 0x80000412
    struct Row {
        std::string path;
        std::size_t least_size;
        std::string widened;
    };
    Row const rows[] = {
        {"", 0, "." + own + server},
        {own.substr(1), 0, lower + own + server},
        {"SRV*D:\\Cache*\\\\Symbols\\Store", 0, "srv*d:\\cache*\\\\symbols\\store" + own},
        {std::string(300, 'A'), 16384, std::string(300, 'a') + own + server},
        {"A", 16385, "." + own + server},
    };
    Frames none = {};
    if (deferred_first) stack::symbolicate(none, {}, {}, {}, {});
    if (!deferred_first && !asks(false, false, begin)) return 1;
    for (Row const& row : rows) {
        search_path = row.path;
        least_size = row.least_size;
        good_starts = 1;
        if (!asks(!deferred_first, false, begin + "start " + row.widened + "|")) return 2;
    }
    good_starts = 2;
    return asks(true, true, begin + "start ." + own + server + "|") && asks(true, true, "") ? 0 : 3;
}

TEST(LoadSymbolsDeathTest, first_call_fixes_the_mode_and_the_path_is_widened) {
    for (bool deferred_first : {false, true})
        EXPECT_EXIT(std::exit(run_loads(deferred_first)), testing::ExitedWithCode(0), "");
}

}  // namespace
