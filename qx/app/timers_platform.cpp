#include "qx/app/timers.h"

#include <cstdlib>

#include "qx/app/timers_table_impl.h"
#include "qx/app/window.h"
#include "qx/base/windows.h"

#include <mmsystem.h>

namespace QX {

namespace {

TimerTable* table = nullptr;
bool table_was_made = false;  // never reset: a released table stays away

// Null once released.
TimerTable* timer_table() {
    if (!table_was_made) {
        table = new TimerTable;
        table_was_made = true;
        std::atexit(deallocate_timers_data_structures);
    }
    return table;
}

void CALLBACK timer_procedure(HWND hwnd, UINT message, UINT_PTR id, DWORD time) {
    auto const key = static_cast<unsigned int>(id);
    TimerTable::Slot const* const slot = table ? table->find(key) : nullptr;
    if (!slot) return;
    QXWindow window;
    window.set_hwnd(hwnd);
    slot->callback(&window, message, key, time);
}

}  // namespace

int set_timer(TimerCallback callback, unsigned int id, unsigned int period) {
    TimerTable* const timers = timer_table();
    if (!timers) return 0;
    if (timers->find(id)) {
        KillTimer(nullptr, id);
        timers->remove(id);
    }
    auto const given = static_cast<unsigned int>(SetTimer(nullptr, id, period, timer_procedure));
    try {
        timers->insert(given, callback);
    } catch (...) {
        KillTimer(nullptr, given);
        throw;
    }
    return static_cast<int>(given);
}

void kill_timer(unsigned int id) {
    KillTimer(nullptr, id);
    if (TimerTable* const timers = timer_table()) timers->remove(id);
}

void deallocate_timers_data_structures() {
    TimerTable* const released = table;
    table = nullptr;
    delete released;
}

void timeBeginPeriod(int period) {
    ::timeBeginPeriod(static_cast<UINT>(period));
}

void timeEndPeriod(int period) {
    ::timeEndPeriod(static_cast<UINT>(period));
}

}  // namespace QX
