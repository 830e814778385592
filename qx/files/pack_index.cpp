#include "qx/files/pack_index.h"

#include <emmintrin.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <new>

#include "qx/base/compiler.h"
#include "qx/memory/heap.h"

namespace QX {

namespace {

constexpr std::uint64_t hash_key_1 = 0xA0761D6478BD642F;
constexpr std::uint64_t hash_key_2 = 0xE7037ED1A0B428DB;

// Looks at whole aligned blocks of 16, which never cross into another page: the bytes around the
// text may be read, not used. Not for instrumentation.
__attribute__((no_sanitize_address)) unsigned int text_length(char const* text) {
    auto const misplaced = reinterpret_cast<std::uintptr_t>(text) & 15;
    auto block = reinterpret_cast<__m128i const*>(text - misplaced);
    __m128i const zero = _mm_setzero_si128();
    unsigned int zeros = _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_load_si128(block), zero));
    zeros = zeros >> misplaced << misplaced;
    while (zeros == 0) zeros = _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_load_si128(++block), zero));
    auto const end = reinterpret_cast<char const*>(block) + std::countr_zero(zeros);
    return static_cast<unsigned int>(end - text);
}

// The first zero byte from `at` on, or `end`.
char const* find_terminator(char const* at, char const* end) {
    __m128i const zero = _mm_setzero_si128();
    for (; end - at >= 16; at += 16) {
        __m128i const block = _mm_loadu_si128(reinterpret_cast<__m128i const*>(at));
        unsigned int const zeros = _mm_movemask_epi8(_mm_cmpeq_epi8(block, zero));
        if (zeros) return at + std::countr_zero(zeros);
    }
    while (at != end && *at) ++at;
    return at;
}

template <typename Word>
std::uint64_t load(char const* at) {
    Word word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

std::uint64_t fold_product(std::uint64_t a, std::uint64_t b) {
    auto const product = static_cast<unsigned __int128>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

// Multiply and fold over 16 bytes at a time, in the manner of wyhash.
std::uint64_t strong_hash(char const* text, unsigned int length) {
    std::uint64_t state = hash_key_1, a = 0, b = 0;
    if (length >= 16) {
        char const* const last = text + length - 16;
        for (; text < last; text += 16)
            state = fold_product(
                load<std::uint64_t>(text) ^ hash_key_2, load<std::uint64_t>(text + 8) ^ state);
        a = load<std::uint64_t>(last);
        b = load<std::uint64_t>(last + 8);
    } else if (length >= 8) {
        a = load<std::uint64_t>(text);
        b = load<std::uint64_t>(text + length - 8);
    } else if (length >= 4) {
        a = load<std::uint32_t>(text);
        b = load<std::uint32_t>(text + length - 4);
    } else if (length > 0) {
        a = load<unsigned char>(text) | load<unsigned char>(text + length / 2) << 8;
        b = load<unsigned char>(text + length - 1);
    }
    return fold_product(hash_key_2 ^ length, fold_product(a ^ hash_key_2, b ^ state));
}

unsigned int sum_of_lanes(__m128i sums) {
    return _mm_cvtsi128_si32(sums) + _mm_cvtsi128_si32(_mm_srli_si128(sums, 8));
}

// The hash that settles the slot order. Sign-extended bytes are summed as the bytes XOR 128, less
// 128 each.
unsigned int slot_hash(char const* text, unsigned int length) {
    __m128i const sign = _mm_set1_epi8(static_cast<char>(0x80));
    __m128i const low_bytes = _mm_set1_epi16(0x00FF);
    __m128i const zero = _mm_setzero_si128();
    __m128i even = zero, odd = zero;
    unsigned int at = 0;
    for (; at + 16 <= length; at += 16) {
        __m128i const block =
            _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<__m128i const*>(text + at)), sign);
        even = _mm_add_epi64(even, _mm_sad_epu8(_mm_and_si128(block, low_bytes), zero));
        odd = _mm_add_epi64(odd, _mm_sad_epu8(_mm_srli_epi16(block, 8), zero));
    }
    unsigned int low = sum_of_lanes(even) - at / 2 * 128;
    unsigned int high = sum_of_lanes(odd) - at / 2 * 128;
    for (; at + 2 <= length; at += 2) {
        low += static_cast<signed char>(text[at]);
        high += static_cast<signed char>(text[at + 1]);
    }
    if (at < length) low += static_cast<signed char>(text[at]);
    return high << 16 | (low & 0xFFFF);
}

