#include "qx/diagnostics/mini_profile.h"

#include "qx/base/windows.h"
#include "qx/text/format.h"

#include <cstring>

namespace QX {

static_assert(sizeof(MINI_PROFILE_BLOCK) == 48);
static_assert(sizeof(sStackByThread) == 1024 * 8 + 16);

sStackByThread MINI_PROFILE_MGR::m_StacksRoot[max_threads];

namespace {

constexpr unsigned int no_thread = 0xFFFFFFFF;
constexpr unsigned int text_room = 8000;
constexpr unsigned long long one_call = 1ull << 32;

sStackByThread unlisted_stack;
char const* dump_title = "";
char dump_text[text_room];

// Done at load, not in the image: half a megabyte of zeros lies between the marks.
bool mark_all_free() {
    for (sStackByThread& stack : MINI_PROFILE_MGR::m_StacksRoot) stack.thread_id = no_thread;
    return true;
}

[[maybe_unused]] bool const all_are_free = mark_all_free();

// Whether the stack is the thread's, or has become so just now.
bool claim(sStackByThread& stack, unsigned int thread) {
    unsigned int owner = __atomic_load_n(&stack.thread_id, __ATOMIC_RELAXED);
    if (owner == no_thread &&
        __atomic_compare_exchange_n(
            &stack.thread_id, &owner, thread, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST))
        return true;
    return owner == thread;
}

// Calls `action` with each listed block, in the order of the table.
template <typename Action>
void for_each_block(Action action) {
    for (sStackByThread& stack : MINI_PROFILE_MGR::m_StacksRoot) {
        int const count = __atomic_load_n(&stack.count, __ATOMIC_ACQUIRE);
        for (int i = 0; i < count; ++i) action(*stack.blocks[i]);
    }
}

// The text of one dump under way.
class Dump {
public:
    explicit Dump(int threshold_ms)
        : threshold_ms_(threshold_ms), ticks_in_ms_(MINI_PROFILE_MGR::performance_freq() / 1000) {
        text_.reserve(text_room);
        text_ += String::format("--------\n%s\n", dump_title);
    }

    void add(MINI_PROFILE_BLOCK const& block, unsigned int indentation) {
        long const ms = block.elapsed() / ticks_in_ms_;
        if (ms <= threshold_ms_) return;
        for (unsigned int i = 0; i < indentation; ++i) text_ += ' ';
        text_ += String::format("%s: %d (%d)\n", block.name(), ms, block.call_count());
    }

    // The children of `parent`, each with its own behind it. Parents started earlier than their
    // children and on the same stack, so that a tree is no deeper than a stack has blocks.
    void add_children(MINI_PROFILE_BLOCK const* parent, unsigned int indentation) {
        for_each_block([=, this](MINI_PROFILE_BLOCK const& block) {
            if (block.parent() != parent) return;
            add(block, indentation);
            add_children(&block, indentation + 2);
        });
    }

    char const* finish() const {
        unsigned int const length = text_.length() < text_room - 1 ? text_.length() : text_room - 1;
        std::memcpy(dump_text, text_.c_str(), length);
        dump_text[length] = 0;
        return dump_text;
    }

private:
    String text_;
    int threshold_ms_;
    long ticks_in_ms_;
};

}  // namespace

// --- Blocks --------------------------------------------------------------------------------------

MINI_PROFILE_BLOCK::MINI_PROFILE_BLOCK(char const* name)
    : block_name_(name), stack_(MINI_PROFILE_MGR::reg(this)) {}

void MINI_PROFILE_BLOCK::starting() {
    depth_.inc();
    MINI_PROFILE_BLOCK* const running = stack_->current;
    if (has_parent_ == 0) {
        has_parent_ = 1;
        parent_ = running;
    }
    previous_ = running;
    stack_->current = this;
}

void MINI_PROFILE_BLOCK::callEnd(long ticks) {
    if (depth_.dec() == 1) add_call(static_cast<unsigned int>(ticks));
    stack_->current = previous_;
}

// One locked step instead of two: the sums are neighbours, and the block's alignment keeps them
// within one line of the cache. Time that wraps carries into the calls, and that is taken back.
void MINI_PROFILE_BLOCK::add_call(unsigned int ticks) {
    typedef unsigned long long __attribute__((may_alias, aligned(4))) Sums;
    auto* const sums = reinterpret_cast<Sums*>(&elapsed_);
    auto const elapsed = static_cast<unsigned int>(__sync_fetch_and_add(sums, one_call | ticks));
    if (elapsed + ticks < ticks) calls_.dec();
}

// --- The manager ---------------------------------------------------------------------------------

sStackByThread* MINI_PROFILE_MGR::get_stack_for_current_thread() {
    unsigned int const thread = GetCurrentThreadId();
    for (sStackByThread& stack : m_StacksRoot)
        if (claim(stack, thread)) return &stack;
    return &unlisted_stack;
}

// The block is there before the count says so: a dump may be under way on another thread.
sStackByThread* MINI_PROFILE_MGR::reg(MINI_PROFILE_BLOCK* block) {
    sStackByThread* const stack = get_stack_for_current_thread();
    int const count = stack->count;
    if (stack == &unlisted_stack || count >= sStackByThread::max_blocks) return stack;
    stack->blocks[count] = block;
    __atomic_store_n(&stack->count, count + 1, __ATOMIC_RELEASE);
    return stack;
}

long MINI_PROFILE_MGR::performance_freq() {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return static_cast<long>(frequency.LowPart);
}

unsigned int MINI_PROFILE_MGR::performance_counter() {
    LARGE_INTEGER ticks;
    QueryPerformanceCounter(&ticks);
    return ticks.LowPart;
}

void MINI_PROFILE_MGR::reset(char const* title) {
    dump_title = title;
    for_each_block([](MINI_PROFILE_BLOCK& block) {
        block.calls_.set(0);
        block.elapsed_.set(0);
    });
}

char const* MINI_PROFILE_MGR::slow_dump(int threshold_ms, bool flat) {
    Dump dump(threshold_ms);
    if (flat)
        for_each_block([&](MINI_PROFILE_BLOCK const& block) { dump.add(block, 0); });
    else
        dump.add_children(nullptr, 0);
    return dump.finish();
}

}  // namespace QX
