// address_runtime.cpp - what code compiled with -fsanitize=address calls, since the cross compiler
// brings no run-time of its own. One DLL shared by the library and the tests; the shadow is
// committed on first touch. The first error is reported with addresses and ends the process with
// code 98; x86_64-w64-mingw32-addr2line turns them into lines.
//
// The arena is not instrumented, since it writes where others' marks may be left, and its blocks
// are not watched: of the heap's faults the arena's own checks tell.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#define RUNTIME extern "C" __declspec(dllexport)

namespace {

constexpr std::uintptr_t shadow_offset = 0x7fff8000;
constexpr std::uintptr_t shadow_size = 1ull << 44;
constexpr std::uintptr_t low_addresses = 1ull << 33;

std::uint8_t* shadow(std::uintptr_t address) {
    return reinterpret_cast<std::uint8_t*>((address >> 3) + shadow_offset);
}

LONG CALLBACK commit_shadow(EXCEPTION_POINTERS* pointers) {
    auto const* const record = pointers->ExceptionRecord;
    if (record->ExceptionCode != EXCEPTION_ACCESS_VIOLATION || record->NumberParameters < 2)
        return EXCEPTION_CONTINUE_SEARCH;
    std::uintptr_t const address = record->ExceptionInformation[1];
    if (address < shadow_offset || address >= shadow_offset + shadow_size)
        return EXCEPTION_CONTINUE_SEARCH;
    MEMORY_BASIC_INFORMATION info;
    if (!VirtualQuery(reinterpret_cast<void*>(address), &info, sizeof info))
        return EXCEPTION_CONTINUE_SEARCH;
    if (info.State == MEM_COMMIT && info.Protect == PAGE_READWRITE)
        return EXCEPTION_CONTINUE_EXECUTION;  // another thread was faster
    void* const page = VirtualAlloc(
        reinterpret_cast<void*>(address & ~0xFFFFull), 65536,
        info.State == MEM_FREE ? MEM_RESERVE | MEM_COMMIT : MEM_COMMIT, PAGE_READWRITE);
    return page ? EXCEPTION_CONTINUE_EXECUTION : EXCEPTION_CONTINUE_SEARCH;
}

// The shadow of the lowest addresses, where the stacks and heaps of the process are. Where somebody
// has memory there already, as Wine's own heap may, its bytes can be read as marks.
bool shadow_is_ours = true;

void take_low_shadow() {
    constexpr std::uintptr_t first = (shadow_offset + 0xFFFF) & ~0xFFFFull;
    shadow_is_ours = VirtualAlloc(
                         reinterpret_cast<void*>(first), low_addresses >> 3, MEM_RESERVE,
                         PAGE_READWRITE) != nullptr;
}

void start() {
    static bool const once = [] {
        take_low_shadow();
        return AddVectoredExceptionHandler(1, commit_shadow), true;
    }();
    (void)once;
}

[[noreturn]] void report(char const* what, std::uintptr_t address, std::size_t size) {
    std::fprintf(
        stderr, "bad %s of %zu bytes at %p, shadow %02x\n", what, size,
        reinterpret_cast<void*>(address), *shadow(address));
    if (!shadow_is_ours) std::fputs("   or chance: run again with setarch -R\n", stderr);
    void* frames[24];
    int const count = RtlCaptureStackBackTrace(2, 24, frames, nullptr);
    for (int i = 0; i < count && frames[i]; ++i) std::fprintf(stderr, "   %p\n", frames[i]);
    std::fflush(stderr);
    std::_Exit(98);
}

void fill(std::uintptr_t address, std::size_t size, std::uint8_t value) {
    std::memset(shadow(address), value, size / 8);
}

void check(char const* what, std::uintptr_t address, std::size_t size) {
    std::uint8_t const value = *shadow(address);
    bool const inside =
        static_cast<std::int8_t>((address & 7) + size - 1) < static_cast<std::int8_t>(value);
    if (value && (size >= 8 || !inside)) report(what, address, size);
}

struct Global {
    std::uintptr_t begin, size, size_with_redzone;
    char const *name, *module;
    std::uintptr_t dynamic;
    void* location;
    std::uintptr_t odr;
};

}  // namespace

