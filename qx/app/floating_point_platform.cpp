#include "qx/app/floating_point.h"

#include "qx/base/windows.h"

#include <float.h>
#include <xmmintrin.h>

#include <cmath>
#include <initializer_list>

namespace QX {

namespace {

// The older unit's control word. A field that is 0 is single precision, and rounding to nearest.
constexpr unsigned int x87_masks = 0x003F;
constexpr unsigned int x87_precision = 0x0300;
constexpr unsigned int x87_rounding = 0x0C00;
constexpr unsigned int x87_infinity = 0x1000;  // of no effect on any processor in use
constexpr unsigned int x87_kept = 0xFFFF & ~(x87_precision | x87_rounding);
constexpr unsigned int x87_set = x87_infinity | x87_masks;
constexpr unsigned int x87_checked = x87_set | x87_precision | x87_rounding;

// The newer unit's control register.
constexpr unsigned int sse_past_exceptions = 0x003F;
constexpr unsigned int sse_denormals_are_zero = 0x0040;
constexpr unsigned int sse_masks = 0x1F80;
constexpr unsigned int sse_rounding = 0x6000;
constexpr unsigned int sse_flush_to_zero = 0x8000;
constexpr unsigned int sse_kept = ~(sse_past_exceptions | sse_denormals_are_zero | sse_rounding);
constexpr unsigned int sse_set = sse_flush_to_zero | sse_masks;
constexpr unsigned int sse_checked = sse_set | sse_denormals_are_zero | sse_rounding;

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
