#include "qx/diagnostics/message_box.h"

#include <gtest/gtest.h>

#include "qx/diagnostics/message_box_impl.h"
#include "tests/diagnostics/dialog_user.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"
#include "tests/tasks/scheduler_fixture.h"

#include <stdexcept>

namespace {

using QX::UniString;
using Ids = QX::VELLUM_MESSAGE_BOX_IDS;

// What happened, in order: one record for all cases, with room enough not to grow.
std::wstring events = std::wstring(4000, L' ');
int const* next_answer;
bool hook_settles;

void note(std::wstring const& what) {
    events += what + L"|";
}

void WINAPI note_wide(wchar_t const* text) {
    note(text);
}

void WINAPI note_narrow(char const* text) {
    note(L"narrow " + std::wstring(text, text + std::strlen(text)));
}

int WINAPI answer_box(HWND, wchar_t const* text, wchar_t const* caption, UINT flags) {
    wchar_t program[256];
    GetModuleFileNameW(nullptr, program, 256);
    EXPECT_STREQ(caption, flags == 0x2131 ? L"Last chance..." : program);
    note(std::to_wstring(flags) + L" " + text);
    return *next_answer++;
}

int WINAPI answer_bare(HWND, char const* text, char const* caption, UINT flags) {
    EXPECT_STREQ(std::strrchr(caption, '\\'), "\\diagnostics_test.exe");
    note_narrow(text);
    return static_cast<int>(flags);
}

BOOL WINAPI note_exit(HANDLE, UINT code) {
    note(L"exit " + std::to_wstring(code));
    return TRUE;
}

bool semaphore_is_free() {
    HANDLE const handle = QX::message_box_semaphore().handle();
    return WaitForSingleObject(handle, 0) == WAIT_OBJECT_0 && ReleaseSemaphore(handle, 1, nullptr);
}

INT_PTR WINAPI answer_dialog(HINSTANCE, DLGTEMPLATE const* start, HWND, DLGPROC, LPARAM) {
    std::wstring_view const words(reinterpret_cast<wchar_t const*>(start), 150);
    EXPECT_NE(words.find(UniString(L"what" + QX::wide_team_header()).c_str()), words.npos);
    EXPECT_FALSE(semaphore_is_free());
    note(L"asked");
    return *next_answer++;
}

// Passes on what it does not settle, but has set both outputs.
bool hook(bool information, UniString const& text, bool& result, bool& ignore_all) {
    note((information ? L"informs " : L"hook ") + std::wstring(text.c_str()));
    result = ignore_all = true;
    return !hook_settles;
}

bool text_hook(UniString const& text) {
    note(std::wstring(L"hook ") + text.c_str());
    return !hook_settles;
}

void tell(Ids decision, UniString const& heading) {
    note(L"told " + std::to_wstring(static_cast<int>(decision)) + L" " + heading.c_str());
}

Ids decide_remotely(UniString const&) {
    note(L"asked");
    return static_cast<Ids>(*next_answer++);
}

// Everything that would be shown or written is noted.
class Boxes : public testing::Test {
protected:
    Boxes() { events.clear(); }
    ~Boxes() {
        QX::qx_message_box_hook = nullptr;
        QX::qx_message_txt_hook = nullptr;
        QX::register_ignore_all_message_box_remote_controlled_callback(nullptr);
        QX::register_ignore_all_message_box_remote_controlled_local_callback(nullptr);
    }

