#include "qx/memory/report.h"

#include <cstdarg>
#include <cstdio>

#include <malloc.h>

#include "qx/base/windows.h"

namespace MEMORY_TRACKING {

namespace {

constexpr std::size_t room_step = 16;

std::FILE* report_file = nullptr;  // a point of extension: nothing here opens one

}  // namespace

void report_message_txt(char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int const length = _vscprintf(format, arguments);
    va_end(arguments);
    if (length < 0) return;

    std::size_t const size = static_cast<std::size_t>(length) + 1;
    std::size_t const room = (size + room_step - 1) / room_step * room_step;
    char* const text = static_cast<char*>(alloca(room));
    va_start(arguments, format);
    vsprintf_s(text, room, format, arguments);
    va_end(arguments);

    if (report_file) std::fprintf(report_file, "%s", text);
    OutputDebugStringA(text);
}

}  // namespace MEMORY_TRACKING
