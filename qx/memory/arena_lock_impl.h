// arena_lock_impl.h - the spin lock of the arena and of its parameters.
#pragma once

#include <atomic>

#include "qx/base/compiler.h"

namespace QX::arena {

// Of the arena's own, below everything that has locks to offer: it allocates nothing, needs no
// construction, and gives the processor away to whoever holds it.
class SpinLock {
public:
    void acquire() {
        if (QX_UNLIKELY(word_.exchange(1, std::memory_order_acquire) != 0)) wait();
    }

    // A plain store: what an exchange of 0 would add on x86-64 is time, which no caller can see but
    // as such.
    void release() { word_.store(0, std::memory_order_release); }

private:
    // Yields the processor at every 10000th failed attempt.
    QX_NOINLINE void wait();

    std::atomic<unsigned int> word_ = 0;
};

class LockScope {
public:
    explicit LockScope(SpinLock& lock) : lock_(lock) { lock_.acquire(); }
    ~LockScope() { lock_.release(); }

    LockScope(LockScope const&) = delete;
    LockScope& operator=(LockScope const&) = delete;

private:
    SpinLock& lock_;
};

}  // namespace QX::arena
