// Where tasks wait: routing, pushing, popping, stealing.
#include "qx/tasks/scheduler_impl.h"

namespace task::detail {

namespace {

// The queue that a thread takes as its own. Queue 1 for threads that the scheduler does not know.
unsigned int own_queue(int thread_id) {
    return static_cast<unsigned int>(thread_id + 2);
}

unsigned int next_worker_queue(Scheduler& from) {
    unsigned int const turn = __atomic_fetch_add(&from.round_robin, 1u, __ATOMIC_RELAXED);
    return first_worker_queue + turn % from.worker_count;
}

unsigned int route(Scheduler& in, Task const& task, int thread_id) {
    bool const from_worker = thread_id > main_thread;
    switch (task.thread_mask) {
    case ThreadMask::any_thread:
        if (task.priority == Priority::high) return urgent_queue;
        return from_worker ? own_queue(thread_id) : shared_queue;
    case ThreadMask::worker_threads:
        if (from_worker) return own_queue(thread_id);
        return thread_id == main_thread ? next_worker_queue(in) : shared_queue;
    default: break;
    }
    auto const number = static_cast<unsigned int>(task.thread_mask);
    return number < in.queue_count() ? number : shared_queue;
}

// A lone push to the pusher's own queue wakes nobody: the pusher will get to it.
void wake_if_needed(Scheduler& in, bool lone_own_push) {
    if (QX_LIKELY(__atomic_load_n(&in.sleeping_workers, __ATOMIC_RELAXED) == 0)) return;
    if (lone_own_push) return;
    lock_wake_mutex(in);
    wake_all(in);
    unlock_wake_mutex(in);
}

enum class End { back, front };

template <End end>
void push(Task* first, Task* last, unsigned int count) {
    Scheduler& in = *scheduler;
    int const thread_id = this_thread().thread_id;
    unsigned int const number = route(in, *first, thread_id);
    TaskQueue& queue = in.queues[number];
    bool const alone = first == last;

    queue.acquire();
    if constexpr (end == End::back)
        queue.append(first, last);
    else
        queue.prepend(first, last);
    if (number == urgent_queue)
        __atomic_store_n(&in.urgent_count, in.urgent_count + count, __ATOMIC_RELAXED);
    queue.release();

    wake_if_needed(in, alone && number == own_queue(thread_id));
}

Task* pop_from(TaskQueue& queue) {
    if (queue.looks_empty()) return nullptr;
    queue.acquire();
    Task* const task = queue.take_first();
    queue.release();
    return task;
}

Task* pop_urgent(Scheduler& from) {
    TaskQueue& queue = from.queues[urgent_queue];
    queue.acquire();
    Task* const task = queue.take_first();
    if (task != nullptr)
        __atomic_store_n(&from.urgent_count, from.urgent_count - 1, __ATOMIC_RELAXED);
    queue.release();
    return task;
}

// A first task that is pinned keeps thieves from those behind it.
Task* steal_from(TaskQueue& queue) {
    if (queue.looks_empty()) return nullptr;
    queue.acquire();
    bool const pinned = queue.first != nullptr && static_cast<int>(queue.first->thread_mask) >= 3;
    Task* const task = pinned ? nullptr : queue.take_first();
    queue.release();
    return task;
}

// Round the workers' queues from the next worker's to the thief's own.
Task* steal(Scheduler& from, int thread_id) {
    unsigned int const count = from.worker_count;
    unsigned int at = (static_cast<unsigned int>(thread_id) + count) % count;
    for (unsigned int k = 0; k < count; ++k) {
        if (Task* const task = steal_from(from.queues[first_worker_queue + at])) return task;
        if (++at == count) at = 0;
    }
    return nullptr;
}

}  // namespace

void TaskQueue::acquire_contended() {
    for (Spin spin; !try_lock();) {
        while (__atomic_load_n(&lock, __ATOMIC_RELAXED) != 0) spin.pause();
    }
}

void push_back(Task* first, Task* last, unsigned int count) {
    push<End::back>(first, last, count);
}

void push_front(Task* task) {
    push<End::front>(task, task, 1);
}

Task* pop() {
    if (scheduler == nullptr) return nullptr;
    Scheduler& from = *scheduler;
    int const thread_id = this_thread().thread_id;
    if (__atomic_load_n(&from.urgent_count, __ATOMIC_RELAXED) != 0) {
        if (Task* const task = pop_urgent(from)) return task;
    }
    if (Task* const task = pop_from(from.queues[own_queue(thread_id)])) return task;
    if (Task* const task = pop_from(from.queues[shared_queue])) return task;
    if (thread_id == main_thread) return nullptr;
    return steal(from, thread_id);
}

void lock_all_queues() {
    for (unsigned int i = 0; i < scheduler->queue_count(); ++i) scheduler->queues[i].acquire();
}

void unlock_all_queues() {
    for (unsigned int i = scheduler->queue_count(); i-- > 0;) scheduler->queues[i].release();
}

}  // namespace task::detail
