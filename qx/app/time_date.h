// time_date.h - calendar time from seconds since the start of 1970.
//
//     TimeDate date;
//     date.set(1234567890);   // 2009-02-13 23:31:30, a Friday
//     date.month              =>  2, and date.month_index  =>  1
//     date.weekday            =>  5
//
// Seconds are unsigned and last until 2106-02-07. Where the C run-time refuses a conversion the
// fields stay as they were. Threads: no shared state but the run-time's own time zone.
#pragma once

#include "qx/base/export.h"

namespace QX {

struct TimeDate {
    int year = 0;         // in full
    int month = 0;        // 1 to 12
    int day = 0;          // 1 to 31
    int month_index = 0;  // 0 to 11
    int day_index = 0;    // 0 to 30
    int hour = 0;
    int minute = 0;
    int second = 0;
    int weekday = 0;   // 0 Sunday to 6
    int year_day = 0;  // 0 to 365

    // Fills the fields for universal time.
    QX_API void set(unsigned int seconds);

    // Fills the fields for local time, as the C run-time has it.
    QX_API void set_local(unsigned int seconds);

    // Now, cut to 32 bits.
    QX_API static unsigned int gmt();
};

static_assert(sizeof(TimeDate) == 40);

}  // namespace QX