    static bool assert_once(bool& ignore_all) {
        return QX::ignore_all_message_box(
            ignore_all, QX::String("head"), QX::String("what"), QX::String("UI"),
            QX::ASSERT_SEVERITY_NORMAL);
    }

private:
    test::StandIn wide_{"OutputDebugStringW", note_wide};
    test::StandIn narrow_{"OutputDebugStringA", note_narrow};
    test::StandIn box_{"MessageBoxW", answer_box};
    test::StandIn bare_{"MessageBoxA", answer_bare};
    test::StandIn exit_{"TerminateProcess", note_exit};
    test::StandIn dialog_{"DialogBoxIndirectParamW", answer_dialog};
};

class Decisions : public Boxes {};

// --- Plain boxes ---------------------------------------------------------------------------------

TEST_F(Boxes, answer_true_for_retry_and_ask_again_after_a_withdrawn_abort) {
    int const answers[] = {IDOK, IDRETRY, IDIGNORE, IDCANCEL, IDABORT, IDCANCEL, IDABORT, IDOK, -1};
    next_answer = answers;
    std::wstring expected = L"text|65600 text|";  // 0x10040
    EXPECT_FALSE(QX::message_box(true, QX::String("text")));
    for (bool result : {true, false, true, false}) {
        EXPECT_EQ(QX::message_box(false, UniString(L"text")), result);
        expected += L"text|65554 text|";  // 0x10012
    }
    std::wstring const sure = L"8497 Are you sure you want to abort the process?|";
    expected += sure + L"65554 text|" + sure + L"exit 0|65554 text|";
    EXPECT_EQ(events, expected);
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
    EXPECT_EQ(events, L"hook a|a|65554 a|informs b|b|65569 b|hook a|informs b|");
    QX::qx_message_box_hook = nullptr;
    EXPECT_TRUE(QX::message_box_ok_cancel(UniString(L"c")));
}

TEST_F(Boxes, bare_box_takes_no_notice_of_the_hook) {
    QX::qx_message_box_hook = hook;
    char text[] = "bare";
    QX::message_box(text);
    EXPECT_EQ(events, L"narrow bare|");
}

TEST_F(Boxes, text_goes_to_the_debugger_and_the_error_stream_unless_hooked) {
    testing::internal::CaptureStderr();
    QX::message_txt(QX::String("a "));
    QX::message_txt(UniString(L"b "));
    QX::qx_message_txt_hook = text_hook;
    for (bool settles : {false, true}) {
        hook_settles = settles;
        QX::message_txt(QX::String("c"));
        QX::message_txt(UniString(L"d"));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a b cd");
    EXPECT_EQ(events, L"narrow a |b |hook c|narrow c|hook d|d|hook c|hook d|");
}

// --- The decision --------------------------------------------------------------------------------

TEST_F(Decisions, follow_the_answer_wherever_it_comes_from) {
    QX::register_ignore_all_message_box_remote_controlled_local_callback(tell);
    for (auto remote : {static_cast<decltype(&decide_remotely)>(nullptr), decide_remotely}) {
        QX::register_ignore_all_message_box_remote_controlled_callback(remote);
        for (int answer : {4, 5, 6, 7, 2, -1}) {
            events.clear();
            next_answer = &answer;
            bool ignore_all = false;
            EXPECT_EQ(assert_once(ignore_all), answer == 5);
            EXPECT_EQ(ignore_all, answer == 7);
            std::wstring const told = L"told " + std::to_wstring(answer) + L" head|";
            EXPECT_EQ(events, L"head\n|asked|" + told + (answer == 4 ? L"exit 1|" : L""));
            EXPECT_TRUE(semaphore_is_free());
        }
    }
}

TEST_F(Decisions, keep_what_a_hook_that_passes_on_has_set) {
    int const answer = 6;
    next_answer = &answer;
    QX::qx_message_box_hook = hook;
    std::wstring const whole =
        L"hook what\nhead\nThis message applies to the following teams:\nUI\n|";
    for (bool settles : {true, false}) {
        hook_settles = settles;
        bool ignore_all = false;
        EXPECT_TRUE(assert_once(ignore_all) && ignore_all);
        EXPECT_EQ(events, settles ? whole : whole + whole + L"head\n|asked|");
    }
}

[[noreturn]] Ids throwing_callback(UniString const&) {
    throw std::runtime_error("callback");
}

TEST_F(Decisions, from_a_fibre_bear_a_remote_callback_that_throws) {
    test::Library const library(1);
    std::atomic<bool> caught = false;
    QX::register_ignore_all_message_box_remote_controlled_callback(throwing_callback);
    task::spawn(test::fiberful, test::worker_threads, test::normal, [&] {
        bool ignore_all = false;
        try {
            assert_once(ignore_all);
        } catch (std::runtime_error const&) {
            caught = true;
        }
    });
    test::await([&] { return caught.load(); });
    EXPECT_TRUE(semaphore_is_free());
    EXPECT_EQ(FindWindowW(nullptr, L"QXLibs - Waiting for remote decision..."), nullptr);
}

Ids look_at_remote_dialog(UniString const&) {
    HWND const dialog = FindWindowW(nullptr, L"QXLibs - Waiting for remote decision...");
    EXPECT_TRUE(IsWindowVisible(dialog));
    wchar_t const* const texts[] = {L"head", L"what", L"UI", L""};
    for (int id = 0; id < 4; ++id) EXPECT_EQ(test::text_of(GetDlgItem(dialog, id)), texts[id]);
    return Ids::RETRY;
}

HWND WINAPI no_dialog(HINSTANCE, DLGTEMPLATE const*, HWND, DLGPROC, LPARAM) {
    return nullptr;
}

TEST_F(Decisions, show_the_texts_without_buttons_while_a_remote_one_is_awaited) {
    QX::register_ignore_all_message_box_remote_controlled_callback(look_at_remote_dialog);
    bool ignore_all = false;
    EXPECT_TRUE(assert_once(ignore_all));
    test::StandIn const creation("CreateDialogIndirectParamW", no_dialog);
    EXPECT_FALSE(assert_once(ignore_all)) << "without a dialog nobody is asked";
}

TEST(AssertionLog, is_written_in_place_of_the_dialog) {
    test::TempFolder const folder;
    std::string const path = folder.file("log.txt");
    bool ignore_all = false;
    EXPECT_FALSE(QX::assertion_log::settle(nullptr, false, L"head", ignore_all));
    EXPECT_TRUE(QX::assertion_log::settle(path.c_str(), true, L"head", ignore_all));
    EXPECT_FALSE(ignore_all);
    EXPECT_TRUE(QX::assertion_log::settle(path.c_str(), false, L"\xE9", ignore_all));
    EXPECT_TRUE(ignore_all);
    EXPECT_EQ(test::read_file(path), "\r\nASSERT:\"head\"\r\n\r\nASSERT:\"\xC3\xA9\"\r\n");
}

}  // namespace
