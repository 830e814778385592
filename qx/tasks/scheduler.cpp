// scheduler.cpp - start and end, and what tasks ask about themselves.
#include "qx/tasks/scheduler.h"
#include "qx/memory/heap.h"

#include "qx/tasks/scheduler_impl.h"

#include <new>

namespace task {

using namespace detail;

namespace detail {

Scheduler* scheduler = nullptr;
long (*exceptions_filter)(_EXCEPTION_POINTERS*) = nullptr;

namespace {

constexpr unsigned int worker_stack_size = 10000;
constexpr unsigned int fibre_bit = 0x80000000;

template <typename T>
T* make_array(unsigned int count) {
    auto* const items =
        static_cast<T*>(QX::malloc_aligned(count * sizeof(T), cache_line, QX::HEAP_GENERAL));
    for (unsigned int i = 0; i < count; ++i) new (items + i) T{};
    return items;
}

void free_aligned(void* items) {
    if (items != nullptr) QX::custom_free(QX::block_of_aligned(items));
}

// These fibres are numbered by the task records, and get their context when they are first used.
void make_records_in_advance(Scheduler& in, unsigned int count) {
    for (unsigned int i = 0; i < count; ++i) {
        push_list(in.free[main_thread].task_records, make_task_record());
        ++in.task_record_count;
        push_list(in.free[main_thread].fibres, make_fibre_record(in.task_record_count++));
        ++in.fibre_count;
    }
}

// All but the workers. What exhaustion leaves unmade stays null.
void make_parts(Scheduler& in, unsigned int pre_created) {
    in.free = make_array<FreeLists>(in.free_list_count());
    make_records_in_advance(in, pre_created);
    in.queues = make_array<TaskQueue>(in.queue_count());
    in.worker_threads = make_array<QX::Thread>(in.worker_count);
}

// False if the system gives no thread.
bool start_worker(Scheduler& in, unsigned int worker) {
    auto* const start =
        static_cast<WorkerStart*>(QX::custom_malloc(sizeof(WorkerStart), QX::HEAP_GENERAL));
    *start = {&in, worker};
    unsigned int const id = QX::run_in_native_thread(
        worker_stack_size, -1, QX::ThreadPriority::normal, run_worker, start,
        &in.worker_threads[worker], nullptr);
    if (id == 0) QX::custom_free(start);
    return id != 0;
}

bool start_workers(Scheduler& in) {
    for (unsigned int i = 0; i < in.worker_count; ++i)
        if (!start_worker(in, i)) return false;
    return true;
}

void stop_workers(Scheduler& in) {
    lock_all_queues();
    __atomic_store_n(&in.running, false, __ATOMIC_RELAXED);
    unlock_all_queues();
    lock_wake_mutex(in);
    wake_all(in);
    unlock_wake_mutex(in);
    for (unsigned int i = 0; i < in.worker_count; ++i) {
        if (in.worker_threads[i].handle() != nullptr) QX::wait_for_thread(in.worker_threads[i]);
    }
}

void free_records(Scheduler& in) {
    if (in.free == nullptr) return;
    for (unsigned int i = 0; i < in.free_list_count(); ++i) {
        while (Task* const task = pop_list(in.free[i].task_records)) free_aligned(task);
        while (Fibre* const fibre = pop_list(in.free[i].fibres)) {
            QX_FORGET_FRAMES(fibre->stack(), fibre_stack_size);
            QX::custom_free(fibre->block());
        }
    }
    free_aligned(in.free);
}

void free_scheduler(Scheduler& in) {
    free_records(in);
    for (unsigned int i = 0; in.worker_threads != nullptr && i < in.worker_count; ++i)
        in.worker_threads[i].store(nullptr);
    free_aligned(in.worker_threads);
    free_aligned(in.queues);
    scheduler = nullptr;
    free_aligned(&in);
}

}  // namespace

bool in_fiberful_task() {
    Task const* const current = this_thread().current_task;
    return current != nullptr && current->fibre != nullptr;
}

void spawn_back(
    FiberMode mode, ThreadMask mask, Priority priority, FunctionTypeInfo const& type,
    void* callable) {
    Task* const task = make_task(mode, mask, priority, type, callable);
    push_back(task, task, 1);
}

void do_execute_in_thread_context(FunctionTypeInfo const& type, void* callable) {
    send_to_thread({MessageKind::run_on_thread, const_cast<FunctionTypeInfo*>(&type), callable});
}

}  // namespace detail

unsigned int initialize(
    QX::THREAD_MANAGER_INTERFACE* manager, unsigned int worker_threads, unsigned int pre_created) {
    if (scheduler != nullptr) return 0;
    auto* const made = make_array<Scheduler>(1);
    made->manager = manager;
    made->running = true;
    this_thread().thread_id = main_thread;
    made->worker_count = choose_worker_count(worker_threads, count_processors());
    scheduler = made;
    try {
        make_parts(*made, pre_created);
        if (start_workers(*made)) return made->worker_count;
    } catch (...) {
        terminate();
        throw;
    }
    terminate();
    return 0;
}

void terminate() {
    if (scheduler == nullptr) return;
    if (scheduler->worker_threads != nullptr) stop_workers(*scheduler);
    free_scheduler(*scheduler);
}

void run_main_thread_tasks() {
    if (scheduler == nullptr || this_thread().thread_id != main_thread) return;
    run_chain(scheduler->queues[main_queue].take_all());
}

namespace query {

bool is_initialized() {
    return scheduler != nullptr;
}

unsigned int number_of_worker_threads() {
    return scheduler != nullptr ? scheduler->worker_count : 0;
}

}  // namespace query

namespace this_task {

unsigned int id() {
    Task const* const current = this_thread().current_task;
    return current != nullptr && current->fibre != nullptr ? current->fibre->id | fibre_bit : 0;
}

void yield() {
    if (in_fiberful_task()) send_to_thread({MessageKind::requeue, nullptr, nullptr});
}

}  // namespace this_task

namespace interop {

void set_exceptions_filter(long (*filter)(_EXCEPTION_POINTERS* pointers)) {
    __atomic_store_n(&exceptions_filter, filter, __ATOMIC_SEQ_CST);
}

void set_thread_wait_callback(void (*callback)(void* argument), void* argument) {
    ThreadState& thread = this_thread();
    thread.wait_callback = callback;
    thread.wait_callback_argument = argument;
}

}  // namespace interop

}  // namespace task
