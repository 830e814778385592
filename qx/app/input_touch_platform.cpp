#include "qx/app/input_touch_impl.h"

#include <cstdlib>

#include "qx/base/windows.h"

namespace QX {

namespace {

constexpr char const library_name[] = "QXLibsWinExt.zintelunityrelease.x64.dll";

// Null where the library or the entry point is missing. Only the first is ever called: nothing here
// reads touch messages. The others are looked up all the same, since the extension is to be asked
// for the whole set.
struct TouchExtension {
    HMODULE library;
    FARPROC initialise_gestures;
    FARPROC touch_events_from_lparam;
    FARPROC gesture_event_from_lparam;
    FARPROC gesture_event_from_dword;
    FARPROC gesture_events_from_lparam;
    FARPROC on_gesture_notify;
};

TouchExtension extension;
bool was_looked_for = false;

void release_extension() {
    HMODULE const library = extension.library;
    extension = {};
    if (library) FreeLibrary(library);
}

// Touch came with version 6.1 of the system.
bool system_has_touch() {
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    if (!GetVersionExW(&version)) return false;
    return version.dwMajorVersion > 6 ||
           (version.dwMajorVersion == 6 && version.dwMinorVersion != 0);
}

void load_extension() {
    HMODULE const library = LoadLibraryA(library_name);
    if (!library) return;
    extension.library = library;
    extension.initialise_gestures = GetProcAddress(library, "InitialiseGesturesExt");
    extension.touch_events_from_lparam = GetProcAddress(library, "TouchEventsFromLParamExt");
    extension.gesture_event_from_lparam = GetProcAddress(library, "GestureEventFromLParamExt");
    extension.gesture_event_from_dword = GetProcAddress(library, "GestureEventFromDWordExt");
    extension.gesture_events_from_lparam = GetProcAddress(library, "GestureEventsFromLParamExt");
    extension.on_gesture_notify = GetProcAddress(library, "OnGestureNotifyExt");
}

void look_for_extension() {
    if (was_looked_for) return;
    was_looked_for = true;
    std::atexit(release_extension);
    if (system_has_touch()) load_extension();
}

}  // namespace

void initialise_gestures(HWND window) {
    look_for_extension();
    auto const call = reinterpret_cast<void (*)(HWND)>(
        reinterpret_cast<void (*)()>(extension.initialise_gestures));
    if (call) call(window);
}

}  // namespace QX
