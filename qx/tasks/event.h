// event.h - an event of the system, without a name, owned.
//
//     Event done(false, false);   // one waiter is let through a signal
//     done.signal();
//     done.wait();                // returns at once and takes the signal
//
// A failed creation leaves a null handle and no report; waits then return at once.
// Threads: any thread may use any operation at any time.
#pragma once

#include "qx/base/export.h"

namespace QX {

class Event {
public:
    // `manual_reset`: a signal stays until `reset`, for every waiter.
    QX_API Event(bool manual_reset, bool initially_signalled);
    QX_API ~Event();

    Event(Event const&) = delete;
    Event& operator=(Event const&) = delete;

    // Lets a waiter through, or all of them with manual reset; and takes that back. A signal
    // without a waiter is kept for the next one, and a second one then adds nothing.
    QX_API void signal();
    QX_API void reset();

    // Without a limit.
    QX_API void wait();

    // At most so long, 0xFFFFFFFF without a limit; 0 returns at once, and takes a signal that is
    // there. Whether the signal came or the time ran out is not told.
    QX_API void wait(unsigned int milliseconds);

    void* handle() const { return handle_; }

private:
    void* handle_;
};

}  // namespace QX
