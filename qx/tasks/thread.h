// thread.h - threads of the system: an owned handle, and two ways to start one.
//
//     unsigned int work(void* argument);
//     Thread thread;
//     if (run_in_native_thread(work, &job, thread) != 0) wait_for_thread(thread);
//
// A start that fails answers 0 and leaves the Thread empty. `entry` may not be null. Nothing here
// throws. Threads: any may start others; one Thread belongs to one of them at a time.
#pragma once

#include "qx/base/export.h"

namespace QX {

// One thread handle, owned: closed when another is stored and when the object dies. Closing the
// handle does not end the thread.
class Thread {
public:
    Thread() = default;
    explicit Thread(void* handle) : handle_(handle) {}
    Thread(Thread&& other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }
    QX_API Thread& operator=(Thread&& other) noexcept;
    ~Thread() { store(nullptr); }

    // Takes `handle` over; null only closes.
    QX_API void store(void* handle);

    void* handle() const { return handle_; }

private:
    void* handle_ = nullptr;
};

// In the order of the system's priorities -15, -2, -1, 0, 1, 2 and 15.
enum class ThreadPriority : int {
    idle,
    lowest,
    below_normal,
    normal,
    above_normal,
    highest,
    time_critical,
};

// Blocks until the thread has ended; returns at once for an empty Thread.
QX_API void wait_for_thread(Thread const& thread);

// Starts `entry(argument)` and returns the thread's id once the new thread is running and has taken
// `argument`; 0 if there is none, `thread` then empty. The thread's exit code is 0, whatever
// `entry` returns.
//
// `stack_size`: in bytes, 0 for the program's own. `core`: the thread is bound to the core of that
// number modulo 32, and not bound for -1. `thread`: where the handle goes; with null the thread
// runs detached. `name`: for debuggers, may be null.
//
// Threads: starts that come at once from several threads are made one after the other.
QX_API unsigned int run_in_native_thread(
    unsigned int stack_size, char core, ThreadPriority priority, unsigned int (*entry)(void*),
    void const* argument, Thread* thread, char const* name);

// The plain start: default stack and priority, no name, and the call does not wait for the thread
// to run. The thread's exit code is what `entry` returns.
QX_API unsigned int
run_in_native_thread(unsigned int (*entry)(void*), void* argument, Thread& thread);

}  // namespace QX
