// clipboard.h - text to and from the system's clipboard.
//
// The two are no mirror images: a copy goes out as narrow text, and a paste takes wide text alone.
// The system itself may make wide text of what was copied, reading its bytes in its own code page:
//
//     copy_to_clipboard(L"sail")   // places "sail" as narrow text, UTF-8
//     paste_from_clipboard()       =>  L"sail", made by the system
//
// Nothing is reported. Threads: the clipboard belongs to one program at a time; while another has
// it open a copy does nothing and a paste is empty.
#pragma once

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

// Empties the clipboard and places `text` up to its first terminator. Nothing is placed where the
// system has no memory for it.
QX_API void copy_to_clipboard(UniString const& text);

// The wide text there; empty where there is none or it can't be had.
QX_API UniString paste_from_clipboard();

}  // namespace QX
