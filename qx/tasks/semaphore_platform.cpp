#include "qx/tasks/semaphore.h"

#include "qx/base/windows.h"

#include <cstdio>
#include <string>

namespace QX {

namespace {

HANDLE create_own(unsigned int initial, unsigned int maximum, char const* name) {
    HANDLE const handle =
        CreateSemaphoreA(nullptr, static_cast<LONG>(initial), static_cast<LONG>(maximum), name);
    if (GetLastError() != ERROR_ALREADY_EXISTS) return handle;
    if (handle != nullptr) CloseHandle(handle);
    return nullptr;
}

std::string private_name(char const* name, char const* sub_name) {
    char id[16];
    std::snprintf(id, sizeof id, "%d:", static_cast<int>(GetCurrentProcessId()));
    return std::string(id).append(name).append(":").append(sub_name != nullptr ? sub_name : "");
}

HANDLE
create_private(unsigned int initial, unsigned int maximum, char const* name, char const* sub_name) {
    if (name == nullptr) return create_own(initial, maximum, nullptr);
    return create_own(initial, maximum, private_name(name, sub_name).c_str());
}

}  // namespace

SemaphorePlatform::SemaphorePlatform(unsigned int initial, unsigned int maximum, char const* name)
    : handle_(create_own(initial, maximum, name)) {}

SemaphorePlatform::SemaphorePlatform(
    unsigned int initial, unsigned int maximum, char const* name, char const* sub_name)
    : handle_(create_private(initial, maximum, name, sub_name)) {}

SemaphorePlatform::~SemaphorePlatform() {
    if (handle_ != nullptr) CloseHandle(handle_);
}

}  // namespace QX
