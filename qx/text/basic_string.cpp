#include "qx/text/basic_string.h"

#include <emmintrin.h>

#include <cstdint>
#include <type_traits>

namespace QX {

namespace {

constexpr unsigned int block_bytes = 16;

template <typename CharT>
constexpr unsigned int block_units = block_bytes / sizeof(CharT);

template <typename CharT>
__m128i load(CharT const* at) {
    return _mm_loadu_si128(reinterpret_cast<__m128i const*>(at));
}

template <typename CharT>
__m128i spread(CharT value) {
    if constexpr (sizeof(CharT) == 1)
        return _mm_set1_epi8(static_cast<char>(value));
    else
        return _mm_set1_epi16(static_cast<short>(value));
}

template <typename CharT>
__m128i equal_units(__m128i a, __m128i b) {
    if constexpr (sizeof(CharT) == 1)
        return _mm_cmpeq_epi8(a, b);
    else
        return _mm_cmpeq_epi16(a, b);
}

unsigned int mask_of(__m128i bytes) {
    return static_cast<unsigned int>(_mm_movemask_epi8(bytes));
}

// The index of the first unit marked in a byte mask that is not 0.
template <typename CharT>
unsigned int first_unit(unsigned int mask) {
    return static_cast<unsigned int>(__builtin_ctz(mask)) / sizeof(CharT);
}

// The rest of a scan of at least one block: the last block again, from where it fits.
template <typename CharT>
unsigned int find_in_last_block(CharT const* text, unsigned int count, __m128i wanted) {
    unsigned int const at = count - block_units<CharT>;
    unsigned int const mask = mask_of(equal_units<CharT>(load(text + at), wanted));
    return mask ? at + first_unit<CharT>(mask) : count;
}

template <typename CharT>
unsigned int find_in_few(CharT const* text, unsigned int count, CharT value) {
    for (unsigned int i = 0; i < count; ++i) {
        if (text[i] == value) return i;
    }
    return count;
}

template <typename CharT>
unsigned int find_unit(CharT const* text, unsigned int count, CharT value) {
    constexpr unsigned int step = block_units<CharT>;
    if (count < step) return find_in_few(text, count, value);

    __m128i const wanted = spread(value);
    unsigned int at = 0;
    for (; count - at >= 4 * step; at += 4 * step) {
        __m128i const a = equal_units<CharT>(load(text + at), wanted);
        __m128i const b = equal_units<CharT>(load(text + at + step), wanted);
        __m128i const c = equal_units<CharT>(load(text + at + 2 * step), wanted);
        __m128i const d = equal_units<CharT>(load(text + at + 3 * step), wanted);
        if (mask_of(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d)))) break;
    }
    for (; count - at >= step; at += step) {
        unsigned int const mask = mask_of(equal_units<CharT>(load(text + at), wanted));
        if (mask) return at + first_unit<CharT>(mask);
    }
    return at == count ? count : find_in_last_block(text, count, wanted);
}

// The first differing unit among those that two words hold, or how many those are.
template <typename CharT, typename Word>
unsigned int common_in_word(CharT const* a, CharT const* b) {
    Word first;
    Word second;
    std::memcpy(&first, a, sizeof(Word));
    std::memcpy(&second, b, sizeof(Word));
    unsigned long long const change = first ^ second;
    if (change == 0) return sizeof(Word) / sizeof(CharT);
    return static_cast<unsigned int>(__builtin_ctzll(change)) / (8 * sizeof(CharT));
}

// Two words from the front and the back, which overlap where that is more than `count`.
template <typename CharT, typename Word>
unsigned int common_in_two_words(CharT const* a, CharT const* b, unsigned int count) {
    constexpr unsigned int units = sizeof(Word) / sizeof(CharT);
    unsigned int const at = common_in_word<CharT, Word>(a, b);
    if (at != units) return at;
    unsigned int const rest = count - units;
    return rest + common_in_word<CharT, Word>(a + rest, b + rest);
}

