// timers.h - timers that call back plain functions from the message pump.
//
//     int const id = QX::set_timer(on_tick, 0, 20);  // every 20 ms, within the pump
//     ...
//     QX::kill_timer(id);
//     QX::deallocate_timers_data_structures();       // on the way out
//
// The system chooses the ids: keep the one that set_timer returns. The table that maps ids to
// callbacks is made on first use and released by deallocate_timers_data_structures or at process
// exit; once released it never comes back.
// Threads: no lock. Everything belongs to the main thread, in whose pump the callbacks run.
#pragma once

#include "qx/base/export.h"

namespace QX {

class QXWindow;

// `window` stands for the window of the message, null for these timers, and lives for the call
// only. `message` is WM_TIMER, `time` the system's milliseconds.
using TimerCallback =
    void (*)(QXWindow* window, unsigned int message, unsigned int id, unsigned int time);

// Starts a timer of `period` milliseconds. A running timer with this `id` is ended first; an
// `id` that is not running (0, say) only starts one. The new timer's id; 0 on failure and once
// the table is released. `callback` may not be null. Exhaustion throws std::bad_alloc, and the new
// timer does not run.
QX_API int set_timer(TimerCallback callback, unsigned int id, unsigned int period);

// Ends the timer and forgets its callback. The system is told even of an id that is unknown here.
QX_API void kill_timer(unsigned int id);

// Releases the table. Timers still running fire into nothing.
QX_API void deallocate_timers_data_structures();

// Pass straight to the system's multimedia timer; no counting, no pairing.
QX_API void timeBeginPeriod(int period);
QX_API void timeEndPeriod(int period);

}  // namespace QX
