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

}  // namespace

Counter::Counter(unsigned int initial) : count_(initial) {}

// The count changes only while the list is locked: one locked instruction serves both.
unsigned int Counter::internal_increment(unsigned int amount) {
    WaitLink* const waiters = lock_list(waiters_);
    unsigned int const before = count_;
    __atomic_store_n(&count_, before + amount, __ATOMIC_RELAXED);
    unlock_list(waiters_, waiters);
    return before;
}

// Nobody can begin to wait between a fall to 0 and the walk. Once the list is unlocked for the last
// time the counter may be gone.
void Counter::internal_decrement() {
    WaitLink* const waiters = lock_list(waiters_);
    unsigned int const left = count_ - 1;
    __atomic_store_n(&count_, left, __ATOMIC_RELAXED);
    unlock_list(waiters_, left == 0 ? nullptr : waiters);
    if (left == 0) release_waiters(waiters);
}

unsigned int Counter::value() const {
    return __atomic_load_n(&count_, __ATOMIC_RELAXED);
}

// A waiter is either linked before the fall to 0 or sees it. Locking the list also waits for a
// decrement that has not let go of the counter yet.
bool Counter::link(detail::WaitLink& waiter) {
    WaitLink* const waiters = lock_list(waiters_);
    bool const left = count_ != 0;
    if (left) waiter.next = waiters;
    unlock_list(waiters_, left ? &waiter : waiters);
    return left;
}

// For a wait that an exception leaves: the waiter is about to die.
void Counter::unlink(detail::ThreadWaiter& waiter) {
    WaitLink* waiters = lock_list(waiters_);
    WaitLink** at = &waiters;
    while (*at != nullptr && *at != &waiter) at = &(*at)->next;
    bool const found = *at != nullptr;
    if (found) *at = waiter.next;
    unlock_list(waiters_, waiters);
    // Where it is not linked any more, somebody is about to clear it.
    for (Spin spin; !found && __atomic_load_n(&waiter.pending, __ATOMIC_ACQUIRE) != 0;)
        spin.pause();
}

// A task is linked by its thread, once the fibre has left it: from then on anyone may resume it.
void Counter::park(detail::Task& task) {
    if (!link(task)) push_front(&task);
}

void Counter::wait() {
    if (value() == 0) return unlock_list(waiters_, lock_list(waiters_));
    if (in_fiberful_task()) return send_to_thread({MessageKind::parked, this, nullptr});
    // A worker may not block. With no exception in flight, which is the rule, this ends the
    // process.
    if (this_thread().thread_id > main_thread) throw;

    ThreadWaiter waiter = {{nullptr, waiter_is_thread}, 1};
    if (!link(waiter)) return;
    try {
        help_while(waiter.pending);
    } catch (...) {
        unlink(waiter);
        throw;
    }
}

}  // namespace task
