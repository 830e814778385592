// What becomes of a task: its record, its fibre, its run, and the workers that run it.
#include "qx/memory/arena.h"
#include "qx/memory/heap.h"
#include "qx/tasks/fibre.h"
#include "qx/tasks/guard_impl.h"
#include "qx/tasks/scheduler_impl.h"

#include <new>
#include <type_traits>
#include <utility>

namespace task::detail {

namespace {

// A look at a queue costs those who push a cache line, and what gathers meanwhile is taken at once:
// so a worker looks about every half microsecond, and sleeps after some 50.
constexpr unsigned int pauses_between_looks = 48;
constexpr unsigned int looks_before_sleep = 100;

constexpr unsigned int page_size = 4096;

unsigned int own_free_list() {
    int const thread_id = this_thread().thread_id;
    return thread_id != unknown_thread ? static_cast<unsigned int>(thread_id)
                                       : scheduler->worker_count + 1;
}

template <typename Node>
Node*& list_in(FreeLists& lists) {
    if constexpr (std::is_same_v<Node, Task>)
        return lists.task_records;
    else
        return lists.fibres;
}

// The first record of another's list, the others of which become the caller's own. A thread that is
// about to take in a list itself is not waited for: then they stay where they are.
template <typename Node>
Node* take_over(Node*& from, Node*& own) {
    Node* const node = lock_list(from);
    auto* rest = node != nullptr ? static_cast<Node*>(node->next) : nullptr;
    if (rest != nullptr) {
        Node* const mine = try_lock_list(own);
        if (mine == nullptr) {
            unlock_list(own, rest);
            rest = nullptr;
            __atomic_fetch_add(&scheduler->moved_lists, 1u, __ATOMIC_SEQ_CST);
        } else if (mine != locked_mark<Node>()) {
            unlock_list(own, mine);
        }
    }
    unlock_list(from, rest);
    if (node != nullptr) node->next = nullptr;
    return node;
}

// Looks again where a list has moved meanwhile: it may have moved to where the look had been.
template <typename Node>
Node* take_from_others(unsigned int own) {
    unsigned int const count = scheduler->free_list_count();
    unsigned int before;
    do {
        before = __atomic_load_n(&scheduler->moved_lists, __ATOMIC_SEQ_CST);
        for (unsigned int k = 1; k <= count; ++k) {
            Node*& from = list_in<Node>(scheduler->free[(own + k) % count]);
            Node*& to = list_in<Node>(scheduler->free[own]);
            if (__atomic_load_n(&from, __ATOMIC_SEQ_CST) == nullptr) continue;
            Node* const node = &from == &to ? pop_list(from) : take_over(from, to);
            if (node != nullptr) return node;
        }
    } while (before != __atomic_load_n(&scheduler->moved_lists, __ATOMIC_SEQ_CST));
    return nullptr;
}

// A free record of the calling thread's, or of another's: null only where nobody has any.
template <typename Node>
Node* take_free() {
    unsigned int const own = own_free_list();
    Node* const node = pop_list(list_in<Node>(scheduler->free[own]));
    return node != nullptr ? node : take_from_others<Node>(own);
}

template <typename Node>
void give_free(Node* node) {
    push_list(list_in<Node>(scheduler->free[own_free_list()]), node);
}

// Keeps a record at hand for the next task of this thread: the one freed last, as the spare is the
// head of the thread's list. Only within SpareRecords.
template <typename Node>
QX_ALWAYS_INLINE void keep_spare(Node*& spare, Node* node) {
    if (Node* const older = std::exchange(spare, node)) give_free(older);
}

template <typename Node>
QX_ALWAYS_INLINE Node* take_spare(Node*& spare) {
    Node* const node = spare;
    if (node == nullptr) return take_free<Node>();
    spare = nullptr;
    return node;
}

void give_spares() {
    ThreadState& thread = this_thread();
    if (thread.spare_task != nullptr) give_free(std::exchange(thread.spare_task, nullptr));
    if (thread.spare_fibre != nullptr) give_free(std::exchange(thread.spare_fibre, nullptr));
}

// While it stands the thread may keep spare records; afterwards they are everybody's.
class SpareRecords {
public:
    SpareRecords() = default;
    ~SpareRecords() { give_spares(); }
    SpareRecords(SpareRecords const&) = delete;
    SpareRecords& operator=(SpareRecords const&) = delete;
};

void clear_callable(Task& task) {
    task.invoke = nullptr;
    task.destroy = nullptr;
}

// --- On the fibre --------------------------------------------------------------------------------

void invoke_and_destroy(void* argument) {
    Task& task = *static_cast<Task*>(argument);
    task.invoke(task.closure);
    task.destroy(task.closure);
}

long put_to_filter(_EXCEPTION_POINTERS* pointers) {
    auto const filter = __atomic_load_n(&exceptions_filter, __ATOMIC_RELAXED);
    return filter != nullptr ? filter(pointers) : QX::continue_search;
}

// The first frame of each fibre: task after task, each handed over by the switch.
void run_tasks_on_fibre(void* task) {
    for (;;) {
        Task& running = *static_cast<Task*>(task);
        if (qx_guarded_call(invoke_and_destroy, &running, put_to_filter) != 0)
            QX_FORGET_FRAMES(running.fibre->stack(), fibre_stack_size);
        clear_callable(running);
        FibreMessage message = {MessageKind::finished, nullptr, nullptr};
        task =
            switch_to_fiber(&running.fibre->context, this_thread().thread_context, &message, true);
    }
}

// --- On the thread -------------------------------------------------------------------------------

void make_context(Fibre& fibre) {
    fibre.context = make_fiber(&fibre, fibre_stack_size, run_tasks_on_fibre);
}

Fibre* take_fibre() {
    Fibre* fibre = take_spare(this_thread().spare_fibre);
    if (fibre == nullptr) {
        fibre =
            make_fibre_record(__atomic_fetch_add(&scheduler->fibre_count, 1u, __ATOMIC_SEQ_CST));
    }
    if (fibre->context == nullptr) make_context(*fibre);
    return fibre;
}

// Switches to the task's fibre until it sends something. What the thread was about is kept aside,
// since a task may itself run others.
QX_ALWAYS_INLINE FibreMessage const& enter_fibre(Task& task) {
    ThreadState& thread = this_thread();
    Task* const outer_task = thread.current_task;
    void* const outer_context = thread.thread_context;
    HandledExceptions const handled = *thread.handled;
    *thread.handled = {};
    thread.current_task = &task;
    void* const message = switch_to_fiber(&thread.thread_context, task.fibre->context, &task, true);
    thread.current_task = outer_task;
    thread.thread_context = outer_context;
    *thread.handled = handled;
    return *static_cast<FibreMessage*>(message);
}

void finish_fibreful(Task* task) {
    ThreadState& thread = this_thread();
    keep_spare(thread.spare_fibre, task->fibre);
    task->fibre = nullptr;
    keep_spare(thread.spare_task, task);
}

// False where there is no memory for a fibre, and the task is in a queue again. A worker tries it
// later, as others may have ended; for other threads it is the caller's exhaustion.
bool give_fibre(Task* task) try {
    task->fibre = take_fibre();
    return true;
} catch (std::bad_alloc const&) {
    push_back(task, task, 1);
    if (this_thread().thread_id <= main_thread) throw;
    give_way();
    return false;
}

QX_ALWAYS_INLINE void run_fibreful(Task* task) {
    if (task->fibre == wants_fibre() && !give_fibre(task)) return;
    for (;;) {
        FibreMessage const& message = enter_fibre(*task);
        switch (message.kind) {
        case MessageKind::finished: return finish_fibreful(task);
        case MessageKind::parked:
            // From here on the task may run elsewhere.
            return static_cast<Counter*>(message.first)->park(*task);
        case MessageKind::requeue: return push_back(task, task, 1);
        case MessageKind::run_on_thread:
            static_cast<FunctionTypeInfo*>(message.first)->invoke(message.second);
            break;
        }
    }
}

QX_ALWAYS_INLINE void run_fibreless(Task* task) {
    task->invoke(task->closure);
    task->destroy(task->closure);
    clear_callable(*task);
    keep_spare(this_thread().spare_task, task);
}

QX_ALWAYS_INLINE void run(Task* task) {
    if (task->fibre == nullptr)
        run_fibreless(task);
    else
        run_fibreful(task);
}

// --- Workers -------------------------------------------------------------------------------------

// Locks all queues, each at the first attempt, as long as they are empty. False if one was not.
bool lock_all_empty_queues(Scheduler& in) {
    for (unsigned int i = 0; i < in.queue_count(); ++i) {
        if (!in.queues[i].looks_empty()) return false;
    }
    for (unsigned int i = 0; i < in.queue_count(); ++i) {
        if (in.queues[i].try_lock_empty()) continue;
        while (i-- > 0) in.queues[i].release();
        return false;
    }
    return true;
}

// With all queues closed nothing can be pushed between the look at them and the sleep; a pusher who
// comes after sees the sleeper, and cannot wake before the sleeper waits.
void sleep_if_idle(Scheduler& in) {
    if (!lock_all_empty_queues(in)) return give_way();
    if (!in.is_running()) return unlock_all_queues();
    __atomic_store_n(&in.sleeping_workers, in.sleeping_workers + 1, __ATOMIC_RELAXED);
    lock_wake_mutex(in);
    __atomic_store_n(&in.unwoken, true, __ATOMIC_RELAXED);
    unlock_all_queues();
    wait_for_wake(in);
    unlock_wake_mutex(in);
    lock_all_queues();
    __atomic_store_n(&in.sleeping_workers, in.sleeping_workers - 1, __ATOMIC_RELAXED);
    unlock_all_queues();
}

// Looks for work a little longer before it sleeps: waking costs far more.
void work(Scheduler& in) {
    SpareRecords const spares;
    unsigned int idle_looks = 0;
    while (in.is_running()) {
        if (Task* const task = pop()) {
            run(task);
            idle_looks = 0;
        } else if (++idle_looks < looks_before_sleep) {
            give_spares();
            if (idle_looks == 1) give_way();  // to the waker, whose processor this may be
            for (unsigned int i = 0; i < pauses_between_looks; ++i) __builtin_ia32_pause();
        } else {
            sleep_if_idle(in);
        }
    }
}

// The application's manager is told of the end even where an exception leaves the worker.
class Announcement {
public:
    Announcement(QX::THREAD_MANAGER_INTERFACE* manager, unsigned int worker) : manager_(manager) {
        if (manager_ != nullptr) token_ = manager_->on_worker_start(worker);
    }
    ~Announcement() {
        if (manager_ != nullptr) manager_->on_worker_end(token_);
    }
    Announcement(Announcement const&) = delete;
    Announcement& operator=(Announcement const&) = delete;

private:
    QX::THREAD_MANAGER_INTERFACE* manager_;
    unsigned int token_ = 0;
};

}  // namespace

unsigned int run_worker(void* start_record) {
    WorkerStart const start = *static_cast<WorkerStart*>(start_record);
    QX::custom_free(start_record);
    this_thread().thread_id = static_cast<int>(start.worker) + 1;

    Announcement const announcement(start.scheduler->manager, start.worker);
    name_worker(start.worker);
    work(*start.scheduler);
    return 0;
}

void put_back(Task* first) {
    if (first == nullptr) return;
    Task* last = first;
    while (last->next != nullptr) last = last->next_task();
    scheduler->queues[main_queue].push_front(first, last);
}

void run_chain(Task* task) {
    SpareRecords const spares;
    while (task != nullptr) {
        Task* const next = task->next_task();
        task->next = nullptr;
        try {
            run(task);
        } catch (...) {
            put_back(next);
            throw;
        }
        task = next;
    }
}

void help_while(unsigned int& pending) {
    SpareRecords const spares;
    Backoff backoff;
    Spin spin;
    auto const waits = [&] { return __atomic_load_n(&pending, __ATOMIC_ACQUIRE) != 0; };
    while (waits()) {
        if (Task* const task = pop()) {
            run(task);
            backoff.reset();
            continue;
        }
        give_spares();
        ThreadState const& thread = this_thread();
        if (thread.wait_callback != nullptr)
            thread.wait_callback(thread.wait_callback_argument);
        else
            for (unsigned int i = backoff.next(); i > 0 && waits(); --i) spin.pause();
    }
}

Task* make_task_record() {
    // Aligned, so that what every task touches is one line.
    auto* const task =
        static_cast<Task*>(QX::malloc_aligned(sizeof(Task), cache_line, QX::HEAP_GENERAL));
    task->next = nullptr;
    task->waiter_kind = waiter_is_task;
    clear_callable(*task);
    return task;
}

// Where in its block a fibre's record stands. The blocks begin at like places, so that all records
// and first frames would want the same few lines of the caches and entries of the translation
// buffer: where rounding has left room behind the block, each fibre goes to another page of it and
// another line in that page's upper half, above the first frames.
unsigned int place_fibre(unsigned char const* block, unsigned int id) {
    auto const begin = reinterpret_cast<std::uintptr_t>(block);
    std::uintptr_t const end = begin + QX::arena::block_size(block);
    std::uintptr_t const first =
        (begin + fibre_stack_size + page_size - 1) & ~std::uintptr_t{page_size - 1};
    if (end < first + page_size) return fibre_stack_size;
    std::uintptr_t const place = first + id % ((end - first) / page_size) * page_size;
    std::uintptr_t const line = page_size / cache_line - 1 - id * 11 % 32;
    return static_cast<unsigned int>(place + line * cache_line - begin);
}

Fibre* make_fibre_record(unsigned int id) {
    auto* const block =
        static_cast<unsigned char*>(QX::custom_malloc(fibre_block_size, QX::HEAP_GENERAL));
    unsigned int const offset = place_fibre(block, id);
    auto* const fibre = reinterpret_cast<Fibre*>(block + offset);
    fibre->id = id;
    fibre->offset = offset;
    fibre->next = nullptr;
    fibre->context = nullptr;
    return fibre;
}

void fill_in(Task* task, FiberMode mode, ThreadMask mask, Priority priority) {
    Task const* const current = this_thread().current_task;
    bool const inherits = current != nullptr && current->priority == Priority::high;
    task->thread_mask = mask;
    task->priority = inherits ? Priority::high : priority;
    task->fibre = mode == FiberMode::fiberful ? wants_fibre() : nullptr;
}

Task* take_task_record() {
    if (Task* const task = take_spare(this_thread().spare_task)) return task;
    Task* const task = make_task_record();
    __atomic_fetch_add(&scheduler->task_record_count, 1u, __ATOMIC_SEQ_CST);
    return task;
}

Task* make_task(
    FiberMode mode, ThreadMask mask, Priority priority, FunctionTypeInfo const& type,
    void* callable) {
    Task* const task = take_task_record();
    fill_in(task, mode, mask, priority);
    try {
        type.construct(task->closure, callable);
    } catch (...) {
        give_free(task);
        throw;
    }
    task->invoke = type.invoke;
    task->destroy = type.destroy;
    return task;
}

}  // namespace task::detail
