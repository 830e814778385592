#include "qx/diagnostics/message_box.h"

#include <cstdio>
#include <exception>

#include "qx/app/process.h"
#include "qx/base/windows.h"
#include "qx/diagnostics/assertion_dialog_impl.h"
#include "qx/diagnostics/assertion_log_impl.h"
#include "qx/tasks/task.h"
#include "qx/text/convert.h"

// The file that assertions go to instead of a person, where the build names one.
#if !defined(QX_ASSERTION_LOG)
#define QX_ASSERTION_LOG nullptr
#endif

namespace QX {

bool (*qx_message_box_hook)(bool, UniString const&, bool&, bool&) = nullptr;
bool (*qx_message_txt_hook)(UniString const&) = nullptr;
VELLUM_MESSAGE_BOX_IDS(*ignore_all_message_box_remote_controlled_callback)
(UniString const&) = nullptr;
void (*ignore_all_message_box_remote_controlled_local_callback)(
    VELLUM_MESSAGE_BOX_IDS, UniString const&) = nullptr;
bool (*err_msg_redirect)(TEAM_INFO const&, char const*, char const*, UniString const&) = nullptr;
void (*ODS_fn)(UniString const&) = nullptr;

bool in_assert = false;
bool dialogs_disabled = false;
bool recurring_assert_messages_disabled = false;
bool dialog_error_fullscreen_mode = false;

namespace {

constexpr UINT flags_information = MB_SETFOREGROUND | MB_ICONINFORMATION | MB_OK;
constexpr UINT flags_failure = MB_SETFOREGROUND | MB_ICONSTOP | MB_ABORTRETRYIGNORE;
constexpr UINT flags_question = MB_SETFOREGROUND | MB_ICONQUESTION | MB_OKCANCEL;
static_assert(flags_information == 0x10040);
static_assert(flags_failure == 0x10012);
static_assert(flags_question == 0x10021);

constexpr DWORD caption_size = 256;
constexpr int exit_code_of_abort = 1;

Semaphore semaphore(1, 1, nullptr);

class OneAtATime {
public:
    OneAtATime() { WaitForSingleObject(semaphore.handle(), INFINITE); }
    ~OneAtATime() { ReleaseSemaphore(semaphore.handle(), 1, nullptr); }

    OneAtATime(OneAtATime const&) = delete;
    OneAtATime& operator=(OneAtATime const&) = delete;
};

// True if the hook has settled the matter.
bool is_settled_by_hook(bool information, UniString const& text, bool& result, bool& ignore_all) {
    if (qx_message_box_hook == nullptr) return false;
    UniString const copy(text);
    return !qx_message_box_hook(information, copy, result, ignore_all);
}

// The program's name, as far as it fits.
struct Caption {
    wchar_t text[caption_size] = {};

