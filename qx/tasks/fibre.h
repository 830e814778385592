// fibre.h - stacks that a thread can step onto and off: make one, switch to it.
//
//     void* own;                                    // this thread's context while it is away
//     void* fibre = make_fiber(top, size, entry);
//     void* answer = switch_to_fiber(&own, fibre, &question, true);
//
//     void entry(void* question) {                  // runs on the new stack
//         question = switch_to_fiber(&fibre, own, &answer, true);
//         ...
//     }
//
// A context is a stack pointer: valid for one switch, after which the suspended side has a new one.
// What a switch keeps: the registers that the calling convention preserves, the fields of the
// thread block that describe the stack, the thread's exception list and, where asked for, xmm6 to
// xmm15 and the two floating-point control words. The exception flags of MXCSR, which no call has
// to preserve, may go over. Thread-local storage, locks and the count of exceptions being handled
// belong to the thread and are not switched.
//
// Threads: a suspended fibre may be resumed by any thread, by one at a time.
#pragma once

#include "qx/base/export.h"

#include <cstddef>

extern "C" {

// Builds a fibre that will run `entry` on the `stack_size` bytes below `stack_top`, and returns its
// context. The stack is borrowed, and has to be readable and writable throughout. The fibre starts
// with the control words of the calling thread. `entry` must not return: the process then ends with
// exit code 0. An exception that it lets out goes to the process's unhandled exception filter.
QX_API void* make_fiber(void* stack_top, std::size_t stack_size, void (*entry)(void*));

// Suspends the running code, its context stored in `*save_context`, and goes on with
// `target_context`: there the call to this function returns `value`, or a fresh fibre's entry gets
// it as argument. Both sides of a switch have to agree on `preserve_fp`.
QX_API void*
switch_to_fiber(void** save_context, void* target_context, void* value, bool preserve_fp);
}
