// What becomes of exceptions in tasks.
#include "tests/tasks/scheduler_fixture.h"

#include <stdexcept>

using namespace test;

namespace {

constexpr DWORD own_code = 0xE0001234;

struct Asked {
    std::atomic<int> times = 0;
    DWORD code = 0;
    void* address = nullptr;
    DWORD64 stack_pointer = 0;
} asked;

template <long answer>
long note_and_answer(_EXCEPTION_POINTERS* pointers) {
    asked.code = pointers->ExceptionRecord->ExceptionCode;
    asked.address = pointers->ExceptionRecord->ExceptionAddress;
    asked.stack_pointer = pointers->ContextRecord->Rsp;
    ++asked.times;
    return answer;
}

class Filter {
public:
    explicit Filter(long (*filter)(_EXCEPTION_POINTERS*)) {
        asked.times = 0;
        asked.code = 0;
        task::interop::set_exceptions_filter(filter);
    }
    ~Filter() { task::interop::set_exceptions_filter(nullptr); }
};

// A callable that fails in its run or in its destruction, and counts both.
struct Failing {
    enum Way { fault, raise, throw_object, throw_in_destruction, not_at_all } way;
    std::atomic<int>* begun;
    std::atomic<int>* destroyed;
    bool moved_from = false;

    Failing(Way how, std::atomic<int>& runs, std::atomic<int>& ends)
        : way(how), begun(&runs), destroyed(&ends) {}
    Failing(Failing&& other) noexcept
        : way(other.way), begun(other.begun), destroyed(other.destroyed) {
        other.moved_from = true;
    }
    ~Failing() noexcept(false) {
        if (moved_from) return;
        ++*destroyed;
        if (way == throw_in_destruction) throw std::runtime_error("late");
    }

    void operator()() {
        ++*begun;
        if (way == fault) asm volatile("movl $1, (%0)" : : "r"(nullptr) : "memory");
        if (way == raise) RaiseException(own_code, 0, 0, nullptr);
        if (way == throw_object) throw std::string("a long text that owns a block of its own");
    }
};

TEST(ExceptionsFilter, ends_the_task_where_it_says_so) {
    struct {
        Failing::Way way;
        DWORD code;
        int destroyed;  // a run that failed leaves the callable as it is
    } const rows[] = {
        {Failing::fault, EXCEPTION_ACCESS_VIOLATION, 0},
        {Failing::raise, own_code, 0},
        {Failing::throw_object, 0x20474343, 0},
        {Failing::throw_in_destruction, 0x20474343, 1},
        {Failing::not_at_all, 0, 1},
    };
    Library const library(1);
    for (auto const& row : rows) {
        Filter const filter(note_and_answer<1>);
        std::atomic<int> begun = 0;
        std::atomic<int> destroyed = 0;
        std::atomic<bool> next_ran = false;
        task::spawn(fiberful, pinned_to(0), normal, Failing(row.way, begun, destroyed));
        task::spawn(fiberful, pinned_to(0), normal, [&] { next_ran = true; });
        await([&] { return next_ran.load(); });
        EXPECT_EQ(begun, 1);
        EXPECT_EQ(destroyed, row.destroyed);
        EXPECT_EQ(asked.times, row.code != 0);
        EXPECT_EQ(asked.code, row.code);
        EXPECT_EQ(std::uncaught_exceptions(), 0);
    }
}

TEST(ExceptionsFilter, is_not_asked_about_what_the_task_catches) {
    Library const library(1);
    Filter const filter(note_and_answer<1>);
    std::atomic<bool> caught = false;
    task::spawn(fiberful, worker_threads, normal, [&] {
        try {
            throw 5;
        } catch (int) {
            caught = true;
        }
    });
    await([&] { return caught.load(); });
    EXPECT_EQ(asked.times, 0);
}

TEST(ExceptionsFilter, may_let_the_task_go_on) {
    Library const library(1);
    Filter const filter(note_and_answer<-1>);
    std::atomic<bool> went_on = false;
    task::spawn(fiberful, worker_threads, normal, [&] {
        RaiseException(own_code, 0, 0, nullptr);
        went_on = true;
    });
    await([&] { return went_on.load(); });
    EXPECT_EQ(asked.times, 1);
    EXPECT_EQ(asked.code, own_code);
    EXPECT_NE(asked.address, nullptr);
    EXPECT_NE(asked.stack_pointer, 0u);
}

// The fibre of a task that was ended serves the next one.
TEST(ExceptionsFilter, ends_many_tasks_on_all_threads) {
    Library const library(4);
    Filter const filter(note_and_answer<1>);
    constexpr int count = 300;
    std::atomic<int> begun = 0;
    std::atomic<int> destroyed = 0;
    task::Counter left(count);
    for (int i = 0; i < count; ++i) {
        task::spawn(fiberful, any_thread, normal, [&, i] {
            task::Counter child(1);
            task::spawn(fiberful, any_thread, normal, [&] { child.internal_decrement(); });
            child.wait();
            left.internal_decrement();
            Failing(static_cast<Failing::Way>(i % 3), begun, destroyed)();
        });
    }
    left.wait();
    await([&] { return asked.times == count; });
    EXPECT_EQ(begun, count);
}

TEST(ExceptionsFilterDeathTest, that_is_missing_or_says_no_lets_the_exception_pass_on) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    for (bool set : {false, true}) {
        EXPECT_EXIT(
            {
                SetUnhandledExceptionFilter([](EXCEPTION_POINTERS* pointers) -> LONG {
                    _exit(pointers->ExceptionRecord->ExceptionCode == own_code ? 42 : 3);
                });
                Library const library(1);
                if (set) task::interop::set_exceptions_filter(note_and_answer<0>);
                task::spawn(fiberful, worker_threads, normal, [] {
                    RaiseException(own_code, 0, 0, nullptr);
                });
                Sleep(5000);
                _exit(4);
            },
            testing::ExitedWithCode(42), "");
    }
}

