#include "qx/tasks/thread_pool.h"

#include "qx/base/windows.h"
#include "qx/tasks/thread_impl.h"

#include <process.h>

namespace QX {

namespace {

constexpr DWORD poll_ms = 1;
constexpr char no_core = -1;

void wait(Semaphore const& semaphore) {
    WaitForSingleObject(semaphore.handle(), INFINITE);
}

void post(Semaphore const& semaphore) {
    ReleaseSemaphore(semaphore.handle(), 1, nullptr);
}

}  // namespace

void (*ThreadPoolPlatform::s_thread_begin_callback)() = nullptr;
void (*ThreadPoolPlatform::s_thread_end_callback)() = nullptr;

// The semaphores come first and the lock second, never the other way round.
class ThreadPoolPlatform::RingAccess {
public:
    explicit RingAccess(ThreadPoolPlatform& pool) : pool_(pool) {
        pool.lock_.acquire();
        ++pool.inside_lock_;
    }
    ~RingAccess() {
        --pool_.inside_lock_;
        pool_.lock_.release();
    }
    RingAccess(RingAccess const&) = delete;
    RingAccess& operator=(RingAccess const&) = delete;

private:
    ThreadPoolPlatform& pool_;
};

ThreadPoolPlatform::ThreadPoolPlatform(
    unsigned int thread_count, unsigned int queue_size, unsigned int stack_size, char const* name,
    char const* cores, ThreadPriority priority)
    : thread_count_(thread_count), queue_size_(queue_size),
      work_to_do_(0, queue_size, name, "WorkToDo"),
      empty_slots_(queue_size, queue_size, name, "EmptySlots") {
    threads_ = std::make_unique<Thread[]>(thread_count);
    slots_ = std::make_unique<Slot[]>(queue_size);
    for (unsigned int i = 0; i < thread_count; ++i)
        start(i, stack_size, name, cores != nullptr ? cores[i] : no_core, priority);
}

ThreadPoolPlatform::~ThreadPoolPlatform() {
    while (pending_jobs_.get() != 0) SleepEx(poll_ms, TRUE);
    quit_ = true;
    for (unsigned int i = 0; i < queue_size_; ++i) post(work_to_do_);
    for (unsigned int i = 0; i < thread_count_; ++i) wait_for_thread(threads_[i]);
    slots_.reset();
    threads_.reset();  // before the semaphores
}

void ThreadPoolPlatform::start(
    unsigned int thread, unsigned int stack_size, char const* name, char core,
    ThreadPriority priority) {
    unsigned int id = 0;
    auto* const handle = reinterpret_cast<HANDLE>(
        _beginthreadex(nullptr, stack_size, run_pool_jobs, this, CREATE_SUSPENDED, &id));
    if (handle == nullptr) return;
    threads_[thread].store(handle);
    set_debugger_thread_name(name, id);
    configure_thread(handle, core, priority);
    ResumeThread(handle);
}

void ThreadPoolPlatform::queue_job(Job job, void const* argument) {
    pending_jobs_.inc();
    wait(empty_slots_);
    RingAccess const access(*this);
    slots_[write_index_] = {job, argument};
    advance(write_index_);
    post(work_to_do_);
}

bool ThreadPoolPlatform::dequeue_job(Job& job, void const*& argument) {
    wait(work_to_do_);
    if (quit_) return false;
    RingAccess const access(*this);
    job = slots_[read_index_].job;
    argument = slots_[read_index_].argument;
    advance(read_index_);
    post(empty_slots_);
    return true;
}

void ThreadPoolPlatform::run_jobs() {
    if (s_thread_begin_callback != nullptr) s_thread_begin_callback();
    Job job = nullptr;
    void const* argument = nullptr;
    while (dequeue_job(job, argument)) {
        job(const_cast<void*>(argument));
        pending_jobs_.dec();
    }
    if (s_thread_end_callback != nullptr) s_thread_end_callback();
}

unsigned int ThreadPoolPlatform::run_pool_jobs(void* pool) {
    static_cast<ThreadPoolPlatform*>(pool)->run_jobs();
    return 0;
}

}  // namespace QX
