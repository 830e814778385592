// array_body.h - the workings that DynamicArray and VECTOR share: one block of elements that grows.
//
// Clients use the two containers; what stands here is their common interface.
//
//   Elements   move by copy construction and destruction: no assignment is asked of them. A type
//              that declares `using MovesOnGrowth = void;` (or specialises `moves_on_growth`)
//              moves by move construction instead, as does one that cannot be copied; trivially
//              copyable elements move as bytes.
//   Validity   growth makes every iterator invalid; insertion and erasure those from the place on.
//   Exceptions a growth that throws leaves the array as it was. Where a copy throws while elements
//              close up or make room, the array ends before the gap.
//   Threads    one array belongs to one thread at a time.
#pragma once

#include <compare>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <new>
#include <type_traits>
#include <utility>

namespace QX {

// Whether elements of `T` move by move construction when an array grows.
template <typename T>
inline constexpr bool moves_on_growth = requires {
    typename T::MovesOnGrowth;
};

// An element pointer that walks like one.
template <typename T>
class ArrayIterator {
public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = std::remove_const_t<T>;
    using difference_type = std::ptrdiff_t;
    using pointer = T*;
    using reference = T&;

    ArrayIterator() = default;
    explicit ArrayIterator(T* place) : place_(place) {}

    // A reading iterator is made of a writing one.
    operator ArrayIterator<T const>() const requires(!std::is_const_v<T>) {
        return ArrayIterator<T const>(place_);
    }

    T& operator*() const { return *place_; }
    T* operator->() const { return place_; }
    T& operator[](difference_type n) const { return place_[n]; }

    ArrayIterator& operator++() { return *this += 1; }
    ArrayIterator& operator--() { return *this -= 1; }
    ArrayIterator operator++(int) { return ArrayIterator(place_++); }
    ArrayIterator operator--(int) { return ArrayIterator(place_--); }
    ArrayIterator& operator+=(difference_type n) { return place_ += n, *this; }
    ArrayIterator& operator-=(difference_type n) { return place_ -= n, *this; }

    friend ArrayIterator operator+(ArrayIterator it, difference_type n) { return it += n; }
    friend ArrayIterator operator+(difference_type n, ArrayIterator it) { return it += n; }
    friend ArrayIterator operator-(ArrayIterator it, difference_type n) { return it -= n; }
    friend difference_type operator-(ArrayIterator a, ArrayIterator b) {
        return a.place_ - b.place_;
    }
    friend bool operator==(ArrayIterator a, ArrayIterator b) { return a.place_ == b.place_; }
    friend auto operator<=>(ArrayIterator a, ArrayIterator b) { return a.place_ <=> b.place_; }

private:
    T* place_ = nullptr;
};

// `Policy` tells where blocks come from and how far a full array grows:
//
//     static T* allocate(unsigned long long count);
//     static void release(T* block);                           null does nothing
//     static unsigned long long grown(unsigned long long capacity);
template <typename T, typename Policy>
class ArrayBody {
public:
    using Count = unsigned long long;
    using Iterator = ArrayIterator<T>;
    using ConstIterator = ArrayIterator<T const>;
    using value_type = T;

    ArrayBody() = default;
    ArrayBody(ArrayBody const& other);
    ArrayBody(ArrayBody&& other) noexcept { swap(other); }
    ArrayBody& operator=(ArrayBody const& other);
    ArrayBody& operator=(ArrayBody&& other) noexcept;
    ~ArrayBody();

    Count size() const { return count_; }
    Count capacity() const { return capacity_; }
    bool empty() const { return count_ == 0; }

    T* data() { return data_; }
    T const* data() const { return data_; }

    // Unchecked: an index is below size(), and front and back need an element.
    T& operator[](Count index) { return data_[index]; }
    T const& operator[](Count index) const { return data_[index]; }
    T& front() { return data_[0]; }
    T const& front() const { return data_[0]; }
    T& back() { return data_[count_ - 1]; }
    T const& back() const { return data_[count_ - 1]; }