// As common_length, for less than a block.
template <typename CharT>
unsigned int common_in_few(CharT const* a, CharT const* b, unsigned int count) {
    if (count * sizeof(CharT) >= 8) return common_in_two_words<CharT, std::uint64_t>(a, b, count);
    if (count * sizeof(CharT) >= 4) return common_in_two_words<CharT, std::uint32_t>(a, b, count);
    unsigned int at = 0;
    while (at < count && a[at] == b[at]) ++at;
    return at;
}

// Skips runs of four blocks that are the same in both.
template <typename CharT>
unsigned int skip_same(CharT const* a, CharT const* b, unsigned int count) {
    constexpr unsigned int step = block_units<CharT>;
    unsigned int at = 0;
    for (; count - at >= 4 * step; at += 4 * step) {
        auto const same = [=](unsigned int from) {
            return _mm_cmpeq_epi8(load(a + at + from), load(b + at + from));
        };
        __m128i const first = _mm_and_si128(same(0), same(step));
        __m128i const second = _mm_and_si128(same(2 * step), same(3 * step));
        if (mask_of(_mm_and_si128(first, second)) != 0xFFFF) break;
    }
    return at;
}

// The length of the common beginning of two ranges of `count`.
template <typename CharT>
unsigned int common_length(CharT const* a, CharT const* b, unsigned int count) {
    constexpr unsigned int step = block_units<CharT>;
    if (count < step) return common_in_few(a, b, count);
    for (unsigned int at = skip_same(a, b, count);; at += step) {
        if (count - at < step) at = count - step;  // looks at some units again
        unsigned int const same = mask_of(equal_units<CharT>(load(a + at), load(b + at)));
        if (same != 0xFFFF) return at + first_unit<CharT>(~same);
        if (count - at == step) return count;
    }
}

// Marks the places in one block at `text` where both ends of the needle match.
template <typename CharT>
__m128i both_ends(CharT const* text, unsigned int last, __m128i head, __m128i tail) {
    __m128i const heads = equal_units<CharT>(load(text), head);
    return _mm_and_si128(heads, equal_units<CharT>(load(text + last), tail));
}

// Skips runs of four blocks in which no place has both ends of the needle.
template <typename CharT>
unsigned int skip_barren(
    CharT const* text, unsigned int at, unsigned int places, unsigned int last, __m128i head,
    __m128i tail) {
    constexpr unsigned int step = block_units<CharT>;
    for (; places - at >= 4 * step; at += 4 * step) {
        __m128i const a = both_ends(text + at, last, head, tail);
        __m128i const b = both_ends(text + at + step, last, head, tail);
        __m128i const c = both_ends(text + at + 2 * step, last, head, tail);
        __m128i const d = both_ends(text + at + 3 * step, last, head, tail);
        if (mask_of(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d)))) break;
    }
    return at;
}

// Tries the marked places in order. The index of the first match, or `none`.
template <typename CharT>
unsigned int try_places(
    CharT const* text, unsigned int mask, CharT const* needle, unsigned int needle_count,
    unsigned int none) {
    constexpr unsigned int unit_mask = sizeof(CharT) == 1 ? 1 : 3;
    while (mask) {
        unsigned int const i = first_unit<CharT>(mask);
        if (std::memcmp(text + i, needle, needle_count * sizeof(CharT)) == 0) return i;
        mask &= ~(unit_mask << (i * sizeof(CharT)));
    }
    return none;
}

template <typename CharT>
unsigned int find_run_in_few(
    CharT const* text, unsigned int places, CharT const* needle, unsigned int needle_count) {
    for (unsigned int i = 0; i < places; ++i) {
        if (text[i] == *needle &&
            std::memcmp(text + i, needle, needle_count * sizeof(CharT)) == 0) {
            return i;
        }
    }
    return places;
}

// The first place among `places` where the needle stands, or `places`. The needle has two
// characters at least and fits at every place.
template <typename CharT>
unsigned int
find_run(CharT const* text, unsigned int places, CharT const* needle, unsigned int needle_count) {
    constexpr unsigned int step = block_units<CharT>;
    if (places < step) return find_run_in_few(text, places, needle, needle_count);

    unsigned int const last = needle_count - 1;
    __m128i const head = spread(needle[0]);
    __m128i const tail = spread(needle[last]);
    unsigned int at = skip_barren(text, 0, places, last, head, tail);
    while (at < places) {
        if (places - at < step) at = places - step;  // looks at some places again
        unsigned int const mask = mask_of(both_ends(text + at, last, head, tail));
        at += step;
        if (mask == 0) continue;
        unsigned int const i = try_places(text + at - step, mask, needle, needle_count, step);
        if (i != step) return at - step + i;
        at = skip_barren(text, at, places, last, head, tail);
    }
    return places;
}

}  // namespace

