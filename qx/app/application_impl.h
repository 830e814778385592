// application_impl.h - what the input room reads of the application.
#pragma once

namespace QX {

// What on_app_focus_change was last told.
bool app_has_focus();

}  // namespace QX
