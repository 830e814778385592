#include "qx/files/error_codes.h"

#include "qx/base/windows.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace QX {

namespace {

// "<front><number> which means:\n\n<words>\n"
String error_text(char const* front, int number, char const* words) {
    char head[64];
    std::snprintf(head, sizeof head, "%s%d which means:\n\n", front, number);
    String text(head);
    text += words;
    text += '\n';
    return text;
}

String c_library_error() {
    int const number = errno;
    return error_text("errno = ", number, std::strerror(number));
}

String system_error() {
    DWORD const number = GetLastError();
    constexpr DWORD flags =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    char* words = nullptr;
    FormatMessageA(flags, nullptr, number, 0, reinterpret_cast<char*>(&words), 0, nullptr);
    String text =
        error_text("QX::GetLastError() returned ", static_cast<int>(number), words ? words : "");
    LocalFree(words);
    return text;
}

}  // namespace

String file_out_last_error() {
    return c_library_error();
}

String endian_out_last_error() {
    return c_library_error();
}

String file_in_last_error() {
    return system_error();
}

String async_in_last_error() {
    return system_error();
}

String mem_file_in_last_error() {
    return system_error();
}

String pack_file_last_error() {
    return system_error();
}

}  // namespace QX
