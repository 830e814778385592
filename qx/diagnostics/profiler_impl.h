// profiler_impl.h - what a dump writes.
#pragma once

#include "qx/diagnostics/profiler.h"

namespace QX {

// `total` is the time from the start to now, in ticks.
void write_profile(Profiler::Event const* events, unsigned int count, long long total);

}  // namespace QX
