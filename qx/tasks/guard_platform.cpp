#include "qx/tasks/guard_impl.h"

#include "qx/base/windows.h"

#include <cxxabi.h>
#include <unwind.h>

#include <cstddef>

namespace {

constexpr DWORD thrown_object = 0x20474343;  // the code of the compiler's own exceptions
constexpr DWORD unwinding = 0x2 | 0x4;
constexpr int filter_offset = 0x20;  // in the frame of qx_guarded_call

using Filter = long (*)(_EXCEPTION_POINTERS*);

}  // namespace

extern "C" {

extern char qx_guard_landing[];

#if defined(QX_SANITISE_ADDRESS)
void qx_asan_fresh(void const* block, std::size_t usable);
#endif

void qx_guard_dispose(void* thrown) {
    abi::__cxa_begin_catch(thrown);
    abi::__cxa_end_catch();
}

// The frames up to `frame` are left without their own clean-up, and system code puts its records
// where they were: the address-checking build must forget the marks of both.
static void forget_marks_below(void* frame) {
#if defined(QX_SANITISE_ADDRESS)
    char* const low = static_cast<char*>(__builtin_frame_address(0));
    qx_asan_fresh(low, static_cast<std::size_t>(static_cast<char*>(frame) - low));
#else
    static_cast<void>(frame);
#endif
}

// Clean-ups on the way resume through the header, so it has to know where this unwinding ends.
static void* unwind_value(EXCEPTION_RECORD* record, void* frame) {
    if (record->ExceptionCode != thrown_object) return reinterpret_cast<void*>(1);
    auto* const header = reinterpret_cast<_Unwind_Exception*>(record->ExceptionInformation[0]);
    auto const place = reinterpret_cast<ULONG_PTR>(frame);
    auto const landing = reinterpret_cast<ULONG_PTR>(qx_guard_landing);
    auto const value = reinterpret_cast<ULONG_PTR>(header);
    header->private_[1] = place;
    header->private_[2] = landing;
    header->private_[3] = value;
    record->NumberParameters = 4;
    record->ExceptionInformation[1] = place;
    record->ExceptionInformation[2] = landing;
    record->ExceptionInformation[3] = value;
    return header;
}

EXCEPTION_DISPOSITION qx_guard_handler(
    EXCEPTION_RECORD* record, void* frame, CONTEXT* context, DISPATCHER_CONTEXT* dispatcher) {
    forget_marks_below(frame);
    if (record->ExceptionFlags & unwinding) return ExceptionContinueSearch;

    auto const filter = *reinterpret_cast<Filter*>(static_cast<char*>(frame) + filter_offset);
    EXCEPTION_POINTERS pointers = {record, context};
    long const answer = filter(&pointers);
    if (answer < 0) return ExceptionContinueExecution;
    if (answer == QX::continue_search) return ExceptionContinueSearch;

    RtlUnwindEx(
        frame, qx_guard_landing, record, unwind_value(record, frame), dispatcher->ContextRecord,
        static_cast<UNWIND_HISTORY_TABLE*>(dispatcher->HistoryTable));
    return ExceptionContinueSearch;
}
}
