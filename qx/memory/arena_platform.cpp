#include "qx/memory/arena_system_impl.h"

#include "qx/base/windows.h"

namespace QX::arena {

SystemFigures system_figures() {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return {info.dwPageSize, info.dwAllocationGranularity};
}

void* map_segment(Size size) {
    return VirtualAlloc(nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
}

void* map_direct(Size size) {
    DWORD const kind = MEM_COMMIT | MEM_RESERVE | MEM_TOP_DOWN;
    return VirtualAlloc(nullptr, size, kind, PAGE_READWRITE);
}

// A range that ends where its last mapping does can only fail at its first region.
bool unmap(void* base, Size size) {
    char* place = static_cast<char*>(base);
    while (size != 0) {
        MEMORY_BASIC_INFORMATION region;
        if (VirtualQuery(place, &region, sizeof region) == 0) return false;
        bool const whole = region.BaseAddress == place && region.AllocationBase == place &&
                           region.State == MEM_COMMIT && region.RegionSize <= size;
        if (!whole || !VirtualFree(place, 0, MEM_RELEASE)) return false;
        place += region.RegionSize;
        size -= region.RegionSize;
    }
    return true;
}

bool begins_mapping(void const* base) {
    MEMORY_BASIC_INFORMATION region;
    return VirtualQuery(base, &region, sizeof region) != 0 && region.AllocationBase == base &&
           region.State == MEM_COMMIT && region.Protect == PAGE_READWRITE;
}

unsigned int tick_count_ms() {
    return GetTickCount();
}

void yield_processor() {
    SleepEx(0, FALSE);
}

}  // namespace QX::arena
