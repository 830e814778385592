// thread_impl.h - names for debuggers, shared by the rooms that start threads.
#pragma once

namespace QX {

constexpr unsigned int this_thread_id = ~0u;

// Tells an attached debugger the name of a thread. `name` may be null.
void set_debugger_thread_name(char const* name, unsigned int thread_id);

}  // namespace QX
