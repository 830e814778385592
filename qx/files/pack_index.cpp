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
// text may be read, not used.
QX_READS_PAST_END unsigned int text_length(char const* text) {
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

bool same_16(char const* a, char const* b) {
    __m128i const same = _mm_cmpeq_epi8(
        _mm_loadu_si128(reinterpret_cast<__m128i const*>(a)),
        _mm_loadu_si128(reinterpret_cast<__m128i const*>(b)));
    return _mm_movemask_epi8(same) == 0xFFFF;
}

// The last step looks once more at some of the bytes before. `size` is above 0.
template <typename Word>
bool same_in_two(char const* a, char const* b, unsigned int size) {
    unsigned int const last = size - sizeof(Word);
    return load<Word>(a) == load<Word>(b) && load<Word>(a + last) == load<Word>(b + last);
}

// The names of one tag are nearly always equal, so a call of the C library is most of the price.
bool same_bytes(char const* a, char const* b, unsigned int size) {
    if (size >= 16) {
        unsigned int const last = size - 16;
        for (unsigned int at = 0; at < last; at += 16) {
            if (!same_16(a + at, b + at)) return false;
        }
        return same_16(a + last, b + last);
    }
    if (size >= 8) return same_in_two<std::uint64_t>(a, b, size);
    if (size >= 4) return same_in_two<std::uint32_t>(a, b, size);
    if (size >= 2) return same_in_two<std::uint16_t>(a, b, size);
    return *a == *b;
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

// The used slots of a table on its way: a bit for each, and above each 64 words of bits the next
// level, a bit for each full word. So the next free slot costs the same however long the runs are.
class FreeSlots {
public:
    explicit FreeSlots(unsigned int slot_count) {
        unsigned int words_total = 0;
        for (unsigned int bits = slot_count; depth_ == 0 || bits > 1; ++depth_) {
            bits_[depth_] = bits;
            starts_[depth_] = words_total;
            bits = words_for(bits);
            words_total += bits;
        }
        words_ = static_cast<std::uint64_t*>(custom_malloc(8ull * words_total, HEAP_GENERAL));
        std::memset(words_, 0, 8ull * words_total);
        for (unsigned int level = 0; level < depth_; ++level) {
            // What lies behind the last bit counts as used.
            if (bits_[level] % 64) word(level, bits_[level] / 64) = ~0ull << bits_[level] % 64;
        }
    }
    ~FreeSlots() { custom_free(words_); }
    FreeSlots(FreeSlots const&) = delete;
    FreeSlots& operator=(FreeSlots const&) = delete;

    // The first free slot that a linear probe from `home` comes to. There is one.
    unsigned int take(unsigned int home) {
        unsigned int slot = find_from(home);
        if (slot == bits_[0]) slot = find_from(0);
        unsigned int at = slot;
        for (unsigned int level = 0; level < depth_; ++level, at /= 64) {
            std::uint64_t& used = word(level, at / 64);
            used |= 1ull << at % 64;
            if (~used) break;
        }
        return slot;
    }

    void prefetch(unsigned int home) const { __builtin_prefetch(words_ + home / 64); }

private:
    static unsigned int words_for(unsigned int bits) { return (bits - 1) / 64 + 1; }
    std::uint64_t& word(unsigned int level, unsigned int at) const {
        return words_[starts_[level] + at];
    }

    // The slot count if there is none.
    unsigned int find_from(unsigned int at) const {
        for (unsigned int level = 0; level < depth_ && at < bits_[level]; ++level) {
            std::uint64_t const free = ~word(level, at / 64) >> at % 64;
            if (free == 0) {
                at = at / 64 + 1;
                continue;
            }
            at += std::countr_zero(free);
            while (level--) at = at * 64 + std::countr_zero(~word(level, at));
            return at;
        }
        return bits_[0];
    }

    std::uint64_t* words_;
    unsigned int bits_[6], starts_[6];  // of each level
    unsigned int depth_ = 0;
};

// The places of a pack's entries, in order.
class Places {
public:
    Places(PackHeader const& header, void const* ends, unsigned long long file_size)
        : ends_(static_cast<char const*>(ends)), position_(header.index_size()),
          file_size_(file_size), alignment_(header.alignment) {}

    // False if the next entry does not lie in the file. An empty one may stand at its rounded-up
    // end.
    bool next(PackFileEntry& entry) {
        unsigned long long const start = pack_round_up(position_, alignment_);
        auto const end = load<std::uint32_t>(ends_);
        if (end < start || (end > start && end > file_size_)) return false;
        entry = {static_cast<unsigned int>(start), static_cast<unsigned int>(end - start)};
        ends_ += 4;
        position_ = end;
        return true;
    }

private:
    char const* ends_;
    unsigned long long position_, file_size_;
    unsigned int alignment_;
};

constexpr unsigned int group_size = 4;
constexpr unsigned int batch_size = 16;

}  // namespace

// What is entered, and where the next free slots are.
struct PackTable::Entering {
    struct Named {
        char const* name;
        unsigned int length;
        unsigned int home;
        std::uint64_t hash;
        PackFileEntry entry;
    };

    FreeSlots free_slots;
    Places places;
    char const* names;
    Named batch[batch_size];
};

PackTable* PackTable::create(unsigned int count) {
    unsigned long long const slot_count = 2ull * count + 1;
    unsigned long long const slots_size = slot_count * sizeof(Slot);
    // Four words for 1.875 names: with the bits of FreeSlots less than 8 bytes a name.
    unsigned int const group_count = static_cast<unsigned int>(15ull * count / 32) + 1;
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

// In batches, so that the memory of one name is on its way while others are looked at.
bool PackTable::fill(
    PackHeader const& header, char const* names, void const* ends, unsigned long long file_size) {
    QX_CHECK(slot_count_ == 2 * header.count + 1);
    names_end_ = names + header.name_size;
    Entering entering{FreeSlots(slot_count_), Places(header, ends, file_size), names, {}};
    for (unsigned int left = header.count; left;) {
        unsigned int const step = std::min(batch_size, left);
        if (!prepare_batch(entering, step)) return false;
        for (unsigned int i = 0; i < step; ++i) enter(entering, i);
        left -= step;
    }
    return true;
}

bool PackTable::prepare_batch(Entering& entering, unsigned int count) {
    for (unsigned int i = 0; i < count; ++i) {
        auto& [name, length, home, hash, entry] = entering.batch[i];
        if (!entering.places.next(entry)) return false;
        name = entering.names;
        char const* const end = find_terminator(name, names_end_);
        if (end == names_end_) return false;
        length = static_cast<unsigned int>(end - name);
        home = slot_hash(name, length) % slot_count_;
        hash = strong_hash(name, length);
        __builtin_prefetch(group_of(hash), 1);
        __builtin_prefetch(slots_ + home, 1);
        entering.free_slots.prefetch(home);
        entering.names = end + 1;
    }
    return true;
}

void PackTable::enter(Entering& entering, unsigned int number) {
    auto const& [name, length, home, hash, entry] = entering.batch[number];
    unsigned int const tag = tag_of(hash) & ~slot_mask_;
    for (auto group = group_of(hash);; group = next_group(group)) {
        GroupAnswer const answer = ask_group(group, tag, ~slot_mask_);
        if (answer.matches) {
            Slot* const known = find_in_group(group, answer.matches, name, length);
            if (known) {
                known->entry = entry;
                return;
            }
        }
        if (!answer.free) continue;
        unsigned int const slot = entering.free_slots.take(home);
        slots_[slot] = {name, entry};
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
        if (names_end_ - slot.name > length && same_bytes(slot.name, name, length + 1))
            return &slot;
    }
    return nullptr;
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