template <TextUnit CharT>
CharT const CHAR_TRAITS<CharT>::m_eos = CharT();

template <TextUnit CharT>
CharT* CHAR_TRAITS<CharT>::assign(CharT* target, unsigned int count, CharT value) {
    for (unsigned int i = 0; i < count; ++i) target[i] = value;
    return target;
}

template <TextUnit CharT>
int CHAR_TRAITS<CharT>::compare(CharT const* a, CharT const* b, unsigned int count) {
    unsigned int const at = common_length(a, b, count);
    return at == count ? 0 : a[at] - b[at];
}

template <TextUnit CharT>
CharT const* CHAR_TRAITS<CharT>::find(CharT const* text, unsigned int count, CharT value) {
    return text + find_unit(text, count, value);
}

// Reads whole aligned blocks, which never reach into a page that the text does not.
template <TextUnit CharT>
QX_READS_PAST_END unsigned int CHAR_TRAITS<CharT>::measure(CharT const* text) {
    auto const start = reinterpret_cast<std::uintptr_t>(text);
    if (sizeof(CharT) > 1 && start % sizeof(CharT) != 0) {
        unsigned int count = 0;
        while (text[count]) ++count;
        return count;
    }
    auto block = reinterpret_cast<__m128i const*>(start & ~std::uintptr_t(block_bytes - 1));
    unsigned int const skipped = start % block_bytes;
    __m128i const zero = _mm_setzero_si128();
    unsigned int mask = mask_of(equal_units<CharT>(_mm_load_si128(block), zero)) >> skipped;
    if (mask) return first_unit<CharT>(mask);
    do {
        mask = mask_of(equal_units<CharT>(_mm_load_si128(++block), zero));
    } while (!mask);
    auto const end = reinterpret_cast<std::uintptr_t>(block);
    return static_cast<unsigned int>((end - start) / sizeof(CharT)) + first_unit<CharT>(mask);
}

template <TextUnit CharT, typename Traits, typename Alloc>
CharT BASIC_STRING<CharT, Traits, Alloc>::m_static_empty_string = CharT();

template <TextUnit CharT, typename Traits, typename Alloc>
BASIC_STRING<CharT, Traits, Alloc>::BASIC_STRING(unsigned int count, CharT value) : BASIC_STRING() {
    if (count != 0) resize(count, value);
}

template <TextUnit CharT, typename Traits, typename Alloc>
void BASIC_STRING<CharT, Traits, Alloc>::take_copy(CharT const* text, unsigned int count) {
    CharT* const block = allocate(count);
    std::memcpy(block, text, count * 1ull * sizeof(CharT));
    block[count] = CharT();
    storage_ = block;
    length_ = capacity_ = count;
}

template <TextUnit CharT, typename Traits, typename Alloc>
void BASIC_STRING<CharT, Traits, Alloc>::assign_moving(CharT const* text, unsigned int count) {
    CharT* const old = storage_;
    bool const owned = owns_block();
    take_copy(text, count);
    if (owned) custom_free(old);
}

template <TextUnit CharT, typename Traits, typename Alloc>
void BASIC_STRING<CharT, Traits, Alloc>::reserve_partial_copy(
    unsigned int wanted, unsigned int keep, SCOPED_POINTER& holder) {
    if (capacity_ >= wanted) return;
    unsigned int const doubled = 2 * least(capacity_, 0x7FFFFFFF);
    unsigned int const capacity = doubled >= wanted ? doubled : wanted;
    CharT* const block = allocate(capacity);
    std::memcpy(block, storage_, keep * 1ull * sizeof(CharT));
    holder.exchange(block, capacity_ + 1);
    capacity_ = capacity;
}

