// process.h - the process's command line, executable name and ways out.
//
// exit_process, confirm_exit and Application::kill end the process at once: no static
// destructors, no atexit work, no report. The ordered way out is the quit message and the host's
// own return. Threads: any; nothing is kept.
#pragma once

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

// What the system holds as the narrow command line: whole, unparsed, owned by the system.
QX_API char* command_line();

// The full name of the process's executable as UTF-8, cut at 4095 UTF-16 units. A failed query
// gives the empty string.
QX_API String get_module_filename();

// Always "en". A host that speaks other languages chooses for itself.
QX_API String choose_language();

// Ends the process with `code`. Does not return.
QX_API void exit_process(int code);

// Asks "Are you sure you want to abort the process?" in a box in front of everything, with Cancel
// as the default answer. OK ends the process with `code`. Any other answer, or no box to be had,
// returns false; true is never returned.
QX_API bool confirm_exit(int code);

}  // namespace QX
