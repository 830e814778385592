#include "qx/app/floating_point.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "tests/harness/stand_in.h"

#include <xmmintrin.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <thread>

namespace {

struct Registers {
    unsigned short x87;
    unsigned int sse;
};

Registers read() {
    Registers now = {0, _mm_getcsr()};
    __asm__ volatile("fnstcw %0" : "=m"(now.x87));
    return now;
}

void write(Registers const& to) {
    __asm__ volatile("fldcw %0" : : "m"(to.x87));
    _mm_setcsr(to.sse);
}

// Puts the thread's state back at the end.
class Kept {
public:
    Kept() : before_(read()) {}
    ~Kept() { write(before_); }

private:
    Registers before_;
};

TEST(FloatingPoint, sets_both_registers_from_any_state) {
    Kept const kept;
    constexpr Registers starts[] = {
        {0x037F, 0x1F80}, {0x0F7F, 0x7FFF}, {0x137F, 0x1FC0}, {0x0C7F, 0xFFBF}};
    for (auto const& start : starts) {
        write(start);
        EXPECT_FALSE(QX::check_fp_state(true));
        EXPECT_TRUE(QX::set_fp_state(false));
        Registers const now = read();
        EXPECT_EQ(now.x87, (start.x87 & 0xF0FF) | 0x103F);
        EXPECT_EQ(now.sse, 0x9F80u);
        EXPECT_TRUE(QX::check_fp_state(false));
        EXPECT_TRUE(QX::check_fp_state(true));
    }
}

struct Change {
    unsigned short x87;  // bits to flip
    unsigned int sse;
    bool still;
};

TEST(FloatingPoint, notices_each_change_but_flags) {
    Kept const kept;
    constexpr Change changes[] = {
        {0, 0x2000, false}, {0, 0x4000, false}, {0, 0x8000, false}, {0, 0x0040, false},
        {0, 0x0080, false}, {0, 0x1000, false}, {0, 0x003F, true},  {0x0400, 0, false},
        {0x0800, 0, false}, {0x0200, 0, false}, {0x0001, 0, false}, {0x0020, 0, false},
        {0x1000, 0, false}, {0, 0, true},
    };
    for (auto const& change : changes) {
        QX::set_fp_state(true);
        Registers now = read();
        now.x87 ^= change.x87;
        now.sse ^= change.sse;
        // An exception unmasked with its flag up would be raised by the next operation.
        write(now);
        bool const still = QX::check_fp_state(true);
        Registers const after = read();
        QX::set_fp_state(true);
        EXPECT_EQ(still, change.still) << change.x87 << ' ' << change.sse;
        EXPECT_EQ(after.x87, now.x87);
        EXPECT_EQ(after.sse, now.sse);
    }
}

TEST(FloatingPoint, enabling_exceptions_unmasks_none) {
    Kept const kept;
    QX::enable_fp_exceptions();
    EXPECT_TRUE(QX::check_fp_state(true));
    float volatile zero = 0.0f;
    float const volatile infinite = 1.0f / zero;
    EXPECT_TRUE(std::isinf(infinite));
}

TEST(FloatingPoint, flushes_results_but_takes_small_operands) {
    Kept const kept;
    QX::set_fp_state(true);
    float volatile smallest = std::numeric_limits<float>::min();
    float volatile denormal = std::numeric_limits<float>::denorm_min();
    float volatile half = 0.5f;
    float volatile big = 0x1p+127f;
    float const volatile flushed = smallest * half;
    float const volatile taken = denormal * big;
    EXPECT_EQ(flushed, 0.0f);
    EXPECT_EQ(taken, 0x1p-22f);
}

TEST(FloatingPoint, state_is_the_threads_own) {
    Kept const kept;
    QX::set_fp_state(true);
    bool other = true;
    std::thread([&] {
        write({0x037F, 0x1F80});
        other = QX::check_fp_state(true);
    }).join();
    EXPECT_FALSE(other);
    EXPECT_TRUE(QX::check_fp_state(true));
}

int fused = -1;
bool switch_is_there = false;

int __cdecl note_switch(int on) {
    return fused = on;
}

FARPROC WINAPI find_switch(HMODULE, char const* name) {
    bool const asked = switch_is_there && std::strcmp(name, "_set_FMA3_enable") == 0;
    return asked ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(note_switch)) : nullptr;
}

TEST(FloatingPoint, fused_multiply_add_is_switched_off_where_there_is_a_switch) {
    Kept const kept;
    test::StandIn const finder("GetProcAddress", find_switch);
    ASSERT_TRUE(finder.found());
    EXPECT_TRUE(QX::set_fp_state(true));
    EXPECT_EQ(fused, -1);
    switch_is_there = true;
    EXPECT_TRUE(QX::set_fp_state(true));
    EXPECT_EQ(fused, 0);
}

TEST(FloatingPoint, sign_is_copied_to_zeros_and_not_numbers_too) {
    EXPECT_EQ(QX::CopySign(3.5f, -0.0f), -3.5f);
    EXPECT_EQ(QX::CopySign(-3.5f, 2.0f), 3.5f);
    EXPECT_TRUE(std::signbit(QX::CopySign(0.0f, -1.0f)));
    float const nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE(std::signbit(QX::CopySign(nan, -1.0f)));
}

}  // namespace
