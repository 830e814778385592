// format_impl.h - what the two formatters share: the conversion, the digits, the writer.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "qx/base/compiler.h"
#include "qx/text/format.h"

namespace QX::formatting {

template <typename Unit>
using TextOf = std::conditional_t<sizeof(Unit) == 1, String, UniString>;

// The room that every formatted text starts with.
inline constexpr unsigned int first_capacity = 64;

// A conversion as parsed, without its letter where the letter has done its work.
template <typename Unit>
struct Conversion {
    Unit letter = 0;
    short precision = 0;
    char sign = 0;
    unsigned short width = 0;
    bool left_justify = false;
    char pad = ' ';
};

// The format being walked. Reading past its end gives the terminator.
template <typename Unit>
struct FormatReader {
    Unit const* text;
    unsigned int length;
    unsigned int position = 0;

    Unit peek() const { return QX_LIKELY(position < length) ? text[position] : Unit(); }
    bool take(char c) {
        if (peek() != static_cast<Unit>(c)) return false;
        ++position;
        return true;
    }
};

// The digits at the reader, accumulated in `Number`, which wraps.
template <typename Number, typename Unit>
Number parse_digits(FormatReader<Unit>& reader) {
    Number value = 0;
    for (Unit c = reader.peek(); c >= '0' && c <= '9'; c = reader.peek()) {
        value = static_cast<Number>(value * 10 - '0' + c);
        ++reader.position;
    }
    return value;
}

template <typename Width, typename Precision, typename Unit>
QX_NOINLINE void parse_flags(FormatReader<Unit>& reader, Conversion<Unit>& parsed) {
    parsed.left_justify = reader.take('-');
    parsed.sign = reader.take('+') ? '+' : reader.take(' ') ? ' ' : '\0';
    parsed.pad = reader.take('0') ? '0' : ' ';
    parsed.width = parse_digits<Width>(reader);
    if (reader.take('.')) parsed.precision = parse_digits<Precision>(reader);
}

// Parses from the flags to the letter, and steps over the letter.
template <typename Width, typename Precision, typename Unit>
QX_ALWAYS_INLINE Conversion<Unit> parse_conversion(FormatReader<Unit>& reader) {
    Conversion<Unit> parsed;
    if (reader.peek() <= '9') parse_flags<Width, Precision>(reader, parsed);
    parsed.letter = reader.peek();
    ++reader.position;
    return parsed;
}

// --- Digits --------------------------------------------------------------------------------------

inline constexpr char lower_digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
inline constexpr char upper_digits[] = "0123456789ABCDEF";

// These write downwards from `end` and return the first digit. 0 is "0".
char* write_decimal(char* end, unsigned long long value);
char* write_hexadecimal(char* end, unsigned long long value, char const* digits);

// Exactly `count` digits, with zeros in front; the value has no more.
void write_fixed(char* end, unsigned long long value, unsigned int count);

// The text of a number, and how many zeros more follow it.
struct NumberText {
    char const* text;
    unsigned int length;
    unsigned int zeros = 0;
};

// The text of one float, without the sign character of non-negative numbers.
class FloatText {
public:
    FloatText(float value, int decimals);

    FloatText(FloatText const&) = delete;
    FloatText& operator=(FloatText const&) = delete;

    // Cuts at most 5 zeros off the end.
    void trim_default();

    // Cuts all zeros behind the point, and a point that then has nothing behind it.
    void trim_all();

    NumberText text() const { return {begin_, static_cast<unsigned int>(end_ - begin_), zeros_}; }

private:
    // A float has at most 39 digits before the point and 149 behind.
    static constexpr int point_at = 40;
    static constexpr int max_decimals = 149;

    void write_special(bool negative, char const* name, int decimals);
    unsigned int write_short_fraction(unsigned int fraction, int shift, int decimals);
    unsigned int write_long_fraction(unsigned int fraction, int shift, int decimals);

    char* begin_;
    char* end_;
    unsigned int zeros_ = 0;
    char buffer_[point_at + 1 + max_decimals];
};

// --- Writing -------------------------------------------------------------------------------------

// Copies texts, which are short as a rule: up to 16 bytes without a call, by overlapping words.
QX_ALWAYS_INLINE void copy_bytes(void* to, void const* from, unsigned int count) {
    auto const copy_ends = [=]<typename Word>(Word) {
        Word first, last;
        std::memcpy(&first, from, sizeof(Word));
        std::memcpy(&last, static_cast<char const*>(from) + count - sizeof(Word), sizeof(Word));
        std::memcpy(to, &first, sizeof(Word));
        std::memcpy(static_cast<char*>(to) + count - sizeof(Word), &last, sizeof(Word));
    };
    if (count > 16) {
        std::memcpy(to, from, count);
    } else if (count >= 8) {
        copy_ends(0ull);
    } else if (count >= 4) {
        copy_ends(0u);
    } else if (count >= 2) {
        copy_ends(static_cast<unsigned short>(0));
    } else if (count == 1) {
        *static_cast<char*>(to) = *static_cast<char const*>(from);
    }
}

// Appends to a string through raw pointers. The string's own length is out of date until `close`
// or the next growth. Growth follows the string's rule, one step for each append.
template <typename Unit>
class StringWriter {
public:
    explicit StringWriter(BASIC_STRING<Unit>& target) : target_(target) { fetch(); }

