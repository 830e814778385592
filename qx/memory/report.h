// report.h - text to the debugger, for code that may not allocate.
#pragma once

#include "qx/base/export.h"

namespace MEMORY_TRACKING {

// Formats as printf does, on the stack alone, and passes the text to the debugger output. The only
// limit to the text is the stack. A text that cannot be measured is dropped. `format` is not null.
// Threads: any.
[[gnu::format(ms_printf, 1, 2)]] QX_API void report_message_txt(char const* format, ...);

}  // namespace MEMORY_TRACKING
