// Where tasks wait: routing, pushing, popping, stealing.
#include "qx/tasks/scheduler_impl.h"

namespace task::detail {

namespace {

// Between two looks at a lock that another has; a pause takes about a hundredth of a microsecond.
constexpr unsigned int fewest_pauses = 12;
constexpr unsigned int most_pauses = 48;

// The queue that a thread takes as its own. Queue 1 for threads that the scheduler does not know.
unsigned int own_queue(int thread_id) {
    return static_cast<unsigned int>(thread_id + 2);
}

unsigned int next_worker_queue(Scheduler& from) {
    unsigned int const turn = __atomic_fetch_add(&from.round_robin, 1u, __ATOMIC_RELAXED);
    return first_worker_queue + turn % from.worker_count;
}

QX_ALWAYS_INLINE unsigned int route(Scheduler& in, Task const& task, int thread_id) {
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

// A lone push to the pusher's own queue wakes nobody: the pusher will get to it. Nor is anyone told
// twice: waking takes a while, in which tasks may be pushed by the hundred.
void wake_if_needed(Scheduler& in, bool lone_own_push) {
    if (QX_LIKELY(__atomic_load_n(&in.sleeping_workers, __ATOMIC_RELAXED) == 0)) return;
    if (lone_own_push || !__atomic_load_n(&in.unwoken, __ATOMIC_RELAXED)) return;
    lock_wake_mutex(in);
    __atomic_store_n(&in.unwoken, false, __ATOMIC_RELAXED);
    wake_all(in);
    unlock_wake_mutex(in);
}

struct Target {
    unsigned int number;
    bool own;
};

QX_ALWAYS_INLINE Target target_of(Scheduler& in, Task const& task) {
    int const thread_id = this_thread().thread_id;
    unsigned int const number = route(in, task, thread_id);
    return {number, number == own_queue(thread_id)};
}

// Before the push: nobody may pop an urgent task that is not counted.
void count_urgent(Scheduler& in, unsigned int number, unsigned int count) {
    if (QX_UNLIKELY(number == urgent_queue))
        __atomic_fetch_add(&in.urgent_count, count, __ATOMIC_SEQ_CST);
}

Task* pop_urgent(Scheduler& from) {
    Task* const task = from.queues[urgent_queue].pop();
    if (task != nullptr) __atomic_fetch_sub(&from.urgent_count, 1u, __ATOMIC_SEQ_CST);
    return task;
}

QX_ALWAYS_INLINE Task* pop_from(TaskQueue& queue) {
    return queue.looks_empty() ? nullptr : queue.pop();
}

// Round the workers' queues from the next worker's to the thief's own.
Task* steal(Scheduler& from, int thread_id) {
    unsigned int const count = from.worker_count;
    unsigned int at = (static_cast<unsigned int>(thread_id) + count) % count;
    for (unsigned int k = 0; k < count; ++k) {
        TaskQueue& queue = from.queues[first_worker_queue + at];
        if (Task* const task = queue.looks_empty() ? nullptr : queue.steal()) return task;
        if (++at == count) at = 0;
    }
    return nullptr;
}

}  // namespace

// Whoever has the lock may be waiting for a line of the task that it takes out, some hundred
// nanoseconds, and every look takes the lock's own line from it as well: so looks are far between.
void SpinLock::acquire_contended() {
    unsigned int pauses = fewest_pauses;
    for (Spin spin; !try_lock();) {
        do {
            for (unsigned int i = 0; i < pauses; ++i) spin.pause();
            pauses = std::min(2 * pauses, most_pauses);
        } while (__atomic_load_n(&word_, __ATOMIC_RELAXED) != 0);
    }
}

// A first task that is pinned keeps thieves from those behind it.
Task* TaskQueue::steal() {
    out.lock.acquire();
    Task* task = peek();
    if (task != nullptr && static_cast<int>(task->thread_mask) >= 3) task = nullptr;
    if (task != nullptr) unlink(task);
    out.lock.release();
    return task;
}

Task* TaskQueue::take_all() {
    acquire();
    WaitLink chain = {out.first, waiter_is_task};
    WaitLink* last = &chain;
    while (last->next != nullptr) last = last->next;
    last->next = in.first;
    set_first(nullptr);
    __atomic_store_n(&in.first, static_cast<Task*>(nullptr), __ATOMIC_RELAXED);
    release();
    return static_cast<Task*>(chain.next);
}

bool TaskQueue::try_lock_empty() {
    if (!out.lock.try_lock()) return false;
    if (in.lock.try_lock()) {
        if (out.first == nullptr && in.first == nullptr) return true;
        in.lock.release();
    }
    out.lock.release();
    return false;
}

void TaskQueue::acquire() {
    out.lock.acquire();
    in.lock.acquire();
}

void TaskQueue::release() {
    in.lock.release();
    out.lock.release();
}

void push_back(Task* first, Task* last, unsigned int count) {
    Scheduler& in = *scheduler;
    Target const target = target_of(in, *first);
    bool const alone = first == last;
    count_urgent(in, target.number, count);
    in.queues[target.number].push_back(first, last);
    wake_if_needed(in, alone && target.own);
}

void push_front(Task* task) {
    Scheduler& in = *scheduler;
    Target const target = target_of(in, *task);
    count_urgent(in, target.number, 1);
    in.queues[target.number].push_front(task, task);
    wake_if_needed(in, target.own);
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
