// power.h - mains or battery, and who wants to know when that changes.
//
//     POWER::register_status_change_callback([](POWER::PowerStatus const& now) { ... });
//     // in the host's window procedure, on a power message:
//     POWER::notify_power_status_change();
//
// Threads: the callbacks belong to the main thread and have no lock. get_power_status is free.
#pragma once

#include "qx/base/export.h"

#include <functional>

namespace QX::POWER {

struct PowerStatus {
    int power_source;   // 0 mains, 1 battery, -1 unknown
    int battery_level;  // 0 high, 1 low, 2 critical, 3 no battery, -1 unknown
    int charging;       // 1 while the battery charges, otherwise 0
    int seconds_left;   // the system's figure; -1 where it has none
};

// Asks the system. All fields are 0 where it does not answer.
QX_API PowerStatus get_power_status();

// Adds a function; it is copied, and called in the order of registration. Nothing happens once the
// list was released.
QX_API void register_status_change_callback(std::function<void(PowerStatus const&)> callback);

// Asks for the status and calls every registered function with it. The library never does so
// itself. An empty function throws std::bad_function_call when its turn comes; those behind it are
// then not called.
QX_API void notify_power_status_change();

// Releases the list, if there was one, for good: it can't be made again.
QX_API void deallocate_callback_data_structures();

}  // namespace QX::POWER
