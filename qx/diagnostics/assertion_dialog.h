// assertion_dialog.h - the modal dialog in which a person decides about a failed assertion.
//
//     +--------------------------------------------------------+
//     | heading, large and bold, in the colour of its severity  |
//     | details, in grey                                        |
//     | the teams, bold                                         |
//     |  [Copy Text] [Abort] [Retry] [Ignore] [Ignore All]      |
//     +--------------------------------------------------------+
//
// The dialog takes the size of its texts, up to the screen less 60 pixels for each text, and stands
// in the middle of the screen. Its button in the task bar flashes until it is in front. "Retry"
// can be pressed under a debugger only, and then has the focus; else "Ignore" has it.
#pragma once

#include "qx/base/export.h"
#include "qx/text/string.h"

#undef IGNORE

namespace QX {

// Chooses the colour of the heading. Values without a name count as normal.
enum ASSERT_SEVERITY : unsigned int {
    ASSERT_SEVERITY_NORMAL = 0,  // the system's colour of window text
    ASSERT_SEVERITY_HIGH = 1,    // red
};

// How the dialog ended: the id of the button, or of another command that closed it (2 for escape).
enum class VELLUM_MESSAGE_BOX_IDS : int {
    COPY_TEXT = 3,  // puts the texts on the clipboard; the dialog stays, so this is never a result
    ABORT = 4,      // asks once more and ends the process with code 0, so never a result either
    RETRY = 5,
    IGNORE = 6,
    IGNORE_ALL = 7,
};

// Shows the dialog and waits for its end. Where the system makes no dialog the result is none of
// the named ones. Each text ends at its first terminator.
// Threads: any. In a fibreful task the dialog runs on the stack of the thread.
QX_API VELLUM_MESSAGE_BOX_IDS ignore_all_message_box_dialog(
    UniString const& title, UniString const& heading, UniString const& details,
    UniString const& team_names, ASSERT_SEVERITY severity);

}  // namespace QX
