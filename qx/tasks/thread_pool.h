// thread_pool.h - a fixed number of threads that take plain jobs from a bounded ring.
//
//     unsigned int work(void* argument);
//     ThreadPool pool(2, 64, 0, nullptr, nullptr, ThreadPriority::normal);
//     pool.queue_job(work, &first);
//     pool.queue_job(work, &second);
//     // the destructor returns when both have run
//
// Jobs start in the order of queueing. There is no way to take one back, and its result is dropped.
//
// The ring wraps one entry before its end while `queue_size` jobs may be queued: keep the number of
// jobs that stand queued below `queue_size`, or the last overwrites the oldest, which never runs
// (the last then runs twice). Failures are not reported; a thread that can't be started is left
// out.
//
// Threads: any thread queues, jobs too. A job that queues where the ring is full blocks until
// another thread of the pool takes one: for ever, if there is none.
#pragma once

#include "qx/base/export.h"
#include "qx/tasks/atomic.h"
#include "qx/tasks/mutex.h"
#include "qx/tasks/semaphore.h"
#include "qx/tasks/thread.h"

#include <memory>

namespace QX {

// The system half. Neither copied nor moved.
class ThreadPoolPlatform {
public:
    using Job = unsigned int (*)(void*);

    // One place in the ring.
    struct Slot {
        Job job;
        void const* argument;
    };

    // Called on each pool thread before its first job and after its last. Null unless set; set
    // before the pool is made.
    QX_API static void (*s_thread_begin_callback)();
    QX_API static void (*s_thread_end_callback)();

    // `thread_count` may be 0. `queue_size`: 2 at least, and not below `thread_count`. `stack_size`
    // in bytes, 0 for the program's own.
    //
    // `name`: for debuggers, and for the two semaphores. Unique in the process or null, as a name
    // in use leaves a pool that does not work. `cores`: null, or one entry a thread: the core that
    // it is bound to, modulo 32, or -1 for none.
    QX_API ThreadPoolPlatform(
        unsigned int thread_count, unsigned int queue_size, unsigned int stack_size,
        char const* name, char const* cores, ThreadPriority priority);

    // Returns when every queued job has run and the threads have ended.
    QX_API ~ThreadPoolPlatform();

    ThreadPoolPlatform(ThreadPoolPlatform const&) = delete;
    ThreadPoolPlatform& operator=(ThreadPoolPlatform const&) = delete;

    // Blocks while the ring is full. `argument` stays the caller's; `job` may not be null.
    QX_API void queue_job(Job job, void const* argument);

    // For tests and debuggers: what other threads change may have changed since.
    Thread const* threads() const { return threads_.get(); }
    bool quit() const { return quit_; }
    unsigned int inside_lock() const { return inside_lock_; }
    MutexPlatform const& lock() const { return lock_; }
    unsigned int write_index() const { return write_index_; }
    unsigned int read_index() const { return read_index_; }
    unsigned int thread_count() const { return thread_count_; }
    unsigned int queue_size() const { return queue_size_; }
    int pending_jobs() const { return pending_jobs_.get(); }  // queued or running
    Slot const* slots() const { return slots_.get(); }
    Semaphore const& work_to_do() const { return work_to_do_; }
    Semaphore const& empty_slots() const { return empty_slots_; }

protected:
    // A thread's main loop, until the pool closes.
    QX_API void run_jobs();

    // A thread's entry: run_jobs on the pool; 0.
    QX_API static unsigned int run_pool_jobs(void* pool);

    // Waits for a job and takes it. False when the pool closes, the outputs then as they were. The
    // job still counts as pending.
    QX_API bool dequeue_job(Job& job, void const*& argument);

private:
    class RingAccess;

    void start(
        unsigned int thread, unsigned int stack_size, char const* name, char core,
        ThreadPriority priority);
    void advance(unsigned int& index) const { index = (index + 1) % (queue_size_ - 1); }

    std::unique_ptr<Thread[]> threads_;
    bool quit_ = false;             // made visible by the posts that follow it
    unsigned int inside_lock_ = 0;  // threads at the ring
    MutexPlatform lock_;
    unsigned int write_index_ = 0;
    unsigned int read_index_ = 0;
    unsigned int thread_count_;
    unsigned int queue_size_;
    AtomicInt32Platform pending_jobs_;
    std::unique_ptr<Slot[]> slots_;
    Semaphore work_to_do_;
    Semaphore empty_slots_;
};

// The public form.
class ThreadPool : public ThreadPoolPlatform {
public:
    using ThreadPoolPlatform::ThreadPoolPlatform;
};

}  // namespace QX
