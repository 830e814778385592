#include "qx/files/file_streams_impl.h"

#include "qx/base/compiler.h"
#include "qx/base/windows.h"

#include <cstring>
#include <new>
#include <utility>

namespace QX {

namespace {

constexpr DWORD buffered_flags = FILE_ATTRIBUTE_READONLY | FILE_FLAG_SEQUENTIAL_SCAN;
constexpr DWORD unbuffered_flags = buffered_flags | FILE_FLAG_NO_BUFFERING | FILE_FLAG_OVERLAPPED;
constexpr DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE;

FileOpenHook in_open_hook = nullptr;
void* in_open_user = nullptr;

unsigned int error_unless(bool succeeded) {
    return succeeded ? 0 : GetLastError();
}

bool is_line_end(char c) {
    return c == '\n' || c == '\r';
}

}  // namespace

void* open_file(char const* name, bool no_buffering) {
    DWORD const flags = no_buffering ? unbuffered_flags : buffered_flags;
    return CreateFileA(name, GENERIC_READ, share_all, nullptr, OPEN_EXISTING, flags, nullptr);
}

void* open_file(wchar_t const* name, bool no_buffering) {
    DWORD const flags = no_buffering ? unbuffered_flags : buffered_flags;
    return CreateFileW(name, GENERIC_READ, share_all, nullptr, OPEN_EXISTING, flags, nullptr);
}

bool call_open_hook(FileOpenHook hook, char const* name, void* user) {
    UniString wide;
    try {
        wide.resize(static_cast<unsigned int>(std::strlen(name)));
    } catch (std::bad_alloc const&) {
        return false;
    }
    for (unsigned int i = 0; i < wide.length(); ++i) wide[i] = static_cast<unsigned char>(name[i]);
    hook(wide.c_str(), user);
    return true;
}

unsigned long long handle_size(void* handle, unsigned int& error) {
    LARGE_INTEGER size;
    bool const known = GetFileSizeEx(handle, &size);
    error = error_unless(known);
    return known ? static_cast<unsigned long long>(size.QuadPart) : ~0ull;
}

FileIn::~FileIn() {
    if (handle_ != INVALID_HANDLE_VALUE) close();
    error_ = closed_error;
    QX_KEEP_STORES();
}

bool FileIn::finish_open(void* handle) {
    handle_ = handle;
    if (handle_ != INVALID_HANDLE_VALUE) {
        error_ = 0;
        return true;
    }
    error_ = GetLastError();
    if (error_ == 0) error_ = ERROR_FILE_NOT_FOUND;
    return false;
}

bool FileIn::open(char const* name, bool no_buffering) {
    close();
    if (!finish_open(open_file(name, no_buffering))) return false;
    if (!in_open_hook || call_open_hook(in_open_hook, name, in_open_user)) return true;
    close();
    error_ = ERROR_NOT_ENOUGH_MEMORY;
    return false;
}

bool FileIn::open(wchar_t const* name, bool no_buffering) {
    close();
    if (!finish_open(open_file(name, no_buffering))) return false;
    if (in_open_hook) in_open_hook(name, in_open_user);
    return true;
}

bool FileIn::close() {
    if (handle_ == INVALID_HANDLE_VALUE) return false;
    error_ = error_unless(CloseHandle(handle_));
    handle_ = INVALID_HANDLE_VALUE;
    return error_ == 0;
}

unsigned int FileIn::read(void* data, unsigned int bytes) {
    DWORD done = 0;
    if (!ReadFile(handle_, data, bytes, &done, nullptr))
        error_ = GetLastError();
    else if (done < bytes)
        error_ = end_of_file_error;
    return done;
}

unsigned int FileIn::readln(char* line) {
    unsigned int length = 0;
    while (read(line + length, 1) == 1) {
        char const last = line[length];
        if (last == 0) return length;
        if (!is_line_end(last)) {
            ++length;
            continue;
        }
        char const partner = last == '\n' ? '\r' : '\n';
        if (read(line + length, 1) == 1 && line[length] != partner)
            SetFilePointer(handle_, -1, nullptr, FILE_CURRENT);
        break;
    }
    line[length] = 0;
    return length;
}

bool FileIn::seek(int position) {
    return seek64(position);
}

bool FileIn::seek64(long long position) {
    LARGE_INTEGER distance;
    distance.QuadPart = position;
    DWORD const origin = position < 0 ? FILE_END : FILE_BEGIN;
    error_ = error_unless(SetFilePointerEx(handle_, distance, nullptr, origin));
    return error_ == 0;
}

unsigned int FileIn::tell() const {
    return static_cast<unsigned int>(tell64());
}

unsigned long long FileIn::tell64() const {
    LARGE_INTEGER position = {};
    bool const known = SetFilePointerEx(handle_, {}, &position, FILE_CURRENT);
    error_ = error_unless(known);
    return known ? static_cast<unsigned long long>(position.QuadPart) : ~0ull;
}

unsigned int FileIn::size() const {
    return static_cast<unsigned int>(size64());
}

unsigned long long FileIn::size64() const {
    return handle_size(handle_, error_);
}

FileOpenHook FileIn::hook_open(FileOpenHook fn, void* user, void** old_user) {
    if (old_user) *old_user = in_open_user;
    in_open_user = user;
    return std::exchange(in_open_hook, fn);
}

}  // namespace QX
