// compression_impl.h - how the sources of compression.h call the compression library.
#pragma once

#include <zlib.h>

namespace QX {

// What the library is told that it was compiled against. Any library that keeps this interface and
// this record can stand in its place.
inline constexpr char zlib_wanted_version[] = "1.2.3";
inline constexpr int zlib_record_size = 88;
static_assert(sizeof(z_stream) == zlib_record_size);

// Files of this many bytes and more are refused.
inline constexpr unsigned long long compressed_file_limit = 0xFFFFFFFF;

}  // namespace QX
