#include "qx/app/power.h"

#include "qx/base/dynamic_array.h"
#include "qx/base/windows.h"

namespace QX::POWER {

namespace {

using Callback = std::function<void(PowerStatus const&)>;
using Callbacks = DynamicArray<Callback>;

constexpr BYTE line_offline = 0;
constexpr BYTE line_unknown = 255;
constexpr BYTE flag_charging = 8;
constexpr int level_low = 1;
constexpr int level_unknown = -1;

// The first bit that is set decides. 255, the system's "unknown", so reads as no battery.
constexpr struct {
    BYTE flag;
    int level;
} levels[] = {{128, 3}, {4, 2}, {2, 1}, {1, 0}};

bool created = false;  // stays after the release: the list never comes back
Callbacks* list = nullptr;

Callbacks* callbacks() {
    if (!created) list = new Callbacks;
    created = true;
    return list;
}

int source_of(BYTE line) {
    if (line == line_unknown) return -1;
    return line == line_offline ? 1 : 0;
}

int level_of(BYTE flags) {
    if (flags == 0) return level_low;
    for (auto const& row : levels)
        if ((flags & row.flag) != 0) return row.level;
    return level_unknown;
}

}  // namespace

PowerStatus get_power_status() {
    SYSTEM_POWER_STATUS system = {};
    if (!GetSystemPowerStatus(&system)) return {};
    PowerStatus status = {};
    status.power_source = source_of(system.ACLineStatus);
    status.battery_level = level_of(system.BatteryFlag);
    status.charging = (system.BatteryFlag & flag_charging) != 0 ? 1 : 0;
    status.seconds_left = static_cast<int>(system.BatteryLifeTime);
    return status;
}

void register_status_change_callback(Callback callback) {
    if (Callbacks* const to = callbacks()) to->push_back(callback);
}

// A callback may register another or release the list: it runs from a copy.
void notify_power_status_change() {
    if (callbacks() == nullptr) return;
    PowerStatus const status = get_power_status();
    for (unsigned long long i = 0; list != nullptr && i < list->size(); ++i) {
        Callback const callback = (*list)[i];
        callback(status);
    }
}

void deallocate_callback_data_structures() {
    delete list;
    list = nullptr;
}

}  // namespace QX::POWER
