// file_streams_impl.h - what the sources of the streams share.
#pragma once

#include "qx/files/file_streams.h"

namespace QX {

constexpr unsigned int closed_error = 6;
constexpr unsigned int end_of_file_error = 38;

// Calls `hook` with the name widened byte by byte. False if there is no memory for that.
bool call_open_hook(FileOpenHook hook, char const* name, void* user);

// What `size64` of any stream on a handle does. All ones on failure; `error` gets 0 or the number.
unsigned long long handle_size(void* handle, unsigned int& error);

}  // namespace QX
