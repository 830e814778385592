#include "qx/tasks/fibre.h"

#include "qx/base/compiler.h"
#include "qx/base/windows.h"

#include <cstdint>

namespace {

constexpr std::uintptr_t head_room = 0x28;  // above the frame: the entry's home area
constexpr DWORD unwinding = 0x2 | 0x4;

// What switch_to_fiber finds on a stack that has not run yet.
struct FreshFrame {
    std::uint64_t fresh;
    unsigned char xmm[0xA0];
    std::uint32_t mxcsr;
    std::uint16_t x87;
    std::uint16_t unused[5];
    void* subsystem;  // whatever the memory holds
    void* deallocation_stack;
    void* stack_limit;
    void* stack_base;
    std::uint64_t registers[8];
    void (*entry)(void*);
    void (*returned)();
};
static_assert(offsetof(FreshFrame, mxcsr) == 0xA8);
static_assert(offsetof(FreshFrame, subsystem) == 0xB8);
static_assert(offsetof(FreshFrame, entry) == 0x118);
static_assert(sizeof(FreshFrame) == 0x128);

}  // namespace

extern "C" {

void qx_fibre_returned();

// The system puts such a handler under each thread; a fibre needs its own.
EXCEPTION_DISPOSITION
qx_fibre_unhandled(EXCEPTION_RECORD* record, void*, CONTEXT* context, DISPATCHER_CONTEXT*) {
    if (record->ExceptionFlags & unwinding) return ExceptionContinueSearch;

    EXCEPTION_POINTERS pointers = {record, context};
    LONG const answer = UnhandledExceptionFilter(&pointers);
    if (answer == EXCEPTION_CONTINUE_EXECUTION) return ExceptionContinueExecution;
    if (answer == EXCEPTION_EXECUTE_HANDLER)
        TerminateProcess(GetCurrentProcess(), record->ExceptionCode);
    return ExceptionContinueSearch;
}

void* make_fiber(void* stack_top, std::size_t stack_size, void (*entry)(void*)) {
    char* const bottom = static_cast<char*>(stack_top) - stack_size;
    auto const top =
        (reinterpret_cast<std::uintptr_t>(stack_top) - head_room) & ~std::uintptr_t{15};
    auto* const frame = reinterpret_cast<FreshFrame*>(top) - 1;

    QX_FORGET_FRAMES(bottom, stack_size);
    frame->fresh = 1;
    asm volatile("stmxcsr %0" : "=m"(frame->mxcsr));
    asm volatile("fnstcw %0" : "=m"(frame->x87));
    frame->deallocation_stack = bottom;
    frame->stack_limit = bottom;
    frame->stack_base = stack_top;
    frame->entry = entry;
    frame->returned = qx_fibre_returned;

    // Where a walk of the stack ends: the lowest frame has no caller.
    reinterpret_cast<std::uint64_t*>(top)[3] = 0;
    reinterpret_cast<std::uint64_t*>(top)[4] = 0;
    return frame;
}
}
