// mutex.h - a recursive mutex that counts, a scoped lock that may be off, and the heap lock.
//
//     MutexPlatform mutex;
//     mutex.acquire();  mutex.acquire();   // held twice
//     SafetyCatch depth = mutex.suspend(); // let go of altogether; depth is 2
//     mutex.resume(depth);                 // held twice again
//     mutex.release()   =>  1
//     mutex.release()   =>  0
//
// Threads: any thread may use any mutex. A mutex belongs to a thread, so a task must not hold one
// where it may be moved to another thread: across a wait on a counter or a yield.
#pragma once

#include "qx/base/export.h"

namespace QX {

// How often a mutex was held when `suspend` gave it up. `resume` leaves it as it is.
class SafetyCatch {
public:
    explicit SafetyCatch(unsigned int depth = 0) : depth_(depth) {}

    unsigned int depth() const { return depth_; }

private:
    unsigned int depth_;
};

// 48 bytes: the count, then the system's critical section.
class MutexPlatform {
public:
    // `spin_count`: how often a thread looks again before it sleeps; 0 leaves that to the system.
    QX_API explicit MutexPlatform(unsigned int spin_count = 0);
    QX_API ~MutexPlatform();

    MutexPlatform(MutexPlatform const&) = delete;

    // Copies bit for bit, critical section included: only between mutexes that nobody uses yet, and
    // only one of the two may be destroyed afterwards.
    QX_API MutexPlatform& operator=(MutexPlatform const& other);

    // Blocks until the mutex is the caller's; the owner may enter again.
    QX_API void acquire();

    // False where another thread holds it.
    QX_API bool try_acquire();

    // Gives one level back and returns how many are left. The caller must hold the mutex.
    QX_API unsigned int release();

    // Gives back every level that the caller holds, and tells how many: 0 if it held none.
    QX_API SafetyCatch suspend();

    // Takes as many levels as `depth` says. Nothing for 0.
    QX_API void resume(SafetyCatch& depth);

    // How often the owner holds it; only the owner reads something settled.
    unsigned int lock_count() const { return lock_count_; }

private:
    unsigned int lock_count_ = 0;
    alignas(8) unsigned char section_[40];
};

// The same, for locks that are declared once as statics.
class CriticalSectionDeclaration : public MutexPlatform {
public:
    using MutexPlatform::MutexPlatform;
};

static_assert(sizeof(CriticalSectionDeclaration) == 48);

#pragma pack(push, 1)
// Holds `section` for its own life if `enabled`, and does nothing at all if not.
class OptionalCriticalSection {
public:
    QX_API OptionalCriticalSection(CriticalSectionDeclaration& section, bool enabled);
    QX_API ~OptionalCriticalSection();

    OptionalCriticalSection(OptionalCriticalSection const&) = delete;
    OptionalCriticalSection& operator=(OptionalCriticalSection const&) = delete;

    bool enabled() const { return enabled_; }

private:
    bool enabled_;
    CriticalSectionDeclaration* section_;  // written only where enabled
};
#pragma pack(pop)

// A process-wide lock offered to the application; the arena does not take it. Built by the first
// call, whichever thread makes it, with a spin count of 10000; gone at exit.
QX_API CriticalSectionDeclaration& heap_cs();

}  // namespace QX
