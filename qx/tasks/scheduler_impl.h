// scheduler_impl.h - the scheduler's records, queues and locks. docs/scheduler.md tells how they
// work together.
#pragma once

#include "qx/base/compiler.h"
#include "qx/memory/heap.h"
#include "qx/tasks/fibre.h"
#include "qx/tasks/fibre_impl.h"
#include "qx/tasks/scheduler.h"
#include "qx/tasks/thread.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace task::detail {

constexpr unsigned int fibre_stack_size = 1 << 20;
constexpr unsigned int cache_line = 64;

// Begins to bring a line in to be written, so that it is not asked for twice.
inline void fetch_for_writing(void const* line) {
    asm volatile("prefetchw %0" : : "m"(*static_cast<char const*>(line)));
}

// --- Spinning ------------------------------------------------------------------------------------

// Gives the processor to another thread that is ready, if there is one.
void give_way();

// Waits a little, longer by turns: a lock's owner may have been taken off its processor.
class Spin {
public:
    void pause() {
        __builtin_ia32_pause();
        if (++rounds_ % rounds_before_giving_way == 0) give_way();
    }

private:
    static constexpr unsigned int rounds_before_giving_way = 1024;
    unsigned int rounds_ = 0;
};

// Pauses between two looks for work, each longer than the last.
class Backoff {
public:
    unsigned int next() {
        if (length_ < longest) ++length_;
        return length_;
    }
    void reset() { length_ = 0; }

private:
    static constexpr unsigned int longest = 16;
    unsigned int length_ = 0;
};

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

// --- Lists whose head is their lock --------------------------------------------------------------

template <typename Node>
Node* locked_mark() {
    return reinterpret_cast<Node*>(~std::uintptr_t{0});
}

template <typename Node>
QX_NOINLINE Node* lock_contended_list(Node*& head) {
    for (Spin spin;;) {
        while (__atomic_load_n(&head, __ATOMIC_RELAXED) == locked_mark<Node>()) spin.pause();
        Node* const list = __atomic_exchange_n(&head, locked_mark<Node>(), __ATOMIC_SEQ_CST);
        if (list != locked_mark<Node>()) return list;
    }
}

// Takes the whole list, which is locked until it is put back.
template <typename Node>
QX_ALWAYS_INLINE Node* lock_list(Node*& head) {
    Node* const list = __atomic_exchange_n(&head, locked_mark<Node>(), __ATOMIC_SEQ_CST);
    return QX_LIKELY(list != locked_mark<Node>()) ? list : lock_contended_list(head);
}

// The mark where somebody else has the list; else as above.
template <typename Node>
Node* try_lock_list(Node*& head) {
    return __atomic_exchange_n(&head, locked_mark<Node>(), __ATOMIC_SEQ_CST);
}

template <typename Node>
QX_ALWAYS_INLINE void unlock_list(Node*& head, Node* list) {
    __atomic_store_n(&head, list, __ATOMIC_RELEASE);
}

// Last in, first out.
template <typename Node>
Node* pop_list(Node*& head) {
    Node* const node = lock_list(head);
    auto* const rest = node != nullptr ? static_cast<Node*>(node->next) : nullptr;
    unlock_list(head, rest);
    if (rest != nullptr) fetch_for_writing(rest);
    if (node != nullptr) node->next = nullptr;
    return node;
}

template <typename Node>
void push_list(Node*& head, Node* node) {
    node->next = lock_list(head);
    unlock_list(head, node);
}

// --- The scheduler -------------------------------------------------------------------------------

// Beside the arena's: it can be tried, stands in plain memory, and pauses for longer and longer
// between two looks, since those who queue here come in crowds.
class SpinLock {
public:
    bool try_lock() { return __atomic_exchange_n(&word_, 1u, __ATOMIC_SEQ_CST) == 0; }

    void acquire() {
        if (QX_UNLIKELY(!try_lock())) acquire_contended();
    }

    void release() { __atomic_store_n(&word_, 0u, __ATOMIC_RELEASE); }

private:
    void acquire_contended();

    unsigned int word_;  // bit 0
};

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

// What a thread has freed, and takes from first; others come here when they have run out. The last
// entry serves all threads that the scheduler does not know.
struct alignas(cache_line) FreeLists {
    Task* task_records;
    Fibre* fibres;
};

constexpr unsigned int urgent_queue = 0;
constexpr unsigned int shared_queue = 1;
constexpr unsigned int main_queue = 2;
constexpr unsigned int first_worker_queue = 3;

struct Scheduler {
    QX::THREAD_MANAGER_INTERFACE* manager;
    void* wake_condition;  // the system's, as is the mutex: see scheduler_platform.cpp
    void* wake_mutex;
    bool running;
    QX::Thread* worker_threads;
    unsigned int worker_count;
    TaskQueue* queues;  // worker_count + 3

