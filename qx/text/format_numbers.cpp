#include "qx/text/format_impl.h"

namespace QX {

using namespace formatting;

namespace {

// Digit tables fill at most this many places, whatever is left of the value.
constexpr unsigned int most_digits = 32;

template <typename Unit>
TextOf<Unit> exact_text(NumberText number) {
    TextOf<Unit> result;
    result.reserve(number.length + number.zeros);
    StringWriter<Unit> out(result);
    out.put_number(0, number, Conversion<Unit>());
    out.close();
    return result;
}

template <typename Unit>
TextOf<Unit> decimal_text(unsigned long long value, bool negative = false) {
    char buffer[21];
    char* const end = buffer + sizeof(buffer);
    char* begin = write_decimal(end, value);
    if (negative) *--begin = '-';
    return exact_text<Unit>({begin, static_cast<unsigned int>(end - begin)});
}

template <typename Unit>
TextOf<Unit> signed_text(int value) {
    unsigned int const bits = static_cast<unsigned int>(value);
    return decimal_text<Unit>(value < 0 ? 0 - bits : bits, value < 0);
}

// A radix of 0 gives no digits, but 0 itself is "0" in every radix.
template <typename Unit, typename Digit>
TextOf<Unit> table_text(unsigned long long value, unsigned int radix, Digit const* digits) {
    if (value == 0) return TextOf<Unit>(static_cast<Unit>('0'));
    if (radix == 0) return TextOf<Unit>();
    Unit buffer[most_digits];
    Unit* const end = buffer + most_digits;
    Unit* begin = end;
    for (; value != 0 && begin != buffer; value /= radix)
        *--begin = static_cast<Unit>(digits[value % radix]);
    return TextOf<Unit>(begin, static_cast<unsigned int>(end - begin));
}

template <typename Unit>
TextOf<Unit> radix_text(unsigned int value, int radix) {
    if (radix == 10) return signed_text<Unit>(static_cast<int>(value));
    bool const known = radix >= 2 && radix <= 36;
    return table_text<Unit>(value, known ? static_cast<unsigned int>(radix) : 0, lower_digits);
}

template <typename Unit>
TextOf<Unit> float_text(float value, int decimals, bool keep_zeros) {
    FloatText text(value, decimals);
    if (!keep_zeros) text.trim_all();
    return exact_text<Unit>(text.text());
}

}  // namespace

String String::format(unsigned int value) {
    return decimal_text<char>(value);
}

String String::format(unsigned int value, int radix) {
    return radix_text<char>(value, radix);
}

String String::format(unsigned int value, unsigned int radix, char const* digits) {
    return table_text<char>(value, radix, digits);
}

String String::format(float value, int decimals) {
    return float_text<char>(value, decimals, true);
}

String String::format_signed(int value) {
    return signed_text<char>(value);
}

String String::format64(unsigned long long value) {
    return decimal_text<char>(value);
}

UniString UniString::format(unsigned int value) {
    return decimal_text<wchar_t>(value);
}

UniString UniString::format(unsigned int value, int radix) {
    return radix_text<wchar_t>(value, radix);
}

UniString UniString::format(unsigned int value, unsigned int radix, wchar_t const* digits) {
    return table_text<wchar_t>(value, radix, digits);
}

UniString UniString::format(float value, int decimals) {
    return float_text<wchar_t>(value, decimals, true);
}

UniString UniString::format(float value, unsigned short decimals, bool keep_zeros) {
    return float_text<wchar_t>(value, decimals, keep_zeros);
}

UniString UniString::format_signed(int value) {
    return signed_text<wchar_t>(value);
}

UniString UniString::format64(unsigned long long value) {
    return decimal_text<wchar_t>(value);
}

UniString UniString::format64(unsigned long long value, unsigned int radix, wchar_t const* digits) {
    return table_text<wchar_t>(value, radix, digits);
}

}  // namespace QX
