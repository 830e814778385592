// mini_profile.h - blocks of code that always sum their time and calls, and who called whom.
//
//     void Battle::update() {
//         QX_MINI_PROFILE("battle update");
//         ...
//     }
//
//     MINI_PROFILE_MGR::reset("frames 0 to 99");
//     ...
//     MINI_PROFILE_MGR::slow_dump(5, false)  =>  "--------\n"
//                                                "frames 0 to 99\n"
//                                                "battle update: 812 (100)\n"
//                                                "  path finding: 77 (2380)\n"
//
// that is milliseconds and calls of what took more than 5 ms. Times are in ticks of the performance
// counter.
//
// A block belongs to the thread that first came by, and is listed in that thread's stack for ever.
// At most 1,024 blocks of a thread and 64 threads are listed; those beyond work and are not listed.
// A thread with the number of one that ended takes its stack over.
//
// A block's parent is the block that was running on its thread when it started for the first time.
// A block that calls itself stays the running one of its thread when it ends: the next block to
// start there has it as parent or forerunner, though nothing called it.
//
// Threads: any thread may run any block, and the sums hold; a block that runs on two threads at
// once counts as one that calls itself. Only the outermost call adds to the sums.
#pragma once

#include "qx/base/export.h"
#include "qx/tasks/atomic.h"

namespace QX {

struct sStackByThread;

// Of static life: it is never taken out of its list. Aligned so that its sums change in one step.
class alignas(16) MINI_PROFILE_BLOCK {
public:
    // Registers the block with the calling thread's stack. `name` is kept, not copied, and may not
    // be null.
    QX_API explicit MINI_PROFILE_BLOCK(char const* name);

    MINI_PROFILE_BLOCK(MINI_PROFILE_BLOCK const&) = delete;
    MINI_PROFILE_BLOCK& operator=(MINI_PROFILE_BLOCK const&) = delete;

    // The block runs from here on ...
    QX_API void starting();

    // ... to here: what was running when it last started runs again. `ticks` is what the call took.
    QX_API void callEnd(long ticks);

    char const* name() const { return block_name_; }
    char const* block_name() const { return block_name_; }
    sStackByThread* stack() const { return stack_; }
    MINI_PROFILE_BLOCK* previous() const { return previous_; }  // running at the last start
    MINI_PROFILE_BLOCK* parent() const { return parent_; }      // running at the first start
    bool has_parent() const { return has_parent_ != 0; }  // started at all; parent may be null
    int elapsed() const { return elapsed_.get(); }        // in ticks
    int call_count() const { return calls_.get(); }
    int calls() const { return calls_.get(); }
    int depth() const { return depth_.get(); }  // calls under way

private:
    friend class MINI_PROFILE_MGR;

    void add_call(unsigned int ticks);

    char const* block_name_;
    sStackByThread* stack_;
    MINI_PROFILE_BLOCK* previous_ = nullptr;
    MINI_PROFILE_BLOCK* parent_ = nullptr;
    unsigned int has_parent_ = 0;
    AtomicInt32Platform elapsed_;
    AtomicInt32Platform calls_;
    AtomicInt32Platform depth_;
};

// One thread's blocks.
struct sStackByThread {
    static constexpr int max_blocks = 1024;

    MINI_PROFILE_BLOCK* blocks[max_blocks];
    int count;
    unsigned int thread_id;       // all ones while free
    MINI_PROFILE_BLOCK* current;  // the block that is running, or null
};

class MINI_PROFILE_MGR {
public:
    // Lists the block in the calling thread's stack, unless that is full, and returns the stack.
    QX_API static sStackByThread* reg(MINI_PROFILE_BLOCK* block);

    // The calling thread's stack, claimed at its first call. Further threads than 64 share one that
    // is not listed.
    QX_API static sStackByThread* get_stack_for_current_thread();

    // The performance counter's ticks in a second, the low 32 bits.
    QX_API static long performance_freq();

    // The performance counter's ticks, the low 32 bits. Differences are right where they wrap.
    QX_API static unsigned int performance_counter();

    // Zeroes the sums of every listed block, also those of other threads; what runs meanwhile
    // counts from its end on, whole. `title` is kept, not copied, for the dumps to come; it may not
    // be null.
    QX_API static void reset(char const* title);

    // The listed blocks of more than `threshold_ms` whole milliseconds, below the title: `flat` in
    // the order of their listing, else each under its parent and two spaces further in, though the
    // parent may not be shown itself. Cut at 7,999 characters. The text stands until the next call,
    // and only one thread may be at it.
    QX_API static char const* slow_dump(int threshold_ms, bool flat);

    // The stacks of all threads, in the order in which their threads came.
    static constexpr int max_threads = 64;
    QX_API static sStackByThread m_StacksRoot[max_threads];
};

// Times one call of a block, from its construction to its end.
class MINI_PROFILE {
public:
    explicit MINI_PROFILE(MINI_PROFILE_BLOCK& block) : block_(block) {
        block_.starting();
        start_ = MINI_PROFILE_MGR::performance_counter();
    }

    ~MINI_PROFILE() {
        block_.callEnd(static_cast<long>(MINI_PROFILE_MGR::performance_counter() - start_));
    }

    MINI_PROFILE(MINI_PROFILE const&) = delete;
    MINI_PROFILE& operator=(MINI_PROFILE const&) = delete;

private:
    MINI_PROFILE_BLOCK& block_;
    unsigned int start_;
};

}  // namespace QX

#define QX_MINI_PROFILE_JOIN_(a, b) a##b
#define QX_MINI_PROFILE_NAME_(a, b) QX_MINI_PROFILE_JOIN_(a, b)

// Profiles from here to the end of the enclosing braces. One a line.
#define QX_MINI_PROFILE(name)                                                                      \
    static ::QX::MINI_PROFILE_BLOCK QX_MINI_PROFILE_NAME_(qx_mini_profile_block_, __LINE__)(name); \
    ::QX::MINI_PROFILE const QX_MINI_PROFILE_NAME_(qx_mini_profile_, __LINE__)(                    \
        QX_MINI_PROFILE_NAME_(qx_mini_profile_block_, __LINE__))
