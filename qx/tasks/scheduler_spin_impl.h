// scheduler_spin_impl.h - waiting without the system: pauses, a lock of one word, and lists whose
// head is their lock.
#pragma once

#include "qx/base/compiler.h"

#include <cstdint>

namespace task::detail {

// Begins to bring a line in to be written, so that it is not asked for twice.
inline void fetch_for_writing(void const* line) {
    asm volatile("prefetchw %0" : : "m"(*static_cast<char const*>(line)));
}

// --- Spinning ------------------------------------------------------------------------------------

// Gives the processor to another thread that is ready, if there is one.
void give_way();

// Waits a little, longer by turns: a lock's owner may have been taken off its processor.
class Spin {
public:
    void pause() {
        __builtin_ia32_pause();
        if (++rounds_ % rounds_before_giving_way == 0) give_way();
    }

private:
    static constexpr unsigned int rounds_before_giving_way = 1024;
    unsigned int rounds_ = 0;
};

// Pauses between two looks for work, each longer than the last.
class Backoff {
public:
    unsigned int next() {
        if (length_ < longest) ++length_;
        return length_;
    }
    void reset() { length_ = 0; }

private:
    static constexpr unsigned int longest = 16;
    unsigned int length_ = 0;
};

// --- A lock of one word
// ---------------------------------------------------------------------------

// Beside the arena's: it can be tried, stands in plain memory, and pauses for longer and longer
// between two looks, since those who queue here come in crowds.
class SpinLock {
public:
    bool try_lock() { return __atomic_exchange_n(&word_, 1u, __ATOMIC_SEQ_CST) == 0; }

    void acquire() {
        if (QX_UNLIKELY(!try_lock())) acquire_contended();
    }

    void release() { __atomic_store_n(&word_, 0u, __ATOMIC_RELEASE); }

private:
    void acquire_contended();

    unsigned int word_;  // bit 0
};

// --- Lists whose head is their lock --------------------------------------------------------------

template <typename Node>
Node* locked_mark() {
    return reinterpret_cast<Node*>(~std::uintptr_t{0});
}

template <typename Node>
QX_NOINLINE Node* lock_contended_list(Node*& head) {
    for (Spin spin;;) {
        while (__atomic_load_n(&head, __ATOMIC_RELAXED) == locked_mark<Node>()) spin.pause();
        Node* const list = __atomic_exchange_n(&head, locked_mark<Node>(), __ATOMIC_SEQ_CST);
        if (list != locked_mark<Node>()) return list;
    }
}

// Takes the whole list, which is locked until it is put back.
template <typename Node>
QX_ALWAYS_INLINE Node* lock_list(Node*& head) {
    Node* const list = __atomic_exchange_n(&head, locked_mark<Node>(), __ATOMIC_SEQ_CST);
    return QX_LIKELY(list != locked_mark<Node>()) ? list : lock_contended_list(head);
}

// The mark where somebody else has the list; else as above.
template <typename Node>
Node* try_lock_list(Node*& head) {
    return __atomic_exchange_n(&head, locked_mark<Node>(), __ATOMIC_SEQ_CST);
}

template <typename Node>
QX_ALWAYS_INLINE void unlock_list(Node*& head, Node* list) {
    __atomic_store_n(&head, list, __ATOMIC_RELEASE);
}

// Last in, first out.
template <typename Node>
Node* pop_list(Node*& head) {
    Node* const node = lock_list(head);
    auto* const rest = node != nullptr ? static_cast<Node*>(node->next) : nullptr;
    unlock_list(head, rest);
    if (rest != nullptr) fetch_for_writing(rest);
    if (node != nullptr) node->next = nullptr;
    return node;
}

template <typename Node>
void push_list(Node*& head, Node* node) {
    node->next = lock_list(head);
    unlock_list(head, node);
}

}  // namespace task::detail
