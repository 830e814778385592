// task.h - spawning callables.
//
//     task::spawn(FiberMode::fiberless, ThreadMask::any_thread, Priority::normal, [] { step(); });
//
//     task::Batch batch(ThreadMask::worker_threads, Priority::normal);
//     for (Item& item : items) batch.spawn(FiberMode::fiberful, [&item] { item.work(); });
//     batch.submit();
//
//     task::execute_in_thread_context([&] { dialog.show(); });
//
// A spawned callable is taken by value and moved into the task, where it is invoked once without
// arguments and then destroyed, on the thread that runs the task. It may take 512 bytes: larger
// ones don't compile, and capture a pointer instead.
#pragma once

#include "qx/tasks/scheduler.h"

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace task {

namespace detail {

// The one record of a callable's type.
template <typename Callable>
struct TypeInfo {
    static_assert(
        sizeof(Callable) <= closure_size,
        "a task's callable may take 512 bytes at most: capture a pointer or a reference instead");
    static_assert(
        alignof(Callable) <= closure_alignment, "a task's callable may be aligned to 16 at most");
    static_assert(std::is_invocable_v<Callable&>, "a task's callable is invoked without arguments");

    static void construct(void* destination, void* source) {
        new (destination) Callable(std::move(*static_cast<Callable*>(source)));
    }
    static void destroy(void* object) { static_cast<Callable*>(object)->~Callable(); }
    static void invoke(void* object) { (*static_cast<Callable*>(object))(); }

    static constexpr FunctionTypeInfo value = {construct, destroy, invoke};
};

}  // namespace detail

template <typename Callable>
void spawn(FiberMode mode, ThreadMask mask, Priority priority, Callable callable) {
    detail::spawn_back(mode, mask, priority, detail::TypeInfo<Callable>::value, &callable);
}

// Tasks that start together: one push for all of them. They share a mask and a priority. Meant to
// be used once; belongs to one thread; a batch that is never submitted keeps its tasks for ever.
class Batch {
public:
    Batch(ThreadMask mask, Priority priority) : thread_mask_(mask), priority_(priority) {}

    Batch(Batch const&) = delete;
    Batch& operator=(Batch const&) = delete;

    template <typename Callable>
    void spawn(FiberMode mode, Callable callable) {
        do_spawn(mode, detail::TypeInfo<Callable>::value, &callable);
    }

    // Adds a task; nothing runs yet.
    QX_API void do_spawn(FiberMode mode, detail::FunctionTypeInfo const& type, void* callable);

    // Queues the whole chain, where its first task belongs. Leaves the batch empty, but its count
    // as it was: a batch used twice reports the sum of both uses.
    QX_API void submit();

    ThreadMask thread_mask() const { return thread_mask_; }
    Priority priority() const { return priority_; }
    detail::WaitLink const* first() const { return first_; }  // null while empty
    detail::WaitLink const* last() const { return last_; }
    unsigned long long count() const { return count_; }

private:
    ThreadMask thread_mask_;
    Priority priority_;
    detail::WaitLink* first_ = nullptr;
    detail::WaitLink* last_ = nullptr;
    unsigned long long count_ = 0;
};

// Runs the caller's own `callable` on the native stack of the thread that carries the fibre, for
// what does not bear a fibre's stack; outside fibreful tasks simply runs it. Meanwhile no task is
// current: the id is 0, nothing is inherited, and a wait is a thread's wait.
template <typename Callable>
void execute_in_thread_context(Callable&& callable) {
    static_assert(
        sizeof(std::decay_t<Callable>) <= detail::closure_size,
        "a task's callable may take 512 bytes at most: capture a pointer or a reference instead");
    if (!detail::in_fiberful_task()) return static_cast<void>(callable());
    auto call = [&callable] { callable(); };
    detail::do_execute_in_thread_context(detail::TypeInfo<decltype(call)>::value, &call);
}

}  // namespace task
