/* undefined_runtime.c - what code compiled with -fsanitize=undefined calls, since the cross compiler
 * brings no run-time of its own. Reports file, line and kind, and ends the process with code 99. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

struct Location {
    char const* file;
    uint32_t line;
    uint32_t column;
};

static void report(char const* kind, void* data) {
    struct Location const* const at = data;
    fprintf(stderr, "undefined behaviour: %s:%u:%u: %s\n", at && at->file ? at->file : "?",
            at ? at->line : 0, at ? at->column : 0, kind);
    fflush(stderr);
    _Exit(99);
}

#define HANDLER(name, ...) \
    void __ubsan_handle_##name(__VA_ARGS__) { report(#name, data); } \
    void __ubsan_handle_##name##_abort(__VA_ARGS__) { report(#name, data); }
#define ONE(name) HANDLER(name, void* data, uintptr_t a __attribute__((unused)))
#define TWO(name) \
    HANDLER(name, void* data, uintptr_t a __attribute__((unused)), \
            uintptr_t b __attribute__((unused)))

TWO(add_overflow)
TWO(sub_overflow)
TWO(mul_overflow)
ONE(negate_overflow)
TWO(divrem_overflow)
TWO(shift_out_of_bounds)
TWO(out_of_bounds)
ONE(type_mismatch_v1)
ONE(vla_bound_not_positive)
ONE(float_cast_overflow)
ONE(load_invalid_value)
TWO(pointer_overflow)
HANDLER(nonnull_arg, void* data)
ONE(invalid_builtin)
TWO(alignment_assumption)
TWO(function_type_mismatch)
HANDLER(builtin_unreachable, void* data)
HANDLER(missing_return, void* data)
HANDLER(nonnull_return_v1, void* data, void* where __attribute__((unused)))
