#include "qx/app/time_date.h"

#include <time.h>

namespace QX {

namespace {

void fill(TimeDate& date, tm const& from) {
    date.year = from.tm_year + 1900;
    date.month = from.tm_mon + 1;
    date.day = from.tm_mday;
    date.month_index = from.tm_mon;
    date.day_index = from.tm_mday - 1;
    date.hour = from.tm_hour;
    date.minute = from.tm_min;
    date.second = from.tm_sec;
    date.weekday = from.tm_wday;
    date.year_day = from.tm_yday;
}

}  // namespace

void TimeDate::set(unsigned int seconds) {
    __time64_t const time = seconds;
    tm broken = {};
    if (_gmtime64_s(&broken, &time) == 0) fill(*this, broken);
}

void TimeDate::set_local(unsigned int seconds) {
    __time64_t const time = seconds;
    tm broken = {};
    if (_localtime64_s(&broken, &time) == 0) fill(*this, broken);
}

unsigned int TimeDate::gmt() {
    return static_cast<unsigned int>(_time64(nullptr));
}

}  // namespace QX
