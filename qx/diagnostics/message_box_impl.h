// message_box_impl.h - the log that a build may write in place of the assertion dialog.
#pragma once

#include <cstdio>

#include "qx/text/convert.h"
#include "qx/text/string.h"

namespace QX::assertion_log {

// Appends the heading to the file `path`, where that can be opened, and settles whether the same
// assertion will be heard of again. False without a path: then there is no log.
inline bool settle(char const* path, bool each_time, UniString const& heading, bool& ignore_all) {
    if (path == nullptr) return false;
    if (std::FILE* const file = std::fopen(path, "a")) {
        std::fprintf(file, "\nASSERT:\"%s\"\n", must_fix_string_narrow(heading).c_str());
        std::fclose(file);
    }
    if (!each_time) ignore_all = true;
    return true;
}

}  // namespace QX::assertion_log