    Iterator begin() { return Iterator(data_); }
    Iterator end() { return Iterator(data_ + count_); }
    ConstIterator begin() const { return ConstIterator(data_); }
    ConstIterator end() const { return ConstIterator(data_ + count_); }

    // Makes the capacity at least `count`, exactly that where it grows.
    void reserve(Count count);

    // New elements are value-initialised.
    void resize(Count count);

    // `value` may be an element of this array.
    void push_back(T const& value) { append(value); }
    void push_back(T&& value) { append(std::move(value)); }
    void pop_back() { data_[--count_].~T(); }

    // Puts `value` before `place`, which may be the end; returns where it stands.
    Iterator insert(ConstIterator place, T const& value) { return insert_copy(place, value); }
    Iterator insert(ConstIterator place, T&& value) { return insert_copy(place, std::move(value)); }

    // Return the place behind what went.
    Iterator erase(ConstIterator place) { return erase(place, place + 1); }
    Iterator erase(ConstIterator first, ConstIterator last);

    // Destroys the elements and keeps the block.
    void clear();

    void swap(ArrayBody& other) noexcept;

private:
    Count index_of(ConstIterator place) const {
        return static_cast<Count>(place - ConstIterator(data_));
    }

    static void relocate_one(T* to, T* from);
    static T* relocate_all(T* from, Count count, T* to);
    static void destroy(T* first, Count count);

    template <typename Value>
    void append(Value&& value);
    template <typename Value>
    void append_growing(Value&& value);
    template <typename Value>
    Iterator insert_copy(ConstIterator place, Value&& value);
    void open_gap(Count index);
    void adopt(T* block, Count capacity);

