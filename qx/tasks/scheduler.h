// scheduler.h - the job system: tasks on worker threads and fibres, and the counters they wait for.
//
//     task::initialize(nullptr, 0, 0);                     // the calling thread is the main thread
//     task::Counter left(2);
//     task::spawn(FiberMode::fiberful, ThreadMask::any_thread, Priority::normal,
//                 [&] { load(); left.internal_decrement(); });        // see qx/tasks/task.h
//     ...
//     left.wait();                                         // helps with other tasks meanwhile
//     task::terminate();
//
// A fibreful task runs on a stack of its own, of 1 MiB; where it waits or yields it leaves its
// thread, and may go on with another. So it must keep nothing of the thread over a wait: no mutex
// held, no thread-local value. A fibreless task runs on the stack of the thread that takes it,
// which is small on a worker (10000 bytes asked for), and may neither wait nor yield.
//
// Tasks leave their queue at its head and enter it at its tail; a task that has waited enters at
// the head. The first of these queues that has a task gives it:
//
//     any thread   urgent tasks; its own queue (the main thread's, a worker's); shared tasks
//     not main     then the workers' queues, from the next worker's on, unless the first task
//                  there is pinned to its worker
//
// Threads: everything here but `initialize` and `terminate` may be called by any thread once the
// library is initialised. There is one scheduler a process.
#pragma once

#include "qx/base/export.h"

struct _EXCEPTION_POINTERS;

namespace QX {

// Told of the start and end of each worker thread, on that thread. The application implements it.
class THREAD_MANAGER_INTERFACE {
public:
    virtual void reserved_1() {}
    virtual void reserved_2() {}
    virtual void reserved_3() {}
    virtual void reserved_4() {}
    virtual void reserved_5() {}

    // `worker_index` counts from 0. The token comes back at the end.
    virtual unsigned int on_worker_start(unsigned int worker_index) = 0;
    virtual void on_worker_end(unsigned int token) = 0;

    virtual ~THREAD_MANAGER_INTERFACE() = default;
};

}  // namespace QX