unsigned int tag_of(std::uint64_t hash) {
    return static_cast<unsigned int>(hash >> 32);
}

// What a group of the side index says to a tag: a bit for each word.
struct GroupAnswer {
    unsigned int matches, free;
};

GroupAnswer ask_group(unsigned int const* group, unsigned int tag, unsigned int tag_bits) {
    __m128i const words = _mm_load_si128(reinterpret_cast<__m128i const*>(group));
    __m128i const tags = _mm_and_si128(words, _mm_set1_epi32(static_cast<int>(tag_bits)));
    __m128i const same = _mm_cmpeq_epi32(tags, _mm_set1_epi32(static_cast<int>(tag)));
    __m128i const none = _mm_cmpeq_epi32(words, _mm_setzero_si128());
    unsigned int const free = _mm_movemask_ps(_mm_castsi128_ps(none));
    return {_mm_movemask_ps(_mm_castsi128_ps(same)) & ~free, free};
}

unsigned int end_of_entry(void const* ends, unsigned int number) {
    unsigned int end;
    std::memcpy(&end, static_cast<char const*>(ends) + 4ull * number, sizeof end);
    return end;
}

// Whether every entry lies in the file. An empty one may stand at the rounded-up end.
bool entries_fit(PackHeader const& header, void const* ends, unsigned long long file_size) {
    unsigned long long position = header.index_size();
    for (unsigned int i = 0; i < header.count; ++i) {
        unsigned long long const start = pack_round_up(position, header.alignment);
        unsigned int const end = end_of_entry(ends, i);
        if (end < start) return false;
        if (end > start && end > file_size) return false;
        position = end;
    }
    return true;
}

constexpr unsigned int group_size = 4;
constexpr unsigned int batch_size = 16;

}  // namespace

// A name on its way into the table.
struct PackTable::Named {
    char const* name;
    unsigned int length;
    unsigned int home;
    std::uint64_t hash;
};

PackTable* PackTable::create(unsigned int count) {
    unsigned long long const slot_count = 2ull * count + 1;
    unsigned long long const slots_size = slot_count * sizeof(Slot);
    unsigned int const group_count = count / 2 + 1;
    unsigned long long const index_size = 1ull * group_count * group_size * sizeof(unsigned int);
    unsigned long long const size = sizeof(PackTable) + slots_size + index_size;

    auto const table = new (custom_malloc(size, HEAP_GENERAL)) PackTable;
    table->slots_ = reinterpret_cast<Slot*>(table + 1);
    table->index_ = reinterpret_cast<unsigned int*>(table->slots_ + slot_count);
    table->names_end_ = nullptr;
    table->slot_count_ = static_cast<unsigned int>(slot_count);
    table->used_count_ = 0;
    table->group_count_ = group_count;
    table->slot_mask_ = std::bit_ceil(table->slot_count_ + 1) - 1;
    std::memset(static_cast<void*>(table->slots_), 0, slots_size + index_size);
    return table;
}

void PackTable::destroy(PackTable* table) {
    if (table) custom_free(table);
}

bool PackTable::fill(
    PackHeader const& header, char const* names, void const* ends, unsigned long long file_size) {
    QX_CHECK(slot_count_ == 2 * header.count + 1);
    names_end_ = names + header.name_size;
    if (!entries_fit(header, ends, file_size)) return false;
    if (!enter_names(names, header.count)) return false;
    place_entries(header, ends);
    return true;
}

