#include "qx/diagnostics/message_box.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "qx/diagnostics/assertion_log_impl.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

#include <cstring>
#include <string>

namespace {

using QX::UniString;
using Ids = QX::VELLUM_MESSAGE_BOX_IDS;

// What happened, in order: one record for all cases, with room enough not to grow.
std::wstring events = std::wstring(4000, L' ');
int const decisions[] = {4, 5, 6, 7, 2, -1, 0};
int const* next_answer;
bool hook_settles;

void note(std::wstring const& what) {
    events += what + L"|";
}

int answer_box(HWND, wchar_t const* text, wchar_t const* caption, UINT flags) {
    wchar_t program[256];
    GetModuleFileNameW(nullptr, program, 256);
    EXPECT_STREQ(caption, flags == 0x2131 ? L"Last chance..." : program);
    note(std::to_wstring(flags) + L" " + text);
    return *next_answer++;
}

bool semaphore_is_free() {
    HANDLE const handle = QX::message_box_semaphore().handle();
    return WaitForSingleObject(handle, 0) == WAIT_OBJECT_0 && ReleaseSemaphore(handle, 1, nullptr);
}

INT_PTR answer_dialog(HINSTANCE, DLGTEMPLATE const* start, HWND, DLGPROC, LPARAM) {
    std::wstring_view const words(reinterpret_cast<wchar_t const*>(start), 150);
    EXPECT_NE(words.find(UniString(L"what" + QX::wide_team_header()).c_str()), words.npos);
    EXPECT_FALSE(semaphore_is_free());
    note(L"asked");
    return *next_answer++;
}

// Zero throws.
Ids decide_remotely(UniString const&) {
    HWND const dialog = FindWindowW(nullptr, L"QXLibs - Waiting for remote decision...");
    wchar_t details[100] = {};
    GetDlgItemTextW(dialog, 1, details, 100);
    EXPECT_STREQ(details, L"what");
    EXPECT_EQ(GetDlgItem(dialog, 6), nullptr);
    EXPECT_TRUE(IsWindowVisible(dialog));
    note(L"asked");
    if (*next_answer == 0) throw 0;
    return static_cast<Ids>(*next_answer++);
}

void tell(Ids decision, UniString const&) {
    note(L"told " + std::to_wstring(static_cast<int>(decision)));
}

// Sets both outputs also where it passes on.
bool hook(bool information, UniString const& text, bool& result, bool& ignore_all) {
    note((information ? L"informs " : L"hook ") + std::wstring(text.c_str()));
    result = ignore_all = true;
    return !hook_settles;
}

bool text_hook(UniString const&) {
    note(L"hook");
    return !hook_settles;
}

bool assert_once(bool& ignore_all) {
    return QX::ignore_all_message_box(
        ignore_all, QX::String("head"), QX::String("what"), QX::String("UI"),
        QX::ASSERT_SEVERITY_NORMAL);
}

// Everything that would be shown or written is noted.
class Boxes : public testing::Test {
protected:
    Boxes() {
        events.clear();
        hook_settles = false;
    }
    ~Boxes() {
        QX::qx_message_box_hook = nullptr;
        QX::qx_message_txt_hook = nullptr;
        QX::register_ignore_all_message_box_remote_controlled_callback(nullptr);
        QX::register_ignore_all_message_box_remote_controlled_local_callback(nullptr);
    }

private:
    test::StandIn wide_{"OutputDebugStringW", +[](wchar_t const* text) { note(text); }};
    test::StandIn narrow_{"OutputDebugStringA", +[](char const*) { note(L"narrow"); }};
    test::StandIn box_{"MessageBoxW", answer_box};
    test::StandIn bare_{"MessageBoxA", +[](HWND, char*, char*, UINT) { note(L"bare"); }};
    test::StandIn exit_{
        "TerminateProcess", +[](HANDLE, UINT code) { note(L"exit " + std::to_wstring(code)); }};
    test::StandIn dialog_{"DialogBoxIndirectParamW", answer_dialog};
};

class Decisions : public Boxes {};

int captions;

DWORD WINAPI count_caption(HMODULE module, wchar_t* name, DWORD size) {
    ++captions;
    return GetModuleFileNameW(module, name, size);
}

TEST_F(Boxes, answer_true_for_retry_and_ask_again_after_a_withdrawn_abort) {
    int const answers[] = {IDOK, IDRETRY, IDIGNORE, IDCANCEL, IDABORT, IDCANCEL, IDABORT, IDOK, -1};
    next_answer = answers;
    test::StandIn const names("GetModuleFileNameW", count_caption);
    std::wstring expected = L"text|65600 text|";  // 0x10040
    EXPECT_FALSE(QX::message_box(true, QX::String("text")));
    for (bool result : {true, false, true, false}) {
        EXPECT_EQ(QX::message_box(false, UniString(L"text")), result);
        expected += L"text|65554 text|";  // 0x10012
    }
    std::wstring const sure = L"8497 Are you sure you want to abort the process?|";
    EXPECT_EQ(events, expected + sure + L"65554 text|" + sure + L"exit 0|65554 text|");
    EXPECT_EQ(captions, 5);  // asked for once, however often the box comes back
}

TEST_F(Boxes, belong_to_the_hook_that_settles_them) {
    int const answers[] = {IDIGNORE, IDCANCEL, IDOK};
    next_answer = answers;
    QX::qx_message_box_hook = hook;
    for (bool settles : {false, true}) {
        hook_settles = settles;
        EXPECT_EQ(QX::message_box(false, UniString(L"a")), settles);
        EXPECT_EQ(QX::message_box_ok_cancel(QX::String("b")), settles);
    }
    char bare[] = "the bare box has no hook";
    QX::message_box(bare);
    EXPECT_EQ(events, L"hook a|a|65554 a|informs b|b|65569 b|hook a|informs b|bare|");
    QX::qx_message_box_hook = nullptr;
    EXPECT_TRUE(QX::message_box_ok_cancel(UniString(L"c")));
}

TEST_F(Boxes, text_goes_to_the_debugger_and_the_error_stream_unless_hooked) {
    testing::internal::CaptureStderr();
    QX::qx_message_txt_hook = text_hook;
    for (bool settles : {false, true}) {
        hook_settles = settles;
        QX::message_txt(QX::String("c"));
        QX::message_txt(UniString(L"d"));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "cd");
    EXPECT_EQ(events, L"hook|narrow|hook|d|hook|hook|");
}

TEST_F(Decisions, follow_the_answer_wherever_it_comes_from) {
    QX::register_ignore_all_message_box_remote_controlled_local_callback(tell);
    for (bool remote : {false, true}) {
        auto const callback = remote ? decide_remotely : nullptr;
        QX::register_ignore_all_message_box_remote_controlled_callback(callback);
        for (int const& answer : decisions) {
            if (answer == 0) break;
            events.clear();
            next_answer = &answer;
            bool ignore_all = false;
            EXPECT_EQ(assert_once(ignore_all), answer == 5);
            EXPECT_EQ(ignore_all, answer == 7);
            std::wstring const told = L"told " + std::to_wstring(answer);
            EXPECT_EQ(events, L"head\n|asked|" + told + (answer == 4 ? L"|exit 1|" : L"|"));
        }
    }
    EXPECT_TRUE(semaphore_is_free());
}

TEST_F(Decisions, keep_what_a_hook_that_passes_on_has_set) {
    next_answer = decisions + 2;
    QX::qx_message_box_hook = hook;
    std::wstring expected;
    for (bool settles : {true, false}) {
        hook_settles = settles;
        bool ignore_all = false;
        EXPECT_TRUE(assert_once(ignore_all) && ignore_all);
        expected += L"hook what\nhead\nThis message applies to the following teams:\nUI\n|";
        EXPECT_EQ(events, expected + (settles ? L"" : L"head\n|asked|"));
    }
}

TEST_F(Decisions, end_the_dialog_of_a_remote_one_that_throws) {
    next_answer = decisions + 6;
    bool ignore_all = false;
    QX::register_ignore_all_message_box_remote_controlled_callback(decide_remotely);
    EXPECT_THROW(assert_once(ignore_all), int);
    EXPECT_TRUE(semaphore_is_free());
    EXPECT_EQ(FindWindowW(nullptr, L"QXLibs - Waiting for remote decision..."), nullptr);
}

TEST(AssertionLog, is_written_in_place_of_the_dialog) {
    test::TempFolder const folder;
    std::string const path = folder.file("log.txt");
    EXPECT_FALSE(QX::assertion_log::write(nullptr, L"head"));
    EXPECT_TRUE(QX::assertion_log::write(path.c_str(), L"head"));
    EXPECT_TRUE(QX::assertion_log::write(path.c_str(), L"\xE9"));
    EXPECT_EQ(test::read_file(path), "\r\nASSERT:\"head\"\r\n\r\nASSERT:\"\xC3\xA9\"\r\n");
}

}  // namespace
