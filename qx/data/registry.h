// registry.h - REGISTRY_SECTION, integers and texts by name under one key of the user's registry.
//
//     REGISTRY_SECTION section(String("Software\\Game"));
//     section.write_int32(String("Volume"), 7)        =>  true
//     section.read_int32(String("Volume"), value)     =>  true, value 7
//     section.read_int32(String("Missing"), value)    =>  false, value as it was
//
// Narrow texts are widened and narrowed as convert.h tells; names and texts end at a terminator
// inside them. Nothing removes or lists values.
//
// Failure: false, and no reason kept. Threads: a section has no changing state.
#pragma once

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

// The key's handle. Copies share it; it stays open for the life of the process.
class RegistrySectionPlatform {
public:
    // The system's key, null where it could not be opened: all reads and writes then fail.
    void* handle() const { return handle_; }

protected:
    // Opens `key`, or makes it.
    QX_API explicit RegistrySectionPlatform(UniString const& key);

    void* handle_ = nullptr;
};

// One key below the current user's root, for integers and texts by name.
class REGISTRY_SECTION : public RegistrySectionPlatform {
public:
    // Opens `key` below the current user's root for reading and writing, and makes it if it is
    // missing.
    QX_API explicit REGISTRY_SECTION(String const& key);
    QX_API explicit REGISTRY_SECTION(UniString const& key);

    // The first 4 bytes of a value of any type; false if it has more.
    QX_API bool read_int32(String const& name, int& value) const;
    QX_API bool read_int32(UniString const& name, int& value) const;

    // Stores a REG_DWORD in place of a value of any type. An empty name is the key's own value.
    // False, with the value as it was, where the system refuses or there is no key.
    QX_API bool write_int32(String const& name, int value);
    QX_API bool write_int32(UniString const& name, int value);

    // Texts of up to 127 characters and a terminator, or of 128 without one; false for longer ones.
    // A wide `value` stays as it was after a failure; a narrow one is emptied.
    QX_API bool read_string(UniString const& name, UniString& value) const;
    QX_API bool read_string(String const& name, UniString& value) const;
    QX_API bool read_string(String const& name, String& value) const;

    // Of any length, though only short ones can be read back here.
    QX_API bool write_string(String const& name, String const& value);
    QX_API bool write_string(String const& name, UniString const& value);
    QX_API bool write_string(UniString const& name, UniString const& value);
};

static_assert(sizeof(REGISTRY_SECTION) == 8);

}  // namespace QX
