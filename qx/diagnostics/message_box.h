// message_box.h - how a failure reaches a person: boxes, the decision about a failed assertion,
// text, and the hooks that take any of it over.
//
// The library reports its own failures by results; this is a service to the application, whose
// assertion macros call it (assert.h offers a set of them).
//
//     message_box(true, "Saved.")           information, OK          =>  false
//     message_box(false, "Disk full.")      abort, retry or ignore   =>  true to retry
//     message_box_ok_cancel("Overwrite?")   OK or cancel             =>  true for OK
//     message_txt("loading\n")              debugger output and error stream
//     ignore_all_message_box(site, ...)     the assertion dialog     =>  true to break and retry
//
// All pointers and flags below are plain data, null or false at load, meant to be set at start-up:
// nothing locks them. Boxes run on the stack of the thread, also from a fibreful task.
#pragma once

#include "qx/base/export.h"
#include "qx/diagnostics/assertion_dialog.h"
#include "qx/diagnostics/teams.h"
#include "qx/tasks/semaphore.h"
#include "qx/text/string.h"

namespace QX {

// --- Hooks ---------------------------------------------------------------------------------------

// Ahead of every box but the bare one, and of the assertion dialog. Gets whether the text informs
// only, the text, the result to be and the caller's "ignore all". False: the matter is settled, the
// result is the caller's answer, and nothing more is shown or written.
extern QX_API bool (*qx_message_box_hook)(
    bool information, UniString const& text, bool& result, bool& ignore_all);

// Ahead of message_txt. False: nothing is written.
extern QX_API bool (*qx_message_txt_hook)(UniString const& text);

// Decides about assertions in place of a person, with a dialog shown that has no buttons.
extern QX_API VELLUM_MESSAGE_BOX_IDS (*ignore_all_message_box_remote_controlled_callback)(
    UniString const& heading);

// Is told of each decision, a person's or a remote one, before it is acted on.
extern QX_API void (*ignore_all_message_box_remote_controlled_local_callback)(
    VELLUM_MESSAGE_BOX_IDS decision, UniString const& heading);

// For client macros, which alone call them: a hook ahead of the whole assertion, with the condition
// and the place in the code, and text output.
extern QX_API bool (*err_msg_redirect)(
    TEAM_INFO const& team, char const* condition, char const* place, UniString const& text);
extern QX_API void (*ODS_fn)(UniString const& text);

// Each stores its pointer in the variable of the same purpose; null takes it away.
QX_API void register_err_msg_redirect_fn(
    bool (*fn)(TEAM_INFO const&, char const*, char const*, UniString const&));
QX_API void register_output_debug_string_fn(void (*fn)(UniString const&));
QX_API void register_ignore_all_message_box_remote_controlled_callback(
    VELLUM_MESSAGE_BOX_IDS (*fn)(UniString const&));
QX_API void register_ignore_all_message_box_remote_controlled_local_callback(
    void (*fn)(VELLUM_MESSAGE_BOX_IDS, UniString const&));

// For client macros; nothing here reads or sets them.
extern QX_API bool in_assert;  // an assertion is being shown
extern QX_API bool dialogs_disabled;
extern QX_API bool recurring_assert_messages_disabled;
extern QX_API bool dialog_error_fullscreen_mode;

// --- Boxes ---------------------------------------------------------------------------------------

// The bare box: the text, OK, and no hook. `text` is in the system's narrow code page and
// goes there as it is.
QX_API void message_box(char* text);

// The text also goes to the debugger. With `information` there is OK alone and the answer is false;
// else abort, retry and ignore. Abort asks once more and ends the process with code 0.
QX_API bool message_box(bool information, String const& text);
QX_API bool message_box(bool information, UniString const& text);

// The text also goes to the debugger. True for OK.
QX_API bool message_box_ok_cancel(String const& text);
QX_API bool message_box_ok_cancel(UniString const& text);

// Writes the text as it stands, without a line end: to the debugger, then to the C run-time's error
// stream unless that has failed before.
QX_API void message_txt(String const& text);
QX_API void message_txt(UniString const& text);

// --- Assertions ----------------------------------------------------------------------------------

// The decision about a failed assertion, one at a time in the process:
//
//     1  qx_message_box_hook, which may settle it. Its text is the details, a line end, the
//        heading, the team header, the teams and a line end.
//     2  heading and a line end through message_txt
//     3  the remote callback if there is one, else the dialog
//     4  the local callback hears of the decision
//     5  abort ends the process with code 1, retry answers true, "ignore all" sets `ignore_all`
//
// `ignore_all` is the caller's own, one for each assertion in the code: the caller tests it before
// it calls again; nothing is remembered here. Where no dialog is to be had it counts as ignored.
// Blocks its thread while another assertion is shown, and for ever if called from within one on the
// same thread.
QX_API bool ignore_all_message_box(
    bool& ignore_all, String const& heading, String const& details, String const& team_names,
    ASSERT_SEVERITY severity);
QX_API bool ignore_all_message_box(
    bool& ignore_all, UniString const& heading, UniString const& details,
    UniString const& team_names, ASSERT_SEVERITY severity);

// What lets one assertion be shown at a time: count 1, maximum 1, made when the library loads.
QX_API Semaphore& message_box_semaphore();

// --- The system's word ---------------------------------------------------------------------------

// The number of the calling thread's last failed system call.
QX_API unsigned int GetLastError();

// Whether this process runs under a debugger.
QX_API bool IsDebuggerPresent();

}  // namespace QX
