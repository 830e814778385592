#include "qx/text/convert.h"

#include <emmintrin.h>

#include <cstdint>

#include "qx/base/compiler.h"

// Both directions work on blocks of 16 bytes and fall back to single steps. The terminator is
// looked for as they go, so blocks are read past it, but never from a page that the text does not
// reach; nothing is written behind what the target must hold anyway.

namespace QX {

namespace {

constexpr unsigned int page_bytes = 4096;

// A block and what its last sequence may need behind it.
constexpr unsigned int narrow_reach = 18;
constexpr unsigned int wide_reach = 20;

bool within_page(void const* at, unsigned int reach) {
    return (reinterpret_cast<std::uintptr_t>(at) & (page_bytes - 1)) <= page_bytes - reach;
}

QX_READS_PAST_END inline __m128i load(void const* at) {
    return _mm_loadu_si128(static_cast<__m128i const*>(at));
}

void store(void* at, __m128i value) {
    _mm_storeu_si128(static_cast<__m128i*>(at), value);
}

unsigned int mask_of(__m128i bytes) {
    return static_cast<unsigned int>(_mm_movemask_epi8(bytes));
}

// Whether four blocks may be read: they lie within the page, or no terminator ends it.
template <typename Unit>
QX_READS_PAST_END inline bool may_read_four(Unit const* at) {
    if (within_page(at, 64)) return true;
    auto const page_end = (reinterpret_cast<std::uintptr_t>(at) | (page_bytes - 1)) + 1;
    auto const last = reinterpret_cast<char const*>(page_end) - 64;
    __m128i ends = _mm_setzero_si128();
    for (unsigned int i = 0; i < 64; i += 16) {
        __m128i const block = load(last + i);
        ends = _mm_or_si128(
            ends, sizeof(Unit) == 1 ? _mm_cmpeq_epi8(block, _mm_setzero_si128())
                                    : _mm_cmpeq_epi16(block, _mm_setzero_si128()));
    }
    return mask_of(ends) == 0;
}

// Pairs of stores that begin at multiples of 32 bytes go out together, in half the time: a copy
// that began elsewhere takes back so many bytes, once, that it comes to such a place. One that has
// not lasted for some rounds is likely to end before that pays.
constexpr unsigned int aligning_round = 4;

unsigned int overlap_after(unsigned int round, void const* target) {
    return round == aligning_round ? reinterpret_cast<std::uintptr_t>(target) % 32 : 0;
}

unsigned int first_of(unsigned int mask) {
    return static_cast<unsigned int>(__builtin_ctz(mask));
}

// Of a mask of 16 bits.
unsigned int count_bits(unsigned int mask) {
    mask -= mask >> 1 & 0x5555;
    mask = (mask & 0x3333) + (mask >> 2 & 0x3333);
    mask = (mask + (mask >> 4)) & 0x0F0F;
    return (mask + (mask >> 8)) & 0x1F;
}

unsigned int sum_of_bytes(__m128i bytes) {
    __m128i const sums = _mm_sad_epu8(bytes, _mm_setzero_si128());
    return static_cast<unsigned int>(_mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4));
}

__m128i select(__m128i mask, __m128i a, __m128i b) {
    return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b));
}

// --- Single steps --------------------------------------------------------------------------------

// Bytes of the sequence that the lead byte announces.
unsigned int sequence_bytes(unsigned char lead) {
    if (lead < 0x80) return 1;
    return lead & 0x20 ? 3 : 2;
}

// Whether the terminator stands inside a sequence of `count` bytes.
bool is_cut(char const* at, unsigned int count) {
    return (count > 1 && at[1] == 0) || (count > 2 && at[2] == 0);
}

wchar_t decode_sequence(char const* at, unsigned int count) {
    auto const byte = reinterpret_cast<unsigned char const*>(at);
    if (count == 1) return byte[0];
    unsigned int const two = (byte[0] << 6) + byte[1];
    if (count == 2) return static_cast<wchar_t>(two - 0x3080);
    return static_cast<wchar_t>((two << 6) + byte[2] - 0x2080);
}

