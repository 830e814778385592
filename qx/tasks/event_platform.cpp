#include "qx/tasks/event.h"

#include "qx/base/windows.h"

namespace QX {

Event::Event(bool manual_reset, bool initially_signalled)
    : handle_(CreateEventW(nullptr, manual_reset, initially_signalled, nullptr)) {}

Event::~Event() {
    if (handle_ != nullptr) CloseHandle(handle_);
}

void Event::signal() {
    SetEvent(handle_);
}

void Event::reset() {
    ResetEvent(handle_);
}

void Event::wait() {
    wait(INFINITE);
}

void Event::wait(unsigned int milliseconds) {
    WaitForSingleObject(handle_, milliseconds);
}

}  // namespace QX
