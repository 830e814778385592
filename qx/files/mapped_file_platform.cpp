#include "qx/files/mapped_file.h"

#include "qx/base/compiler.h"
#include "qx/base/windows.h"
#include "qx/memory/heap.h"

#include <atomic>
#include <cstring>

namespace QX {

namespace {

constexpr unsigned int owns_file = 1;
constexpr unsigned int owns_mapping = 2;
constexpr bool never_stop = false;

// Sums that keep the reads of `touch` from being optimised away.
std::atomic<unsigned long long> touched_total{0};
std::atomic<unsigned long long> touched_stoppable_total{0};

SYSTEM_INFO system_info() {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info;
}

unsigned long long round_up(unsigned long long value, unsigned long long unit) {
    return (value + unit - 1) / unit * unit;
}

// A free place at the top of the address space, or null.
char* find_high_place(unsigned long long length, unsigned long long granularity) {
    void* const place = VirtualAlloc(
        nullptr, round_up(length, granularity), MEM_RESERVE | MEM_TOP_DOWN, PAGE_READONLY);
    if (!place) return nullptr;
    VirtualFree(place, 0, MEM_RELEASE);
    return reinterpret_cast<char*>(round_up(reinterpret_cast<ULONG_PTR>(place), granularity));
}

char* map_view(void* mapping, unsigned long long start, unsigned long long length, char* place) {
    auto const high = static_cast<DWORD>(start >> 32);
    auto const low = static_cast<DWORD>(start);
    return static_cast<char*>(MapViewOfFileEx(mapping, FILE_MAP_READ, high, low, length, place));
}

unsigned int sum_of_pages(void const* data, unsigned long long bytes, bool const volatile& stop) {
    auto const first = static_cast<unsigned char const volatile*>(data);
    unsigned long long const page = system_info().dwPageSize;
    unsigned int sum = 0;
    for (unsigned long long at = 0; at < bytes && !stop; at += page) sum += first[at];
    return sum;
}

void* open_to_map(char const* name) {
    return CreateFileA(
        name, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN,
        nullptr);
}

void* open_to_map(wchar_t const* name) {
    return CreateFileW(
        name, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN,
        nullptr);
}

}  // namespace

MappedFilePlatform::MappedFilePlatform(
    void* mapping, unsigned long long offset, unsigned long long size)
    : size_(size) {
    unsigned long long const granularity = system_info().dwAllocationGranularity;
    unsigned long long const start = offset / granularity * granularity;
    unsigned long long const ahead = offset - start;
    unsigned long long const length = size <= ~0ull - ahead ? size + ahead : ~0ull;

    char* const place = find_high_place(length, granularity);
    if (place) view_ = map_view(mapping, start, length, place);
    if (!view_) view_ = map_view(mapping, start, length, nullptr);
    if (view_) data_ = view_ + ahead;
}

MappedFilePlatform::~MappedFilePlatform() {
    if (view_) UnmapViewOfFile(view_);
}

std::unique_ptr<char, std::default_delete<char>> MappedFilePlatform::to_RAM() {
    if (!data_) return nullptr;
    auto const bytes = static_cast<char*>(custom_malloc(size_, HEAP_GENERAL));
    std::memcpy(bytes, data_, size_);
    return std::unique_ptr<char>(bytes);
}

UnbufferedFileInPlatform::UnbufferedFileInPlatform(char const* name, FileAndMapping handles)
    : file_(handles.file), mapping_(handles.mapping) {
    if (file_ == INVALID_HANDLE_VALUE)
        open(name);
    else if (mapping_ == INVALID_HANDLE_VALUE)
        make_mapping();
}

UnbufferedFileInPlatform::UnbufferedFileInPlatform(wchar_t const* name, FileAndMapping handles)
    : file_(handles.file), mapping_(handles.mapping) {
    if (file_ == INVALID_HANDLE_VALUE)
        open(name);
    else if (mapping_ == INVALID_HANDLE_VALUE)
        make_mapping();
}

UnbufferedFileInPlatform::~UnbufferedFileInPlatform() {
    close();
    QX_KEEP_STORES();
}

void UnbufferedFileInPlatform::close() {
    if (owned_ & owns_mapping) {
        CloseHandle(mapping_);
        mapping_ = INVALID_HANDLE_VALUE;
    }
    if (owned_ & owns_file) {
        CloseHandle(file_);
        file_ = INVALID_HANDLE_VALUE;
    }
    owned_ = 0;
}

unsigned long long UnbufferedFileInPlatform::finish_open(void* file) {
    if (file == INVALID_HANDLE_VALUE) {
        status_ = status_of_open_error(GetLastError());
        if (status_ == FILE_OK) status_ = FILE_NOT_FOUND;
        return 0;
    }
    file_ = file;
    owned_ |= owns_file;
    return make_mapping();
}

unsigned long long UnbufferedFileInPlatform::open(char const* name) {
    close();
    return finish_open(open_to_map(name));
}

unsigned long long UnbufferedFileInPlatform::open(wchar_t const* name) {
    close();
    return finish_open(open_to_map(name));
}

unsigned long long UnbufferedFileInPlatform::make_mapping() {
    DWORD high = 0;
    DWORD const low = GetFileSize(file_, &high);
    status_ = low == INVALID_FILE_SIZE ? status_of_open_error(GetLastError()) : FILE_OK;

    HANDLE const mapping = CreateFileMappingW(file_, nullptr, PAGE_READONLY, high, low, nullptr);
    if (!mapping) {
        status_ = status_of_open_error(GetLastError());
        return 0;
    }
    mapping_ = mapping;
    owned_ |= owns_mapping;
    return static_cast<unsigned long long>(high) << 32 | low;
}

std::unique_ptr<MappedFilePlatform, std::default_delete<MappedFilePlatform>>
UnbufferedFileInPlatform::map(unsigned long long offset, unsigned long long size) {
    return std::make_unique<MappedFilePlatform>(mapping_, offset, size);
}

void UnbufferedFileIn::copy(void* to, void* from, unsigned long long bytes) {
    std::memcpy(to, from, bytes);
}

void UnbufferedFileIn::copy(void* to, void* from, unsigned long long bytes, bool volatile& stop) {
    unsigned long long const page = system_info().dwPageSize;
    auto target = static_cast<char*>(to);
    auto source = static_cast<char const*>(from);
    while (bytes && !stop) {
        unsigned long long const step = bytes < page ? bytes : page;
        std::memcpy(target, source, step);
        target += step;
        source += step;
        bytes -= step;
    }
}

void UnbufferedFileIn::touch(void* data, unsigned long long bytes) {
    touched_total.fetch_add(sum_of_pages(data, bytes, never_stop), std::memory_order_relaxed);
}

void UnbufferedFileIn::touch(void* data, unsigned long long bytes, bool volatile& stop) {
    touched_stoppable_total.fetch_add(sum_of_pages(data, bytes, stop), std::memory_order_relaxed);
}

bool close_file(FileAndMapping handles) {
    return CloseHandle(handles.file) == 1;
}

FileErrorCodes set_file_pointer(FileAndMapping handles, unsigned long long position) {
    LARGE_INTEGER distance;
    distance.QuadPart = static_cast<long long>(position);
    if (SetFilePointerEx(handles.file, distance, nullptr, FILE_BEGIN)) return FILE_OK;
    return status_of_error(GetLastError());
}

}  // namespace QX