char* encode_unit(char* target, unsigned int unit) {
    if (unit < 0x80) {
        *target = static_cast<char>(unit);
        return target + 1;
    }
    if (unit < 0x800) {
        target[0] = static_cast<char>(0xC0 | (unit >> 6));
        target[1] = static_cast<char>(0x80 | (unit & 0x3F));
        return target + 2;
    }
    target[0] = static_cast<char>(0xE0 | (unit >> 12));
    target[1] = static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
    target[2] = static_cast<char>(0x80 | (unit & 0x3F));
    return target + 3;
}

unsigned int encoded_bytes(unsigned int unit) {
    return 1 + (unit > 0x7F) + (unit > 0x7FF);
}

// What is left of the page that `at` lies in, so that stepping goes on at the next one.
template <typename Unit>
Unit const* next_page(Unit const* at) {
    auto const address = reinterpret_cast<std::uintptr_t>(at);
    return reinterpret_cast<Unit const*>((address | (page_bytes - 1)) + 1);
}

// Decode or encode singly until `stop` is reached or passed. False at the end of the text.
bool decode_steps(wchar_t*& target, char const*& source, char const* stop) {
    while (source < stop) {
        if (*source == 0) return false;
        unsigned int const count = sequence_bytes(static_cast<unsigned char>(*source));
        if (is_cut(source, count)) return false;
        *target++ = decode_sequence(source, count);
        source += count;
    }
    return true;
}

bool count_steps(unsigned int& length, char const*& source, char const* stop) {
    while (source < stop) {
        if (*source == 0) return false;
        unsigned int const count = sequence_bytes(static_cast<unsigned char>(*source));
        if (is_cut(source, count)) return false;
        ++length;
        source += count;
    }
    return true;
}

bool encode_steps(char*& target, wchar_t const*& source, wchar_t const* stop) {
    while (source < stop) {
        if (*source == 0) return false;
        target = encode_unit(target, *source++);
    }
    return true;
}

bool count_steps(unsigned int& length, wchar_t const*& source, wchar_t const* stop) {
    while (source < stop) {
        if (*source == 0) return false;
        length += encoded_bytes(*source++);
    }
    return true;
}

// --- Blocks of UTF-8 -----------------------------------------------------------------------------

// Which bytes of a block lead and which follow, as masks of 16 bits. Only a block where what
// follows is exactly what the leads announce may be taken whole. Blocks lie side by side and hand
// on what their last sequence announces, so that no address waits for the bytes before it.
struct Utf8Block {
    __m128i bytes;
    unsigned int room;       // bytes before the terminator, 16 at most
    unsigned int high;       // bytes of 0x80 and above, of these
    unsigned int leads;      // bytes not of the form 10xxxxxx, of these
    unsigned int carry;      // the first places of the next block that are announced
    unsigned int irregular;  // places that follow unannounced, or lead where they should follow
    bool is_cut;             // the terminator stands where a sequence should go on

    bool is_last() const { return room < 16; }
    bool is_whole() const { return irregular == 0 && !is_cut; }
};

QX_READS_PAST_END inline Utf8Block look_at(char const* at, unsigned int carry) {
    __m128i const zero = _mm_setzero_si128();
    Utf8Block block;
    block.bytes = load(at);
    // Bits 16 and 17 are the two bytes that the last sequence may take from behind the block.
    unsigned int const ends = mask_of(_mm_cmpeq_epi8(block.bytes, zero)) |
                              (mask_of(_mm_cmpeq_epi8(load(at + 2), zero)) >> 14 << 16);
    // As signed bytes, 0x80 to 0xBF are those below 0xC0.
    unsigned int const following = mask_of(_mm_cmplt_epi8(block.bytes, _mm_set1_epi8(-0x40)));
    unsigned int const bit_5 = mask_of(_mm_slli_epi16(block.bytes, 2));
    block.room = first_of(ends | 0x10000);
    unsigned int const valid = (1u << block.room) - 1;
    block.high = mask_of(block.bytes) & valid;
    block.leads = valid & ~following;
    unsigned int const long_leads = block.high & ~following;
    unsigned int const announced = carry | (long_leads << 1) | ((long_leads & bit_5) << 2);
    block.carry = announced >> 16;
    block.irregular = (following ^ announced) & valid;
    block.is_cut = (announced & ends) != 0;
    return block;
}