RUNTIME void __asan_init() {
    start();
}
RUNTIME void __asan_version_mismatch_check_v8() {}
RUNTIME void __asan_before_dynamic_init(char const*) {}
RUNTIME void __asan_after_dynamic_init() {}
extern "C" {
__declspec(dllexport) int __asan_option_detect_stack_use_after_return = 0;
}

RUNTIME void __asan_handle_no_return() {
    auto const* const block = reinterpret_cast<NT_TIB*>(NtCurrentTeb());
    auto const stack = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)) & ~7ull;
    auto const base = reinterpret_cast<std::uintptr_t>(block->StackBase);
    if (base > stack) fill(stack, base - stack, 0);
}

#define SIZED(n)                                                                                   \
    RUNTIME void __asan_report_load##n(std::uintptr_t p) {                                         \
        report("read", p, n);                                                                      \
    }                                                                                              \
    RUNTIME void __asan_report_store##n(std::uintptr_t p) {                                        \
        report("write", p, n);                                                                     \
    }                                                                                              \
    RUNTIME void __asan_load##n(std::uintptr_t p) {                                                \
        check("read", p, n);                                                                       \
    }                                                                                              \
    RUNTIME void __asan_store##n(std::uintptr_t p) {                                               \
        check("write", p, n);                                                                      \
    }
SIZED(1)
SIZED(2)
SIZED(4)
SIZED(8)
SIZED(16)

RUNTIME void __asan_report_load_n(std::uintptr_t p, std::size_t n) {
    report("read", p, n);
}
RUNTIME void __asan_report_store_n(std::uintptr_t p, std::size_t n) {
    report("write", p, n);
}
RUNTIME void __asan_loadN(std::uintptr_t p, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) check("read", p + i, 1);
}
RUNTIME void __asan_storeN(std::uintptr_t p, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) check("write", p + i, 1);
}

RUNTIME void __asan_poison_stack_memory(std::uintptr_t p, std::size_t n) {
    fill(p, n, 0xf8);
}
RUNTIME void __asan_unpoison_stack_memory(std::uintptr_t p, std::size_t n) {
    fill(p, n, 0);
    if (n & 7) *shadow(p + (n & ~7ull)) = n & 7;
}
RUNTIME void __asan_allocas_unpoison(std::uintptr_t low, std::uintptr_t high) {
    if (low && high > low) fill(low, high - low, 0);
}
RUNTIME void __asan_alloca_poison(std::uintptr_t p, std::size_t n) {
    fill(p - 32, 32, 0xca);
    fill((p + n + 31) & ~31ull, 32, 0xcb);
    if (n & 7) *shadow(p + (n & ~7ull)) = n & 7;
}

RUNTIME void __asan_register_globals(Global* globals, std::size_t count) {
    start();
    for (Global* g = globals; g != globals + count; ++g) {
        std::size_t const aligned = (g->size + 7) & ~7ull;
        fill(g->begin + aligned, g->size_with_redzone - aligned, 0xf9);
        if (g->size & 7) *shadow(g->begin + (g->size & ~7ull)) = g->size & 7;
    }
}
RUNTIME void __asan_unregister_globals(Global* globals, std::size_t count) {
    for (Global* g = globals; g != globals + count; ++g) fill(g->begin, g->size_with_redzone, 0);
}

// A block that the arena hands out. Stacks of fibres lie in such blocks, and one that was given up
// in the middle of its work leaves the marks of its frames behind.
RUNTIME void qx_asan_fresh(void const* block, std::size_t usable) {
    start();
    fill(reinterpret_cast<std::uintptr_t>(block), usable, 0);
}

// The same for the stack of a thread that begins where another thread's was.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*) {
    if (reason != DLL_THREAD_ATTACH) return TRUE;
    auto const base = reinterpret_cast<NT_TIB*>(NtCurrentTeb())->StackBase;
    MEMORY_BASIC_INFORMATION info;
    if (VirtualQuery(__builtin_frame_address(0), &info, sizeof info)) {
        auto const low = reinterpret_cast<std::uintptr_t>(info.AllocationBase);
        fill(low, reinterpret_cast<std::uintptr_t>(base) - low, 0);
    }
    return TRUE;
}
