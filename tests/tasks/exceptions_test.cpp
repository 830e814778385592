// What becomes of exceptions in tasks.
#include "tests/tasks/scheduler_fixture.h"

#include <stdexcept>

using namespace test;

namespace {

constexpr DWORD own_code = 0xE0001234;
constexpr DWORD thrown_object = 0x20474343;

std::atomic<int> asked, begun, destroyed;
DWORD code_asked;

template <long answer>
long note_and_answer(_EXCEPTION_POINTERS* pointers) {
    code_asked = pointers->ExceptionRecord->ExceptionCode;
    ++asked;
    return pointers->ContextRecord->Rsp != 0 ? answer : 0;
}

void set_filter(long (*filter)(_EXCEPTION_POINTERS*)) {
    asked = begun = destroyed = 0;
    code_asked = 0;
    task::interop::set_exceptions_filter(filter);
}

enum Way { fault, raise, throw_object, throw_in_destruction, throw_and_catch };

// A callable that fails in its run or in its destruction.
struct Failing {
    explicit Failing(Way how) : way(how) {}
    Failing(Failing&& other) noexcept : way(other.way) { other.moved_from = true; }
    ~Failing() noexcept(false) {
        if (moved_from) return;
        ++destroyed;
        if (way == throw_in_destruction) throw std::runtime_error("late");
    }
    void operator()() try {
        ++begun;
        if (way == fault) asm volatile("movl $1, (%0)" : : "r"(nullptr) : "memory");
        if (way == raise) RaiseException(own_code, 0, 0, nullptr);
        if (way == throw_object) throw std::string("a long text that owns a block of its own");
        if (way == throw_and_catch) throw 7;
    } catch (int) {}

    Way way;
    bool moved_from = false;
};

TEST(ExceptionsFilter, ends_the_task_where_it_says_so) {
    struct {
        Way way;
        long (*filter)(_EXCEPTION_POINTERS*);
        DWORD code;
        int destroyed;  // a run that failed leaves the callable as it is
    } const rows[] = {
        {fault, note_and_answer<1>, EXCEPTION_ACCESS_VIOLATION, 0},
        {raise, note_and_answer<1>, own_code, 0},
        {raise, note_and_answer<-1>, own_code, 1},  // goes on
        {throw_object, note_and_answer<1>, thrown_object, 0},
        {throw_in_destruction, note_and_answer<1>, thrown_object, 1},
        {throw_and_catch, note_and_answer<1>, 0, 1},
    };
    Library const library(1);
    for (auto const& row : rows) {
        set_filter(row.filter);
        std::atomic<bool> next_ran = false;
        task::spawn(fiberful, pinned_to(0), normal, Failing(row.way));
        task::spawn(fiberful, pinned_to(0), normal, [&] { next_ran = true; });
        await([&] { return next_ran.load(); });
        EXPECT_EQ(begun, 1);
        EXPECT_EQ(destroyed, row.destroyed);
        EXPECT_EQ(asked, row.code != 0);
        EXPECT_EQ(code_asked, row.code);
        set_filter(nullptr);
    }
}

TEST(ExceptionsFilterDeathTest, that_is_missing_or_says_no_lets_the_exception_pass_on) {
    struct {
        FiberMode mode;
        long (*filter)(_EXCEPTION_POINTERS*);
        Way way;
    } const rows[] = {
        {fiberful, nullptr, raise},
        {fiberful, note_and_answer<0>, raise},
        {fiberless, note_and_answer<1>, raise},  // has no guard
        {fiberful, nullptr, throw_object}};
    auto const die = [](auto const& row) {
        std::set_terminate([] { _exit(42); });
        if (row.way == raise) {
            SetUnhandledExceptionFilter([](EXCEPTION_POINTERS* pointers) -> LONG {
                _exit(pointers->ExceptionRecord->ExceptionCode == own_code ? 42 : 3);
            });
        }
        Library const library(1);
        task::interop::set_exceptions_filter(row.filter);
        task::spawn(row.mode, worker_threads, normal, Failing(row.way));
        Sleep(5000);
        _exit(4);
    };
    for (auto const& row : rows) EXPECT_EXIT(die(row), testing::ExitedWithCode(42), "");
}

// A task that waits inside a handler takes its exception along, to whichever thread resumes it; and
// the fibre of one that the filter has ended serves the next.
TEST(Exceptions, are_carried_over_waits_and_end_with_their_tasks) {
    Library const library(4);
    set_filter(note_and_answer<1>);
    constexpr int count = 200;
    task::Counter left(2 * count);
    std::atomic<int> right = 0;
    for (int i = 0; i < 2 * count; ++i) {
        task::spawn(fiberful, any_thread, normal, [&, i] {
            right += std::current_exception() == nullptr;
            try {
                throw i;
            } catch (int const& thrown) {
                left.internal_decrement();
                i < count ? left.wait() : task::this_task::yield();
                right += thrown == i && std::current_exception() != nullptr;
            }
            right += std::current_exception() == nullptr;
            if (i % 2) throw std::runtime_error("the last of it");
            RaiseException(own_code, 0, 0, nullptr);
        });
    }
    await([&] { return asked == 2 * count; });
    EXPECT_EQ(right, 3 * 2 * count);
    set_filter(nullptr);
}

// What the host's own thread runs may throw to the host, and the scheduler stays whole.
TEST(Exceptions, of_fibreless_tasks_reach_the_main_threads_caller) {
    Library const library(1);
    auto const fail = [] { throw 7; };
    task::spawn(fiberless, main_thread, normal, fail);
    EXPECT_THROW(task::run_main_thread_tasks(), int);
    task::spawn(fiberful, main_thread, normal, [=] { task::execute_in_thread_context(fail); });
    EXPECT_THROW(task::run_main_thread_tasks(), int);
    EXPECT_FALSE(task::detail::in_fiberful_task());
    task::Counter counter(1);
    task::spawn(fiberless, main_thread, normal, fail);
    EXPECT_THROW(counter.wait(), int);
    EXPECT_EQ(counter.waiters_, nullptr);  // nothing of the wait that was left
    task::spawn(fiberful, main_thread, normal, [&] { counter.internal_decrement(); });
    task::run_main_thread_tasks();
    EXPECT_EQ(counter.value(), 0u);
}

}  // namespace