// How many bytes a carry stands for.
unsigned int overhang(unsigned int carry) {
    return (carry + 1) / 2;
}

// What each of eight bytes stands for if it leads: `first` are the bytes themselves, `second` and
// `third` those one and two further on, all as 16-bit values.
__m128i decode_eight(__m128i first, __m128i second, __m128i third) {
    __m128i const two = _mm_add_epi16(_mm_slli_epi16(first, 6), second);
    __m128i const three = _mm_add_epi16(_mm_slli_epi16(two, 6), third);
    __m128i const as_two = _mm_sub_epi16(two, _mm_set1_epi16(0x3080));
    __m128i const as_three = _mm_sub_epi16(three, _mm_set1_epi16(0x2080));
    __m128i const is_one = _mm_cmplt_epi16(first, _mm_set1_epi16(0x80));
    __m128i const is_three = _mm_cmpgt_epi16(first, _mm_set1_epi16(0xDF));
    return select(is_one, first, select(is_three, as_three, as_two));
}

// Decodes every place of a regular block as if it led, and keeps those that do. Each value is
// written and then stepped over or not, so that the last one may land where the terminator will.
QX_READS_PAST_END inline wchar_t*
decode_block(wchar_t* target, char const* at, Utf8Block const& block) {
    alignas(16) wchar_t values[16];
    __m128i const zero = _mm_setzero_si128();
    __m128i const second = load(at + 1);
    __m128i const third = load(at + 2);
    store(
        values, decode_eight(
                    _mm_unpacklo_epi8(block.bytes, zero), _mm_unpacklo_epi8(second, zero),
                    _mm_unpacklo_epi8(third, zero)));
    store(
        values + 8, decode_eight(
                        _mm_unpackhi_epi8(block.bytes, zero), _mm_unpackhi_epi8(second, zero),
                        _mm_unpackhi_epi8(third, zero)));
    unsigned int const leads = block.leads;
    wchar_t* const end = target + count_bits(leads);
    wchar_t* middle = target + count_bits(leads & 0xFF);
#pragma GCC unroll 8
    for (unsigned int i = 0; i < 8; ++i) {
        *target = values[i];
        target += (leads >> i) & 1;
    }
#pragma GCC unroll 8
    for (unsigned int i = 8; i < 16; ++i) {
        *middle = values[i];
        middle += (leads >> i) & 1;
    }
    return end;
}

void widen_sixteen(wchar_t* target, __m128i bytes) {
    __m128i const zero = _mm_setzero_si128();
    store(target, _mm_unpacklo_epi8(bytes, zero));
    store(target + 8, _mm_unpackhi_epi8(bytes, zero));
}

// Copies whole blocks of plain ASCII, four at a time where they come so.
QX_READS_PAST_END inline void widen_ascii(wchar_t*& target, char const*& source) {
    __m128i const zero = _mm_setzero_si128();
    for (unsigned int round = 1; may_read_four(source); ++round) {
        __m128i const a = load(source);
        __m128i const b = load(source + 16);
        __m128i const c = load(source + 32);
        __m128i const d = load(source + 48);
        // The least byte is 0 where the text ends; bit 7 is set where it is not ASCII.
        __m128i const least = _mm_min_epu8(_mm_min_epu8(a, b), _mm_min_epu8(c, d));
        __m128i const any = _mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d));
        if (mask_of(_mm_or_si128(any, _mm_cmpeq_epi8(least, zero)))) break;
        widen_sixteen(target, a);
        widen_sixteen(target + 16, b);
        widen_sixteen(target + 32, c);
        widen_sixteen(target + 48, d);
        unsigned int const count = 64 - overlap_after(round, target) / sizeof(wchar_t);
        source += count;
        target += count;
    }
    while (within_page(source, 16)) {
        __m128i const a = load(source);
        if (mask_of(_mm_or_si128(a, _mm_cmpeq_epi8(a, zero)))) break;
        widen_sixteen(target, a);
        source += 16;
        target += 16;
    }
}

