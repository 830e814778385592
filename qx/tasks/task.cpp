#include "qx/tasks/task.h"

#include "qx/tasks/scheduler_impl.h"

namespace task {

void Batch::do_spawn(FiberMode mode, detail::FunctionTypeInfo const& type, void* callable) {
    detail::Task* const task = detail::make_task(mode, thread_mask_, priority_, type, callable);
    task->next = nullptr;
    if (first_ == nullptr)
        first_ = task;
    else
        last_->next = task;
    last_ = task;
    ++count_;
}

void Batch::submit() {
    if (first_ == nullptr) return;
    auto* const first = static_cast<detail::Task*>(first_);
    auto* const last = static_cast<detail::Task*>(last_);
    first_ = nullptr;
    last_ = nullptr;
    detail::push_back(first, last, static_cast<unsigned int>(count_));
}

}  // namespace task
