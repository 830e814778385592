// assertion_dialog_impl.h - the dialog's template, and the dialog without buttons.
#pragma once

#include <vector>

#include "qx/diagnostics/assertion_dialog.h"

namespace QX::assertion_dialog {

struct Texts {
    UniString const& title;
    UniString const& heading;
    UniString const& details;
    UniString const& team_names;
};

// The ids of the three texts.
constexpr int id_heading = 0;
constexpr int id_details = 1;
constexpr int id_team_names = 2;

enum class Buttons { none, all, all_but_retry };

// In the system's format of templates in memory, which is made of 16-bit words. The storage of a
// vector is aligned to 4 at least, as the format wants.
using Template = std::vector<unsigned short>;

Template build_template(Texts const& texts, Buttons buttons);

// Shows a dialog that no one can press; null where the system makes none. To be ended on the same
// thread, and neither on a fibre's stack.
void* open_without_buttons(Template const& dialog, ASSERT_SEVERITY severity);
void end(void* dialog);

}  // namespace QX::assertion_dialog