// Where a block can't be taken whole: singly past the first place that doesn't fit, or to the end.
char const* stop_of_steps(char const* at, Utf8Block const& block) {
    return at + (block.irregular ? first_of(block.irregular) + 1 : narrow_reach);
}

// The last characters of a text, plain ASCII and fewer than sixteen: two halves that overlap.
wchar_t* widen_few(wchar_t* target, char const* source, unsigned int count) {
    __m128i const zero = _mm_setzero_si128();
    auto const eight = [=](unsigned int from) {
        __m128i const bytes = _mm_loadl_epi64(reinterpret_cast<__m128i const*>(source + from));
        store(target + from, _mm_unpacklo_epi8(bytes, zero));
    };
    auto const four = [=](unsigned int from) {
        int bytes;
        std::memcpy(&bytes, source + from, 4);
        _mm_storel_epi64(
            reinterpret_cast<__m128i*>(target + from),
            _mm_unpacklo_epi8(_mm_cvtsi32_si128(bytes), zero));
    };
    if (count >= 8) {
        eight(0);
        eight(count - 8);
    } else if (count >= 4) {
        four(0);
        four(count - 4);
    } else {
        for (unsigned int i = 0; i < count; ++i) target[i] = static_cast<wchar_t>(source[i]);
    }
    return target + count;
}

// --- Blocks of UTF-16 ----------------------------------------------------------------------------

// Marks the lanes whose unit has none of the bits of `bits`.
__m128i lacks(__m128i units, short bits) {
    return _mm_cmpeq_epi16(_mm_and_si128(units, _mm_set1_epi16(bits)), _mm_setzero_si128());
}

__m128i is_one_byte(__m128i units) {
    return lacks(units, static_cast<short>(0xFF80));
}

__m128i is_two_at_most(__m128i units) {
    return lacks(units, static_cast<short>(0xF800));
}

// The encoded length of each unit: three, less one for each bound that it keeps.
__m128i lengths_of(__m128i units) {
    return _mm_add_epi16(
        _mm_set1_epi16(3), _mm_add_epi16(is_one_byte(units), is_two_at_most(units)));
}

QX_READS_PAST_END inline bool has_end(wchar_t const* at) {
    __m128i const zero = _mm_setzero_si128();
    __m128i const here = _mm_cmpeq_epi16(load(at), zero);
    return mask_of(_mm_or_si128(here, _mm_cmpeq_epi16(load(at + 2), zero))) != 0;
}

// The bytes of eight units, four to a unit in store order, the unused ones 0. The first two bytes
// of each are computed together and then the third, in 16-bit lanes.
void encode_eight(__m128i units, unsigned int* words) {
    __m128i const one = is_one_byte(units);
    __m128i const two = is_two_at_most(units);
    __m128i const tail = _mm_set1_epi16(0x3F);
    __m128i const low = _mm_and_si128(units, tail);
    __m128i const middle = _mm_and_si128(_mm_srli_epi16(units, 6), tail);

    __m128i const as_two = _mm_or_si128(
        _mm_or_si128(_mm_srli_epi16(units, 6), _mm_slli_epi16(low, 8)),
        _mm_set1_epi16(static_cast<short>(0x80C0)));
    __m128i const as_three = _mm_or_si128(
        _mm_or_si128(_mm_srli_epi16(units, 12), _mm_slli_epi16(middle, 8)),
        _mm_set1_epi16(static_cast<short>(0x80E0)));
    __m128i const first = select(one, units, select(two, as_two, as_three));
    __m128i const third = _mm_andnot_si128(two, _mm_or_si128(low, _mm_set1_epi16(0x80)));
    store(words, _mm_unpacklo_epi16(first, third));
    store(words + 4, _mm_unpackhi_epi16(first, third));
}

