// basic_string.h - the one template behind String and UniString.
//
// A string owns its characters: nothing is shared and nothing is counted, but that all empty
// strings without a block point at one static terminator per width. An object is 16 bytes. Sizes
// are 32-bit and count characters, the terminator excluded; storage is always terminated.
//
//     capacity after                      =>  characters
//     construction, copy, substr, +       =>  the length, exactly
//     reserve, resize, append: first      =>  what is needed, exactly
//     reserve, resize, append: later      =>  the greater of twice the old and what is needed
//     assignment of a longer text         =>  its length, exactly
//     assignment, resize down, clear      =>  as it was
//
// Positions and lengths are not checked, except where an operation says that it clamps. Nothing
// here throws but exhaustion (std::bad_alloc, "bad allocation"), and then the string is unchanged.
// A null text faults. Threads: separate strings are independent; one string is not shared.
#pragma once

#include <concepts>
#include <cstring>
#include <iterator>

#include "qx/base/compiler.h"
#include "qx/base/export.h"
#include "qx/memory/allocators.h"
#include "qx/memory/heap.h"

namespace QX {

namespace formatting {
// Builds formatted text in the string's own block.
template <typename Unit>
class StringWriter;
}  // namespace formatting

// The two widths that the library holds; the compiler refuses any other.
template <typename CharT>
concept TextUnit = std::same_as<CharT, char> || std::same_as<CharT, wchar_t>;

// What a character type offers to the template. `char` counts as signed, `wchar_t` as unsigned.
template <TextUnit CharT>
struct CHAR_TRAITS {
    using char_type = CharT;

    // One character, or `count` of them; the second returns `target`.
    static void assign(CharT& target, CharT value) { target = value; }
    QX_API static CharT* assign(CharT* target, unsigned int count, CharT value);

    static bool eq(CharT a, CharT b) { return a == b; }
    static bool lt(CharT a, CharT b) { return a < b; }

    // First difference as (first minus second), or 0. Only the sign means anything.
    QX_API static int compare(CharT const* a, CharT const* b, unsigned int count);

    // Characters before the terminator. A literal is measured by the compiler.
    static unsigned int length(CharT const* text) {
        if constexpr (sizeof(CharT) == 1) {
            if (__builtin_constant_p(__builtin_strlen(text))) {
                return static_cast<unsigned int>(__builtin_strlen(text));
            }
        }
        return measure(text);
    }

    // The first `value` in the `count` characters at `text`, or text + count.
    QX_API static CharT const* find(CharT const* text, unsigned int count, CharT value);

    static int eof() { return -1; }

    // The terminator that reads past the end are given. Not the one that empty strings point at.
    static CharT const& eos() { return m_eos; }

private:
    QX_API static unsigned int measure(CharT const* text);

    QX_API static CharT const m_eos;
};

// The library holds it with the default traits and allocator alone.
template <TextUnit CharT, typename Traits = CHAR_TRAITS<CharT>, typename Alloc = Allocator<CharT>>
class BASIC_STRING {
public:
    using MovesOnGrowth = void;  // arrays may move strings instead of copying them

    using value_type = CharT;
    using traits_type = Traits;
    using allocator_type = Alloc;
    using size_type = unsigned int;
    using iterator = CharT*;
    using const_iterator = CharT const*;
    using reverse_iterator = std::reverse_iterator<iterator>;
    using const_reverse_iterator = std::reverse_iterator<const_iterator>;

    static constexpr unsigned int npos = 0xFFFFFFFF;

    // A constant that nothing is checked against.
    static constexpr unsigned int max_length() { return 0xFFFFFFFE; }

    // One per width for the library and all its clients. Writable, but only with a terminator.
    static CharT* static_empty_string() { return &m_static_empty_string; }
    QX_API static CharT m_static_empty_string;

    // Empty strings share one terminator and own no block. `text` may not be null.
    BASIC_STRING() : length_(0), capacity_(0), storage_(static_empty_string()) {}
    explicit BASIC_STRING(Alloc const&) : BASIC_STRING() {}
    BASIC_STRING(CharT const* text) : BASIC_STRING(text, Traits::length(text)) {}
    BASIC_STRING(CharT const* text, unsigned int count) : BASIC_STRING() {
        if (count != 0) take_copy(text, count);
    }
    QX_API BASIC_STRING(unsigned int count, CharT value);

    // The part from `pos`: at most `count` characters. `pos` above the length is not caught.
    BASIC_STRING(BASIC_STRING const& other, unsigned int pos, unsigned int count)
        : BASIC_STRING(other.storage_ + pos, least(count, other.length_ - pos)) {}

