// The switch between stacks, by itself.
#include "qx/tasks/fibre.h"
#include "qx/base/compiler.h"
#include "qx/base/windows.h"
#include "qx/tasks/fibre_impl.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cstdint>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

extern "C" {
std::uint64_t rsp_at_entry;
void (*entry_after_note)(void*);
void note_rsp(void*);
// Loads rbx, rbp, rsi, rdi, r12 to r15 and xmm6 to xmm15 from `registers`, switches, stores them
// back.
void* switch_with_registers(void** save, void* target, bool fp, std::uint64_t* registers);
}

// clang-format off
asm(R"(
    .text
    .globl note_rsp
note_rsp:
    movq %rsp, rsp_at_entry(%rip)
    jmp *entry_after_note(%rip)
    .globl switch_with_registers
switch_with_registers:
    pushq %rbx
    pushq %rbp
    pushq %rsi
    pushq %rdi
    pushq %r12
    pushq %r13
    pushq %r14
    pushq %r15
    subq $0xC8, %rsp
    movq %r9, 0x20(%rsp)
    movups %xmm6, 0x28(%rsp)
    movups %xmm7, 0x38(%rsp)
    movups %xmm8, 0x48(%rsp)
    movups %xmm9, 0x58(%rsp)
    movups %xmm10, 0x68(%rsp)
    movups %xmm11, 0x78(%rsp)
    movups %xmm12, 0x88(%rsp)
    movups %xmm13, 0x98(%rsp)
    movups %xmm14, 0xA8(%rsp)
    movups %xmm15, 0xB8(%rsp)
    movq 0x00(%r9), %rbx
    movq 0x08(%r9), %rbp
    movq 0x10(%r9), %rsi
    movq 0x18(%r9), %rdi
    movq 0x20(%r9), %r12
    movq 0x28(%r9), %r13
    movq 0x30(%r9), %r14
    movq 0x38(%r9), %r15
    movups 0x40(%r9), %xmm6
    movups 0x50(%r9), %xmm7
    movups 0x60(%r9), %xmm8
    movups 0x70(%r9), %xmm9
    movups 0x80(%r9), %xmm10
    movups 0x90(%r9), %xmm11
    movups 0xA0(%r9), %xmm12
    movups 0xB0(%r9), %xmm13
    movups 0xC0(%r9), %xmm14
    movups 0xD0(%r9), %xmm15
    movzbl %r8b, %r9d
    xorl %r8d, %r8d
    call switch_to_fiber
    movq 0x20(%rsp), %r9
    movq %rbx, 0x00(%r9)
    movq %rbp, 0x08(%r9)
    movq %rsi, 0x10(%r9)
    movq %rdi, 0x18(%r9)
    movq %r12, 0x20(%r9)
    movq %r13, 0x28(%r9)
    movq %r14, 0x30(%r9)
    movq %r15, 0x38(%r9)
    movups %xmm6, 0x40(%r9)
    movups %xmm7, 0x50(%r9)
    movups %xmm8, 0x60(%r9)
    movups %xmm9, 0x70(%r9)
    movups %xmm10, 0x80(%r9)
    movups %xmm11, 0x90(%r9)
    movups %xmm12, 0xA0(%r9)
    movups %xmm13, 0xB0(%r9)
    movups %xmm14, 0xC0(%r9)
    movups %xmm15, 0xD0(%r9)
    movups 0x28(%rsp), %xmm6
    movups 0x38(%rsp), %xmm7
    movups 0x48(%rsp), %xmm8
    movups 0x58(%rsp), %xmm9
    movups 0x68(%rsp), %xmm10
    movups 0x78(%rsp), %xmm11
    movups 0x88(%rsp), %xmm12
    movups 0x98(%rsp), %xmm13
    movups 0xA8(%rsp), %xmm14
    movups 0xB8(%rsp), %xmm15
    addq $0xC8, %rsp
    popq %r15
    popq %r14
    popq %r13
    popq %r12
    popq %rdi
    popq %rsi
    popq %rbp
    popq %rbx
    ret
)");
// clang-format on

namespace {

constexpr std::size_t stack_size = 1 << 20;

// One fibre and the thread it was last entered from. `body` gets the object and may `leave`.
struct TestFibre {
    explicit TestFibre(void (*work)(TestFibre&), void (*entry)(void*) = nullptr)
        : stack(stack_size + 8), body(work) {
        context = make_fiber(top(), stack_size, entry != nullptr ? entry : run);
    }
    ~TestFibre() { QX_FORGET_FRAMES(stack.data(), stack.size()); }

    char* top() { return stack.data() + stack.size(); }
    void enter() { switch_carrying_exceptions(&caller, context); }
    void leave() { switch_carrying_exceptions(&context, caller); }

    static void run(void* object) {
        auto& self = *static_cast<TestFibre*>(object);
        for (;;) {
            self.body(self);
            self.leave();
        }
    }