// Each unit is written as four bytes and stepped over by its length. What is written too much is
// written over by the two units that are known to follow the block and by the terminator.
char* encode_block(char* target, __m128i units) {
    alignas(16) unsigned int words[8];
    alignas(16) unsigned short lengths[8];
    encode_eight(units, words);
    store(lengths, lengths_of(units));
#pragma GCC unroll 8
    for (unsigned int i = 0; i < 8; ++i) {
        std::memcpy(target, &words[i], 4);
        target += lengths[i];
    }
    return target;
}

// Copies whole blocks of plain ASCII, four at a time where they come so.
QX_READS_PAST_END inline void narrow_ascii(char*& target, wchar_t const*& source) {
    __m128i const zero = _mm_setzero_si128();
    for (unsigned int round = 1; may_read_four(source); ++round) {
        __m128i const a = load(source);
        __m128i const b = load(source + 8);
        __m128i const c = load(source + 16);
        __m128i const d = load(source + 24);
        __m128i const any = _mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d));
        if (mask_of(is_one_byte(any)) != 0xFFFF) break;
        // Plain units fit bytes, so one compare finds the end among sixteen.
        __m128i const ab = _mm_packus_epi16(a, b);
        __m128i const cd = _mm_packus_epi16(c, d);
        if (mask_of(_mm_cmpeq_epi8(_mm_min_epu8(ab, cd), zero))) break;
        store(target, ab);
        store(target + 16, cd);
        unsigned int const count = 32 - overlap_after(round, target);
        source += count;
        target += count;
    }
    while (within_page(source, 32)) {
        __m128i const a = load(source);
        __m128i const b = load(source + 8);
        if (mask_of(is_one_byte(_mm_or_si128(a, b))) != 0xFFFF) break;
        __m128i const ab = _mm_packus_epi16(a, b);
        if (mask_of(_mm_cmpeq_epi8(ab, zero))) break;
        store(target, ab);
        source += 16;
        target += 16;
    }
}

// How many of eight units are plain ASCII before one that is not or ends the text; 0 also where
// one that is not comes first among them without an end.
unsigned int plain_before_end(__m128i units) {
    unsigned int const plain = mask_of(is_one_byte(units));
    unsigned int const ends = mask_of(_mm_cmpeq_epi16(units, _mm_setzero_si128()));
    unsigned int const stop = ~plain | ends | 0x10000;
    unsigned int const at = first_of(stop);
    return at == 16 || (ends >> at & 1) ? at / 2 : 0;
}

// The first `count` of eight plain units, and not a byte more.
char* narrow_few(char* target, __m128i units, unsigned int count) {
    auto bytes = static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_packus_epi16(units, units)));
    if (count == 8) {
        std::memcpy(target, &bytes, 8);
        return target + 8;
    }
    if (count & 4) {
        std::memcpy(target, &bytes, 4);
        target += 4;
        bytes >>= 32;
    }
    for (count &= 3; count > 0; --count, bytes >>= 8) *target++ = static_cast<char>(bytes);
    return target;
}

// --- Case ----------------------------------------------------------------------------------------

// Adds `change` to the units from `first` to the 25th after it.
template <typename Text>
Text shift_letters(Text text, char first, int change) {
    using Unit = typename Text::value_type;
    Unit* const end = text.end();
    for (Unit* at = text.begin(); at != end; ++at) {
        bool const is_letter = static_cast<unsigned int>(*at - first) < 26;
        *at = static_cast<Unit>(*at + (is_letter ? change : 0));
    }
    return text;
}

}  // namespace