    // Each line of its own: written by all, or read by all and seldom written.
    alignas(cache_line) unsigned int sleeping_workers;  // written under all queue locks
    bool unwoken;  // some of them were told nothing yet; written under the wake mutex
    unsigned int urgent_count;
    alignas(cache_line) unsigned int task_record_count;
    unsigned int fibre_count;
    FreeLists* free;           // main thread, workers, unknown threads
    unsigned int moved_lists;  // how often one thread took over another's
    alignas(cache_line) unsigned int round_robin;

    unsigned int queue_count() const { return worker_count + first_worker_queue; }
    unsigned int free_list_count() const { return worker_count + 2; }
    bool is_running() const { return __atomic_load_n(&running, __ATOMIC_RELAXED); }
};

// The one of the process; null while not initialised.
extern Scheduler* scheduler;

// The application's; null for none.
extern long (*exceptions_filter)(_EXCEPTION_POINTERS*);

// --- Threads -------------------------------------------------------------------------------------

constexpr int unknown_thread = -1;
constexpr int main_thread = 0;

// A thread's own record. Whoever may have been switched to another thread has to ask for it again.
struct ThreadState {
    int thread_id;         // -1 unknown to the scheduler, 0 the main thread, n worker n - 1
    Task* current_task;    // the fibreful one that runs now
    void* thread_context;  // where its fibre switches back to
    HandledExceptions* handled;
    void (*wait_callback)(void*);
    void* wait_callback_argument;

    // One free record of each kind, at hand without a lock while the thread runs tasks.
    Task* spare_task;
    Fibre* spare_fibre;
};

// Where the records' slot lies in the thread block; 0 while there is none, or none within reach.
extern unsigned int thread_state_offset;

ThreadState& find_thread_state();

// Read through the segment register at every call: never kept over a switch by the compiler.
QX_ALWAYS_INLINE ThreadState& this_thread() {
    if (QX_LIKELY(thread_state_offset != 0)) {
        ThreadState* state;
        asm volatile("movq %%gs:(%1), %0"
                     : "=r"(state)
                     : "r"(static_cast<std::uint64_t>(thread_state_offset)));
        if (QX_LIKELY(state != nullptr)) return *state;
    }
    return find_thread_state();
}

// --- What the sources share ----------------------------------------------------------------------

void push_back(Task* first, Task* last, unsigned int count);
void push_front(Task* task);

// The next task for the calling thread, or null.
Task* pop();

// Runs the main thread's tasks of a chain, each until it has finished, waits or yields. Those
// behind one that throws stand first in the queue again.
void run_chain(Task* first);

// A record with everything set but its place in a queue.
Task* make_task(
    FiberMode mode, ThreadMask mask, Priority priority, FunctionTypeInfo const& type,
    void* callable);
Task* take_task_record();
Task* make_task_record();
void fill_in(Task* task, FiberMode mode, ThreadMask mask, Priority priority);
Fibre* make_fibre_record(unsigned int id);

// From the running fibre to its thread; returns when the fibre is resumed. Inlined, as is the code
// on the other side: a processor predicts no return that follows a switch.
QX_ALWAYS_INLINE void send_to_thread(FibreMessage message) {
    ThreadState const& thread = this_thread();
    HandledExceptions const handled = *thread.handled;
    switch_to_fiber(&thread.current_task->fibre->context, thread.thread_context, &message, true);
    *this_thread().handled = handled;
}

// Runs whatever there is to run until `pending` is 0. Does not sleep.
void help_while(unsigned int& pending);

// A worker's whole life. The start record is freed here.
struct WorkerStart {
    Scheduler* scheduler;
    unsigned int worker;
};
unsigned int run_worker(void* start_record);

void lock_all_queues();
void unlock_all_queues();

// The system half.
void wait_for_wake(Scheduler& on);  // holding the wake mutex, which is held again afterwards
void lock_wake_mutex(Scheduler& on);
void unlock_wake_mutex(Scheduler& on);
void wake_all(Scheduler& on);

void name_worker(unsigned int worker);  // the calling thread, for debuggers

struct Processors {
    unsigned int logical;
    unsigned int cores;
};
Processors count_processors();

inline unsigned int choose_worker_count(unsigned int asked, Processors const& processors) {
    unsigned int count = asked;
    if (count == 0 && processors.cores < processors.logical)
        count = processors.cores - 1;
    else if (count == 0) {
        count = 3 * processors.logical / 4;
        if (count != 0) --count;
    }
    return std::max(1u, std::min(count, processors.logical - 1));
}

}  // namespace task::detail
