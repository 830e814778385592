// stack_bench.cpp - capturing stacks, tracking objects by them and keeping them as text.
#include "benchmarks/bench.h"

#include <array>
#include <cstdio>
#include <vector>

#include "qx/base/compiler.h"
#include "qx/base/windows.h"
#include "qx/diagnostics/call_stack.h"
#include "qx/memory/memory_tracking.h"

namespace {

using Frames = std::array<void*, 32>;

constexpr int times = 2000;
char objects[times];

// Does the work under `depth` further calls, as deep as a game's own code would.
__attribute__((noinline, noipa)) void under(int depth, void (*work)()) {
    if (depth > 0)
        under(depth - 1, work);
    else
        work();
    QX_KEEP_FRAME();
}

void capture_bare() {
    for (int i = 0; i < times; ++i) {
        Frames frames = {};
        RtlCaptureStackBackTrace(2, 32, frames.data(), nullptr);
        bench::keep(frames);
    }
}

void capture() {
    for (int i = 0; i < times; ++i) {
        Frames frames = {};
        QX::stack::trace(frames, 2);
        bench::keep(frames);
    }
}

void track_and_forget() {
    for (char& object : objects) MEMORY_TRACKING::add_live_object(&object);
    for (char& object : objects) MEMORY_TRACKING::remove_live_object(&object);
}

void capture_rows(bench::Table const& table, int depth, char const* name) {
    table.row(
        name, times,
        {{"QXLibs trace", [depth] { under(depth, capture); }},
         {"RtlCaptureStackBackTrace", [depth] { under(depth, capture_bare); }}});
}

void text_row(bench::Table const& table) {
    std::array<unsigned int, 32> offsets;
    for (unsigned int i = 0; i < 32; ++i) offsets[i] = 0x1000 + 0x12345 * i;
    char text[257];
    table.row(
        "32 offsets to text", times,
        {{"QXLibs",
          [&] {
              for (int i = 0; i < times; ++i) {
                  QX::stack::offsets_to_string(offsets, text);
                  bench::keep(text);
              }
          }},
         {"sprintf", [&] {
              for (int i = 0; i < times; ++i) {
                  for (int k = 0; k < 32; ++k) std::sprintf(text + 8 * k, "%08x", offsets[k]);
                  bench::keep(text);
              }
          }}});
}

}  // namespace

int main() {
    bench::Table const table("call stacks and tracking");
    capture_rows(table, 40, "capture 32 frames");
    capture_rows(table, 1, "capture of a short stack");
    table.row(
        "an object added and removed, 32 frames each", 2 * times,
        {{"QXLibs", [] { under(40, track_and_forget); }}, {"two bare captures", [] {
                                                               under(40, capture_bare);
                                                               under(40, capture_bare);
                                                           }}});
    text_row(table);
}
