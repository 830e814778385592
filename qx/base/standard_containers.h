// standard_containers.h - VECTOR and LIST, under the standard's names for their members.
//
//     VECTOR  one block; a full vector grows to max(2 * capacity, 1)
//     LIST    doubly linked nodes; keeps no size of its own, so size() walks
//
// Both draw on the arena through ALLOCATOR.
#pragma once

#include <iterator>
#include <memory>
#include <utility>

#include "qx/base/array_body.h"
#include "qx/memory/allocators.h"

namespace QX_STD {

// The allocator of both containers: custom_malloc and custom_free, no state.
template <typename T>
class ALLOCATOR : public QX::Allocator<T> {
public:
    ALLOCATOR() = default;

    template <typename Other>
    ALLOCATOR(ALLOCATOR<Other> const&) {}
};

namespace DETAIL {

struct VECTOR_TRAITS {
    static constexpr unsigned long long increase_capacity(unsigned long long capacity) {
        return capacity ? 2 * capacity : 1;
    }
};

// Called by a list: 1 and -1 for a node that comes or goes, 0 for a list that begins and for one
// that `splice` has emptied. Which list it was is not told, so nothing can be kept here.
struct LIST_TRAITS {
    static constexpr void set_size(unsigned long long) {}
    static constexpr void adjust_size(long long) {}
};

template <typename T, typename A, typename Traits>
struct VectorPolicy {
    static T* allocate(unsigned long long count) { return A().allocate(count); }
    static void release(T* block) {
        if (block) A().deallocate(block, 0);
    }
    static constexpr unsigned long long grown(unsigned long long capacity) {
        return Traits::increase_capacity(capacity);
    }
};

}  // namespace DETAIL

// The operations, what they keep valid and what exceptions leave: array_body.h.
template <typename T, typename A = ALLOCATOR<T>, typename Traits = DETAIL::VECTOR_TRAITS>
class VECTOR : public QX::ArrayBody<T, DETAIL::VectorPolicy<T, A, Traits>> {
    using Body = QX::ArrayBody<T, DETAIL::VectorPolicy<T, A, Traits>>;

public:
    using size_type = unsigned long long;
    using iterator = typename Body::Iterator;
    using const_iterator = typename Body::ConstIterator;
    using reference = T&;
    using const_reference = T const&;
};

// Iterators stay valid until their own element goes. The nodes form a ring through the list's own
// link, so that begin, end and the operations at both ends need no test.
template <typename T, typename A = ALLOCATOR<T>, typename Traits = DETAIL::LIST_TRAITS>
class LIST {
    struct Link {
        Link* next = this;
        Link* previous = this;
    };

    struct Node : Link {
        template <typename Value>
        explicit Node(Value&& from) : Link{nullptr, nullptr}, value(std::forward<Value>(from)) {}
        T value;
    };

    template <typename Element>
    class Cursor {
    public:
        using iterator_category = std::bidirectional_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = Element*;
        using reference = Element&;

        Cursor() = default;
        explicit Cursor(Link* link) : link_(link) {}
        operator Cursor<T const>() const { return Cursor<T const>(link_); }

        Element& operator*() const { return static_cast<Node*>(link_)->value; }
        Element* operator->() const { return &**this; }
        Cursor& operator++() { return link_ = link_->next, *this; }
        Cursor& operator--() { return link_ = link_->previous, *this; }
        Cursor operator++(int) { return std::exchange(*this, Cursor(link_->next)); }
        Cursor operator--(int) { return std::exchange(*this, Cursor(link_->previous)); }
        friend bool operator==(Cursor a, Cursor b) { return a.link_ == b.link_; }

    private:
        friend class LIST;
        Link* link_ = nullptr;
    };

public:
    using value_type = T;
    using size_type = unsigned long long;
    using iterator = Cursor<T>;
    using const_iterator = Cursor<T const>;
    using reference = T&;
    using const_reference = T const&;

    LIST() { Traits::set_size(0); }
    LIST(LIST const& other) : LIST() { append(other); }
    LIST(LIST&& other) noexcept : LIST() { splice(end(), other); }
    LIST& operator=(LIST const& other);
    LIST& operator=(LIST&& other) noexcept;
    ~LIST() { clear(); }

    bool empty() const { return ends_.next == &ends_; }
    size_type size() const;  // O(size)

    T& front() { return *begin(); }
    T const& front() const { return *begin(); }
    T& back() { return *--end(); }
    T const& back() const { return *--end(); }

