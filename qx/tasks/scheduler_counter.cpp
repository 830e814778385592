// The counters, and how those who wait for them wait.
#include "qx/tasks/scheduler_impl.h"

namespace task {

using namespace detail;

namespace {

void release_waiters(WaitLink* waiter) {
    while (waiter != nullptr) {
        WaitLink* const next = waiter->next;  // first: the waiter may die
        if (waiter->waiter_kind == waiter_is_task) {
            waiter->next = nullptr;
            push_front(static_cast<Task*>(waiter));
        } else {
            auto& pending = static_cast<ThreadWaiter*>(waiter)->pending;
            __atomic_exchange_n(&pending, 0u, __ATOMIC_SEQ_CST);
        }
        waiter = next;
    }
}

void add_waiter(WaitLink*& waiters, WaitLink& waiter) {
    waiter.next = lock_list(waiters);
    unlock_list(waiters, &waiter);
}

// Runs whatever there is to run until `pending` is cleared. Does not sleep.
void help_while_pending(ThreadWaiter& waiter) {
    for (Spin spin; __atomic_load_n(&waiter.pending, __ATOMIC_ACQUIRE) != 0;) {
        if (Task* const task = pop()) {
            run(task);
            continue;
        }
        ThreadState const& thread = this_thread();
        if (thread.wait_callback != nullptr)
            thread.wait_callback(thread.wait_callback_argument);
        else
            spin.pause();
    }
}

}  // namespace

Counter::Counter(unsigned int initial) : count_(initial) {}

unsigned int Counter::internal_increment(unsigned int amount) {
    return __atomic_fetch_add(&count_, amount, __ATOMIC_SEQ_CST);
}

// The list stays locked over the step, so that nobody can begin to wait between a fall to 0 and the
// walk. Once it is unlocked for the last time the counter may be gone.
void Counter::internal_decrement() {
    WaitLink* const waiters = lock_list(waiters_);
    bool const last = __atomic_fetch_sub(&count_, 1u, __ATOMIC_SEQ_CST) == 1;
    unlock_list(waiters_, last ? nullptr : waiters);
    if (last) release_waiters(waiters);
}

unsigned int Counter::value() const {
    return __atomic_load_n(&count_, __ATOMIC_RELAXED);
}

// Each way of waiting adds a hold of its own, so that nobody sees 0 before the waiter is ready.
void Counter::wait() {
    ThreadWaiter waiter = {{nullptr, waiter_is_thread}, 1};
    bool const fibreful = in_fiberful_task();
    if (internal_increment(1) == 0) return internal_decrement();

    if (fibreful) {
        // The thread takes the hold away, once the fibre has left it.
        add_waiter(waiters_, *this_thread().current_task);
        return send_to_thread({MessageKind::parked, this, nullptr});
    }
    bool const worker = this_thread().thread_id > main_thread;
    if (!worker) add_waiter(waiters_, waiter);
    internal_decrement();
    if (worker) throw;  // it may not block, and cannot help: the process ends here
    help_while_pending(waiter);
}

}  // namespace task