    BASIC_STRING(BASIC_STRING const& other) : BASIC_STRING(other.storage_, other.length_) {}
    BASIC_STRING(BASIC_STRING&& other) noexcept : BASIC_STRING() { swap(other); }

    ~BASIC_STRING() {
        if (owns_block()) custom_free(storage_);
    }

    BASIC_STRING& operator=(BASIC_STRING const& other) {
        if (this != &other) assign_range(other.storage_, other.length_);
        return *this;
    }
    BASIC_STRING& operator=(CharT const* text) {
        assign_range(text, Traits::length(text));
        return *this;
    }
    // The source receives the old contents of the target.
    BASIC_STRING& operator=(BASIC_STRING&& other) noexcept {
        swap(other);
        return *this;
    }
    BASIC_STRING& operator=(CharT value) {
        assign_range(&value, 1);
        return *this;
    }

    // Unchecked.
    CharT& operator[](unsigned int index) { return storage_[index]; }
    // At the length and beyond: the terminator.
    CharT const& operator[](unsigned int index) const {
        return index < length_ ? storage_[index] : Traits::eos();
    }
    // The last character; the terminator when empty.
    CharT const& back() const { return length_ != 0 ? storage_[length_ - 1] : Traits::eos(); }

    iterator begin() { return storage_; }
    iterator end() { return storage_ + length_; }
    const_iterator begin() const { return storage_; }
    const_iterator end() const { return storage_ + length_; }
    reverse_iterator rbegin() { return reverse_iterator(end()); }
    reverse_iterator rend() { return reverse_iterator(begin()); }
    const_reverse_iterator rbegin() const { return const_reverse_iterator(end()); }
    const_reverse_iterator rend() const { return const_reverse_iterator(begin()); }

    // Valid until the string next grows, is assigned to or dies.
    CharT const* c_str() const { return storage_; }
    CharT const* data() const { return storage_; }

    unsigned int length() const { return length_; }
    unsigned int size() const { return length_; }
    unsigned int capacity() const { return capacity_; }
    bool empty() const { return length_ == 0; }

    // Keeps the block.
    void clear() { set_length(0); }

    // Never shrinks.
    QX_API void reserve(unsigned int count);

    // Fills up with `value`, or cuts and keeps the block.
    void resize(unsigned int count) { resize(count, CharT()); }
    QX_API void resize(unsigned int count, CharT value);

    // The appended range may lie in the string itself.
    BASIC_STRING& append(BASIC_STRING const& other) {
        return append(other.storage_, other.length_);
    }
    BASIC_STRING& append(CharT const* text, unsigned int count) {
        if (QX_LIKELY(count <= capacity_ - length_)) {
            std::memmove(storage_ + length_, text, count * sizeof(CharT));
            set_length(length_ + count);
        } else {
            append_moving(text, count);
        }
        return *this;
    }
    BASIC_STRING& operator+=(BASIC_STRING const& other) { return append(other); }
    BASIC_STRING& operator+=(CharT value) {
        unsigned int const at = length_;
        if (QX_LIKELY(at < capacity_)) {
            CharT* const storage = storage_;
            length_ = at + 1;
            storage[at] = value;
            storage[at + 1] = CharT();
        } else {
            append_moving(&value, 1);
        }
        return *this;
    }

    // Below 0, 0 or above 0; magnitudes mean nothing. `char` is compared as signed, so bytes of
    // 0x80 and above sort before ASCII. A string sorts before its continuations.
    int compare(BASIC_STRING const& other) const {
        return compare_ranges(storage_, length_, other.storage_, other.length_);
    }
    // The part (pos, count) against the whole of the other. `pos` above the length is not caught.
    int compare(unsigned int pos, unsigned int count, BASIC_STRING const& other) const {
        return compare(pos, count, other.storage_, other.length_);
    }
    int compare(
        unsigned int pos, unsigned int count, CharT const* text, unsigned int text_count) const {
        return compare_ranges(storage_ + pos, least(count, length_ - pos), text, text_count);
    }

    // The first match at or after `pos`, which is clamped to the length, or npos. An empty needle
    // is found where the search starts, but never at the end of the string:
    //
    //     find("", 1) in "ab"  =>  1
    //     find("", 2) in "ab"  =>  npos
    QX_API unsigned int find(BASIC_STRING const& needle, unsigned int pos = 0) const;
    QX_API unsigned int find(CharT value, unsigned int pos = 0) const;

