#include "qx/text/parse.h"

namespace QX {

namespace {

constexpr int no_digit = -1;

bool is_digit(int unit) {
    return unit >= '0' && unit <= '9';
}

// A cursor over the units of a string.
template <typename Unit>
struct Reader {
    Unit const* at;
    Unit const* end;

    template <typename Text>
    explicit Reader(Text const& text) : at(text.begin()), end(text.end()) {}

    bool at_end() const { return at == end; }

    bool skip(char unit) {
        if (at == end || *at != static_cast<Unit>(unit)) return false;
        ++at;
        return true;
    }

    // The value of a decimal digit, stepped over, or no_digit.
    int digit() { return at != end && is_digit(*at) ? *at++ - '0' : no_digit; }
};

template <typename T, typename Unit>
void read_digits(Reader<Unit>& reader, T& value) {
    for (int digit; (digit = reader.digit()) != no_digit;) {
        value = value * 10 + static_cast<T>(digit);
    }
}

template <typename Text, typename T>
bool parse_unsigned(Text const& text, T& value) {
    Reader<typename Text::value_type> reader(text);
    value = 0;
    read_digits(reader, value);
    return reader.at_end();
}

// `Magnitude` is the unsigned type of the same width, in which wrapping is defined.
template <typename Magnitude, typename Text, typename T>
bool parse_signed(Text const& text, T& value) {
    Reader<typename Text::value_type> reader(text);
    bool const negative = reader.skip('-');
    Magnitude magnitude = 0;
    read_digits(reader, magnitude);
    value = static_cast<T>(negative ? 0 - magnitude : magnitude);
    return reader.at_end();
}

// Capitals are let through up to 25 codes further than small letters.
int digit_of(int unit, int radix) {
    if (is_digit(unit)) return unit - '0';
    if (unit >= 'a' && unit < radix + 87) return unit - 87;
    if (unit >= 'A' && unit < radix + 80) return unit - 55;
    return no_digit;
}

template <typename Text, typename T>
bool parse_radix(Text const& text, T& value, unsigned short radix) {
    value = 0;
    for (auto const unit : text) {
        value = static_cast<T>(static_cast<unsigned long long>(value) * radix);
        int const digit = digit_of(unit, radix);
        if (digit == no_digit) return false;
        value = static_cast<T>(value + static_cast<T>(digit));
    }
    return true;
}

template <typename Unit>
void read_decimals(Reader<Unit>& reader, float& value) {
    float scale = 1.0f;
    for (int digit; (digit = reader.digit()) != no_digit;) {
        scale *= 0.1f;
        value += static_cast<float>(digit) * scale;
    }
}

// Multiplies once per unit of the exponent, until that changes nothing any more.
template <typename Unit>
void read_exponent(Reader<Unit>& reader, float& value) {
    if (!reader.skip('e') && !reader.skip('E')) return;
    float const factor = reader.skip('-') ? 0.1f : 10.0f;
    unsigned int exponent = 0;
    read_digits(reader, exponent);
    for (float before = -1.0f; exponent > 0 && value != before; --exponent) {
        before = value;
        value *= factor;
    }
}

bool read_float(Reader<char>& reader, float& value) {
    read_digits(reader, value);
    if (!reader.skip('.')) return false;
    read_decimals(reader, value);
    return true;
}

bool read_float(Reader<wchar_t>& reader, float& value) {
    read_digits(reader, value);
    if (reader.skip('.')) read_decimals(reader, value);
    read_exponent(reader, value);
    return true;
}

template <typename Text>
bool parse_float(Text const& text, float& value) {
    Reader<typename Text::value_type> reader(text);
    bool const negative = reader.skip('-');
    value = 0.0f;
    bool const complete = read_float(reader, value);
    if (negative) value = -value;
    return complete && reader.at_end();
}

}  // namespace

bool String::parse(int& value) const {
    return parse_signed<unsigned int>(*this, value);
}

bool String::parse(unsigned int& value) const {
    return parse_unsigned(*this, value);
}

bool String::parse(unsigned long long& value) const {
    return parse_unsigned(*this, value);
}

bool String::parse(float& value) const {
    return parse_float(*this, value);
}

bool String::parse(unsigned char& value, unsigned short radix) const {
    return parse_radix(*this, value, radix);
}

bool String::parse(unsigned short& value, unsigned short radix) const {
    return parse_radix(*this, value, radix);
}

bool String::parse(unsigned int& value, unsigned short radix) const {
    return parse_radix(*this, value, radix);
}

bool String::parse(unsigned long long& value, unsigned short radix) const {
    return parse_radix(*this, value, radix);
}

bool UniString::parse(int& value) const {
    return parse_signed<unsigned int>(*this, value);
}

bool UniString::parse(unsigned int& value) const {
    return parse_unsigned(*this, value);
}

bool UniString::parse(long long& value) const {
    return parse_signed<unsigned long long>(*this, value);
}

bool UniString::parse(unsigned long long& value) const {
    return parse_unsigned(*this, value);
}

bool UniString::parse(float& value) const {
    return parse_float(*this, value);
}

bool UniString::parse(unsigned int& value, unsigned short radix) const {
    return parse_radix(*this, value, radix);
}

}  // namespace QX
