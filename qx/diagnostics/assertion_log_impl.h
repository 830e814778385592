// assertion_log_impl.h - the log that a build may write in place of the assertion dialog.
#pragma once

#include <cstdio>

#include "qx/text/convert.h"
#include "qx/text/string.h"

namespace QX::assertion_log {

// Appends the heading to the file `path`, where that can be opened. False without a path: then
// there is no log.
inline bool write(char const* path, UniString const& heading) {
    if (path == nullptr) return false;
    if (std::FILE* const file = std::fopen(path, "a")) {
        std::fprintf(file, "\nASSERT:\"%s\"\n", must_fix_string_narrow(heading).c_str());
        std::fclose(file);
    }
    return true;
}

}  // namespace QX::assertion_log
