#include "qx/diagnostics/message_box.h"

#include <gtest/gtest.h>

#include "tests/diagnostics/dialog_user.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"
#include "tests/tasks/scheduler_fixture.h"

#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <stdexcept>
#include <string>

namespace {

using QX::UniString;
using Ids = QX::VELLUM_MESSAGE_BOX_IDS;

// What happened, in order: one record for all cases, with room enough not to grow.
std::wstring events = std::wstring(4000, L' ');

void note(std::wstring const& what) {
    events += what + L"|";
}

void WINAPI note_wide(wchar_t const* text) {
    note(std::wstring(L"debug ") + text);
}

void WINAPI note_narrow(char const* text) {
    std::string const narrow = text;
    note(L"debug " + std::wstring(narrow.begin(), narrow.end()));
}

std::vector<int> box_answers;

int WINAPI answer_box(HWND, wchar_t const* text, wchar_t const* caption, UINT flags) {
    wchar_t program[256];
    GetModuleFileNameW(nullptr, program, 256);
    bool const own_caption = std::wstring(caption) == program;
    wchar_t number[16];
    _snwprintf(number, 16, L"%x", flags);
    note(std::wstring(L"box ") + number + L" " + text + (own_caption ? L"" : caption));
    int const answer = box_answers.front();
    box_answers.erase(box_answers.begin());
    return answer;
}

BOOL WINAPI note_exit(HANDLE, UINT code) {
    note(L"exit " + std::to_wstring(code));
    return TRUE;
}

INT_PTR dialog_answer;
bool semaphore_is_free() {
    HANDLE const handle = QX::message_box_semaphore().handle();
    bool const is_free = WaitForSingleObject(handle, 0) == WAIT_OBJECT_0;
    if (is_free) ReleaseSemaphore(handle, 1, nullptr);
    return is_free;
}

INT_PTR WINAPI answer_dialog(HINSTANCE, DLGTEMPLATE const*, HWND, DLGPROC, LPARAM) {
    note(semaphore_is_free() ? L"dialog, unguarded" : L"dialog");
    return dialog_answer;
}

// Everything that would be shown or written is noted; the hooks are off before and after.
class Boxes : public testing::Test {
protected:
    Boxes() {
        clear_hooks();
        box_answers.reserve(8);
        events.clear();
    }
    ~Boxes() {
        clear_hooks();
        std::vector<int>().swap(box_answers);
    }

    static void clear_hooks() {
        QX::qx_message_box_hook = nullptr;
        QX::qx_message_txt_hook = nullptr;
        QX::register_ignore_all_message_box_remote_controlled_callback(nullptr);
        QX::register_ignore_all_message_box_remote_controlled_local_callback(nullptr);
    }

