// thread_impl.h - what the rooms that start threads share.
#pragma once

#include "qx/tasks/thread.h"

namespace QX {

constexpr unsigned int this_thread_id = ~0u;

// Tells an attached debugger the name of a thread. `name` may be null.
void set_debugger_thread_name(char const* name, unsigned int thread_id);

// Sets priority and core, -1 for none, of a thread that was just made.
void configure_thread(void* thread, char core, ThreadPriority priority);

}  // namespace QX
