// legacy_task.h - the older task interface, on top of the scheduler. For code that has it already.
//
//     class Loading : public deprecated_tbb::threadtask {
//         void execute() override { load(); }
//     };
//     deprecated_tbb::execute_threadtask(&loading, deprecated_tbb::TASK_PRIORITY_NORMAL);
//     loading.wait_for_all();
//
// A thread mask is a set of bits: bit 0 the main thread, bit n the worker n - 1. Of several bits
// only the highest counts. All bits, or none, mean any thread; all but bit 0 means the workers:
//
//     0xFFFFFFFF, 0  =>  any thread      1  =>  the main thread      6  =>  worker 1
//     0xFFFFFFFE     =>  the workers     2  =>  worker 0
//
// What a task is waited by comes from the global transient allocator, which has to exist: so a task
// is waited for soon after its start, before that ring has gone round. Threads: as the scheduler's.
#pragma once

#include "qx/base/export.h"
#include "qx/tasks/scheduler.h"

namespace deprecated_tbb {

class ParentTask;
class ThreadTaskManager;

// High is urgent, or inherited, as in `task::Priority`; any other number is normal.
enum TaskPriority : int {
    TASK_PRIORITY_NORMAL = 0,
    TASK_PRIORITY_HIGH = 1,
};

// The object that a task is. Borrowed from its start until it has run.
class task {
public:
    virtual void execute() = 0;

    // After `execute`, on the same fibre, with false.
    virtual void executed(bool) {}

    // Nothing here calls these.
    virtual void destroy() {}
    virtual bool delete_child_task_when_done() { return false; }
    virtual ~task() {}
    virtual void reserved_1() = 0;
    virtual void reserved_2() = 0;

    QX_API task();
    QX_API explicit task(unsigned int thread_mask);  // leaves `parent` unwritten
    QX_API task(ParentTask* parent, unsigned int thread_mask);

    ParentTask* parent() const { return parent_; }
    unsigned int thread_mask() const { return thread_mask_; }

    // The rest needs a task that has been started, and the call that did so to have returned.
    QX_API bool has_completed() const;

    // Both wait as a counter is waited for.
    QX_API void wait_for_all();
    QX_API void wait_for_all_while_executing_tbb_tasks();

    ::task::Future<void>& _future() { return future_; }

    // The argument gets what was stored.
    QX_API void set_future(::task::Future<void>&& future);

private:
    ParentTask* parent_;
    unsigned int thread_mask_;
    ::task::Future<void> future_;
};

// The kind of task that can be started.
class threadtask : public task {
public:
    using task::task;

    void reserved_1() override {}
    void reserved_2() override {}
};

// Starts `started` on a fibre. Its future is set after that, so another thread may look at it only
// when this call has returned. Needs the scheduler and the global transient allocator. Null faults.
QX_API void execute_threadtask(threadtask* started, TaskPriority priority);

// Kept for old code; nothing in the library reads it.
QX_API extern ThreadTaskManager* s_thread_task_manager;

}  // namespace deprecated_tbb