    // The last match that ends at or before `pos`, which is clamped to the length, or npos. `pos`
    // is an exclusive bound, unlike in the standard's string:
    //
    //     rfind('a', 1) in "aa"   =>  0
    //     rfind('a', 2) in "aa"   =>  1
    //     rfind("", pos)          =>  the clamped bound
    QX_API unsigned int rfind(BASIC_STRING const& needle, unsigned int pos = npos) const;
    QX_API unsigned int rfind(CharT value, unsigned int pos = npos) const;

    // Copies at most `count` characters from `pos` and returns how many; writes no terminator.
    // `pos` above the length is not caught: `count` characters are then read from there.
    QX_API unsigned int copy(CharT* target, unsigned int count, unsigned int pos = 0) const;

    BASIC_STRING substr(unsigned int pos = 0, unsigned int count = npos) const {
        return BASIC_STRING(*this, pos, count);
    }

    void swap(BASIC_STRING& other) noexcept {
        exchange(length_, other.length_);
        exchange(capacity_, other.capacity_);
        exchange(storage_, other.storage_);
    }

protected:
    // Takes over a block of custom_malloc that holds `count` characters and a terminator. The
    // string has none of its own, and `count` is not 0.
    void adopt_block(CharT* block, unsigned int count) {
        storage_ = block;
        length_ = capacity_ = count;
    }

    // Gives the block back; the string is then empty without one.
    QX_API void release_block();

    // Appends a terminated text as if from a temporary string. The temporary is really made only
    // where the allocation hook would see it: growth keeps the old block, so that `text` may lie
    // in this string either way.
    void append_text(CharT const* text) {
        unsigned int const count = Traits::length(text);
        if (QX_LIKELY(!allocation_hook))
            append(text, count);
        else
            append(BASIC_STRING(text, count));
    }

    CharT const* storage() const { return storage_; }

    static unsigned int least(unsigned int a, unsigned int b) { return a < b ? a : b; }

private:
    // The formatters write through pointers and set the length when they are done.
    template <typename Unit>
    friend class formatting::StringWriter;

    // Holds the block that growth replaced until the operation is over, because what is being
    // appended may lie in it.
    class SCOPED_POINTER {
    public:
        explicit SCOPED_POINTER(CharT*& storage) : storage_(&storage) {}
        ~SCOPED_POINTER() {
            if (block_ && block_ != static_empty_string()) custom_free(block_);
        }

        SCOPED_POINTER(SCOPED_POINTER const&) = delete;
        SCOPED_POINTER& operator=(SCOPED_POINTER const&) = delete;

        // Takes the block that is in use and puts `block` in its place.
        void exchange(CharT* block, unsigned int held_count) {
            block_ = *storage_;
            count_ = held_count;
            *storage_ = block;
        }

    private:
        CharT** storage_;
        CharT* block_ = nullptr;
        unsigned int count_ = 0;  // characters in the held block, its terminator included
    };

    template <typename T>
    static void exchange(T& a, T& b) {
        T const old = a;
        a = b;
        b = old;
    }

    static CharT* allocate(unsigned int capacity) {
        return static_cast<CharT*>(custom_malloc((capacity + 1ull) * sizeof(CharT), HEAP_GENERAL));
    }

    // The static terminator has capacity 0 and no block has.
    bool owns_block() const { return capacity_ != 0; }

    // The length with `count` characters more. More than it can tell throws as exhaustion does.
    unsigned int length_with(unsigned int count) const {
        if (QX_UNLIKELY(count > ~length_)) custom_malloc(~0ull, HEAP_GENERAL);
        return length_ + count;
    }

    void set_length(unsigned int count) {
        length_ = count;
        storage_[count] = CharT();
    }

    void assign_range(CharT const* text, unsigned int count) {
        if (QX_LIKELY(count <= capacity_)) {
            std::memmove(storage_, text, count * sizeof(CharT));
            set_length(count);
        } else {
            assign_moving(text, count);
        }
    }

    // Makes the first block of a string that has none. `count` is not 0.
    QX_API void take_copy(CharT const* text, unsigned int count);
    QX_API void assign_moving(CharT const* text, unsigned int count);
    QX_API void append_moving(CharT const* text, unsigned int count);

    // The only place where a string grows: a new block of the growth rule with `keep` characters
    // of the old one, which `holder` then owns. Does nothing if `wanted` fits.
    QX_API void
    reserve_partial_copy(unsigned int wanted, unsigned int keep, SCOPED_POINTER& holder);

    // First difference as (first minus second); of equal beginnings the shorter is less.
    QX_API static int
    compare_ranges(CharT const* a, unsigned int a_count, CharT const* b, unsigned int b_count);

    unsigned int length_;
    unsigned int capacity_;
    CharT* storage_;
};

}  // namespace QX