namespace task {

// Who may run a task: a routing key, not a set of bits. 3 + n pins the task to worker n; a number
// past the last worker counts as shared.
enum class ThreadMask : int {
    any_thread = 0,
    worker_threads = 1,
    main_thread = 2,
};

// High priority with `any_thread` makes a task urgent. What a fibreful task of high priority spawns
// has high priority too.
enum class Priority : int {
    normal = 0,
    high = 1,
};

// On the stack of the thread that takes the task, or on a fibre of its own.
enum class FiberMode : int {
    fiberless = 0,
    fiberful = 1,
};

// Starts the workers and makes the calling thread the main thread. Returns how many workers there
// are, 0 if the library was initialised already. It is 0 too where the system gives no thread for
// one of them, and exhaustion passes std::bad_alloc on: the library is then not initialised.
//
// `manager` is borrowed until `terminate`, and may be null. `worker_threads` of 0 leaves the number
// to the processors: one less than the cores with hyper-threading, else three quarters of the
// processors less 1. Whatever is asked for is limited to 1 at least and the logical processors less
// 1 at most:
//
//     8 processors on 4 cores, 0  =>  3         8 on 8 cores, 0     =>  5
//     1 processor, 0              =>  1         8 processors, 1000  =>  7
//
// `pre_created`: so many task records and fibres are made at once.
QX_API unsigned int initialize(
    QX::THREAD_MANAGER_INTERFACE* manager, unsigned int worker_threads, unsigned int pre_created);

// Ends the workers, each after the task it has in hand. Tasks still queued are neither run nor
// destroyed, and fibres that wait stay behind. Nothing if not initialised. No other thread may use
// the scheduler meanwhile.
QX_API void terminate();

// Runs the tasks that were queued for the main thread when the call began, in order. Does nothing
// on any other thread.
QX_API void run_main_thread_tasks();

namespace query {

// Between `initialize` and `terminate`.
QX_API bool is_initialized();

// 0 if not initialised.
QX_API unsigned int number_of_worker_threads();

}  // namespace query

namespace this_task {

// The number of the fibre with bit 31 set, the same for a task's whole life; 0 outside fibreful
// tasks.
QX_API unsigned int id();

// Lets others run: the task goes to the tail of its queue. Nothing outside fibreful tasks.
QX_API void yield();

}  // namespace this_task

namespace interop {

// Is asked about each exception that would leave a fibreful task, with what the system tells of it;
// process-wide, null for none. EXCEPTION_EXECUTE_HANDLER (1) ends the task as finished, the
// callable left undestroyed where it was the one that threw; EXCEPTION_CONTINUE_SEARCH (0), and
// having no filter, lets the exception pass on.
QX_API void set_exceptions_filter(long (*filter)(_EXCEPTION_POINTERS* pointers));

// Is called again and again while the calling thread waits for a counter and finds no task to run.
// Null for none: the thread then spins. For the calling thread alone.
QX_API void set_thread_wait_callback(void (*callback)(void* argument), void* argument);

}  // namespace interop

namespace detail {

struct WaitLink;
struct Task;
struct ThreadWaiter;

// What the scheduler has to know of a callable's type. No entry may be null; none is asked whether
// it is. Only `invoke` is called for a callable that runs in its thread's context.
struct FunctionTypeInfo {
    // Builds a callable in the task from the spawner's, on the spawning thread. May throw: the call
    // that spawns passes the exception on, and there is no task.
    void (*construct)(void* destination, void* source);
    // Once, after `invoke`, on the thread where that returned.
    void (*destroy)(void* object);
    // Once. What it or `destroy` throws in a fibreful task is put to the exceptions filter; from a
    // fibreless one it goes on to whoever runs tasks on that thread.
    void (*invoke)(void* object);
};

constexpr unsigned int closure_size = 512;  // bytes; what a task record holds of a callable
constexpr unsigned int closure_alignment = 16;

// Whether the caller runs in a fibreful task.
QX_API bool in_fiberful_task();

// Spawns one task, its callable constructed from `callable`.
QX_API void spawn_back(
    FiberMode mode, ThreadMask mask, Priority priority, FunctionTypeInfo const& type,
    void* callable);

// Invokes `callable` on the stack of the thread that carries the fibre. Only in a fibreful task.
QX_API void do_execute_in_thread_context(FunctionTypeInfo const& type, void* callable);

}  // namespace detail

// Counts work that is left; those who wait go on when it falls to 0. 16 bytes, of nobody else's
// memory. Whoever decrements must be sure that the counter still stands; a waiter may destroy it as
// soon as its wait returns. The count is not checked against falling below 0.
class Counter {
public:
    QX_API explicit Counter(unsigned int initial = 0);

    Counter(Counter const&) = delete;
    Counter& operator=(Counter const&) = delete;

    // Returns the count from before.
    QX_API unsigned int internal_increment(unsigned int amount);

    // One less; at 0 everyone who waits is let go on.
    QX_API void internal_decrement();

    // The count at this moment, without ordering.
    QX_API unsigned int value() const;
    unsigned int count() const { return value(); }

    // The first of those who wait, or null; all ones while others are at the list.
    detail::WaitLink const* waiters() const { return waiters_; }

    // Returns when the count has been 0. A fibreful task leaves its thread until then; the main
    // thread, or one that the scheduler does not know, runs other tasks meanwhile; a worker in a
    // fibreless task that would have to wait ends the process. Exhaustion passes std::bad_alloc to
    // a waiting thread that has no memory for a task's fibre; a worker tries again.
    QX_API void wait();

    // For the scheduler, of a task that has left its fibre to wait.
    void park(detail::Task& task);

private:
    bool link(detail::WaitLink& waiter);
    void unlink(detail::ThreadWaiter& waiter);

    unsigned int count_;
    detail::WaitLink* waiters_ = nullptr;  // all ones while locked
};

template <typename T>
class Future;

// Whether some work is finished, by its counter, which is borrowed. Null until it is given one.
template <>
class Future<void> {
public:
    Future() = default;
    explicit Future(Counter* counter) : counter_(counter) {}

    Counter* counter() const { return counter_; }

    void swap(Future& other) {
        Counter* const mine = counter_;
        counter_ = other.counter_;
        other.counter_ = mine;
    }

private:
    Counter* counter_ = nullptr;
};

}  // namespace task
