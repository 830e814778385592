#include "qx/diagnostics/call_stack.h"

#include <gtest/gtest.h>

#include "qx/base/compiler.h"
#include "qx/base/windows.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/run_tool.h"
#include "tests/harness/stand_in.h"

#include <dbghelp.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace {

using Frames = std::array<void*, 32>;
using Offsets = std::array<unsigned int, 32>;
namespace stack = QX::stack;

TEST(CallStack, captures_nothing_and_is_equal_to_all_others) {
    QX::CallStack first, second(true, 7);
    first.capture(2);
    EXPECT_TRUE(first == second && !(first < second));
    EXPECT_EQ(first.size() + first.hash() + first.fetch(0).line + first.fetch(0).name[0], 0u);
    EXPECT_STREQ(second.fetch(0).file, "<not-found>");
}

TEST(StackText, is_256_digits_and_reads_back_as_far_as_it_goes) {
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
        std::size_t const whole = random.below(32);
        test::Guarded const cut((std::string(plain, 8 * whole) + "zz").c_str(), 8 * whole + 3);
        std::fill(offsets.begin() + whole, offsets.end(), 0);
        EXPECT_EQ(stack::string_to_offsets(cut.data()), offsets);
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

// The calls of all sinks, a line for each frame.
Offsets symbolicate(Frames& frames, std::string& calls) {
    return stack::symbolicate(
        frames, [&](char* file, unsigned int) { calls += std::strstr(file, "call_stack_test"); },
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
    auto const* const base = reinterpret_cast<char*>(GetModuleHandleA(nullptr));
    EXPECT_EQ(offsets[1], static_cast<char*>(frames[1]) - base);
    EXPECT_EQ(stack::symbolicate(frames, {}, {}, {}, {}), offsets);
}

TEST(Symbolicate, goes_on_with_what_it_has_when_a_look_up_fails) {
    auto const no_symbol = +[](HANDLE, DWORD64, DWORD64*, SYMBOL_INFO*) { return FALSE; };
    auto const find_module = +[](HANDLE, DWORD64 address, IMAGEHLP_MODULE64* module) -> BOOL {
        std::strcpy(module->ModuleName, "known");
        module->BaseOfImage = 0x7100001000;
        return (address & 0x10) != 0;
    };
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

// The debug-help library as a script: what it was asked.
std::string search_path, asked;
int good_starts;

int run_loads(bool deferred) {
    test::StandIn const options(
        "SymSetOptions", +[](DWORD bits) {
            asked += bits == 0x80000412 ? "at once|" : bits == 0x80000416 ? "deferred|" : "?|";
        });
    test::StandIn const starting(
        "SymInitialize", +[](HANDLE, char const* path, BOOL invade) -> BOOL {
            asked += std::string("start ") + (path ? path : "-") + (invade ? "|" : " alone|");
            return good_starts-- > 0;
        });
    test::StandIn const cleaning(
        "SymCleanup", +[](HANDLE) { asked += "clean up|"; });
    test::StandIn const asking(
        "SymGetSearchPath", +[](HANDLE, char* path, DWORD size) -> BOOL {
            return size > search_path.size() && std::strcpy(path, search_path.c_str());
        });
    std::string const folder = ";" + test::own_folder() + "Symbols",
                      server = ";srv*\\\\symbols\\store";
    std::pair<std::string, std::string> const rows[] = {
        {"SRV*D:\\Cache*\\\\Symbols\\Store", "srv*d:\\cache*\\\\symbols\\store" + folder},
        {std::string(300, 'A'), std::string(300, 'a') + folder + server},
        {std::string(16384, 'A'), "." + folder + server},
    };
    Frames none = {};
    std::string const begin =
        (deferred ? "deferred|" : "at once|") + std::string("start -|clean up|");
    std::string expected = begin;
    if (deferred) stack::symbolicate(none, {}, {}, {}, {});
    if (!deferred) stack::load_symbols(false);
    for (auto const& [path, widened] : rows) {
        search_path = path;
        good_starts = path.size() > 9000 ? 2 : 1;
        if (stack::load_symbols(!deferred) != (good_starts == 0)) return 2;
        expected += begin + "start " + widened + "|";
    }
    return stack::load_symbols(true) && asked == expected ? 0 : 1;
}

TEST(LoadSymbolsDeathTest, first_call_fixes_the_mode_and_the_path_is_widened) {
    EXPECT_EXIT(std::exit(run_loads(false)), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(std::exit(run_loads(true)), testing::ExitedWithCode(0), "");
}

}  // namespace
