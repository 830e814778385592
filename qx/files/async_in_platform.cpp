#include "qx/files/async_in.h"

#include "qx/base/compiler.h"
#include "qx/base/windows.h"
#include "qx/files/file_streams_impl.h"

#include <cstddef>
#include <utility>

namespace QX {

unsigned int AsyncInPlatform::alignments[27];
unsigned long long DiskGeometry::s_bytes_per_sector;
unsigned long long DiskGeometry::s_bytes_per_sector_mask;

namespace {

constexpr unsigned int sector_size_min = 8;
constexpr unsigned int sector_size_default = 512;
constexpr DWORD close_step_ms = 1;
constexpr DWORD open_flags =
    FILE_FLAG_OVERLAPPED | FILE_FLAG_NO_BUFFERING | FILE_FLAG_SEQUENTIAL_SCAN;

FileOpenHook async_open_hook = nullptr;
void* async_open_user = nullptr;

// 0 if the system does not know the drive.
bool ask_sector_size(char const* root, unsigned int& size) {
    DWORD sectors_per_cluster, bytes_per_sector, free_clusters, clusters;
    if (!GetDiskFreeSpaceA(
            root, &sectors_per_cluster, &bytes_per_sector, &free_clusters, &clusters))
        return false;
    size = bytes_per_sector;
    return true;
}

// Of `alignments`; -1 for no drive.
int slot_of(char drive) {
    if (drive == 0) return 0;
    if (drive >= 'A' && drive <= 'Z') return drive - 'A' + 1;
    if (drive >= 'a' && drive <= 'z') return drive - 'a' + 1;
    return -1;
}

char drive_of(char const* name) {
    return name[0] && name[1] == ':' ? name[0] : '\0';
}

}  // namespace

struct AsyncCompletion {
    static_assert(offsetof(OVERLAPPED, Offset) == offsetof(AsyncIn, offset_));
    static_assert(offsetof(OVERLAPPED, hEvent) == offsetof(AsyncIn, marker_));
    static_assert(sizeof(OVERLAPPED) == offsetof(AsyncIn, handle_));

    // The object may be gone when its callback returns.
    static void CALLBACK run(DWORD error, DWORD, OVERLAPPED* record) {
        AsyncIn& in = *static_cast<AsyncIn*>(record->hEvent);
        in.error_ = error;
        in.marker_ = nullptr;
        if (in.callback_) in.callback_(in, in.user_);
    }
};

AsyncIn::~AsyncIn() {
    close();
    error_ = closed_error;
    QX_KEEP_STORES();
}

bool AsyncIn::open(char const* name) {
    close();
    internal_[0] = internal_[1] = 0;
    offset_ = offset_high_ = 0;
    marker_ = nullptr;
    refused_ = false;

    handle_ = CreateFileA(
        name, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, open_flags, nullptr);
    bool const opened = handle_ != INVALID_HANDLE_VALUE;
    // The wrong way round, and relied on: only the result tells of a failure.
    error_ = opened ? GetLastError() : 0;
    if (!opened || !async_open_hook) return opened;
    if (call_open_hook(async_open_hook, name, async_open_user)) return true;
    close();
    return false;
}

bool AsyncIn::close() {
    if (handle_ == INVALID_HANDLE_VALUE) return false;
    while (is_reading()) SleepEx(close_step_ms, TRUE);
    if (handle_ == INVALID_HANDLE_VALUE) return false;  // the callback has closed it
    error_ = CloseHandle(handle_) ? 0 : GetLastError();
    handle_ = INVALID_HANDLE_VALUE;
    return error_ == 0;
}

bool AsyncIn::read(
    void* data, unsigned int position, unsigned int bytes, Callback fn, void* argument) {
    if (marker_) return false;
    offset_ = position;
    marker_ = this;
    callback_ = fn;
    user_ = argument;

    auto const record = reinterpret_cast<OVERLAPPED*>(internal_);
    refused_ = !ReadFileEx(handle_, data, bytes, record, AsyncCompletion::run);
    error_ = refused_ ? GetLastError() : 0;
    if (error_) return false;
    if (fn) return true;
    // Another procedure call of this thread may end the wait before the read's own.
    while (is_reading()) SleepEx(INFINITE, TRUE);
    return true;
}

unsigned int AsyncIn::size() const {
    return static_cast<unsigned int>(size64());
}

unsigned long long AsyncIn::size64() const {
    return handle_size(handle_, error_);
}

FileErrorCodes AsyncIn::status() const {
    if (error_) return status_of_error(error_);
    return marker_ ? FILE_PENDING : FILE_OK;
}

bool AsyncIn::aligns(unsigned int& position, unsigned int& size, unsigned int& memory, char drive) {
    position = size = memory = AsyncInPlatform::alignment(drive);
    return memory != 0;
}

bool AsyncIn::aligns(
    unsigned int& position, unsigned int& size, unsigned int& memory, char const* name) {
    return aligns(position, size, memory, drive_of(name));
}

FileOpenHook AsyncIn::hook_open(FileOpenHook fn, void* user, void** old_user) {
    if (old_user) *old_user = async_open_user;
    async_open_user = user;
    return std::exchange(async_open_hook, fn);
}

unsigned int AsyncInPlatform::alignment(char drive) {
    int const slot = slot_of(drive);
    if (slot < 0) return 0;
    if (alignments[slot]) return alignments[slot];

    char const root[] = {drive, ':', '\\', 0};
    unsigned int size = 0;
    if (!ask_sector_size(drive ? root : nullptr, size)) return 0;
    alignments[slot] = size < sector_size_min ? sector_size_min : size;
    return alignments[slot];
}

void DiskGeometry::init() {
    unsigned int size = sector_size_default;
    ask_sector_size(nullptr, size);
    s_bytes_per_sector = size;
    s_bytes_per_sector_mask = 0 - s_bytes_per_sector;
}

}  // namespace QX