TEST(ExceptionsFilterDeathTest, that_is_missing_lets_a_thrown_object_end_the_process) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            std::set_terminate([] { _exit(42); });
            Library const library(1);
            task::spawn(fiberful, worker_threads, normal, [] { throw 7; });
            Sleep(5000);
            _exit(4);
        },
        testing::ExitedWithCode(42), "");
}

TEST(ExceptionsFilterDeathTest, does_not_guard_fibreless_tasks) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            SetUnhandledExceptionFilter([](EXCEPTION_POINTERS*) -> LONG { _exit(42); });
            Library const library(1);
            task::interop::set_exceptions_filter(note_and_answer<1>);
            task::spawn(
                fiberless, worker_threads, normal, [] { RaiseException(own_code, 0, 0, nullptr); });
            Sleep(5000);
            _exit(4);
        },
        testing::ExitedWithCode(42), "");
}

// A task that waits inside a handler takes its exception along, to whichever thread resumes it.
TEST(Exceptions, are_carried_over_waits) {
    Library const library(4);
    constexpr int count = 200;
    task::Counter left(count);
    std::atomic<int> right = 0;
    for (int i = 0; i < count; ++i) {
        task::spawn(fiberful, any_thread, normal, [&, i] {
            try {
                try {
                    throw i;
                } catch (int) {
                    task::Counter child(1);
                    task::spawn(fiberful, any_thread, normal, [&] {
                        if (std::current_exception()) right = -10000;
                        child.internal_decrement();
                    });
                    child.wait();
                    task::this_task::yield();
                    throw;
                }
            } catch (int thrown) {
                right += thrown == i;
            }
            if (std::current_exception()) right = -10000;
            left.internal_decrement();
        });
    }
    left.wait();
    EXPECT_EQ(right, count);
}

// What the host's own thread runs may throw to the host, and the scheduler stays whole.
TEST(Exceptions, of_fibreless_tasks_reach_the_main_threads_caller) {
    Library const library(1);
    task::spawn(fiberless, main_thread, normal, [] { throw 7; });
    EXPECT_THROW(task::run_main_thread_tasks(), int);
    task::spawn(
        fiberful, main_thread, normal, [] { task::execute_in_thread_context([] { throw 8; }); });
    EXPECT_THROW(task::run_main_thread_tasks(), int);
    EXPECT_FALSE(task::detail::in_fiberful_task());
    task::Counter counter(1);
    task::spawn(fiberless, main_thread, normal, [] { throw 9; });
    EXPECT_THROW(counter.wait(), int);
    EXPECT_EQ(counter.waiters_, nullptr);  // nothing of the wait that was left
    bool ran = false;
    task::spawn(fiberful, main_thread, normal, [&] { ran = true; });
    task::run_main_thread_tasks();
    EXPECT_TRUE(ran);
}

}  // namespace
