#include "qx/diagnostics/profiler.h"

#include "qx/base/compiler.h"
#include "qx/base/windows.h"
#include "qx/diagnostics/profiler_impl.h"

#include <new>

namespace QX {

namespace {

inline long long ticks_now() {
    LARGE_INTEGER ticks;
    QueryPerformanceCounter(&ticks);
    return ticks.QuadPart;
}

}  // namespace

Profiler Profiler::profiler;

Profiler::Profiler() : start_(ticks_now()) {}

Profiler::~Profiler() {
    if (event_count_ != 0) dump("profile.txt");
    ::operator delete(events_);
}

void Profiler::reset(unsigned int max_events) {
    ::operator delete(events_);
    events_ = nullptr;
    event_count_ = room_ = 0;
    unsigned long long const room = max_events + 1ull;
    events_ = static_cast<Event*>(::operator new(room * sizeof(Event)));
    room_ = room > 0xFFFFFFFF ? max_events : static_cast<unsigned int>(room);
    start_ = ticks_now();
}

inline void Profiler::append(char const* name) {
    if (QX_UNLIKELY(event_count_ == room_)) return;
    events_[event_count_++] = {name, ticks_now() - start_};
}

void Profiler::enter(char const* name) {
    append(name);
}

void Profiler::leave() {
    append(nullptr);
}

void Profiler::dump(char const*) {
    write_profile(events_, event_count_, ticks_now() - start_);
    event_count_ = 0;
    start_ = ticks_now();
}

}  // namespace QX
