// compiler.h - the compiler's marks and builtins under names of ours, what instrumented builds are
// told, and the internal checks.
//
// QX_CHECK(condition) costs nothing unless the library is built with QX_CHECKS; then a false
// condition traps. It guards the library's own invariants, never a caller's arguments.
#pragma once

#define QX_LIKELY(condition) __builtin_expect(!!(condition), 1)
#define QX_UNLIKELY(condition) __builtin_expect(!!(condition), 0)
#define QX_NOINLINE __attribute__((noinline))
#define QX_ALWAYS_INLINE inline __attribute__((always_inline))

// Before a function that looks at whole blocks of a text: it may read past the text's end, never
// past the page that the text lies in. The instrumented builds are told to leave these reads alone.
#define QX_READS_PAST_END __attribute__((no_sanitize("address")))

// At a function's end: its last call is a true one, so that the function shows in a stack.
#define QX_KEEP_FRAME() asm volatile("")

// Ends a destructor whose object is looked at afterwards: what was stored in it stays. Without this
// the compiler drops stores to a dying object.
#define QX_KEEP_STORES() asm volatile("" : : "m"(*this))

// The same for one store, where the destructor is inlined and the object may live in registers.
#define QX_STORE_LAST(member, value) (*const_cast<decltype(member) volatile*>(&(member)) = (value))

// Stops in the debugger; the process goes on behind it when told to.
#define QX_BREAK() asm volatile("int3")

// Around classes whose virtual slots are fixed and hold no destructor: none is destroyed through a
// base.
#define QX_FIXED_SLOTS_BEGIN                                                                       \
    _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wnon-virtual-dtor\"")
#define QX_FIXED_SLOTS_END _Pragma("GCC diagnostic pop")

#if defined(QX_CHECKS)
#define QX_CHECK(condition) ((condition) ? static_cast<void>(0) : __builtin_trap())
#else
#define QX_CHECK(condition) static_cast<void>(0)
#endif

// Tells the address checker, where the build has one, that nothing of these bytes is a frame's any
// more: for stacks that are left without unwinding.
#if defined(__SANITIZE_ADDRESS__)
extern "C" void __asan_unpoison_stack_memory(void* begin, long long size);
#define QX_FORGET_FRAMES(begin, size) __asan_unpoison_stack_memory(begin, size)
#else
#define QX_FORGET_FRAMES(begin, size) static_cast<void>(0)
#endif
