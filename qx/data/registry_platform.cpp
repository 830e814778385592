#include "qx/data/registry.h"

#include "qx/base/windows.h"
#include "qx/text/convert.h"

namespace QX {

namespace {

constexpr unsigned int text_room = 256;  // in characters
constexpr DWORD text_limit = 256;        // in bytes, the terminator included

HKEY key_of(void* handle) {
    return static_cast<HKEY>(handle);
}

}  // namespace

RegistrySectionPlatform::RegistrySectionPlatform(UniString const& key) {
    HKEY opened = nullptr;
    LSTATUS const result = RegCreateKeyExW(
        HKEY_CURRENT_USER, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &opened, nullptr);
    if (result == ERROR_SUCCESS) handle_ = opened;
}

static_assert(KEY_ALL_ACCESS == 0xF003F);

REGISTRY_SECTION::REGISTRY_SECTION(String const& key)
    : REGISTRY_SECTION(must_fix_string_widen(key)) {}

REGISTRY_SECTION::REGISTRY_SECTION(UniString const& key) : RegistrySectionPlatform(key) {}

bool REGISTRY_SECTION::read_int32(String const& name, int& value) const {
    return read_int32(must_fix_string_widen(name), value);
}

bool REGISTRY_SECTION::read_int32(UniString const& name, int& value) const {
    DWORD size = sizeof value;
    return RegQueryValueExW(
               key_of(handle_), name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(&value),
               &size) == ERROR_SUCCESS;
}

bool REGISTRY_SECTION::write_int32(String const& name, int value) {
    return write_int32(must_fix_string_widen(name), value);
}

bool REGISTRY_SECTION::write_int32(UniString const& name, int value) {
    return RegSetValueExW(
               key_of(handle_), name.c_str(), 0, REG_DWORD, reinterpret_cast<BYTE*>(&value),
               sizeof value) == ERROR_SUCCESS;
}

// Half the room is offered: whatever is stored, a terminator stands behind it.
bool REGISTRY_SECTION::read_string(UniString const& name, UniString& value) const {
    wchar_t text[text_room] = {};
    DWORD size = text_limit;
    LSTATUS const result = RegQueryValueExW(
        key_of(handle_), name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size);
    if (result != ERROR_SUCCESS) return false;
    value = text;
    return true;
}

bool REGISTRY_SECTION::read_string(String const& name, UniString& value) const {
    return read_string(must_fix_string_widen(name), value);
}

// Narrows what was read even where nothing was.
bool REGISTRY_SECTION::read_string(String const& name, String& value) const {
    UniString text;
    bool const found = read_string(name, text);
    value = must_fix_string_narrow(text);
    return found;
}

bool REGISTRY_SECTION::write_string(String const& name, String const& value) {
    return write_string(name, must_fix_string_widen(value));
}

bool REGISTRY_SECTION::write_string(String const& name, UniString const& value) {
    return write_string(must_fix_string_widen(name), value);
}

bool REGISTRY_SECTION::write_string(UniString const& name, UniString const& value) {
    return RegSetValueExW(
               key_of(handle_), name.c_str(), 0, REG_SZ,
               reinterpret_cast<BYTE const*>(value.c_str()),
               2 * value.length() + 2) == ERROR_SUCCESS;
}

}  // namespace QX