// In batches, so that the memory of one name is on its way while others are looked at.
bool PackTable::enter_names(char const* names, unsigned int count) {
    Named batch[batch_size];
    for (unsigned int number = 0; number < count;) {
        unsigned int const step = std::min(batch_size, count - number);
        for (unsigned int i = 0; i < step; ++i) {
            char const* const end = find_terminator(names, names_end_);
            if (end == names_end_) return false;
            auto const length = static_cast<unsigned int>(end - names);
            unsigned int const home = slot_hash(names, length) % slot_count_;
            batch[i] = {names, length, home, strong_hash(names, length)};
            __builtin_prefetch(group_of(batch[i].hash));
            __builtin_prefetch(slots_ + home);
            names = end + 1;
        }
        for (unsigned int i = 0; i < step; ++i) enter(batch[i], number++);
    }
    return true;
}

// Until `place_entries` a used slot's entry holds {the entry's number, the slot to look at next}.
void PackTable::enter(Named const& named, unsigned int number) {
    unsigned int const tag = tag_of(named.hash) & ~slot_mask_;
    for (auto group = group_of(named.hash);; group = next_group(group)) {
        GroupAnswer const answer = ask_group(group, tag, ~slot_mask_);
        if (answer.matches) {
            Slot* const known = find_in_group(group, answer.matches, named.name, named.length);
            if (known) {
                known->entry.offset = number;
                return;
            }
        }
        if (!answer.free) continue;
        unsigned int const slot = take_free_slot(named.home);
        slots_[slot].name = named.name;
        slots_[slot].entry.offset = number;
        index_[group - index_ + std::countr_zero(answer.free)] = tag | (slot + 1);
        ++used_count_;
        return;
    }
}

unsigned int const* PackTable::group_of(unsigned long long hash) const {
    return index_ + ((hash & 0xFFFFFFFF) * group_count_ >> 32) * group_size;
}

unsigned int const* PackTable::next_group(unsigned int const* group) const {
    group += group_size;
    return group == index_ + 1ull * group_count_ * group_size ? index_ : group;
}

PackTable::Slot* PackTable::find_in_group(
    unsigned int const* group, unsigned int matches, char const* name, unsigned int length) const {
    for (; matches; matches &= matches - 1) {
        Slot& slot = slots_[(group[std::countr_zero(matches)] & slot_mask_) - 1];
        if (names_end_ - slot.name > length && std::memcmp(slot.name, name, length + 1) == 0)
            return &slot;
    }
    return nullptr;
}

// The slot that a linear probe from `home` would come to. Each used slot points on to a later one
// of its run, and what is walked is shortened, so that long runs cost nearly nothing.
unsigned int PackTable::take_free_slot(unsigned int home) {
    unsigned int found = home;
    while (slots_[found].name) found = slots_[found].entry.size;
    for (unsigned int at = home; at != found;) {
        unsigned int const next = slots_[at].entry.size;
        slots_[at].entry.size = found;
        at = next;
    }
    slots_[found].entry.size = found + 1 == slot_count_ ? 0 : found + 1;
    return found;
}

void PackTable::place_entries(PackHeader const& header, void const* ends) {
    auto const data_start = static_cast<unsigned int>(header.index_size());
    for (unsigned int i = 0; i < slot_count_; ++i) {
        if (!slots_[i].name) continue;
        PackFileEntry& entry = slots_[i].entry;
        unsigned int const number = entry.offset;
        unsigned int const behind = number ? end_of_entry(ends, number - 1) : data_start;
        entry.offset = static_cast<unsigned int>(pack_round_up(behind, header.alignment));
        entry.size = end_of_entry(ends, number) - entry.offset;
    }
}

PackFileEntry const* PackTable::find(char const* name) const {
    unsigned int const length = text_length(name);
    std::uint64_t const hash = strong_hash(name, length);
    unsigned int const tag = tag_of(hash) & ~slot_mask_;
    for (auto group = group_of(hash);; group = next_group(group)) {
        GroupAnswer const answer = ask_group(group, tag, ~slot_mask_);
        if (answer.matches) {
            Slot const* const slot = find_in_group(group, answer.matches, name, length);
            if (slot) return &slot->entry;
        }
        if (answer.free) return nullptr;
    }
}

}  // namespace QX