    T* data_ = nullptr;
    Count count_ = 0;
    Count capacity_ = 0;
};

template <typename T, typename Policy>
void ArrayBody<T, Policy>::destroy(T* first, Count count) {
    if constexpr (!std::is_trivially_destructible_v<T>) {
        for (Count i = 0; i != count; ++i) first[i].~T();
    }
}

// Makes `to` of `from`; `from` still wants destroying.
template <typename T, typename Policy>
void ArrayBody<T, Policy>::relocate_one(T* to, T* from) {
    if constexpr (moves_on_growth<T> || !std::is_copy_constructible_v<T>) {
        new (static_cast<void*>(to)) T(std::move(*from));
    } else {
        new (static_cast<void*>(to)) T(static_cast<T const&>(*from));
    }
}

// Copies all, then destroys the old ones; if a copy throws, the old ones stand as they were.
template <typename T, typename Policy>
T* ArrayBody<T, Policy>::relocate_all(T* from, Count count, T* to) {
    if constexpr (std::is_trivially_copyable_v<T>) {
        if (count) std::memcpy(static_cast<void*>(to), from, count * sizeof(T));
    } else {
        Count made = 0;
        try {
            for (; made != count; ++made) relocate_one(to + made, from + made);
        } catch (...) {
            destroy(to, made);
            throw;
        }
        destroy(from, count);
    }
    return to;
}

template <typename T, typename Policy>
void ArrayBody<T, Policy>::adopt(T* block, Count capacity) {
    Policy::release(data_);
    data_ = block;
    capacity_ = capacity;
}

template <typename T, typename Policy>
ArrayBody<T, Policy>::ArrayBody(ArrayBody const& other) : ArrayBody() {
    reserve(other.count_);
    for (T const& element : other) append(element);
}

template <typename T, typename Policy>
ArrayBody<T, Policy>& ArrayBody<T, Policy>::operator=(ArrayBody const& other) {
    if (this == &other) return *this;
    ArrayBody copy(other);
    swap(copy);
    return *this;
}

template <typename T, typename Policy>
ArrayBody<T, Policy>& ArrayBody<T, Policy>::operator=(ArrayBody&& other) noexcept {
    ArrayBody taken(std::move(other));
    swap(taken);
    return *this;
}

template <typename T, typename Policy>
ArrayBody<T, Policy>::~ArrayBody() {
    destroy(data_, count_);
    Policy::release(data_);
}

template <typename T, typename Policy>
void ArrayBody<T, Policy>::reserve(Count count) {
    if (count <= capacity_) return;
    T* const block = Policy::allocate(count);
    try {
        relocate_all(data_, count_, block);
    } catch (...) {
        Policy::release(block);
        throw;
    }
    adopt(block, count);
}

template <typename T, typename Policy>
void ArrayBody<T, Policy>::resize(Count count) {
    if (count < count_) {
        destroy(data_ + count, count_ - count);
        count_ = count;
        return;
    }
    if (count > capacity_) {
        Count const grown = Policy::grown(capacity_);
        reserve(count > grown ? count : grown);
    }
    for (; count_ != count; ++count_) new (static_cast<void*>(data_ + count_)) T();
}

template <typename T, typename Policy>
template <typename Value>
void ArrayBody<T, Policy>::append(Value&& value) {
    if (count_ == capacity_) return append_growing(std::forward<Value>(value));
    new (static_cast<void*>(data_ + count_)) T(std::forward<Value>(value));
    ++count_;
}

// The new element is made first: `value` may stand in the block that is given up.
template <typename T, typename Policy>
template <typename Value>
void ArrayBody<T, Policy>::append_growing(Value&& value) {
    Count const grown = Policy::grown(capacity_);
    T* const block = Policy::allocate(grown);
    T* made = nullptr;
    try {
        made = new (static_cast<void*>(block + count_)) T(std::forward<Value>(value));
        relocate_all(data_, count_, block);
    } catch (...) {
        if (made) made->~T();
        Policy::release(block);
        throw;
    }
    adopt(block, grown);
    ++count_;
}

// Shifts the elements from `index` on up by one; `data_[index]` is then no object, count_ is index.
template <typename T, typename Policy>
void ArrayBody<T, Policy>::open_gap(Count index) {
    Count const tail = count_ - index;
    T* const gap = data_ + index;
    if constexpr (std::is_trivially_copyable_v<T>) {
        if (tail) std::memmove(static_cast<void*>(gap + 1), gap, tail * sizeof(T));
    } else {
        Count left = tail;
        try {
            for (; left; --left) {
                relocate_one(gap + left, gap + left - 1);
                gap[left - 1].~T();
            }
        } catch (...) {
            destroy(gap + left + 1, tail - left);
            count_ = index + left;
            throw;
        }
    }
    count_ = index;
}

template <typename T, typename Policy>
template <typename Value>
typename ArrayBody<T, Policy>::Iterator
ArrayBody<T, Policy>::insert_copy(ConstIterator place, Value&& value) {
    Count const index = index_of(place);
    Count const count = count_;
    T held(std::forward<Value>(value));
    if (count_ == capacity_) reserve(Policy::grown(capacity_));
    open_gap(index);
    try {
        relocate_one(data_ + index, &held);
    } catch (...) {
        destroy(data_ + index + 1, count - index);
        throw;
    }
    count_ = count + 1;
    return Iterator(data_ + index);
}

template <typename T, typename Policy>
typename ArrayBody<T, Policy>::Iterator
ArrayBody<T, Policy>::erase(ConstIterator first, ConstIterator last) {
    Count const index = index_of(first);
    Count const gone = static_cast<Count>(last - first);
    Count const count = count_;
    if (gone == 0) return Iterator(data_ + index);
    destroy(data_ + index, gone);
    if constexpr (std::is_trivially_copyable_v<T>) {
        std::memmove(
            static_cast<void*>(data_ + index), data_ + index + gone,
            (count - index - gone) * sizeof(T));
        count_ = count - gone;
    } else {
        Count from = index + gone;
        try {
            for (count_ = index; from != count; ++from, ++count_) {
                relocate_one(data_ + count_, data_ + from);
                data_[from].~T();
            }
        } catch (...) {
            destroy(data_ + from, count - from);
            throw;
        }
    }
    return Iterator(data_ + index);
}

template <typename T, typename Policy>
void ArrayBody<T, Policy>::clear() {
    destroy(data_, count_);
    count_ = 0;
}

template <typename T, typename Policy>
void ArrayBody<T, Policy>::swap(ArrayBody& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(count_, other.count_);
    std::swap(capacity_, other.capacity_);
}

}  // namespace QX