    Caption() {
        GetModuleFileNameW(nullptr, text, caption_size);
        text[caption_size - 1] = 0;
    }
};

// Any number that is no answer: no box was to be had.
int show_box(UniString const& text, Caption const& caption, UINT flags) {
    int answer = 0;
    task::execute_in_thread_context(
        [&] { answer = MessageBoxW(nullptr, text.c_str(), caption.text, flags); });
    return answer;
}

void write_to_debugger(UniString const& text) {
    OutputDebugStringW(text.c_str());
}

bool error_stream_works() {
    return stderr != nullptr && !std::ferror(stderr);
}

// Everything on the stack of the thread, the callback too: its window belongs to the thread, which
// a task that waits in between may leave.
VELLUM_MESSAGE_BOX_IDS ask_remote(assertion_dialog::Texts const& texts, ASSERT_SEVERITY severity) {
    auto const dialog = build_template(texts, assertion_dialog::Buttons::none);
    auto decision = VELLUM_MESSAGE_BOX_IDS::IGNORE;
    std::exception_ptr failure;
    task::execute_in_thread_context([&] {
        void* const window = assertion_dialog::open_without_buttons(dialog, severity);
        if (window == nullptr) return;
        try {
            decision = ignore_all_message_box_remote_controlled_callback(texts.heading);
        } catch (...) {
            failure = std::current_exception();
        }
        assertion_dialog::end(window);
    });
    if (failure) std::rethrow_exception(failure);
    return decision;
}

VELLUM_MESSAGE_BOX_IDS decide(
    UniString const& heading, UniString const& details, UniString const& team_names,
    ASSERT_SEVERITY severity) {
    if (ignore_all_message_box_remote_controlled_callback != nullptr) {
        UniString const title(L"QXLibs - Waiting for remote decision...");
        return ask_remote({title, heading, details, team_names}, severity);
    }
    return ignore_all_message_box_dialog(
        UniString(L"QXLibs"), heading, details + wide_team_header(), team_names, severity);
}

}  // namespace

void register_err_msg_redirect_fn(
    bool (*fn)(TEAM_INFO const&, char const*, char const*, UniString const&)) {
    err_msg_redirect = fn;
}

void register_output_debug_string_fn(void (*fn)(UniString const&)) {
    ODS_fn = fn;
}

void register_ignore_all_message_box_remote_controlled_callback(
    VELLUM_MESSAGE_BOX_IDS (*fn)(UniString const&)) {
    ignore_all_message_box_remote_controlled_callback = fn;
}

void register_ignore_all_message_box_remote_controlled_local_callback(
    void (*fn)(VELLUM_MESSAGE_BOX_IDS, UniString const&)) {
    ignore_all_message_box_remote_controlled_local_callback = fn;
}

void message_box(char* text) {
    char caption[caption_size] = {};
    GetModuleFileNameA(nullptr, caption, caption_size);
    caption[caption_size - 1] = 0;
    task::execute_in_thread_context([&] { MessageBoxA(nullptr, text, caption, MB_OK); });
}

bool message_box(bool information, String const& text) {
    return message_box(information, must_fix_string_widen(text));
}

bool message_box(bool information, UniString const& text) {
    bool result = false;
    bool ignore_all = false;
    if (is_settled_by_hook(information, text, result, ignore_all)) return result;

    write_to_debugger(text);
    Caption const caption;  // the same when the box comes back
    for (;;) {
        int const answer = show_box(text, caption, information ? flags_information : flags_failure);
        if (answer != IDABORT) return answer == IDRETRY || answer == IDCANCEL;
        task::execute_in_thread_context([] { confirm_exit(0); });
    }
}

bool message_box_ok_cancel(String const& text) {
    return message_box_ok_cancel(must_fix_string_widen(text));
}

bool message_box_ok_cancel(UniString const& text) {
    bool result = false;
    bool ignore_all = false;
    if (is_settled_by_hook(true, text, result, ignore_all)) return result;

    write_to_debugger(text);
    return show_box(text, Caption(), flags_question) == IDOK;
}

void message_txt(String const& text) {
    if (qx_message_txt_hook != nullptr && !qx_message_txt_hook(must_fix_string_widen(text))) return;
    OutputDebugStringA(text.c_str());
    if (error_stream_works()) std::fputs(text.c_str(), stderr);
}

void message_txt(UniString const& text) {
    if (qx_message_txt_hook != nullptr && !qx_message_txt_hook(text)) return;
    write_to_debugger(text);
    if (error_stream_works()) std::fputws(text.c_str(), stderr);
}

bool ignore_all_message_box(
    bool& ignore_all, String const& heading, String const& details, String const& team_names,
    ASSERT_SEVERITY severity) {
    return ignore_all_message_box(
        ignore_all, must_fix_string_widen(heading), must_fix_string_widen(details),
        must_fix_string_widen(team_names), severity);
}

bool ignore_all_message_box(
    bool& ignore_all, UniString const& heading, UniString const& details,
    UniString const& team_names, ASSERT_SEVERITY severity) {
    OneAtATime const held;
    bool result = false;
    if (qx_message_box_hook != nullptr) {
        UniString const text = details + L"\n" + heading + wide_team_header() + team_names + L"\n";
        if (!qx_message_box_hook(false, text, result, ignore_all)) return result;
    }
    if (assertion_log::write(QX_ASSERTION_LOG, heading)) return result;

    message_txt(heading + L"\n");
    VELLUM_MESSAGE_BOX_IDS const decision = decide(heading, details, team_names, severity);
    if (ignore_all_message_box_remote_controlled_local_callback != nullptr)
        ignore_all_message_box_remote_controlled_local_callback(decision, heading);

    if (decision == VELLUM_MESSAGE_BOX_IDS::ABORT) exit_process(exit_code_of_abort);
    if (decision == VELLUM_MESSAGE_BOX_IDS::RETRY) result = true;
    if (decision == VELLUM_MESSAGE_BOX_IDS::IGNORE_ALL) ignore_all = true;
    return result;
}

Semaphore& message_box_semaphore() {
    return semaphore;
}

unsigned int GetLastError() {
    return ::GetLastError();
}

bool IsDebuggerPresent() {
    return ::IsDebuggerPresent() > 0;
}

}  // namespace QX
