#include "qx/app/system_info.h"
#include "qx/base/windows.h"

#include <cstddef>

namespace QX {

namespace {

static_assert(offsetof(OS_INFO, ready) == sizeof(OSVERSIONINFOEXW));
static_assert(offsetof(OS_INFO, product_type) == offsetof(OSVERSIONINFOEXW, wProductType));

OS_INFO os_record;
SYSTEM_INFO system_record;
bool os_ready = false;
bool system_ready = false;

bool runs_under_emulation() {
    using Query = BOOL(WINAPI*)(HANDLE, BOOL*);
    FARPROC const found = GetProcAddress(GetModuleHandleW(L"kernel32"), "IsWow64Process");
    if (found == nullptr) return false;
    auto const query = reinterpret_cast<Query>(reinterpret_cast<void*>(found));
    BOOL emulated = FALSE;
    return query(GetCurrentProcess(), &emulated) && emulated;
}

}  // namespace

// The size is left 0 on purpose, and the answer is not looked at.
OS_INFO const& os_info() {
    if (os_ready) return os_record;
    os_ready = true;
    GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&os_record));
    os_record.ready = true;
    return os_record;
}

_SYSTEM_INFO const& system_info() {
    if (system_ready) return system_record;
    system_ready = true;
    if (runs_under_emulation())
        GetNativeSystemInfo(&system_record);
    else
        GetSystemInfo(&system_record);
    return system_record;
}

unsigned int GetTickCount() {
    return ::GetTickCount();
}

void open_external_browser(String const&) {}

}  // namespace QX
