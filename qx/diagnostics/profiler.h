// profiler.h - an event recorder: what was entered and left, and when, told afterwards.
//
//     Profiler& profiler = Profiler::profiler;
//     profiler.reset(100000);            room for the run to come
//     profiler.enter("update");
//     profiler.enter("path finding");
//     profiler.leave();
//     profiler.leave();
//     profiler.dump("profile.txt");      through message_txt; no file is written
//
// The text of a dump, in performance counter ticks (the headings say microseconds; nothing is
// converted):
//
//     Time     	Enter / Leave             each event with its time since `start`
//          1000	Enter	update
//          1400	Enter	path finding
//          1900	Leave	path finding
//          2000	Leave	update
//     truncating leave time for: ...     each call still open, the innermost first
//     three tables                       by inclusive time, by exclusive time, by name: ascending
//
//     column         what it sums
//     inclusive in%  the time from enter to leave, to the dump where the call is still open; a
//                    function that calls itself counts each call. Of 64 bits.
//     exclusive ex%  the time from each enter to an enter next to it, and from the event before to
//                    each leave. What lies between a leave and an enter is nobody's. Of 32 bits.
//     called         the enters
//
// Percentages are whole parts of a hundred of the time from `start` to the dump. Functions are told
// apart by the text of their names, which must live until the dump.
//
// An event that finds no room is dropped, before the first `reset` too. A leave without its enter,
// as of a call that was open over a dump, is passed over by the next dump.
//
// Threads: a profiler serves one at a time; nothing locks.
#pragma once

#include "qx/base/export.h"

namespace QX {

class Profiler {
public:
    struct Event {
        char const* name;  // null for a leave
        long long time;    // in ticks since `start`
    };

    // Without room; the time starts now.
    QX_API Profiler();

    // Dumps first if there are events, and releases the room. The global profiler does so when the
    // library is unloaded.
    QX_API ~Profiler();

    Profiler(Profiler const&) = delete;
    Profiler& operator=(Profiler const&) = delete;

    // Makes room for `max_events` and one more, without events, and restarts the time. Throws
    // std::bad_alloc where there is no memory: then there is no room.
    QX_API void reset(unsigned int max_events);

    // Each one counter read and two stores. `name` is kept, not copied; null would be a leave.
    QX_API void enter(char const* name);
    QX_API void leave();

    // Writes the text above and begins anew: without events, with the same room and the time
    // restarted. The file name is not used.
    QX_API void dump(char const* file_name);

    // Null before the first `reset`; owned by the profiler.
    Event const* events() const { return events_; }
    unsigned int event_count() const { return event_count_; }

    // The performance counter at the construction, the last reset or the last dump.
    long long start() const { return start_; }

    // The one that all code shares.
    QX_API static Profiler profiler;

private:
    void append(char const* name);

    Event* events_ = nullptr;
    unsigned int event_count_ = 0;
    unsigned int room_ = 0;  // in events
    long long start_;
};

}  // namespace QX
