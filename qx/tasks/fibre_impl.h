// fibre_impl.h - the exceptions being handled, which the run-time counts by thread.
//
// Whoever suspends a fibre inside a catch block has to carry this record over: the thread must not
// go on with the fibre's exceptions, nor the fibre with those of the thread that resumes it.
#pragma once

#include <cxxabi.h>

namespace task::detail {

// As the run-time lays it out: the stack of exceptions in handlers, and how many are in flight.
struct HandledExceptions {
    void* caught = nullptr;
    unsigned int uncaught = 0;
};

// The calling thread's own, at one address for the thread's life. Costs a look-up, so that it is
// asked for once a thread. The call is declared free of effects, and would otherwise be merged over
// a switch.
inline HandledExceptions* handled_exceptions_of_thread() {
    auto* volatile call = reinterpret_cast<HandledExceptions* (*)()>(&abi::__cxa_get_globals);
    return call();
}

}  // namespace task::detail
