// scheduler_platform.cpp - the system half: threads' own records, sleeping, processors.
#include "qx/app/cpu_config.h"
#include "qx/base/windows.h"
#include "qx/tasks/scheduler_impl.h"
#include "qx/tasks/thread_impl.h"

#include <algorithm>
#include <cstdio>
#include <new>

namespace task::detail {

unsigned int thread_state_offset = 0;

namespace {

constexpr unsigned int inline_slots = 64;  // those in the thread block itself
constexpr unsigned int inline_slots_offset = 0x1480;

void free_state(void* state);

// The threads' records: found through one slot, freed at a thread's end through another.
struct Slots {
    Slots() : state(TlsAlloc()), owner(FlsAlloc(free_state)) {
        if (state < inline_slots) thread_state_offset = inline_slots_offset + 8 * state;
    }
    ~Slots() { FlsFree(owner); }
    Slots(Slots const&) = delete;
    Slots& operator=(Slots const&) = delete;

    DWORD state;
    DWORD owner;
};

Slots& slots() {
    static Slots made;
    return made;
}

void free_state(void* state) {
    if (state == nullptr) return;
    if (TlsGetValue(slots().state) == state) TlsSetValue(slots().state, nullptr);
    HeapFree(GetProcessHeap(), 0, state);
}

SRWLOCK* lock_of(Scheduler& in) {
    return reinterpret_cast<SRWLOCK*>(&in.wake_mutex);
}

CONDITION_VARIABLE* condition_of(Scheduler& in) {
    return reinterpret_cast<CONDITION_VARIABLE*>(&in.wake_condition);
}

}  // namespace

// The process's heap rather than the arena: a record outlives the scheduler, and is freed at its
// thread's end.
ThreadState& find_thread_state() {
    Slots const& at = slots();
    auto* state = static_cast<ThreadState*>(TlsGetValue(at.state));
    if (state != nullptr) return *state;
    state = static_cast<ThreadState*>(
        HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, sizeof(ThreadState)));
    if (state == nullptr) throw std::bad_alloc();
    state->thread_id = unknown_thread;
    state->handled = handled_exceptions_of_thread();
    TlsSetValue(at.state, state);
    FlsSetValue(at.owner, state);
    return *state;
}

void give_way() {
    SwitchToThread();
}

void lock_wake_mutex(Scheduler& on) {
    AcquireSRWLockExclusive(lock_of(on));
}

void unlock_wake_mutex(Scheduler& on) {
    ReleaseSRWLockExclusive(lock_of(on));
}

void wait_for_wake(Scheduler& on) {
    SleepConditionVariableSRW(condition_of(on), lock_of(on), INFINITE, 0);
}

void wake_all(Scheduler& on) {
    WakeAllConditionVariable(condition_of(on));
}

void name_worker(unsigned int worker) {
    char name[32];
    std::snprintf(name, sizeof name, "Task worker thread %u", worker);
    QX::set_debugger_thread_name(name, QX::this_thread_id);
}

Processors count_processors() {
    QX::CPUConfig config;
    QX::get_current_cpu_config(config);
    Processors found = {config.logical_processor_count, 0};
    for (unsigned int i = 0; i < found.logical; ++i)
        found.cores = std::max(found.cores, config.processors[i].core + 1);
    return found;
}

}  // namespace task::detail
