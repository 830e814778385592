#include "qx/tasks/legacy_task.h"

#include "qx/memory/transient_allocator.h"
#include "qx/tasks/task.h"

#include <bit>
#include <new>

namespace deprecated_tbb {

ThreadTaskManager* s_thread_task_manager = nullptr;

namespace {

constexpr unsigned int every_thread = 0xFFFFFFFF;
constexpr unsigned int every_worker = 0xFFFFFFFE;
constexpr unsigned int counter_alignment = 8;
static_assert(sizeof(::task::Counter) == 16 && alignof(::task::Counter) == counter_alignment);

::task::ThreadMask translate(unsigned int mask) {
    if (mask == every_worker) return ::task::ThreadMask::worker_threads;
    if (mask == every_thread || mask == 0) return ::task::ThreadMask::any_thread;
    return static_cast<::task::ThreadMask>(std::bit_width(mask) + 1);
}

::task::Counter* take_counter() {
    void* const place =
        QX::global_transient_allocator()->allocate(sizeof(::task::Counter), counter_alignment);
    auto* const counter = new (place)::task::Counter(0);
    counter->internal_increment(1);
    return counter;
}

}  // namespace

task::task() : task(nullptr, every_thread) {}

task::task(unsigned int mask) : thread_mask_(mask) {}

task::task(ParentTask* owner, unsigned int mask) : parent_(owner), thread_mask_(mask) {}

bool task::has_completed() const {
    return future_.counter()->value() == 0;
}

void task::wait_for_all() {
    future_.counter()->wait();
}

void task::wait_for_all_while_executing_tbb_tasks() {
    wait_for_all();
}

void task::set_future(::task::Future<void>&& future) {
    future_.swap(future);
}

void execute_threadtask(threadtask* started, TaskPriority priority) {
    ::task::Counter* const counter = take_counter();
    ::task::spawn(
        ::task::FiberMode::fiberful, translate(started->thread_mask()),
        priority == TASK_PRIORITY_HIGH ? ::task::Priority::high : ::task::Priority::normal,
        [started, counter] {
            started->execute();
            started->executed(false);
            counter->internal_decrement();
        });
    started->_future() = ::task::Future<void>(counter);
}

}  // namespace deprecated_tbb
