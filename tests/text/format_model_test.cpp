// The formatters and the float text against plain restatements of their rules.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "qx/text/format.h"
#include "tests/harness/random.h"

namespace {

using QX::String;
using QX::UniString;

// --- Floats --------------------------------------------------------------------------------------

// All digits of a finite value, cut at the decimals and rounded by hand.
std::string exact_float(float value, int decimals) {
    char buffer[400];
    std::snprintf(buffer, sizeof(buffer), "%.150f", static_cast<double>(value));
    std::string text(buffer);
    text.append(static_cast<std::size_t>(decimals), '0');
    std::size_t const end = text.find('.') + 1 + static_cast<std::size_t>(decimals);
    bool const up = text[end] >= '5';
    text.resize(end);
    std::size_t at = end;
    while (up && at-- > 0) {
        if (text[at] == '.') continue;
        if (text[at] == '-') return text.insert(1, "1");
        if (text[at]++ != '9') return text;
        text[at] = '0';
    }
    return up ? "1" + text : text;
}

// Every kind of float: any bits, small fractions of two (halves among them), short decimals.
float random_float(test::Random& random) {
    switch (random.below(4)) {
    case 0: {
        float const value = std::bit_cast<float>(static_cast<unsigned int>(random.next()));
        return value - value == 0 ? value : 0.0f;
    }
    case 1:
        return static_cast<float>(static_cast<int>(random.below(20001)) - 10000) /
               static_cast<float>(1u << random.below(14));
    case 2: return static_cast<float>(static_cast<int>(random.below(2000001)) - 1000000) / 1000;
    default: return std::bit_cast<float>((100u + random.below(60)) << 23 | random.below(1u << 23));
    }
}

std::string narrow(auto const& text) {
    return {text.begin(), text.end()};
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

char at(std::string const& format, std::size_t index) {
    return index < format.size() ? format[index] : '\0';
}

Parsed parse(std::string const& format, std::size_t& index, bool eight_bits) {
    Parsed parsed;
    if (at(format, index) == '-') parsed.left = true, ++index;
    if (at(format, index) == '+' || at(format, index) == ' ') parsed.sign = format[index++];
    if (at(format, index) == '0') parsed.pad = '0', ++index;
    unsigned long width = 0, precision = 0;
    while (std::isdigit(at(format, index))) width = width * 10 + (format[index++] - '0');
    if (at(format, index) == '.')
        while (std::isdigit(at(format, ++index)))
            precision = precision * 10 + (format[index] - '0');
    parsed.width =
        eight_bits ? static_cast<unsigned char>(width) : static_cast<unsigned short>(width);
    parsed.precision =
        eight_bits ? static_cast<signed char>(precision) : static_cast<short>(precision);
    parsed.letter = at(format, index++);
    return parsed;
}

std::string padded(std::string text, Parsed const& parsed, char pad) {
    int const count = parsed.width - static_cast<int>(text.size());
    if (count > 0) text.insert(parsed.left ? text.size() : 0, static_cast<std::size_t>(count), pad);
    return text;
}

std::string print(char const* format, auto value) {
    char buffer[80];
    std::snprintf(buffer, sizeof(buffer), format, value);
    return buffer;
}

std::string with_sign(std::string text, bool negative, Parsed const& parsed) {
    return !negative && parsed.sign ? parsed.sign + text : text;
}

std::string float_text(float value, Parsed const& parsed) {
    std::string text = exact_float(value, parsed.precision ? std::max(parsed.precision, 0) : 6);
    for (int i = 0; i < 5 && parsed.precision == 0 && text.back() == '0'; ++i) text.pop_back();
    return padded(with_sign(text, value < 0, parsed), parsed, parsed.pad);
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

std::string integer_text(Value const& value, Parsed const& parsed, bool wide) {
    bool const is_signed = value.kind == Value::int32 || value.kind == Value::int64;
    bool const whole = wide && (value.kind == Value::int64 || value.kind == Value::card64);
    long long const bits = whole ? value.bits : static_cast<unsigned int>(value.bits);
    std::string text = print(is_signed ? "%lld" : "%llu", value.bits);
    if (is_signed) text = with_sign(text, value.bits < 0, parsed);
    if (parsed.letter == 'x') text = print("%llx", bits);
    if (parsed.letter == 'X') text = print("%llX", bits);
    return padded(text, parsed, parsed.pad);
}

// The text of one argument in the typed form; false if the letter does not suit it.
bool convert(Value const& value, Parsed const& parsed, bool wide, std::string& out) {
    static constexpr char const* letters[] = {"diuxX", "diuxX", "diuxX", "diuxX", "f",
                                              "c",     "CSs",   "Ss",    "pPxX"};
    if (!one_of(parsed.letter, letters[value.kind])) return false;
    switch (value.kind) {
    case Value::real: out += float_text(value.number, parsed); break;
    case Value::unit: out += static_cast<char>(value.bits); break;
    case Value::text: out += narrow_text; break;
    case Value::string: out += padded(narrow_text, parsed, ' '); break;
    case Value::pointer:
        out += print(one_of(parsed.letter, "XP") ? "%016llX" : "%016llx", value.bits);
        break;
    default: out += integer_text(value, parsed, wide);
    }
    return true;
}

std::string typed_model(std::string const& format, std::vector<Value> const& values, bool wide) {
    std::string out;
    std::size_t index = 0;
    for (Value const& value : values) {
        for (;;) {
            if (index >= format.size()) return out;
            if (format[index] != '%') {
                out += format[index++];
                continue;
            }
            while (at(format, ++index) == 'l') {}
            if (at(format, index) != '%') break;
            out += '%';
            ++index;
        }
        Parsed const parsed = parse(format, index, true);
        if (!convert(value, parsed, wide, out)) return out;
    }
    for (; index < format.size(); ++index) {
        out += format[index];
        if (format[index] == '%' && at(format, index + 1) == '%') ++index;
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
    Value value{
        kind, static_cast<long long>(random.next()) >> random.below(64), random_float(random)};
    if (kind == Value::int32) value.bits = static_cast<int>(value.bits);
    if (kind == Value::card32) value.bits = static_cast<unsigned int>(value.bits);
    if (kind == Value::unit) value.bits = 'A' + (value.bits & 15);
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
std::string format_values(
    std::string const& format, std::vector<Value> const& values,
    QX::BASIC_STRING<Unit> const& own) {
    std::basic_string<Unit> const spelled(format.begin(), format.end());
    return narrow(QX::format_typed<Unit>(
        spelled.c_str(), {argument(values[0], own), argument(values[1], own)}));
}

TEST(Format, follows_the_grammar_on_random_formats) {
    test::Random random;
    String const own(narrow_text);
    UniString const wide_own(wide_text);
    for (int i = 0; i < 60000; ++i) {
        std::string const format = random_format(random);
        std::vector<Value> values;
        for (int k = 0; k < 2; ++k)
            values.push_back(random_value(random, static_cast<Value::Kind>(random.below(9))));
        ASSERT_EQ(format_values(format, values, own), typed_model(format, values, false)) << format;
        ASSERT_EQ(format_values(format, values, wide_own), typed_model(format, values, true))
            << format;
    }
}

// --- The untyped form ----------------------------------------------------------------------------

// Builds the argument list as it goes: what each letter wants is put into the next slot. The text
// is that of the typed form for a value of that kind.
struct UntypedModel {
    test::Random& random;
    bool wide;
    String const& string;
    std::vector<long long> slots = {};

    std::string halves() {
        long long const value = static_cast<long long>(random.next() >> random.below(64));
        slots.push_back(value);
        return print("%x", static_cast<unsigned int>(value >> 32)) +
               print("%x", static_cast<unsigned int>(value));
    }

    // The value that a letter takes. What its slot holds behind it may be anything.
    Value take(char letter) {
        static constexpr struct {
            char const* letters;
            Value::Kind kind;
        } kinds[] = {{"di", Value::int32}, {"uxX", Value::card32}, {"pP", Value::pointer},
                     {"f", Value::real},   {"c", Value::unit},     {"C", Value::text},
                     {"sS", Value::string}};
        Value::Kind kind = {};
        for (auto const& row : kinds)
            if (one_of(letter, row.letters)) kind = row.kind;
        Value value = random_value(random, kind);
        long long slot = value.bits;
        if (one_of(letter, "diuxX")) slot ^= static_cast<long long>(random.next() << 32);
        if (letter == 'f') slot = std::bit_cast<long long>(double{value.number});
        if (letter == 's') slot = reinterpret_cast<long long>(narrow_text);
        if (letter == 'S') slot = reinterpret_cast<long long>(&string);
        if (letter == 'C' || (letter == 'S' && wide)) slot = reinterpret_cast<long long>(wide_text);
        slots.push_back(slot);
        return value;
    }

    // False for a letter that ends the run.
    bool convert_next(std::string const& format, std::size_t& index, std::string& out) {
        Parsed parsed = parse(format, index, false);
        if (one_of(parsed.letter, wide ? "duxXpPfcCsS" : "diuxXpPfcCsS")) {
            Value const value = take(parsed.letter);
            if (!wide && one_of(parsed.letter, "XP"))
                parsed.letter = static_cast<char>(parsed.letter | 32);
            return convert(value, parsed, wide, out);
        }
        if (parsed.letter != 'l' || at(format, index++) != 'l') return false;
        char const last = at(format, index++);
        if (last == 'u' && !wide) {
            slots.push_back(-1);
            return out += print("%llu", -1ll), true;
        }
        return one_of(last, "ux") && (out += halves(), true);
    }

    std::string run(std::string const& format) {
        std::string out;
        std::size_t index = 0;
        while (index < format.size()) {
            out += format[index++];
            if (out.back() != '%' || at(format, index) == '%') {
                index += out.back() == '%';
                continue;
            }
            out.pop_back();
            if (!convert_next(format, index, out)) return "";
        }
        return out;
    }
};

TEST(UntypedFormat, follows_the_grammar_on_random_formats) {
    test::Random random;
    String const string(narrow_text);
    for (int i = 0; i < 60000; ++i) {
        std::string const format = random_format(random);
        std::wstring const wide(format.begin(), format.end());
        UntypedModel model{random, i % 2 != 0, string};
        std::string const expected = model.run(format);
        char* const slots = reinterpret_cast<char*>(model.slots.data());
        ASSERT_EQ(
            model.wide ? narrow(UniString::format_unsafe(wide.c_str(), slots))
                       : narrow(String::format_unsafe(format.c_str(), slots)),
            expected)
            << format << (model.wide ? " wide" : " narrow");
    }
}

}  // namespace
