#include "qx/memory/heap_impl.h"

#include "qx/base/windows.h"

namespace QX {

namespace {

constexpr unsigned int heap_slots = 4;
constexpr ULONG low_fragmentation = 2;

void* os_heap_table[heap_slots];  // by heap id; written, and never read back here
HeapPlatform* recorded_default;

void record(HEAPS id, void* os_heap) {
    unsigned int const slot = static_cast<unsigned int>(id);
    if (slot < heap_slots) os_heap_table[slot] = os_heap;
}

// No allocation number is compared with the value here: it is read and let go.
void query_break_number() {
    HKEY key;
    wchar_t const* const path = L"Software\\The Tarnwick Guild";
    if (RegOpenKeyExW(HKEY_CURRENT_USER, path, 0, KEY_ALL_ACCESS, &key) != ERROR_SUCCESS) return;
    DWORD number = 0;
    DWORD type = REG_DWORD;
    DWORD size = sizeof number;
    BYTE* const bytes = reinterpret_cast<BYTE*>(&number);
    RegQueryValueExW(key, L"BreakAtAllocID", nullptr, &type, bytes, &size);
    RegCloseKey(key);
}

MEMORYSTATUSEX memory_status() {
    MEMORYSTATUSEX status = {};
    status.dwLength = sizeof status;
    GlobalMemoryStatusEx(&status);
    return status;
}

}  // namespace

HeapPlatform::HeapPlatform(HEAPS id, unsigned long long initial, unsigned long long maximum)
    : HeapPlatform(id, HeapCreate(0, initial, maximum)) {
    if (!os_heap_) static_cast<void>(GetLastError());
}

HeapPlatform::HeapPlatform(HEAPS id, void* os_heap) : id_(id), os_heap_(os_heap) {
    record(id, os_heap);
}

HeapPlatform::~HeapPlatform() {
    if (os_heap_ != GetProcessHeap()) HeapDestroy(os_heap_);
}

unsigned int HeapPlatform::calculate_current_size() const {
    PROCESS_HEAP_ENTRY entry = {};
    unsigned int total = 0;
    while (HeapWalk(os_heap_, &entry)) {
        if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) total += entry.cbData;
    }
    return total;
}

void platform_init_heaps(HeapPlatform* heap) {
    query_break_number();
    if (heap) {
        heap->id_ = HEAP_GENERAL;
        heap->os_heap_ = GetProcessHeap();
        record(HEAP_GENERAL, heap->os_heap_);
    }
    recorded_default = heap;
    ULONG kind = low_fragmentation;
    HeapSetInformation(GetProcessHeap(), HeapCompatibilityInformation, &kind, sizeof kind);
}

void validate_system_heaps() {
    constexpr DWORD heaps_max = 64;
    HANDLE heaps[heaps_max] = {};
    DWORD const found = GetProcessHeaps(heaps_max, heaps);
    DWORD const count = found < heaps_max ? found : heaps_max;
    for (DWORD i = 0; i < count && heaps[i]; ++i) HeapValidate(heaps[i], 0, nullptr);
}

MEMORY_INFO const& memory_info() {
    static MEMORY_INFO info;
    static bool known = false;
    if (!known) {
        MEMORYSTATUSEX const status = memory_status();
        info = {status.ullTotalPhys, status.ullTotalVirtual};
        known = true;
    }
    return info;
}

// A query that fails leaves the flags preset, and with them both limits as the locals hold them.
CURRENT_MEMORY_INFO current_memory_info() {
    SIZE_T minimum = 0;
    SIZE_T maximum = 0;
    DWORD flags = FILE_CACHE_MIN_HARD_ENABLE | FILE_CACHE_MAX_HARD_ENABLE;
    GetSystemFileCacheSize(&minimum, &maximum, &flags);
    return {
        memory_status().ullAvailPhys,
        flags & FILE_CACHE_MIN_HARD_ENABLE ? minimum : 0,
        flags & FILE_CACHE_MAX_HARD_ENABLE ? maximum : 0,
    };
}

}  // namespace QX
