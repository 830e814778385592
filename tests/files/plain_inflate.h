// plain_inflate.h - a second reader of deflate streams (RFC 1951), slow and short, which shares
// nothing with the library's.
#pragma once

#include <string>

namespace test {

// Expands the zlib-wrapped `stream` (RFC 1950) and holds the checksum against it. False for
// anything but one whole stream.
bool plain_inflate(std::string const& stream, std::string& text);

}  // namespace test
