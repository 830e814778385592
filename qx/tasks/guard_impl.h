// guard_impl.h - a structured exception guard, for a compiler that has none.
//
// Destructors between a hardware fault and the guard do not run; those between a thrown C++ object
// and the guard do. Works on any stack that the thread block describes.
#pragma once

struct _EXCEPTION_POINTERS;

namespace QX {

// What a filter answers, as the system numbers it.
constexpr long continue_execution = -1;
constexpr long continue_search = 0;
constexpr long execute_handler = 1;

}  // namespace QX

extern "C" {

// Runs `function(argument)`. Each exception that would leave it is put to `filter`; where that
// answers execute_handler the call returns 1 with the exception disposed of, else as the filter
// says. Returns 0 where `function` returned. `filter` runs on the stack of the exception.
int qx_guarded_call(
    void (*function)(void*), void* argument, long (*filter)(_EXCEPTION_POINTERS* pointers));
}
