// The formatters and the float text against plain restatements of their rules.
#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "qx/text/format.h"
#include "tests/harness/random.h"

namespace {

using QX::String;
using QX::UniString;

std::string narrow(auto const& text) {
    return {text.begin(), text.end()};
}

std::string print(char const* format, auto... values) {
    char buffer[400];
    std::snprintf(buffer, sizeof buffer, format, values...);
    return buffer;
}

// --- Floats --------------------------------------------------------------------------------------

// The system rounds halves to even: one that went down left an even digit.
std::string exact_float(float value, int decimals) {
    std::string const all = print("%.250f", double{value});
    std::string text = print("%#.*f", decimals, double{value});
    std::string const rest = all.substr(std::min(text.size(), all.size()));
    bool const is_half = rest[0] == '5' && rest.find_first_not_of('0', 1) == rest.npos;
    if (is_half && all.starts_with(text)) ++text[text.size() - (decimals == 0 ? 2 : 1)];
    return text;
}

// Every kind of float: any bits, small fractions of two (halves among them), short decimals.
float random_float(test::Random& random) {
    float const any = std::bit_cast<float>(static_cast<unsigned int>(random.next()));
    int const whole = static_cast<int>(random.below(2000001)) - 1000000;
    switch (random.below(4)) {
    case 0: return any - any == 0 ? any : 0.0f;
    case 1: return static_cast<float>(whole / 100) / static_cast<float>(1u << random.below(14));
    case 2: return static_cast<float>(whole) / 1000;
    default: return std::bit_cast<float>((100u + random.below(60)) << 23 | random.below(1u << 23));
    }
}

TEST(FloatText, has_the_exact_digits_rounded_half_away) {
    test::Random random;
    for (int i = 0; i < 60000; ++i) {
        float const value = i == 0 ? -0.0f : random_float(random);
        int const decimals = static_cast<int>(random.below(random.chance(10) ? 220 : 14));
        ASSERT_EQ(narrow(String::format(value, decimals)), exact_float(value, decimals))
            << std::bit_cast<unsigned int>(value) << " at " << decimals;
    }
}

// --- The grammar ---------------------------------------------------------------------------------

struct Parsed {
    char letter = 0, sign = 0, pad = ' ';
    int width = 0, precision = 0;
    bool left = false;
};

unsigned long long number(char const*& at) {
    unsigned long long value = 0;
    at = std::from_chars(at, at + std::strlen(at), value).ptr;
    return value;
}

Parsed parse(char const*& at, bool eight_bits) {
    Parsed parsed;
    if (*at == '-') parsed.left = true, ++at;
    if (*at == '+' || *at == ' ') parsed.sign = *at++;
    if (*at == '0') parsed.pad = *at++;
    auto const width = number(at), precision = *at == '.' ? number(++at) : 0;
    parsed.width = static_cast<int>(width & (eight_bits ? 0xFF : 0xFFFF));
    parsed.precision =
        eight_bits ? static_cast<signed char>(precision) : static_cast<short>(precision);
    parsed.letter = *at++;
    return parsed;
}

std::string padded(std::string text, Parsed const& parsed, char pad, bool positive = false) {
    if (positive && parsed.sign) text.insert(0, 1, parsed.sign);
    int const count = parsed.width - static_cast<int>(text.size());
    if (count > 0) text.insert(parsed.left ? text.size() : 0, static_cast<std::size_t>(count), pad);
    return text;
}

struct Value {
    enum Kind { int32, card32, int64, card64, real, unit, text, string, pointer } kind;
    long long bits;
    float number;
};

constexpr char const narrow_text[] = "text";
constexpr wchar_t const wide_text[] = L"text";

bool one_of(char letter, char const* letters) {
    return letter != 0 && std::strchr(letters, letter) != nullptr;
}

std::string float_text(float value, Parsed const& parsed) {
    std::string text = exact_float(value, parsed.precision ? std::max(parsed.precision, 0) : 6);
    for (int i = 0; i < 5 && parsed.precision == 0 && text.back() == '0'; ++i) text.pop_back();
    return padded(text, parsed, parsed.pad, value >= 0);
}

std::string integer_text(Value const& value, Parsed const& parsed, bool wide) {
    bool const is_signed = value.kind == Value::int32 || value.kind == Value::int64;
    bool const whole = wide && (value.kind == Value::int64 || value.kind == Value::card64);
    long long const bits = whole ? value.bits : static_cast<unsigned int>(value.bits);
    std::string text = print(is_signed ? "%lld" : "%llu", value.bits);
    bool const is_hexadecimal = one_of(parsed.letter, "xX");
    if (is_hexadecimal) text = print(parsed.letter == 'x' ? "%llx" : "%llX", bits);
    return padded(text, parsed, parsed.pad, is_signed && !is_hexadecimal && value.bits >= 0);
}

// The text of one argument in the typed form; false if the letter does not suit it.
bool convert(Value const& value, Parsed const& parsed, bool wide, std::string& out) {
    static constexpr char const* letters[] = {"diuxX", "diuxX", "diuxX", "diuxX", "f",
                                              "c",     "CSs",   "Ss",    "pPxX"};
    if (!one_of(parsed.letter, letters[value.kind])) return false;
    char const* const digits = one_of(parsed.letter, "XP") ? "%016llX" : "%016llx";
    switch (value.kind) {
    case Value::real: out += float_text(value.number, parsed); break;
    case Value::unit: out += static_cast<char>(value.bits); break;
    case Value::text: out += narrow_text; break;
    case Value::string: out += padded(narrow_text, parsed, ' '); break;
    case Value::pointer: out += print(digits, value.bits); break;
    default: out += integer_text(value, parsed, wide);
    }
    return true;
}

std::string typed_model(char const* at, Value const (&values)[2], bool wide) {
    std::string out;
    for (Value const& value : values) {
        for (; *at; ++at) {
            if (*at != '%') {
                out += *at;
                continue;
            }
            while (*++at == 'l') {}
            if (*at != '%') break;
            out += '%';
        }
        if (*at == 0 || !convert(value, parse(at, true), wide, out)) return out;
    }
    for (; *at; ++at) {
        out += *at;
        if (*at == '%' && at[1] == '%') ++at;
    }
    return out;
}

std::string random_format(test::Random& random) {
    static char const* const pieces[] = {
        "a",  "text ", "%%",  "%",      "%l",   "%ll",   "%-", "%+", "% ", "%0",
        "%5", "%12",   "%.3", "%-08.2", "%300", "%-+05", "d",  "i",  "u",  "x",
        "X",  "s",     "S",   "c",      "C",    "f",     "p",  "P",  "q",  "%d",
        "%s", "%f",    "%x",  "%llu",   "%llx", "9",     ".",  "-",  "l"};
    std::string format;
    for (unsigned int count = random.below(9); count != 0; --count)
        format += pieces[random.below(sizeof(pieces) / sizeof(pieces[0]))];
    return format;
}

Value random_value(test::Random& random, Value::Kind kind) {
    long long const bits = static_cast<long long>(random.next()) >> random.below(64);
    Value value{kind, bits, random_float(random)};
    if (kind == Value::int32) value.bits = static_cast<int>(bits);
    if (kind == Value::card32) value.bits = static_cast<unsigned int>(bits);
    if (kind == Value::unit) value.bits = 'A' + (bits & 15);
    return value;
}

template <typename Unit>
QX::FormatArgument<Unit> argument(Value const& value, QX::BASIC_STRING<Unit> const& own) {
    switch (value.kind) {
    case Value::int32: return static_cast<int>(value.bits);
    case Value::card32: return static_cast<unsigned int>(value.bits);
    case Value::int64: return value.bits;
    case Value::card64: return static_cast<unsigned long long>(value.bits);
    case Value::real: return value.number;
    case Value::unit: return static_cast<char>(value.bits);
    case Value::text: return narrow_text;
    case Value::pointer: return reinterpret_cast<void const*>(value.bits);
    default: return own;
    }
}

template <typename Unit>
void check_typed(
    std::string const& format, Value const (&values)[2], QX::BASIC_STRING<Unit> const& own) {
    std::basic_string<Unit> const spelled(format.begin(), format.end());
    auto const text = QX::format_typed<Unit>(
        spelled.c_str(), {argument(values[0], own), argument(values[1], own)});
    ASSERT_EQ(narrow(text), typed_model(format.c_str(), values, sizeof(Unit) > 1)) << format;
}

TEST(Format, follows_the_grammar_on_random_formats) {
    test::Random random;
    for (int i = 0; i < 60000 && !HasFatalFailure(); ++i) {
        std::string const format = random_format(random);
        auto const any = [&] { return random_value(random, Value::Kind(random.below(9))); };
        Value const values[] = {any(), any()};
        check_typed<char>(format, values, String(narrow_text));
        check_typed<wchar_t>(format, values, UniString(wide_text));
    }
}

// --- The untyped form ----------------------------------------------------------------------------

// What a slot holds behind a value of 32 bits may be anything.
long long slot_of(char letter, Value const& value, test::Random& random) {
    if (letter == 's') return reinterpret_cast<long long>(narrow_text);
    if (letter == 'f') return std::bit_cast<long long>(double{value.number});
    bool const is_half = one_of(letter, "dux");
    return is_half ? value.bits ^ static_cast<long long>(random.next() << 32) : value.bits;
}

template <typename Text>
void check_untyped(std::string const& format, Value const& value, long long* slots, Text own) {
    using Unit = typename Text::value_type;
    std::basic_string<Unit> const spelled(format.begin(), format.end());
    auto const text = QX::format_typed<Unit>(spelled.c_str(), {argument(value, own), 7});
    char* const list = reinterpret_cast<char*>(slots);
    ASSERT_EQ(narrow(Text::format_unsafe(spelled.c_str(), list)), narrow(text)) << format;
}

TEST(UntypedFormat, writes_what_the_typed_form_writes_of_what_both_take) {
    static constexpr char letters[] = "duxfcsp";
    static constexpr Value::Kind kinds[] = {Value::int32, Value::card32, Value::card32, Value::real,
                                            Value::unit,  Value::string, Value::pointer};
    static char const* const flags[] = {"", "-", "+", "0", "-+0", " 0", "12", "-9.3", "08.2", ".1"};
    test::Random random;
    for (int i = 0; i < 30000 && !HasFatalFailure(); ++i) {
        unsigned int const which = random.below(7);
        char const letter = letters[which];
        Value const value = random_value(random, kinds[which]);
        std::string const format = print("a%%%%%%%s%c%%02d", flags[random.below(10)], letter);
        long long slots[] = {slot_of(letter, value, random), 7};
        check_untyped(format, value, slots, String(narrow_text));
        check_untyped(format, value, slots, UniString(wide_text));
    }
}

}  // namespace
