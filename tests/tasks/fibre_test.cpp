// The switch between stacks, by itself.
#include "qx/base/compiler.h"
#include "qx/base/windows.h"
#include "qx/tasks/fibre.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr std::size_t stack_size = 1 << 20;

// One fibre and the thread it was last entered from. `body` gets the object.
struct TestFibre {
    explicit TestFibre(void (*work)(TestFibre&), void (*entry)(void*) = run, int slack = 0)
        : stack(stack_size + slack), body(work) {
        context = make_fiber(top(), stack_size, entry);
    }
    ~TestFibre() { QX_FORGET_FRAMES(stack.data(), stack.size()); }

    char* top() { return stack.data() + stack.size(); }
    void* enter() { return switch_to_fiber(&caller, context, this, true); }

    static void run(void* object) {
        auto& self = *static_cast<TestFibre*>(object);
        for (;; switch_to_fiber(&self.context, self.caller, object, true)) self.body(self);
    }

    std::vector<char> stack;
    void (*body)(TestFibre&);
    void* context = nullptr;
    void* caller = nullptr;
    std::string noted;
    std::uint64_t seen[5] = {};
};

TEST(Fibre, fresh_frame_stands_as_laid_down_wherever_the_stack_ends) {
    for (int slack = 0; slack < 16; ++slack) {
        TestFibre fibre([](TestFibre&) {}, TestFibre::run, slack);
        auto const base = reinterpret_cast<std::uint64_t>(fibre.top());
        auto* const words = static_cast<std::uint64_t*>(fibre.context);
        ASSERT_EQ(reinterpret_cast<std::uint64_t>(words), ((base - 0x28) & ~15ull) - 0x128);
        std::uint32_t mxcsr = 0;
        asm volatile("stmxcsr %0" : "=m"(mxcsr));
        EXPECT_EQ(words[0], 1u);
        EXPECT_EQ(words[0xA8 / 8] & 0xFFFFFFFFFFFF, 0x37Full << 32 | mxcsr);
        EXPECT_EQ(words[0xC0 / 8], base - stack_size);
        EXPECT_EQ(words[0xC8 / 8], base - stack_size);
        EXPECT_EQ(words[0xD0 / 8], base);
        EXPECT_EQ(words[0x118 / 8], reinterpret_cast<std::uint64_t>(TestFibre::run));
        EXPECT_EQ(fibre.enter(), &fibre);
    }
}

// Base, limit, deallocation stack, sub-system pointer, exception list.
void note_thread_block(std::uint64_t (&words)[5]) {
    std::uint64_t const offsets[] = {0x08, 0x10, 0x1478, 0x18, 0x00};
    for (int i = 0; i < 5; ++i)
        asm volatile("movq %%gs:(%1), %0" : "=r"(words[i]) : "r"(offsets[i]));
}

TEST(Fibre, system_sees_the_bounds_of_the_running_stack) {
    TestFibre fibre([](TestFibre& self) { note_thread_block(self.seen); });
    std::uint64_t before[5];
    std::uint64_t after[5];
    note_thread_block(before);
    for (int round = 0; round < 2; ++round) {
        fibre.enter();
        note_thread_block(after);
        EXPECT_EQ(std::memcmp(before, after, sizeof before), 0);
        auto const top = reinterpret_cast<std::uint64_t>(fibre.top());
        EXPECT_EQ(fibre.seen[0], top);
        EXPECT_EQ(fibre.seen[1], top - stack_size);
        EXPECT_EQ(fibre.seen[2], top - stack_size);
        EXPECT_EQ(fibre.seen[4], ~0ull);  // an exception list of its own, empty
    }
}

// What a call preserves, but for the stack pointer.
struct alignas(16) Registers {
    std::uint64_t general[8];
    unsigned char floating[512];  // as fxsave has them

    explicit Registers(unsigned char filling, std::uint16_t x87, std::uint32_t sse) {
        asm volatile("fxsave64 %0" : "=m"(floating));
        std::memset(general, filling, sizeof general);
        std::memset(floating + 256, filling, 160);  // xmm6 to xmm15
        std::memcpy(floating, &x87, sizeof x87);
        std::memcpy(floating + 24, &sse, sizeof sse);
    }
    bool operator==(Registers const& other) const {
        return std::memcmp(general, other.general, sizeof general) == 0 &&
               std::memcmp(floating, other.floating, 2) == 0 &&
               std::memcmp(floating + 24, other.floating + 24, 4) == 0 &&
               std::memcmp(floating + 256, other.floating + 256, 160) == 0;
    }
};

// Loads `registers`, switches, and stores them as they then are.
[[gnu::noinline]] void switch_with(Registers& registers, void** save, void* target) {
    auto* at = &registers;
    // clang-format off
    asm volatile(R"(
        movq %%rsp, %%r8
        andq $-16, %%rsp
        subq $0x240, %%rsp
        movq %%rax, 0x20(%%rsp)
        movq %%rbp, 0x28(%%rsp)
        movq %%r8, 0x30(%%rsp)
        fxsave64 0x40(%%rsp)
        fxrstor64 0x40(%%rax)
        .set at, 0
        .irp register, rbx, rbp, rsi, rdi, r12, r13, r14, r15
            movq at(%%rax), %%\register
            .set at, at + 8
        .endr
        movl $1, %%r9d
        call switch_to_fiber
        movq 0x20(%%rsp), %%rax
        fxsave64 0x40(%%rax)
        .set at, 0
        .irp register, rbx, rbp, rsi, rdi, r12, r13, r14, r15
            movq %%\register, at(%%rax)
            .set at, at + 8
        .endr
        fxrstor64 0x40(%%rsp)
        movq 0x28(%%rsp), %%rbp
        movq 0x30(%%rsp), %%rsp
    )" : "+a"(at), "+c"(save), "+d"(target) : : "memory", "cc", "rbx", "rsi", "rdi", "r8", "r9",
        "r10", "r11", "r12", "r13", "r14", "r15");
    // clang-format on
}

TEST(Fibre, keeps_registers_and_control_words_of_both_sides) {
    TestFibre fibre([](TestFibre& self) {
        Registers const filled(0xEE, 0x0B7F, 0x5F80);
        Registers registers = filled;
        switch_with(registers, &self.context, self.caller);
        self.noted = registers == filled ? "kept" : "lost";
    });
    for (unsigned char filling = 1; filling < 4; ++filling) {
        Registers const filled(filling, 0x077F, 0x3F80);
        Registers registers = filled;
        fibre.enter();
        switch_with(registers, &fibre.caller, fibre.context);
        EXPECT_TRUE(registers == filled);
        EXPECT_EQ(fibre.noted, "kept");
    }
}

TEST(Fibre, without_floating_point_carries_the_control_words_over) {
    TestFibre fibre([](TestFibre& self) {
        std::fesetround(FE_UPWARD);
        switch_to_fiber(&self.context, self.caller, &self, false);
    });
    switch_to_fiber(&fibre.caller, fibre.context, &fibre, false);
    EXPECT_EQ(std::fegetround(), FE_UPWARD);
    std::fesetround(FE_TONEAREST);
}

TEST(FibreDeathTest, entry_that_returns_ends_the_process_with_0) {
    EXPECT_EXIT(
        {
            TestFibre fibre(nullptr, [](void*) {});
            fibre.enter();
            _exit(3);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
