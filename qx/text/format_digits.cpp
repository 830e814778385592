#include <bit>

#include "qx/text/format_impl.h"

namespace QX::formatting {

namespace {

constexpr struct DigitPairs {
    char text[200];
    constexpr DigitPairs() : text() {
        for (int i = 0; i < 100; ++i) {
            text[2 * i] = static_cast<char>('0' + i / 10);
            text[2 * i + 1] = static_cast<char>('0' + i % 10);
        }
    }
} pairs;

constexpr unsigned long long powers_of_ten[] = {
    1,        10,        100,        1000,        10000,        100000,        1000000,
    10000000, 100000000, 1000000000, 10000000000, 100000000000, 1000000000000,
};

// The most decimals for which 24 bits of fraction times the power of ten fit 64 bits.
constexpr int short_decimals = 12;

char* write_pair(char* end, unsigned int value) {
    std::memcpy(end - 2, pairs.text + 2 * value, 2);
    return end - 2;
}

char* write_decimal_128(char* end, unsigned __int128 value) {
    constexpr unsigned long long chunk = 1000000000000000000;  // 18 digits
    while (value >> 64 != 0) {
        write_fixed(end, static_cast<unsigned long long>(value % chunk), 18);
        value /= chunk;
        end -= 18;
    }
    return write_decimal(end, static_cast<unsigned long long>(value));
}

// Adds 1 at the last of the digits. True if a one is carried out of the first.
bool increment(char* first, char* end) {
    while (end != first) {
        if (*--end != '9') {
            ++*end;
            return false;
        }
        *end = '0';
    }
    return true;
}

// A fraction below 1 as a fixed-point number, the least word first.
class Fraction {
public:
    // `bits` over 2 to the `shift`.
    Fraction(unsigned int bits, int shift) {
        int const at = 160 - shift;
        unsigned long long const spread = static_cast<unsigned long long>(bits) << (at % 32);
        words_[at / 32] = static_cast<unsigned int>(spread);
        if (at / 32 + 1 < 5) words_[at / 32 + 1] = static_cast<unsigned int>(spread >> 32);
    }

    // Moves the next digits in front of the point and hands them out.
    unsigned int multiply(unsigned int power) {
        unsigned long long carry = 0;
        for (unsigned int& word : words_) {
            carry += static_cast<unsigned long long>(word) * power;
            word = static_cast<unsigned int>(carry);
            carry >>= 32;
        }
        return static_cast<unsigned int>(carry);
    }

    bool is_half_or_more() const { return words_[4] >> 31 != 0; }

private:
    unsigned int words_[5] = {};
};

}  // namespace

char* write_decimal(char* end, unsigned long long value) {
    while (value > 0xFFFFFFFF) {
        end = write_pair(end, static_cast<unsigned int>(value % 100));
        value /= 100;
    }
    unsigned int low = static_cast<unsigned int>(value);
    while (low >= 100) {
        end = write_pair(end, low % 100);
        low /= 100;
    }
    if (low >= 10) return write_pair(end, low);
    *--end = static_cast<char>('0' + low);
    return end;
}

char* write_hexadecimal(char* end, unsigned long long value, char const* digits) {
    do {
        *--end = digits[value & 15];
        value >>= 4;
    } while (value != 0);
    return end;
}

void write_fixed(char* end, unsigned long long value, unsigned int count) {
    for (; count >= 2; count -= 2) {
        end = write_pair(end, static_cast<unsigned int>(value % 100));
        value /= 100;
    }
    if (count != 0) end[-1] = static_cast<char>('0' + value);
}

FloatText::FloatText(float value, int decimals) {
    unsigned int const bits = std::bit_cast<unsigned int>(value);
    bool const negative = bits >> 31 != 0;
    unsigned int const raw_exponent = bits >> 23 & 0xFF;
    unsigned int mantissa = bits & 0x7FFFFF;
    if (decimals < 0) decimals = 0;

    buffer_[point_at] = '.';
    end_ = buffer_ + point_at + 1;
    if (raw_exponent == 0xFF) {
        write_special(negative, mantissa == 0 ? "#INF" : negative ? "#IND" : "#QNAN", decimals);
        return;
    }
    if (raw_exponent != 0) mantissa |= 0x800000;
    int const shift = 150 - static_cast<int>(raw_exponent != 0 ? raw_exponent : 1);

    if (shift <= 0) {
        begin_ = write_decimal_128(
            buffer_ + point_at, static_cast<unsigned __int128>(mantissa) << -shift);
        zeros_ = static_cast<unsigned int>(decimals);
    } else {
        unsigned int const whole = shift < 24 ? mantissa >> shift : 0;
        unsigned int const fraction = shift < 24 ? mantissa & ((1u << shift) - 1) : mantissa;
        unsigned int const carry = decimals <= short_decimals
                                       ? write_short_fraction(fraction, shift, decimals)
                                       : write_long_fraction(fraction, shift, decimals);
        begin_ = write_decimal(buffer_ + point_at, whole + carry);
    }
    if (negative) *--begin_ = '-';
}

// Returns what rounding carries into the whole part.
unsigned int FloatText::write_short_fraction(unsigned int fraction, int shift, int decimals) {
    unsigned long long const power = powers_of_ten[decimals];
    unsigned long long const scaled = fraction * power;
    unsigned long long digits = 0;
    if (shift <= 64) {
        unsigned long long const halves = scaled >> (shift - 1);
        digits = (halves >> 1) + (halves & 1);
    }
    unsigned int const carry = digits == power ? 1 : 0;
    end_ += decimals;
    write_fixed(end_, carry != 0 ? 0 : digits, static_cast<unsigned int>(decimals));
    return carry;
}

unsigned int FloatText::write_long_fraction(unsigned int fraction, int shift, int decimals) {
    Fraction rest(fraction, shift);
    int left = decimals < max_decimals ? decimals : max_decimals;
    zeros_ = static_cast<unsigned int>(decimals - left);
    char* const first = end_;
    while (left > 0) {
        int const count = left < 9 ? left : 9;
        unsigned int const digits = rest.multiply(static_cast<unsigned int>(powers_of_ten[count]));
        end_ += count;
        left -= count;
        write_fixed(end_, digits, static_cast<unsigned int>(count));
    }
    return rest.is_half_or_more() && increment(first, end_) ? 1 : 0;
}

// The C run-time's names, cut at the decimals and rounded as if their letters were digits.
void FloatText::write_special(bool negative, char const* name, int decimals) {
    begin_ = buffer_ + point_at - 1;
    *begin_ = '1';
    if (negative) *--begin_ = '-';

    int const length = static_cast<int>(std::strlen(name));
    int const count = decimals < length ? decimals : length;
    std::memcpy(end_, name, static_cast<std::size_t>(count));
    end_ += count;
    zeros_ = static_cast<unsigned int>(decimals - count);
    if (count != 0 && count < length && name[count] >= '5') ++end_[-1];
}

void FloatText::trim_default() {
    for (int i = 0; i < 5; ++i) {
        if (zeros_ != 0) {
            --zeros_;
        } else if (end_[-1] == '0') {
            --end_;
        }
    }
}

void FloatText::trim_all() {
    zeros_ = 0;
    while (end_[-1] == '0') --end_;
    if (end_[-1] == '.') --end_;
}

}  // namespace QX::formatting
