// profiler_bench.cpp - what an entry and a leave of both profilers cost beside the bare clock.
#include "benchmarks/bench.h"

#include "qx/base/windows.h"
#include "qx/diagnostics/mini_profile.h"
#include "qx/diagnostics/profiler.h"

namespace {

// Few, so that a round goes undisturbed and the arena keeps the room of the events.
constexpr int zones = 4000;

void record() {
    QX::Profiler::profiler.reset(2 * zones);
    for (int i = 0; i < zones; ++i) {
        QX::Profiler::profiler.enter("zone");
        QX::Profiler::profiler.leave();
    }
}

void read_clock_twice() {
    LARGE_INTEGER ticks;
    for (int i = 0; i < 2 * zones; ++i) {
        QueryPerformanceCounter(&ticks);
        bench::keep(ticks);
    }
}

void time_blocks() {
    for (int i = 0; i < zones; ++i) {
        QX_MINI_PROFILE("block");
    }
}

void enter_blocks() {
    static QX::MINI_PROFILE_BLOCK block("bare");
    for (int i = 0; i < zones; ++i) {
        block.starting();
        block.callEnd(1);
    }
}

void add_four_times() {
    static int volatile sums[4];
    for (int i = 0; i < zones; ++i)
        for (int volatile& sum : sums) __atomic_fetch_add(&sum, 1, __ATOMIC_SEQ_CST);
}

void forget_events() {
    QX::Profiler::profiler.reset(0);
}

}  // namespace

int main() {
    bench::Table const table("profilers");
    table.row(
        "enter and leave", zones,
        {{"QXLibs Profiler", record}, {"two bare counter reads", read_clock_twice}});
    table.row(
        "a timed block", zones,
        {{"QXLibs MINI_PROFILE", time_blocks}, {"two bare counter reads", read_clock_twice}});
    table.row(
        "a block beside its clock", zones,
        {{"QXLibs starting and callEnd", enter_blocks}, {"four atomic adds", add_four_times}});
    forget_events();
}
