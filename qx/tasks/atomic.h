// atomic.h - 32-bit and 64-bit integers that threads share.
//
// Every operation that reads and writes is a full barrier and returns the value from before it,
// increments and decrements included:
//
//     AtomicInt32Platform n(5);
//     n.inc()                 =>  5, n is then 6
//     n.set_if_equal(9, 6)    =>  6, n is then 9
//     n.set_if_equal(1, 6)    =>  9, n stays 9
//
// Arithmetic wraps. `get` is one plain aligned load with no ordering of its own.
#pragma once

namespace QX {

namespace detail {

// The operations of both widths. Values of one width only; never more than its word in size.
template <typename Word>
class AtomicWord {
public:
    explicit constexpr AtomicWord(Word value) : value_(value) {}

    // Between two atomics: a plain load and a plain store, not one atomic step.
    AtomicWord(AtomicWord const& other) : value_(other.get()) {}
    AtomicWord& operator=(AtomicWord const& other) {
        __atomic_store_n(&value_, other.get(), __ATOMIC_RELAXED);
        return *this;
    }

    Word get() const { return __atomic_load_n(&value_, __ATOMIC_RELAXED); }

    Word set(Word value) { return __atomic_exchange_n(&value_, value, __ATOMIC_SEQ_CST); }

    Word inc() { return add(1); }
    Word dec() { return sub(1); }
    Word add(Word value) { return __atomic_fetch_add(&value_, value, __ATOMIC_SEQ_CST); }
    Word sub(Word value) { return __atomic_fetch_sub(&value_, value, __ATOMIC_SEQ_CST); }

    // Stores `value` where the present value is `comparand`; returns what was present.
    Word set_if_equal(Word value, Word comparand) {
        __atomic_compare_exchange_n(
            &value_, &comparand, value, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
        return comparand;
    }

    Word logical_and(Word value) { return __atomic_fetch_and(&value_, value, __ATOMIC_SEQ_CST); }
    Word logical_or(Word value) { return __atomic_fetch_or(&value_, value, __ATOMIC_SEQ_CST); }
    Word logical_xor(Word value) { return __atomic_fetch_xor(&value_, value, __ATOMIC_SEQ_CST); }

protected:
    // Leaves the value as the memory had it.
    AtomicWord() {}

private:
    Word value_;
};

}  // namespace detail

// 0 unless given a value.
class AtomicInt32Platform : public detail::AtomicWord<int> {
public:
    constexpr AtomicInt32Platform() : AtomicWord(0) {}
    constexpr AtomicInt32Platform(int value) : AtomicWord(value) {}
};

// Unlike the narrower one, not set by its default constructor: no defined value until the first
// `set` or assignment.
class AtomicInt64Platform : public detail::AtomicWord<long long> {
public:
    AtomicInt64Platform() {}
    constexpr AtomicInt64Platform(long long value) : AtomicWord(value) {}
};

static_assert(sizeof(AtomicInt32Platform) == 4 && sizeof(AtomicInt64Platform) == 8);

}  // namespace QX
