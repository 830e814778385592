// scheduler_impl.h - the scheduler's state, its threads', and what its sources share.
// docs/scheduler.md tells how it works.
#pragma once

#include "qx/base/compiler.h"
#include "qx/tasks/fibre.h"
#include "qx/tasks/fibre_impl.h"
#include "qx/tasks/scheduler.h"
#include "qx/tasks/scheduler_queue_impl.h"
#include "qx/tasks/thread.h"

#include <algorithm>
#include <cstdint>

namespace task::detail {

// --- The scheduler -------------------------------------------------------------------------------

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