    void switch_carrying_exceptions(void** save, void* target) {
        using namespace task::detail;
        HandledExceptions const mine = *handled_exceptions_of_thread();
        *handled_exceptions_of_thread() = {};
        switch_to_fiber(save, target, this, true);
        *handled_exceptions_of_thread() = mine;
    }

    std::vector<char> stack;
    void (*body)(TestFibre&);
    void* context = nullptr;
    void* caller = nullptr;
    std::string noted;
    std::uint64_t seen[8] = {};
};

std::uint64_t teb_word(std::uint64_t offset) {
    std::uint64_t value;
    asm volatile("movq %%gs:(%1), %0" : "=r"(value) : "r"(offset));
    return value;
}

void note_teb(std::uint64_t (&words)[8]) {
    std::uint64_t const offsets[] = {0x08, 0x10, 0x1478, 0x18, 0x00};
    for (int i = 0; i < 5; ++i) words[i] = teb_word(offsets[i]);
}

TEST(Fibre, fresh_frame_stands_as_laid_down) {
    TestFibre fibre([](TestFibre&) {});
    auto const top = (reinterpret_cast<std::uint64_t>(fibre.top()) - 0x28) & ~15ull;
    auto* const words = static_cast<std::uint64_t*>(fibre.context);
    ASSERT_EQ(reinterpret_cast<std::uint64_t>(words), top - 0x128);
    std::uint32_t mxcsr = 0;
    asm volatile("stmxcsr %0" : "=m"(mxcsr));
    EXPECT_EQ(words[0], 1u);
    EXPECT_EQ(static_cast<std::uint32_t>(words[0xA8 / 8]), mxcsr);
    EXPECT_EQ(static_cast<std::uint16_t>(words[0xA8 / 8] >> 32), 0x37F);
    auto const base = reinterpret_cast<std::uint64_t>(fibre.top());
    EXPECT_EQ(words[0xC0 / 8], base - stack_size);
    EXPECT_EQ(words[0xC8 / 8], base - stack_size);
    EXPECT_EQ(words[0xD0 / 8], base);
    EXPECT_EQ(words[0x118 / 8], reinterpret_cast<std::uint64_t>(TestFibre::run));
}

TEST(Fibre, is_entered_with_its_argument_on_an_aligned_stack) {
    for (std::size_t slack = 0; slack < 16; ++slack) {
        std::vector<char> stack(65536 + slack);
        static void* back = nullptr;
        static void* self = nullptr;
        entry_after_note = [](void* value) { switch_to_fiber(&self, back, value, true); };
        int value = 0;
        void* const fibre = make_fiber(stack.data() + stack.size(), 65536, note_rsp);
        EXPECT_EQ(switch_to_fiber(&back, fibre, &value, true), &value);
        EXPECT_EQ(rsp_at_entry % 16, 8u) << slack;
        auto const room = reinterpret_cast<std::uint64_t>(stack.data() + stack.size());
        EXPECT_GE(room - rsp_at_entry, 0x28u);
    }
}

TEST(Fibre, system_sees_the_bounds_of_the_running_stack) {
    TestFibre fibre([](TestFibre& self) { note_teb(self.seen); });
    std::uint64_t before[8] = {};
    std::uint64_t after[8] = {};
    note_teb(before);
    for (int round = 0; round < 2; ++round) {
        fibre.enter();
        note_teb(after);
        EXPECT_EQ(std::memcmp(before, after, sizeof before), 0);
        auto const top = reinterpret_cast<std::uint64_t>(fibre.top());
        EXPECT_EQ(fibre.seen[0], top);
        EXPECT_EQ(fibre.seen[1], top - stack_size);
        EXPECT_EQ(fibre.seen[2], top - stack_size);
        EXPECT_EQ(fibre.seen[4], ~0ull);  // an exception list of its own, empty
    }
}

void scramble_registers(TestFibre& self) {
    std::uint64_t registers[28];
    std::memset(registers, 0xEE, sizeof registers);
    switch_with_registers(&self.context, self.caller, true, registers);
    for (std::uint64_t word : registers) self.seen[0] += word != 0xEEEEEEEEEEEEEEEE;
}

TEST(Fibre, keeps_the_preserved_registers_of_both_sides) {
    TestFibre fibre(scramble_registers);
    std::uint64_t registers[28];
    for (std::uint64_t i = 0; i < 28; ++i) registers[i] = i * 0x0101010101010101;
    fibre.enter();
    switch_with_registers(&fibre.caller, fibre.context, true, registers);
    for (std::uint64_t i = 0; i < 28; ++i) EXPECT_EQ(registers[i], i * 0x0101010101010101) << i;
    EXPECT_EQ(fibre.seen[0], 0u);
}

std::uint32_t control_words() {
    std::uint32_t mxcsr = 0;
    std::uint16_t x87 = 0;
    asm volatile("stmxcsr %0\n\tfnstcw %1" : "=m"(mxcsr), "=m"(x87));
    return (mxcsr & 0xFFC0) << 16 | x87;
}

TEST(Fibre, keeps_the_control_words_of_both_sides) {
    TestFibre fibre([](TestFibre& self) {
        self.seen[0] = control_words();
        std::fesetround(FE_UPWARD);
        self.seen[1] = control_words();
        self.leave();
        self.seen[2] = control_words();
    });
    std::uint32_t const plain = control_words();
    fibre.enter();
    EXPECT_EQ(control_words(), plain);
    std::fesetround(FE_TOWARDZERO);
    std::uint32_t const changed = control_words();
    fibre.enter();
    EXPECT_EQ(control_words(), changed);
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(fibre.seen[0], plain);
    EXPECT_NE(fibre.seen[1], plain);
    EXPECT_EQ(fibre.seen[2], fibre.seen[1]);
}

TEST(Fibre, without_floating_point_carries_the_control_words_over) {
    static void* back = nullptr;
    static void* self = nullptr;
    std::vector<char> stack(65536);
    void* const fibre = make_fiber(stack.data() + stack.size(), stack.size(), [](void*) {
        std::fesetround(FE_UPWARD);
        switch_to_fiber(&self, back, nullptr, false);
    });
    std::uint32_t const plain = control_words();
    switch_to_fiber(&back, fibre, nullptr, false);
    EXPECT_NE(control_words(), plain);
    std::fesetround(FE_TONEAREST);
}

[[gnu::noinline]] int throw_from(int depth) {
    if (depth == 0) throw std::runtime_error("deep");
    return throw_from(depth - 1) + 1;
}

TEST(Fibre, throws_and_catches_on_its_own_stack) {
    TestFibre fibre([](TestFibre& self) {
        try {
            throw_from(20);
        } catch (std::exception const& thrown) {
            self.noted += thrown.what();
        }
        char volatile big[200000];
        for (std::size_t i = 0; i < sizeof big; i += 512) big[i] = 1;
        self.noted += big[512] == 1 ? "+" : "-";
    });
    fibre.enter();
    fibre.enter();
    EXPECT_EQ(fibre.noted, "deep+deep+");
    EXPECT_EQ(std::uncaught_exceptions(), 0);
}

[[gnu::noinline]] void capture_from(int depth, TestFibre& self) {
    void* frames[62];
    if (depth == 0)
        self.seen[0] = RtlCaptureStackBackTrace(0, 62, frames, nullptr);
    else
        capture_from(depth - 1, self);
    asm volatile("");
}

TEST(Fibre, ends_a_walk_of_its_stack_at_its_lowest_frame) {
    TestFibre fibre([](TestFibre& self) { capture_from(10, self); });
    fibre.enter();
    EXPECT_GE(fibre.seen[0], 12u);
    EXPECT_LE(fibre.seen[0], 20u);
}

void leave_inside_a_handler(TestFibre& self) {
    try {
        try {
            throw std::string("carried");
        } catch (std::string const&) {
            self.leave();
            self.noted += std::current_exception() ? "own " : "none ";
            throw;
        }
    } catch (std::string const& text) {
        self.noted += text;
    }
    self.noted += std::current_exception() ? " left over" : " clean";
}

TEST(Fibre, moves_between_threads_inside_a_handler) {
    TestFibre fibre(leave_inside_a_handler);
    std::thread([&] {
        fibre.enter();
        EXPECT_EQ(std::current_exception(), nullptr);
    }).join();
    try {
        throw 7;
    } catch (int) {
        fibre.enter();
        EXPECT_THROW(throw, int);
    }
    EXPECT_EQ(fibre.noted, "own carried clean");
}

TEST(Fibre, runs_on_many_stacks_moved_between_threads) {
    std::vector<TestFibre*> fibres;
    for (int i = 0; i < 50; ++i) {
        fibres.push_back(
            new TestFibre([](TestFibre& self) { self.seen[0] = self.seen[0] * 3 + 1; }));
    }
    auto const enter_all = [&] {
        for (TestFibre* fibre : fibres) fibre->enter();
    };
    for (int round = 0; round < 10; ++round) {
        enter_all();
        std::thread(enter_all).join();
    }
    for (TestFibre* fibre : fibres) {
        EXPECT_EQ(fibre->seen[0], 1743392200u);  // (3^20 - 1) / 2
        delete fibre;
    }
}

TEST(FibreDeathTest, entry_that_returns_ends_the_process_with_0) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            TestFibre fibre(nullptr, [](void*) {});
            fibre.enter();
            _exit(3);
        },
        testing::ExitedWithCode(0), "");
}

TEST(FibreDeathTest, fault_that_nobody_takes_reaches_the_process_filter) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            SetUnhandledExceptionFilter([](EXCEPTION_POINTERS* pointers) -> LONG {
                _exit(pointers->ExceptionRecord->ExceptionCode == 0xE0001234 ? 42 : 3);
            });
            TestFibre fibre([](TestFibre&) { RaiseException(0xE0001234, 0, 0, nullptr); });
            fibre.enter();
            _exit(4);
        },
        testing::ExitedWithCode(42), "");
}

}  // namespace
