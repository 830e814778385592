#include "qx/app/process.h"

#include "qx/base/windows.h"
#include "qx/text/convert.h"

namespace QX {

namespace {

constexpr unsigned int module_name_size = 4096;

}  // namespace

char* command_line() {
    return GetCommandLineA();
}

String get_module_filename() {
    wchar_t name[module_name_size];
    name[0] = 0;
    GetModuleFileNameW(nullptr, name, module_name_size);
    name[module_name_size - 1] = 0;  // older systems leave a name that was cut without its end
    return must_fix_string_narrow(UniString(name));
}

String choose_language() {
    return String("en");
}

void exit_process(int code) {
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
}

bool confirm_exit(int code) {
    UINT const style = MB_OKCANCEL | MB_ICONWARNING | MB_DEFBUTTON2 | MB_TASKMODAL;
    static_assert((MB_OKCANCEL | MB_ICONWARNING | MB_DEFBUTTON2 | MB_TASKMODAL) == 0x2131);
    wchar_t const* const question = L"Are you sure you want to abort the process?";
    if (MessageBoxW(nullptr, question, L"Last chance...", style) == IDOK) exit_process(code);
    return false;
}

}  // namespace QX
