#include "qx/files/file_name_table_impl.h"

#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

#include "qx/base/compiler.h"
#include "qx/files/filesystem_impl.h"
#include "qx/memory/heap.h"

namespace QX {

namespace {

constexpr std::uint64_t first_slots = 64;
constexpr std::uint64_t block_bytes = 64 * 1024;
constexpr std::uint64_t name_alignment = 16;
constexpr unsigned int address_bits = 48;
constexpr std::uint64_t address_mask = (1ull << address_bits) - 1;

// A string as it lies in memory.
struct StringFields {
    unsigned int length;
    unsigned int capacity;
    char* text;
};
static_assert(sizeof(StringFields) == sizeof(String));

std::uint64_t mix(std::uint64_t value) {
    value *= 0x9E3779B97F4A7C15;
    return value ^ value >> 32;
}

String const* name_in(std::uint64_t word) {
    return reinterpret_cast<String const*>(word & address_mask);
}

bool same_block(char const* a, char const* b) {
    __m128i const equal = _mm_cmpeq_epi8(path_shape::load_block(a), path_shape::load_block(b));
    return _mm_movemask_epi8(equal) == 0xFFFF;
}

bool same_part(char const* a, char const* b, unsigned int count) {
    __m128i const equal =
        _mm_cmpeq_epi8(path_shape::load_part(a, count), path_shape::load_part(b, count));
    return _mm_movemask_epi8(equal) == 0xFFFF;
}

// The last block of 16 and more overlaps the one before.
bool same_text(char const* a, char const* b, unsigned int count) {
    if (count < sizeof(__m128i)) return same_part(a, b, count);
    unsigned int const last = count - static_cast<unsigned int>(sizeof(__m128i));
    for (unsigned int at = 0; at < last; at += static_cast<unsigned int>(sizeof(__m128i))) {
        if (!same_block(a + at, b + at)) return false;
    }
    return same_block(a + last, b + last);
}

bool is_name(std::uint64_t word, char const* text, unsigned int length) {
    String const* const name = name_in(word);
    return name->length() == length && same_text(name->data(), text, length);
}

}  // namespace

std::uint64_t FileNameTable::hash_of(char const* text, unsigned int length) {
    std::uint64_t hash = mix(length + 1ull);
    unsigned int at = 0;
    for (; length - at >= 8; at += 8)
        hash = mix(hash ^ path_shape::load_word<std::uint64_t>(text + at));
    return mix(mix(hash ^ path_shape::load_few(text + at, length - at)));
}

FileNameTable::Slots* FileNameTable::make_slots(std::uint64_t count, Slots* smaller) {
    std::size_t const bytes = offsetof(Slots, slot) + count * sizeof(Slots::slot);
    auto const slots = static_cast<Slots*>(custom_malloc(bytes, HEAP_GENERAL));
    slots->smaller = smaller;
    slots->mask = count - 1;
    for (std::uint64_t i = 0; i != count; ++i) new (&slots->slot[i]) std::atomic<std::uint64_t>(0);
    return slots;
}

FileNameTable::FileNameTable() : slots_(make_slots(first_slots, nullptr)) {}

FileNameTable::~FileNameTable() {
    for (Slots* slots = slots_; slots;) custom_free(std::exchange(slots, slots->smaller));
    while (blocks_) custom_free(std::exchange(blocks_, blocks_->older));
}

String const* FileNameTable::find(char const* text, unsigned int length, std::uint64_t hash) const {
    Slots const& slots = *slots_.load(std::memory_order_acquire);
    for (std::uint64_t i = hash & slots.mask;; i = (i + 1) & slots.mask) {
        std::uint64_t const word = slots.slot[i].load(std::memory_order_acquire);
        if (word == 0) return nullptr;
        if ((word ^ hash) >> address_bits) continue;
        if (QX_LIKELY(is_name(word, text, length))) return name_in(word);
    }
}

void FileNameTable::put(Slots& slots, std::uint64_t word, std::uint64_t hash) {
    std::uint64_t i = hash & slots.mask;
    while (slots.slot[i].load(std::memory_order_relaxed)) i = (i + 1) & slots.mask;
    slots.slot[i].store(word, std::memory_order_release);
}

void FileNameTable::grow() {
    Slots* const full = slots_.load(std::memory_order_relaxed);
    Slots* const slots = make_slots(2 * (full->mask + 1), full);
    for (std::uint64_t i = 0; i <= full->mask; ++i) {
        std::uint64_t const word = full->slot[i].load(std::memory_order_relaxed);
        if (!word) continue;
        String const& name = *name_in(word);
        put(*slots, word, hash_of(name.data(), name.length()));
    }
    slots_.store(slots, std::memory_order_release);
}

char* FileNameTable::take_room(std::uint64_t bytes) {
    bytes = (bytes + name_alignment - 1) & ~(name_alignment - 1);
    if (bytes > room_bytes_) {
        std::uint64_t const whole = name_alignment + (bytes > block_bytes ? bytes : block_bytes);
        auto const block = static_cast<Block*>(custom_malloc(whole, HEAP_GENERAL));
        block->older = blocks_;
        blocks_ = block;
        room_ = reinterpret_cast<char*>(block) + name_alignment;
        room_bytes_ = whole - name_alignment;
    }
    room_bytes_ -= bytes;
    return std::exchange(room_, room_ + bytes);
}

// The string is never destroyed and never changes, so that it may point at characters which are
// no block of its own.
String const* FileNameTable::store(char const* text, unsigned int length) {
    char* const room = take_room(sizeof(String) + length + 1ull);
    char* const characters = room + sizeof(String);
    std::memcpy(characters, text, length);
    characters[length] = 0;
    String* const name = new (room) String;
    StringFields const fields = {length, length, characters};
    std::memcpy(static_cast<void*>(name), &fields, sizeof fields);
    return name;
}

String const* FileNameTable::insert(char const* text, unsigned int length, std::uint64_t hash) {
    if (String const* const known = find(text, length, hash)) return known;
    Slots* slots = slots_.load(std::memory_order_relaxed);
    if (names_ >= (slots->mask + 1) / 4 * 3) {
        grow();
        slots = slots_.load(std::memory_order_relaxed);
    }
    String const* const name = store(text, length);
    std::uint64_t const address = reinterpret_cast<std::uint64_t>(name);
    QX_CHECK(address <= address_mask);
    put(*slots, address | (hash & ~address_mask), hash);
    ++names_;
    return name;
}

}  // namespace QX
