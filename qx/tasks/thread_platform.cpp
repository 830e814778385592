#include "qx/tasks/thread.h"

#include "qx/base/windows.h"
#include "qx/tasks/guard_impl.h"
#include "qx/tasks/semaphore.h"
#include "qx/tasks/thread_impl.h"

#include <process.h>

#include <utility>

namespace QX {

namespace {

constexpr DWORD name_exception = 0x406D1388;
constexpr DWORD name_type = 0x1000;
constexpr unsigned int core_mask = 31;

constexpr int system_priorities[] = {-15, -2, -1, 0, 1, 2, 15};

// As debuggers expect it.
struct NameRecord {
    DWORD type;
    char const* name;
    DWORD thread_id;
    DWORD flags;
};

struct StartRecord {
    unsigned int (*entry)(void*);
    void* argument;
    Semaphore* started;
    unsigned int thread_id;
};

void raise_name(void* record) {
    RaiseException(
        name_exception, 0, sizeof(NameRecord) / sizeof(ULONG_PTR),
        static_cast<ULONG_PTR const*>(record));
}

long swallow(_EXCEPTION_POINTERS*) {
    return execute_handler;
}

// The caller's record may die as soon as the semaphore is posted.
unsigned int __stdcall start_thread(void* caller_record) {
    auto* const shared = static_cast<StartRecord*>(caller_record);
    StartRecord const record = *shared;
    shared->thread_id = GetCurrentThreadId();
    ReleaseSemaphore(record.started->handle(), 1, nullptr);
    record.entry(record.argument);
    return 0;
}

Semaphore& start_semaphore() {
    static Semaphore semaphore(0, 1, nullptr);
    return semaphore;
}

SRWLOCK start_lock = SRWLOCK_INIT;  // the one semaphore serves one start at a time

class StartLock {
public:
    StartLock() { AcquireSRWLockExclusive(&start_lock); }
    ~StartLock() { ReleaseSRWLockExclusive(&start_lock); }
    StartLock(StartLock const&) = delete;
    StartLock& operator=(StartLock const&) = delete;
};

}  // namespace

void set_debugger_thread_name(char const* name, unsigned int thread_id) {
    NameRecord record = {name_type, name, thread_id, 0};
    qx_guarded_call(raise_name, &record, swallow);
}

void configure_thread(void* thread, char core, ThreadPriority priority) {
    SetThreadPriority(thread, system_priorities[static_cast<int>(priority)]);
    if (core == static_cast<char>(-1)) return;
    unsigned int const bit = static_cast<unsigned int>(core) & core_mask;
    SetThreadAffinityMask(thread, static_cast<DWORD_PTR>(1) << bit);
}

Thread& Thread::operator=(Thread&& other) noexcept {
    if (this != &other) store(std::exchange(other.handle_, nullptr));
    return *this;
}

void Thread::store(void* handle) {
    if (handle_ != nullptr) CloseHandle(handle_);
    handle_ = handle;
}

void wait_for_thread(Thread const& thread) {
    WaitForSingleObject(thread.handle(), INFINITE);
}

unsigned int run_in_native_thread(
    unsigned int stack_size, char core, ThreadPriority priority, unsigned int (*entry)(void*),
    void const* argument, Thread* thread, char const* name) {
    StartLock const one_at_a_time;
    Semaphore& started = start_semaphore();
    StartRecord record = {entry, const_cast<void*>(argument), &started, 0};
    unsigned int id = 0;
    auto* const handle = reinterpret_cast<HANDLE>(
        _beginthreadex(nullptr, stack_size, start_thread, &record, CREATE_SUSPENDED, &id));
    Thread detached;
    (thread != nullptr ? *thread : detached).store(handle);
    if (handle == nullptr) return 0;

    set_debugger_thread_name(name, id);
    configure_thread(handle, core, priority);
    ResumeThread(handle);
    WaitForSingleObject(started.handle(), INFINITE);
    return record.thread_id;
}

unsigned int run_in_native_thread(unsigned int (*entry)(void*), void* argument, Thread& thread) {
    unsigned int id = 0;
    auto* const handle =
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, entry, argument, 0, &id));
    thread.store(handle);
    return handle != nullptr ? id : 0;
}

}  // namespace QX