QX_READS_PAST_END wchar_t* utf8_decode(wchar_t* target, char const* source) {
    widen_ascii(target, source);
    unsigned int carry = 0;
    for (;;) {
        char const* stop = next_page(source);
        if (within_page(source, narrow_reach)) {
            Utf8Block const block = look_at(source, carry);
            if ((block.high | carry) == 0) {
                if (block.is_last()) {
                    target = widen_few(target, source, block.room);
                    break;
                }
                widen_ascii(target, source);
                continue;
            }
            if (block.is_whole()) {
                target = decode_block(target, source, block);
                if (block.is_last()) break;
                source += 16;
                carry = block.carry;
                continue;
            }
            stop = stop_of_steps(source, block);
        }
        source += overhang(carry);
        carry = 0;
        if (!decode_steps(target, source, stop)) break;
    }
    *target = 0;
    return target;
}

QX_READS_PAST_END unsigned int utf8_length(char const* text) {
    unsigned int length = 0;
    unsigned int carry = 0;
    for (;;) {
        char const* stop = next_page(text);
        if (within_page(text, narrow_reach)) {
            Utf8Block const block = look_at(text, carry);
            if (block.is_whole()) {
                length += count_bits(block.leads);
                if (block.is_last()) return length;
                text += 16;
                carry = block.carry;
                continue;
            }
            stop = stop_of_steps(text, block);
        }
        text += overhang(carry);
        carry = 0;
        if (!count_steps(length, text, stop)) return length;
    }
}

// A text that has left ASCII is likely to do so again: the next blocks are not asked.
constexpr unsigned int blocks_unasked = 16;

QX_READS_PAST_END inline void encode_blocks(char*& target, wchar_t const*& source) {
    for (unsigned int i = 0; i < blocks_unasked; ++i) {
        if (!within_page(source, wide_reach) || has_end(source)) return;
        target = encode_block(target, load(source));
        source += 8;
    }
}

QX_READS_PAST_END char* utf8_encode(char* target, wchar_t const* source) {
    narrow_ascii(target, source);
    for (;;) {
        wchar_t const* stop = next_page(source);
        if (within_page(source, wide_reach)) {
            __m128i const units = load(source);
            if (unsigned int const count = plain_before_end(units)) {
                target = narrow_few(target, units, count);
                source += count;
                if (count == 8) narrow_ascii(target, source);
                continue;
            }
            if (!has_end(source)) {
                encode_blocks(target, source);
                continue;
            }
            stop = source + wide_reach / 2;
        }
        if (!encode_steps(target, source, stop)) break;
    }
    *target = 0;
    return target;
}

QX_READS_PAST_END unsigned int utf8_length(wchar_t const* text) {
    unsigned int length = 0;
    for (;;) {
        wchar_t const* stop = next_page(text);
        if (within_page(text, wide_reach)) {
            stop = text + wide_reach / 2;
            if (!has_end(text)) {
                length += sum_of_bytes(lengths_of(load(text)));
                text += 8;
                continue;
            }
        }
        if (!count_steps(length, text, stop)) return length;
    }
}

String must_fix_string_narrow(UniString const& text) {
    String result;
    result.resize(utf8_length(text.c_str()));
    if (!result.empty()) utf8_encode(result.begin(), text.c_str());
    return result;
}

UniString must_fix_string_widen(String const& text) {
    UniString result;
    result.resize(utf8_length(text.c_str()));
    if (!result.empty()) utf8_decode(result.begin(), text.c_str());
    return result;
}

String lowercase(String text) {
    return shift_letters(static_cast<String&&>(text), 'A', 32);
}

UniString lowercase(UniString text) {
    return shift_letters(static_cast<UniString&&>(text), 'A', 32);
}

String uppercase(String text) {
    return shift_letters(static_cast<String&&>(text), 'a', -32);
}

UniString uppercase(UniString text) {
    return shift_letters(static_cast<UniString&&>(text), 'a', -32);
}

}  // namespace QX