    static bool assert_once(bool& ignore_all) {
        return QX::ignore_all_message_box(
            ignore_all, UniString(L"head"), UniString(L"what"), UniString(L"UI"),
            QX::ASSERT_SEVERITY_NORMAL);
    }

private:
    test::StandIn wide_{"OutputDebugStringW", note_wide};
    test::StandIn narrow_{"OutputDebugStringA", note_narrow};
    test::StandIn box_{"MessageBoxW", answer_box};
    test::StandIn exit_{"TerminateProcess", note_exit};
};

class Decisions : public Boxes {
    test::StandIn dialog_{"DialogBoxIndirectParamW", answer_dialog};
};

// --- Plain boxes ---------------------------------------------------------------------------------

struct BoxRow {
    bool information;
    std::vector<int> answers;
    bool result;
    wchar_t const* events;
};

#define LAST_CHANCE L"box 2131 Are you sure you want to abort the process?Last chance...|"

TEST_F(Boxes, answer_true_for_retry_and_ask_again_after_a_withdrawn_abort) {
    BoxRow const rows[] = {
        {true, {IDOK}, false, L"debug text|box 10040 text|"},
        {false, {IDRETRY}, true, L"debug text|box 10012 text|"},
        {false, {IDIGNORE}, false, L"debug text|box 10012 text|"},
        {false, {IDCANCEL}, true, L"debug text|box 10012 text|"},
        {false, {-1}, false, L"debug text|box 10012 text|"},
        {false,
         {IDABORT, IDCANCEL, IDRETRY},
         true,
         L"debug text|box 10012 text|" LAST_CHANCE L"box 10012 text|"},
        {false,
         {IDABORT, IDOK, IDIGNORE},
         false,
         L"debug text|box 10012 text|" LAST_CHANCE L"exit 0|box 10012 text|"},
    };
    for (BoxRow const& row : rows) {
        events.clear();
        box_answers = row.answers;
        EXPECT_EQ(QX::message_box(row.information, QX::String("text")), row.result);
        EXPECT_EQ(events, row.events);
    }
}

TEST_F(Boxes, ok_cancel_is_true_for_ok) {
    box_answers = {IDOK, IDCANCEL};
    EXPECT_TRUE(QX::message_box_ok_cancel(QX::String("go?")));
    EXPECT_FALSE(QX::message_box_ok_cancel(UniString(L"go?")));
    EXPECT_EQ(events, L"debug go?|box 10021 go?|debug go?|box 10021 go?|");
}

bool hook_settles;

bool hook(bool information, UniString const& text, bool& result, bool& ignore_all) {
    note((information ? L"hook informs " : L"hook ") + std::wstring(text.c_str()));
    EXPECT_FALSE(result);
    result = true;
    ignore_all = true;
    return !hook_settles;
}

TEST_F(Boxes, hook_that_settles_leaves_nothing_to_show_or_write) {
    QX::qx_message_box_hook = hook;
    hook_settles = true;
    EXPECT_TRUE(QX::message_box(false, UniString(L"a")));
    EXPECT_TRUE(QX::message_box(true, QX::String("b")));
    EXPECT_TRUE(QX::message_box_ok_cancel(UniString(L"c")));
    EXPECT_EQ(events, L"hook a|hook informs b|hook informs c|");
}

TEST_F(Boxes, hook_that_passes_on_decides_nothing) {
    QX::qx_message_box_hook = hook;
    hook_settles = false;
    box_answers = {IDIGNORE, IDCANCEL};
    EXPECT_FALSE(QX::message_box(false, UniString(L"a")));
    EXPECT_FALSE(QX::message_box_ok_cancel(UniString(L"c")));
    EXPECT_EQ(events, L"hook a|debug a|box 10012 a|hook informs c|debug c|box 10021 c|");
}

int WINAPI answer_bare(HWND, char const* text, char const* caption, UINT flags) {
    char program[256];
    GetModuleFileNameA(nullptr, program, 256);
    EXPECT_STREQ(caption, program);
    EXPECT_EQ(flags, 0u);
    note(std::wstring(text, text + std::strlen(text)));
    return IDOK;
}

TEST_F(Boxes, bare_box_takes_no_notice_of_the_hook) {
    test::StandIn const box("MessageBoxA", answer_bare);
    QX::qx_message_box_hook = hook;
    hook_settles = true;
    char text[] = "bare";
    QX::message_box(text);
    EXPECT_EQ(events, L"bare|");
}

TEST(BoxesOnTheScreen, are_ended_by_their_buttons) {
    wchar_t program[256];
    GetModuleFileNameW(nullptr, program, 256);
    for (int answer : {IDRETRY, IDIGNORE}) {
        test::DialogUser const user(
            program, [answer](HWND box) { SendMessageW(box, WM_COMMAND, answer, 0); });
        EXPECT_EQ(QX::message_box(false, UniString(L"Disk full.")), answer == IDRETRY);
    }
}

// --- Text ----------------------------------------------------------------------------------------

bool text_hook(UniString const& text) {
    note(std::wstring(L"hook ") + text.c_str());
    return !hook_settles;
}

// What reaches the error stream while `work` runs.
template <typename Work>
std::string error_stream_of(Work work) {
    test::TempFolder const folder;
    std::string const name = folder.file("stderr.txt");
    std::fflush(stderr);
    int const kept = _dup(2);
    int const file = _open(name.c_str(), _O_CREAT | _O_WRONLY | _O_TEXT, 0666);
    _dup2(file, 2);
    work();
    std::fflush(stderr);
    _dup2(kept, 2);
    _close(file);
    _close(kept);
    return test::read_file(name);
}

TEST_F(Boxes, text_goes_to_the_debugger_and_the_error_stream_unless_hooked) {
    std::string const written = error_stream_of([] {
        QX::message_txt(QX::String("narrow "));
        QX::message_txt(UniString(L"wide "));
        QX::qx_message_txt_hook = text_hook;
        hook_settles = false;
        QX::message_txt(QX::String("passed on"));
        hook_settles = true;
        QX::message_txt(QX::String("settled"));
        QX::message_txt(UniString(L"settled too"));
    });
    EXPECT_EQ(written, "narrow wide passed on");
    EXPECT_EQ(
        events, L"debug narrow |debug wide |hook passed on|debug passed on|hook settled|"
                L"hook settled too|");
}

// --- The decision --------------------------------------------------------------------------------

struct DecisionRow {
    int decision;
    bool result;
    bool ignore_all;
    wchar_t const* events;
};

// clang-format off
constexpr DecisionRow decision_rows[] = {
    {4,  false, false, L"debug head\n|%|told 4 head|exit 1|"},
    {5,  true,  false, L"debug head\n|%|told 5 head|"},
    {6,  false, false, L"debug head\n|%|told 6 head|"},
    {7,  false, true,  L"debug head\n|%|told 7 head|"},
    {2,  false, false, L"debug head\n|%|told 2 head|"},
    {-1, false, false, L"debug head\n|%|told -1 head|"},
};
// clang-format on

void tell(Ids decision, UniString const& heading) {
    note(L"told " + std::to_wstring(static_cast<int>(decision)) + L" " + heading.c_str());
}

Ids decide_remotely(UniString const& heading) {
    note(std::wstring(L"remote ") + heading.c_str());
    return static_cast<Ids>(dialog_answer);
}

std::wstring with(std::wstring text, std::wstring const& asked) {
    return text.replace(text.find(L'%'), 1, asked);
}

TEST_F(Decisions, follow_the_answer_wherever_it_comes_from) {
    QX::register_ignore_all_message_box_remote_controlled_local_callback(tell);
    for (bool remote : {false, true}) {
        QX::register_ignore_all_message_box_remote_controlled_callback(
            remote ? decide_remotely : nullptr);
        for (DecisionRow const& row : decision_rows) {
            events.clear();
            dialog_answer = row.decision;
            bool ignore_all = false;
            EXPECT_EQ(assert_once(ignore_all), row.result);
            EXPECT_EQ(ignore_all, row.ignore_all);
            EXPECT_EQ(events, with(row.events, remote ? L"remote head" : L"dialog"));
            EXPECT_TRUE(semaphore_is_free());
        }
    }
}

TEST_F(Decisions, ignore_leaves_an_earlier_ignore_all_alone) {
    dialog_answer = 6;
    bool ignore_all = true;
    EXPECT_FALSE(assert_once(ignore_all));
    EXPECT_TRUE(ignore_all);
}

TEST_F(Decisions, belong_to_the_hook_that_settles_them) {
    QX::qx_message_box_hook = hook;
    hook_settles = true;
    bool ignore_all = false;
    EXPECT_TRUE(QX::ignore_all_message_box(
        ignore_all, QX::String("head"), QX::String("what"), QX::String("UI"),
        QX::ASSERT_SEVERITY_HIGH));
    EXPECT_TRUE(ignore_all);
    EXPECT_EQ(events, L"hook what\nhead\nThis message applies to the following teams:\nUI\n|");
    EXPECT_TRUE(semaphore_is_free());
}

TEST_F(Decisions, keep_what_a_hook_that_passes_on_has_set) {
    QX::qx_message_box_hook = hook;
    hook_settles = false;
    dialog_answer = 6;
    bool ignore_all = false;
    EXPECT_TRUE(assert_once(ignore_all));
    EXPECT_TRUE(ignore_all);
}

[[noreturn]] bool throwing_hook(bool, UniString const&, bool&, bool&) {
    throw std::runtime_error("hook");
}

[[noreturn]] Ids throwing_callback(UniString const&) {
    throw std::runtime_error("callback");
}

TEST_F(Decisions, give_the_semaphore_back_when_something_throws) {
    bool ignore_all = false;
    QX::qx_message_box_hook = throwing_hook;
    EXPECT_THROW(assert_once(ignore_all), std::runtime_error);
    EXPECT_TRUE(semaphore_is_free());
    QX::qx_message_box_hook = nullptr;
    QX::register_ignore_all_message_box_remote_controlled_callback(throwing_callback);
    EXPECT_THROW(assert_once(ignore_all), std::runtime_error);
    EXPECT_TRUE(semaphore_is_free());
    EXPECT_EQ(FindWindowW(nullptr, L"QXLibs - Waiting for remote decision..."), nullptr);
}

Ids look_at_remote_dialog(UniString const& heading) {
    HWND const dialog = FindWindowW(nullptr, L"QXLibs - Waiting for remote decision...");
    EXPECT_TRUE(IsWindowVisible(dialog));
    EXPECT_EQ(test::text_of(GetDlgItem(dialog, 0)), heading.c_str());
    EXPECT_EQ(test::text_of(GetDlgItem(dialog, 1)), L"what");
    EXPECT_EQ(test::text_of(GetDlgItem(dialog, 2)), L"UI");
    for (int id = 3; id < 8; ++id) EXPECT_EQ(GetDlgItem(dialog, id), nullptr);
    return Ids::RETRY;
}

TEST_F(Decisions, show_the_texts_without_buttons_while_a_remote_one_is_awaited) {
    QX::register_ignore_all_message_box_remote_controlled_callback(look_at_remote_dialog);
    bool ignore_all = false;
    EXPECT_TRUE(assert_once(ignore_all));
    EXPECT_EQ(FindWindowW(nullptr, L"QXLibs - Waiting for remote decision..."), nullptr);
}

HWND WINAPI no_dialog(HINSTANCE, DLGTEMPLATE const*, HWND, DLGPROC, LPARAM) {
    return nullptr;
}

TEST_F(Decisions, are_to_ignore_where_no_dialog_is_to_be_had_for_a_remote_one) {
    test::StandIn const creation("CreateDialogIndirectParamW", no_dialog);
    QX::register_ignore_all_message_box_remote_controlled_callback(decide_remotely);
    QX::register_ignore_all_message_box_remote_controlled_local_callback(tell);
    dialog_answer = 5;
    bool ignore_all = false;
    EXPECT_FALSE(assert_once(ignore_all));
    EXPECT_EQ(events, L"debug head\n|told 6 head|");
}

TEST_F(Decisions, from_a_fibre_bear_a_remote_callback_that_throws) {
    test::Library const library(1);
    std::atomic<int> caught = 0;
    QX::register_ignore_all_message_box_remote_controlled_callback(throwing_callback);
    task::spawn(test::fiberful, test::worker_threads, test::normal, [&] {
        bool ignore_all = false;
        try {
            assert_once(ignore_all);
        } catch (std::runtime_error const&) {
            caught = 1;
        }
    });
    test::await([&] { return caught == 1; });
    EXPECT_TRUE(semaphore_is_free());
}

std::atomic<int> inside;
std::atomic<int> most_inside;

bool slow_hook(bool, UniString const&, bool&, bool&) {
    most_inside = std::max<int>(most_inside, ++inside);
    Sleep(5);
    --inside;
    return false;
}

TEST_F(Decisions, are_made_one_at_a_time) {
    QX::qx_message_box_hook = slow_hook;
    most_inside = 0;
    std::thread threads[4];
    for (std::thread& thread : threads) {
        thread = std::thread([] {
            for (int i = 0; i < 5; ++i) {
                bool ignore_all = false;
                assert_once(ignore_all);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(most_inside, 1);
}

TEST(DecisionOnTheScreen, shows_the_details_with_the_teams_behind_them) {
    bool ignore_all = false;
    test::DialogUser const user(L"QXLibs", [](HWND dialog) {
        EXPECT_EQ(test::text_of(GetDlgItem(dialog, 0)), L"head");
        EXPECT_EQ(
            test::text_of(GetDlgItem(dialog, 1)),
            L"what\nThis message applies to the following teams:\n");
        EXPECT_EQ(test::text_of(GetDlgItem(dialog, 2)), L"UI");
        SendMessageW(dialog, WM_COMMAND, 7, 0);
    });
    EXPECT_FALSE(QX::ignore_all_message_box(
        ignore_all, QX::String("head"), QX::String("what"), QX::String("UI"),
        QX::ASSERT_SEVERITY_NORMAL));
    EXPECT_TRUE(ignore_all);
}

// --- The rest ------------------------------------------------------------------------------------

TEST(FailureReports, semaphore_counts_to_one) {
    EXPECT_TRUE(semaphore_is_free());
    EXPECT_FALSE(ReleaseSemaphore(QX::message_box_semaphore().handle(), 1, nullptr));
}

bool redirect(QX::TEAM_INFO const&, char const*, char const*, UniString const&) {
    return false;
}

void output(UniString const&) {}

TEST(FailureReports, registering_stores_for_the_macros) {
    QX::register_err_msg_redirect_fn(redirect);
    QX::register_output_debug_string_fn(output);
    EXPECT_EQ(QX::err_msg_redirect, redirect);
    EXPECT_EQ(QX::ODS_fn, output);
    QX::register_err_msg_redirect_fn(nullptr);
    QX::register_output_debug_string_fn(nullptr);
    EXPECT_EQ(QX::err_msg_redirect, nullptr);
    EXPECT_FALSE(
        QX::in_assert || QX::dialogs_disabled || QX::recurring_assert_messages_disabled ||
        QX::dialog_error_fullscreen_mode);
}

TEST(FailureReports, asks_the_system_for_its_last_error_and_the_debugger) {
    ::SetLastError(1234);
    EXPECT_EQ(QX::GetLastError(), 1234u);
    EXPECT_EQ(QX::IsDebuggerPresent(), ::IsDebuggerPresent() > 0);
}

}  // namespace