    void close() { target_.set_length(length()); }

    void put(Unit c) {
        if (QX_UNLIKELY(end_ == limit_)) grow(1);
        *end_++ = c;
    }

    // Appends up to the next '%' or `end`, and returns where it stopped.
    Unit const* put_plain(Unit const* at, Unit const* end) {
        for (;;) {
            Unit* to = end_;
            while (at != end && *at != '%' && to != limit_) *to++ = *at++;
            end_ = to;
            if (at == end || *at == '%') return at;
            grow(1);
        }
    }

    // `text` may lie in the string itself.
    void put_text(
        Unit const* text, unsigned int count, unsigned int width = 0, bool left_justify = false) {
        std::uintptr_t const offset =
            reinterpret_cast<std::uintptr_t>(text) - reinterpret_cast<std::uintptr_t>(begin_);
        bool const own = offset < length() * sizeof(Unit);
        unsigned int const padding = width > count ? width - count : 0;
        Unit* to = space(count + padding);
        if (!left_justify) to = fill(to, padding, ' ');
        copy_bytes(to, own ? begin_ + offset / sizeof(Unit) : text, count * sizeof(Unit));
        if (left_justify) fill(to + count, padding, ' ');
    }

    // A sign, 0 for none, and a number, padded together.
    void put_number(char sign, NumberText number, Conversion<Unit> const& conversion) {
        unsigned int const count = (sign != 0) + number.length + number.zeros;
        unsigned int const padding = conversion.width > count ? conversion.width - count : 0;
        Unit* to = space(count + padding);
        if (!conversion.left_justify) to = fill(to, padding, conversion.pad);
        if (sign != 0) *to++ = static_cast<Unit>(sign);
        to = fill(put_digits(to, number), number.zeros, '0');
        if (conversion.left_justify) fill(to, padding, conversion.pad);
    }

    // Room for `count` characters, which the caller fills.
    Unit* space(unsigned int count) {
        if (QX_UNLIKELY(count > static_cast<unsigned int>(limit_ - end_))) grow(count);
        end_ += count;
        return end_ - count;
    }

    static Unit* fill(Unit* to, unsigned int count, char c) {
        if (QX_LIKELY(count == 0)) return to;
        do *to++ = static_cast<unsigned char>(c);
        while (--count != 0);
        return to;
    }

private:
    static Unit* put_digits(Unit* to, NumberText number) {
        if constexpr (sizeof(Unit) == 1) {
            copy_bytes(to, number.text, number.length);
            return to + number.length;
        }
        for (unsigned int i = 0; i < number.length; ++i)
            *to++ = static_cast<unsigned char>(number.text[i]);
        return to;
    }

    unsigned int length() const { return static_cast<unsigned int>(end_ - begin_); }

    void fetch() {
        begin_ = target_.begin();
        end_ = begin_ + target_.length();
        limit_ = begin_ + target_.capacity();
    }

    QX_NOINLINE void grow(unsigned int count) {
        close();
        target_.reserve(target_.length_with(count));
        fetch();
    }

    BASIC_STRING<Unit>& target_;
    Unit* begin_;
    Unit* end_;
    Unit* limit_;
};

// Text in UTF-8 into a wide string and the other way, padded with spaces.
void put_converted(
    StringWriter<wchar_t>& out, char const* text, unsigned int width, bool left_justify);
void put_converted(
    StringWriter<char>& out, wchar_t const* text, unsigned int width, bool left_justify);

// The conversions that the two forms share.
template <typename Unit>
void put_signed(StringWriter<Unit>& out, Conversion<Unit> const& conversion, long long value);
template <typename Unit>
void put_decimal(
    StringWriter<Unit>& out, Conversion<Unit> const& conversion, unsigned long long value,
    char sign = 0);
template <typename Unit>
void put_hexadecimal(
    StringWriter<Unit>& out, Conversion<Unit> const& conversion, unsigned long long value,
    char const* digits);
template <typename Unit>
void put_pointer(StringWriter<Unit>& out, unsigned long long value, char const* digits);
template <typename Unit>
void put_float(StringWriter<Unit>& out, Conversion<Unit> const& conversion, float value);

}  // namespace QX::formatting