template <TextUnit CharT, typename Traits, typename Alloc>
void BASIC_STRING<CharT, Traits, Alloc>::append_moving(CharT const* text, unsigned int count) {
    unsigned int const sum = length_with(count);
    SCOPED_POINTER holder(storage_);
    reserve_partial_copy(sum, length_, holder);
    std::memcpy(storage_ + length_, text, count * 1ull * sizeof(CharT));
    set_length(sum);
}

template <TextUnit CharT, typename Traits, typename Alloc>
void BASIC_STRING<CharT, Traits, Alloc>::reserve(unsigned int count) {
    SCOPED_POINTER holder(storage_);
    reserve_partial_copy(count, length_ + 1, holder);
}

template <TextUnit CharT, typename Traits, typename Alloc>
void BASIC_STRING<CharT, Traits, Alloc>::resize(unsigned int count, CharT value) {
    SCOPED_POINTER holder(storage_);
    if (count > length_) {
        reserve_partial_copy(count, length_, holder);
        Traits::assign(storage_ + length_, count - length_, value);
    }
    set_length(count);
}

template <TextUnit CharT, typename Traits, typename Alloc>
void BASIC_STRING<CharT, Traits, Alloc>::release_block() {
    BASIC_STRING taken;
    swap(taken);
}

template <TextUnit CharT, typename Traits, typename Alloc>
int BASIC_STRING<CharT, Traits, Alloc>::compare_ranges(
    CharT const* a, unsigned int a_count, CharT const* b, unsigned int b_count) {
    int const order = Traits::compare(a, b, least(a_count, b_count));
    if (order != 0) return order;
    return a_count < b_count ? -1 : a_count > b_count;
}

template <TextUnit CharT, typename Traits, typename Alloc>
unsigned int
BASIC_STRING<CharT, Traits, Alloc>::find(BASIC_STRING const& needle, unsigned int pos) const {
    unsigned int const start = least(length_, pos);
    unsigned int const room = length_ - start;
    if (needle.length_ > room || room == 0) return npos;
    if (needle.length_ == 0) return start;
    if (needle.length_ == 1) return find(*needle.storage_, start);

    unsigned int const places = room - needle.length_ + 1;
    unsigned int const at = find_run(storage_ + start, places, needle.storage_, needle.length_);
    return at == places ? npos : start + at;
}

template <TextUnit CharT, typename Traits, typename Alloc>
unsigned int BASIC_STRING<CharT, Traits, Alloc>::find(CharT value, unsigned int pos) const {
    unsigned int const start = least(length_, pos);
    unsigned int const at = start + find_unit(storage_ + start, length_ - start, value);
    return at == length_ ? npos : at;
}

template <TextUnit CharT, typename Traits, typename Alloc>
unsigned int
BASIC_STRING<CharT, Traits, Alloc>::rfind(BASIC_STRING const& needle, unsigned int pos) const {
    unsigned int const bound = least(length_, pos);
    if (needle.length_ > bound) return npos;
    for (unsigned int at = bound - needle.length_ + 1; at-- > 0;) {
        if (std::memcmp(storage_ + at, needle.storage_, needle.length_ * 1ull * sizeof(CharT)) ==
            0) {
            return at;
        }
    }
    return npos;
}

template <TextUnit CharT, typename Traits, typename Alloc>
unsigned int BASIC_STRING<CharT, Traits, Alloc>::rfind(CharT value, unsigned int pos) const {
    for (unsigned int at = least(length_, pos); at-- > 0;) {
        if (storage_[at] == value) return at;
    }
    return npos;
}

template <TextUnit CharT, typename Traits, typename Alloc>
unsigned int BASIC_STRING<CharT, Traits, Alloc>::copy(
    CharT* target, unsigned int count, unsigned int pos) const {
    unsigned int const copied = least(count, length_ - pos);
    std::memcpy(target, storage_ + pos, copied * 1ull * sizeof(CharT));
    return copied;
}

template struct CHAR_TRAITS<char>;
template struct CHAR_TRAITS<wchar_t>;
template class BASIC_STRING<char>;
template class BASIC_STRING<wchar_t>;

}  // namespace QX
