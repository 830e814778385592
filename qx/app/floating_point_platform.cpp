#include "qx/app/floating_point.h"

#include "qx/base/windows.h"

#include <float.h>
#include <xmmintrin.h>

#include <cmath>
#include <initializer_list>

namespace QX {

namespace {

constexpr unsigned int x87_kept = 0xF0FF;
constexpr unsigned int x87_set = 0x103F;
constexpr unsigned int x87_checked = 0x1F3F;
constexpr unsigned int sse_kept = 0xFFFF9F80;
constexpr unsigned int sse_set = 0x9F80;
constexpr unsigned int sse_checked = 0xFFC0;

// Not every C run-time has the switch; older ones know no fused multiply-add.
void leave_out_fused_multiply_add() {
    using Switch = int(__cdecl*)(int);
    for (wchar_t const* const name : {L"ucrtbase", L"msvcrt"}) {
        HMODULE const runtime = GetModuleHandleW(name);
        if (runtime == nullptr) continue;
        FARPROC const found = GetProcAddress(runtime, "_set_FMA3_enable");
        if (found != nullptr) reinterpret_cast<Switch>(reinterpret_cast<void*>(found))(0);
    }
}

unsigned int x87_control() {
    unsigned short word = 0;
    __asm__ volatile("fnstcw %0" : "=m"(word));
    return word;
}

void set_x87_control(unsigned int control) {
    auto const word = static_cast<unsigned short>(control);
    __asm__ volatile("fldcw %0" : : "m"(word));
}

}  // namespace

bool set_fp_state(bool) {
    leave_out_fused_multiply_add();
    _clearfp();
    set_x87_control((x87_control() & x87_kept) | x87_set);
    _mm_setcsr((_mm_getcsr() & sse_kept) | sse_set);
    return true;
}

bool check_fp_state(bool) {
    unsigned int const x87 = x87_control();
    unsigned int const sse = _mm_getcsr();
    return (x87 & x87_checked) == x87_set && (sse & sse_checked) == sse_set;
}

void enable_fp_exceptions() {
    set_fp_state(true);
}

float CopySign(float magnitude, float sign) {
    return std::copysign(magnitude, sign);
}

}  // namespace QX