    iterator begin() { return iterator(ends_.next); }
    iterator end() { return iterator(&ends_); }
    const_iterator begin() const { return const_iterator(ends_.next); }
    const_iterator end() const { return const_iterator(const_cast<Link*>(&ends_)); }

    void push_back(T const& value) { insert(end(), value); }
    void push_back(T&& value) { insert(end(), std::move(value)); }
    void push_front(T const& value) { insert(begin(), value); }
    void push_front(T&& value) { insert(begin(), std::move(value)); }
    void pop_back() { erase(--end()); }
    void pop_front() { erase(begin()); }

    iterator insert(const_iterator place, T const& value) { return link_in(place, make(value)); }
    iterator insert(const_iterator place, T&& value) {
        return link_in(place, make(std::move(value)));
    }

    // Return the place behind what went.
    iterator erase(const_iterator place);
    iterator erase(const_iterator first, const_iterator last);

    // Takes every node of `other` in before `place`.
    void splice(const_iterator place, LIST& other) noexcept;

    void clear() { erase(begin(), end()); }
    void swap(LIST& other) noexcept;

private:
    using NodeAllocator = typename std::allocator_traits<A>::template rebind_alloc<Node>;

    template <typename Value>
    static Node* make(Value&& value);
    iterator link_in(const_iterator place, Node* node);
    void append(LIST const& other);

    Link ends_;
};

template <typename T, typename A, typename Traits>
LIST<T, A, Traits>& LIST<T, A, Traits>::operator=(LIST const& other) {
    if (this == &other) return *this;
    LIST copy(other);
    swap(copy);
    return *this;
}

template <typename T, typename A, typename Traits>
LIST<T, A, Traits>& LIST<T, A, Traits>::operator=(LIST&& other) noexcept {
    LIST taken(std::move(other));
    swap(taken);
    return *this;
}

template <typename T, typename A, typename Traits>
typename LIST<T, A, Traits>::size_type LIST<T, A, Traits>::size() const {
    return static_cast<size_type>(std::distance(begin(), end()));
}

template <typename T, typename A, typename Traits>
template <typename Value>
typename LIST<T, A, Traits>::Node* LIST<T, A, Traits>::make(Value&& value) {
    Node* const room = NodeAllocator().allocate(1);
    try {
        return new (static_cast<void*>(room)) Node(std::forward<Value>(value));
    } catch (...) {
        NodeAllocator().deallocate(room, 1);
        throw;
    }
}

template <typename T, typename A, typename Traits>
typename LIST<T, A, Traits>::iterator
LIST<T, A, Traits>::link_in(const_iterator place, Node* node) {
    node->next = place.link_;
    node->previous = place.link_->previous;
    node->previous->next = node;
    node->next->previous = node;
    Traits::adjust_size(1);
    return iterator(node);
}

template <typename T, typename A, typename Traits>
typename LIST<T, A, Traits>::iterator LIST<T, A, Traits>::erase(const_iterator place) {
    Node* const node = static_cast<Node*>(place.link_);
    Link* const behind = node->next;
    node->previous->next = behind;
    behind->previous = node->previous;
    node->~Node();
    NodeAllocator().deallocate(node, 1);
    Traits::adjust_size(-1);
    return iterator(behind);
}

template <typename T, typename A, typename Traits>
typename LIST<T, A, Traits>::iterator
LIST<T, A, Traits>::erase(const_iterator first, const_iterator last) {
    while (first != last) first = erase(first);
    return iterator(last.link_);
}

template <typename T, typename A, typename Traits>
void LIST<T, A, Traits>::splice(const_iterator place, LIST& other) noexcept {
    if (other.empty()) return;
    Link* const before = place.link_->previous;
    before->next = other.ends_.next;
    before->next->previous = before;
    place.link_->previous = other.ends_.previous;
    place.link_->previous->next = place.link_;
    other.ends_.next = other.ends_.previous = &other.ends_;
    Traits::set_size(0);
}

template <typename T, typename A, typename Traits>
void LIST<T, A, Traits>::swap(LIST& other) noexcept {
    LIST held;
    held.splice(held.end(), other);
    other.splice(other.end(), *this);
    splice(end(), held);
}

template <typename T, typename A, typename Traits>
void LIST<T, A, Traits>::append(LIST const& other) {
    for (T const& value : other) push_back(value);
}

}  // namespace QX_STD
