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

// The conversion by way of the C run-time's digits: of the magnitude, with the sign after.
std::string run_time_float(float value, int decimals) {
    char digits[64];
    int point = 0, negative = 0;
    _fcvt_s(
        digits, sizeof(digits), std::isnan(value) ? value : std::fabs(value), decimals, &point,
        &negative);
    std::string text(digits);
    if (point < 0) {
        text.insert(0, static_cast<std::size_t>(-point), '0');
        point = 0;
    }
    text.insert(static_cast<std::size_t>(point), ".");
    text.resize(std::min<std::size_t>(text.size(), static_cast<std::size_t>(point + 1 + decimals)));
    if (point == 0) text.insert(0, "0");
    if (std::signbit(value)) text.insert(0, "-");
    return text;
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

std::string narrow(String const& text) {
    return {text.begin(), text.end()};
}
std::string narrow(UniString const& text) {
    return {text.begin(), text.end()};
}

TEST(FloatText, has_the_digits_of_the_exact_value_rounded_half_away) {
    test::Random random;
    for (int i = 0; i < 60000; ++i) {
        float const value = random_float(random);
        int const decimals = static_cast<int>(i % 10 == 0 ? random.below(220) : random.below(14));
        ASSERT_EQ(narrow(String::format(value, decimals)), exact_float(value, decimals))
            << std::bit_cast<unsigned int>(value) << " at " << decimals;
    }
}

TEST(FloatText, agrees_with_the_run_time_digits) {
    test::Random random;
    for (int i = 0; i < 30000; ++i) {
        float const value = random_float(random);
        int const decimals = static_cast<int>(random.below(20));
        ASSERT_EQ(narrow(String::format(value, decimals)), run_time_float(value, decimals))
            << std::bit_cast<unsigned int>(value) << " at " << decimals;
    }
    for (unsigned int const bits :
         {0x7F800000u, 0xFF800000u, 0x7FC00000u, 0xFFC00000u, 0x80000000u, 0u, 1u, 0x80000001u,
          0x7F7FFFFFu})
        for (int decimals = 0; decimals < 10; ++decimals)
            ASSERT_EQ(
                narrow(String::format(std::bit_cast<float>(bits), decimals)),
                run_time_float(std::bit_cast<float>(bits), decimals))
                << bits << " at " << decimals;
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
    std::string characters;
};

bool one_of(char letter, char const* letters) {
    return letter != 0 && std::strchr(letters, letter) != nullptr;
}

// The text of one argument in the typed form; false if the letter does not suit it.
bool convert(Value const& value, Parsed const& parsed, bool wide, std::string& out) {
    std::string const upper = parsed.letter == 'X' || parsed.letter == 'P' ? "X" : "x";
    bool const is_signed = value.kind == Value::int32 || value.kind == Value::int64;
    bool const whole = wide && (value.kind == Value::int64 || value.kind == Value::card64);
    switch (value.kind) {
    case Value::real:
        if (parsed.letter != 'f') return false;
        out += float_text(value.number, parsed);
        return true;
    case Value::unit:
        if (parsed.letter == 'c') out += static_cast<char>(value.bits);
        return parsed.letter == 'c';
    case Value::text:
        if (one_of(parsed.letter, "CSs")) out += value.characters;
        return one_of(parsed.letter, "CSs");
    case Value::string:
        if (one_of(parsed.letter, "Ss")) out += padded(value.characters, parsed, ' ');
        return one_of(parsed.letter, "Ss");
    case Value::pointer:
        if (!one_of(parsed.letter, "pPxX")) return false;
        out += print(("%016ll" + upper).c_str(), value.bits);
        return true;
    default: break;
    }
    if (one_of(parsed.letter, "diu")) {
        std::string text = print(is_signed ? "%lld" : "%llu", value.bits);
        if (is_signed) text = with_sign(text, value.bits < 0, parsed);
        out += padded(text, parsed, parsed.pad);
        return true;
    }
    if (!one_of(parsed.letter, "xX")) return false;
    long long const bits = whole ? value.bits : static_cast<unsigned int>(value.bits);
    out += padded(print(("%ll" + upper).c_str(), bits), parsed, parsed.pad);
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

Value random_value(test::Random& random) {
    Value value{
        static_cast<Value::Kind>(random.below(9)), static_cast<long long>(random.next()),
        random_float(random), std::string(random.below(20), 's')};
    value.bits >>= random.below(64);
    if (value.kind == Value::int32) value.bits = static_cast<int>(value.bits);
    if (value.kind == Value::card32) value.bits = static_cast<unsigned int>(value.bits);
    if (value.kind == Value::unit) value.bits = 'A' + (value.bits & 15);
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
    case Value::text: return value.characters.c_str();
    case Value::pointer: return reinterpret_cast<void const*>(value.bits);
    default: return own;
    }
}

template <typename Text, typename Unit>
std::string format_values(std::string const& format, std::vector<Value> const& values) {
    std::basic_string<Unit> const spelled(format.begin(), format.end());
    Text own[3];
    for (int i = 0; i < 3; ++i)
        for (char c : values[static_cast<std::size_t>(i)].characters)
            own[i] += static_cast<Unit>(c);
    return narrow(QX::format_typed<Unit>(
        spelled.c_str(), {argument<Unit>(values[0], own[0]), argument<Unit>(values[1], own[1]),
                          argument<Unit>(values[2], own[2])}));
}

TEST(Format, follows_the_grammar_on_random_formats) {
    test::Random random;
    for (int i = 0; i < 60000; ++i) {
        std::string const format = random_format(random);
        std::vector<Value> values;
        for (int k = 0; k < 3; ++k) values.push_back(random_value(random));
        ASSERT_EQ((format_values<String, char>(format, values)), typed_model(format, values, false))
            << format;
        ASSERT_EQ(
            (format_values<UniString, wchar_t>(format, values)), typed_model(format, values, true))
            << format;
    }
}

// --- The untyped form ----------------------------------------------------------------------------

constexpr char const narrow_text[] = "narrow";
constexpr wchar_t const wide_text[] = L"wide";

// Builds the argument list as it goes: what each letter wants is put into the next slot.
struct UntypedModel {
    test::Random& random;
    bool wide;
    String const& string;
    std::vector<long long> slots = {};

    long long slot(long long value) {
        slots.push_back(value);
        return value;
    }
    long long slot(void const* value) { return slot(reinterpret_cast<long long>(value)); }

    std::string halves() {
        unsigned long long const value = static_cast<unsigned long long>(
            slot(static_cast<long long>(random.next() >> random.below(64))));
        return print("%x", static_cast<unsigned int>(value >> 32)) +
               print("%x", static_cast<unsigned int>(value));
    }

    std::string real(Parsed const& parsed) {
        double const value = random_float(random);
        slot(std::bit_cast<long long>(value));
        return float_text(static_cast<float>(value), parsed);
    }

    std::string text(Parsed const& parsed) {
        if (parsed.letter == 'C') return slot(wide_text), "wide";
        if (parsed.letter == 's') return slot(narrow_text), padded("narrow", parsed, ' ');
        slot(wide ? static_cast<void const*>(wide_text) : &string);
        return padded(wide ? "wide" : "string", parsed, ' ');
    }

    std::string number(Parsed const& parsed) {
        long long const value = slot(static_cast<long long>(random.next()) >> random.below(64));
        int const low = static_cast<int>(value);
        switch (parsed.letter) {
        case 'u': return padded(print("%u", low), parsed, parsed.pad);
        case 'x': return padded(print("%x", low), parsed, parsed.pad);
        case 'X': return padded(print(wide ? "%X" : "%x", low), parsed, parsed.pad);
        case 'p': return print("%016llx", value);
        case 'P': return print(wide ? "%016llX" : "%016llx", value);
        default: return padded(with_sign(print("%d", low), low < 0, parsed), parsed, parsed.pad);
        }
    }

    // False for a letter that ends the run.
    bool convert(std::string const& format, std::size_t& index, std::string& out) {
        Parsed const parsed = parse(format, index, false);
        if (one_of(parsed.letter, wide ? "duxXpP" : "diuxXpP")) return out += number(parsed), true;
        if (one_of(parsed.letter, "CsS")) return out += text(parsed), true;
        if (parsed.letter == 'f') return out += real(parsed), true;
        if (parsed.letter == 'c') return out += static_cast<char>(slot('c')), true;
        if (parsed.letter != 'l' || at(format, index++) != 'l') return false;
        char const last = at(format, index++);
        if (last == 'u' && !wide) return out += print("%llu", slot(-1ll)), true;
        return one_of(last, "ux") ? (out += halves(), true) : false;
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
            if (!convert(format, index, out)) return "";
        }
        return out;
    }
};

TEST(UntypedFormat, follows_the_grammar_on_random_formats) {
    test::Random random;
    String const string("string");
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
