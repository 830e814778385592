#include "qx/app/process.h"

#include <gtest/gtest.h>

#include "qx/app/application.h"
#include "qx/base/windows.h"
#include "tests/app/host.h"
#include "tests/harness/stand_in.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

namespace {

std::wstring_view module_name;

DWORD WINAPI give_module_name(HMODULE module, wchar_t* out, DWORD size) {
    EXPECT_EQ(module, nullptr);
    EXPECT_EQ(size, 4096u);
    for (DWORD i = 0; i < size; ++i) out[i] = i < module_name.size() ? module_name[i] : 0;
    return size;
}

// Older systems fill the whole buffer and leave no terminator.
TEST(Process, module_filename_is_utf8_and_cut_at_the_buffer) {
    EXPECT_TRUE(std::string(QX::get_module_filename().c_str()).ends_with("\\app_test.exe"));
    test::StandIn const call("GetModuleFileNameW", give_module_name);
    ASSERT_TRUE(call.found());
    module_name = L"C:\\caf\u00E9\\\u20AC.exe";
    EXPECT_STREQ(QX::get_module_filename().c_str(), "C:\\caf\xC3\xA9\\\xE2\x82\xAC.exe");
    std::wstring const name(5000, L'x');
    module_name = name;
    EXPECT_EQ(QX::get_module_filename().length(), 4095u);
}

// --- Ways out, each in a process of its own ------------------------------------------------------

void fail_orderly_exit() {
    TerminateProcess(GetCurrentProcess(), 99);
}

TEST(Process, DISABLED_child_exits) {
    std::atexit(fail_orderly_exit);
    QX::exit_process(0x12345);
}

TEST(Process, DISABLED_child_is_killed) {
    std::atexit(fail_orderly_exit);
    QX::Application::kill();
}

TEST(Process, exit_and_kill_end_it_without_orderly_work) {
    EXPECT_EQ(test::run_child("Process.DISABLED_child_exits"), 0x12345u);
    EXPECT_EQ(test::run_child("Process.DISABLED_child_is_killed"), 0u);
}

// Answers the box once it is on the screen.
void answer_box(WPARAM button) {
    for (int i = 0; i < 500; ++i) {
        Sleep(10);
        HWND const box = FindWindowW(L"#32770", L"Last chance...");
        if (!box) continue;
        wchar_t text[100] = {};
        GetDlgItemTextW(box, 0xFFFF, text, 100);
        if (std::wstring(text) != L"Are you sure you want to abort the process?") continue;
        PostMessageW(box, WM_COMMAND, button, 0);
        return;
    }
}

bool confirm_with(WPARAM button, int code) {
    std::thread answer(answer_box, button);
    bool const result = QX::confirm_exit(code);
    answer.join();
    return result;
}

TEST(Process, DISABLED_child_confirms) {
    confirm_with(IDOK, 77);
}

TEST(Process, confirm_exit_ends_it_on_ok_and_goes_on_after_cancel) {
    EXPECT_FALSE(confirm_with(IDCANCEL, 1));
    EXPECT_EQ(test::run_child("Process.DISABLED_child_confirms"), 77u);
}

}  // namespace
