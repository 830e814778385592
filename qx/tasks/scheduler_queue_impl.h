// scheduler_queue_impl.h - what the scheduler queues: the records of tasks and fibres, and the
// queue itself.
#pragma once

#include "qx/tasks/scheduler.h"
#include "qx/tasks/scheduler_spin_impl.h"

#include <cstdint>

namespace task::detail {

constexpr unsigned int fibre_stack_size = 1 << 20;
constexpr unsigned int cache_line = 64;

// --- Records -------------------------------------------------------------------------------------

enum WaiterKind : unsigned int { waiter_is_task = 0, waiter_is_thread = 1 };

// What stands first in everything that can wait for a counter.
struct WaitLink {
    WaitLink* next;
    unsigned int waiter_kind;
};

struct Fibre;

// A task, in a record that is used again. `next` links it into a queue, a free list or the waiters
// of a counter.
struct Task : WaitLink {
    ThreadMask thread_mask;
    Priority priority;
    Fibre* fibre;  // null: none wanted; wants_fibre(); else its own
    void (*invoke)(void*);
    void (*destroy)(void*);
    alignas(closure_alignment) unsigned char closure[closure_size];

    Task* next_task() const { return static_cast<Task*>(next); }
};
static_assert(sizeof(Task) == 560);

// What stands at the upper end of a stack, so that both are in the page that is touched first. Once
// made it is used for task after task, and never unwound.
struct Fibre {
    unsigned int id;
    unsigned int offset;  // in its block
    Fibre* next;          // in the list of idle fibres
    void* context;        // while suspended; null: never entered

    unsigned char* block() { return reinterpret_cast<unsigned char*>(this) - offset; }
    unsigned char* stack() { return reinterpret_cast<unsigned char*>(this) - fibre_stack_size; }
};
constexpr unsigned int fibre_block_size = fibre_stack_size + sizeof(Fibre);
static_assert(fibre_block_size == 1048600);

inline Fibre* wants_fibre() {
    return reinterpret_cast<Fibre*>(~std::uintptr_t{0});
}

// A thread that waits outside fibreful tasks. On its stack.
struct ThreadWaiter : WaitLink {
    unsigned int pending;  // bit 0 while waiting
};

// What a fibre asks of the thread that carries it. On the fibre's stack.
enum class MessageKind : unsigned int { finished, parked, run_on_thread, requeue };

struct FibreMessage {
    MessageKind kind;
    void* first;   // parked: the counter; run_on_thread: the type
    void* second;  // run_on_thread: the callable
};

// --- The queue -----------------------------------------------------------------------------------

// One queue in two halves, so that those who push and those who pop do not want the same line:
// tasks enter behind `in`, leave at `out`, and move over together when `out` has run out. What
// stands in `out` is before what stands in `in`. Where both locks are held, `out`'s was taken
// first.
struct TaskQueue {
    struct alignas(cache_line) Out {
        SpinLock lock;
        Task* first;
    };
    struct alignas(cache_line) In {
        SpinLock lock;
        Task* first;
        Task* last;
    };

    Out out;
    In in;

    // Without a lock: what was so a moment ago. `in` first, so that a chain that moves over
    // meanwhile is seen on one side or the other.
    bool looks_empty() const {
        return __atomic_load_n(&in.first, __ATOMIC_ACQUIRE) == nullptr &&
               __atomic_load_n(&out.first, __ATOMIC_RELAXED) == nullptr;
    }

    void push_back(Task* first, Task* last) {
        in.lock.acquire();
        if (in.first != nullptr)
            in.last->next = first;
        else
            __atomic_store_n(&in.first, first, __ATOMIC_RELAXED);
        in.last = last;
        in.lock.release();
    }

    void push_front(Task* first, Task* last) {
        out.lock.acquire();
        last->next = out.first;
        set_first(first);
        out.lock.release();
    }

    Task* pop() {
        out.lock.acquire();
        Task* const task = peek();
        if (task != nullptr) unlink(task);
        out.lock.release();
        return task;
    }

    // Gives the first task unless it is pinned to a worker.
    Task* steal();

    // The whole chain.
    Task* take_all();

    bool try_lock_empty();
    void acquire();
    void release();

private:
    void set_first(Task* task) { __atomic_store_n(&out.first, task, __ATOMIC_RELAXED); }

    // The first task, moved to `out`. With that lock.
    Task* peek() {
        if (out.first == nullptr && __atomic_load_n(&in.first, __ATOMIC_RELAXED) != nullptr)
            move_over();
        return out.first;
    }

    void move_over() {
        in.lock.acquire();
        set_first(in.first);
        __atomic_store_n(&in.first, static_cast<Task*>(nullptr), __ATOMIC_RELEASE);
        in.lock.release();
    }

    void unlink(Task* task) {
        set_first(task->next_task());
        task->next = nullptr;
    }
};

}  // namespace task::detail
