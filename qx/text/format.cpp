#include "qx/text/format.h"

#include "qx/text/convert.h"
#include "qx/text/format_impl.h"

namespace QX {

bool show_format_errors = false;

namespace formatting {

namespace {

// Positions have 16 bits in the public pieces: nothing of a format lies beyond.
constexpr unsigned int last_position = 65535;

template <typename Unit>
FormatReader<Unit> read_typed(Unit const* text, unsigned int length) {
    return {text, length < last_position ? length : last_position};
}

// Width and precision count in 8 bits here, in 16 in the untyped form.
template <typename Unit>
QX_ALWAYS_INLINE Conversion<Unit> parse_typed(FormatReader<Unit>& reader) {
    return parse_conversion<unsigned char, signed char>(reader);
}

// In the order of FormatType. The narrow form says "card64" of long long too.
constexpr char const* narrow_messages[] = {
    "Unexpected format %%%c used with type int32",
    "Unexpected format %%%c used with type card32",
    "Unexpected format %%%c used with type card64",
    "Unexpected format %%%c used with type card64",
    "Unexpected format %%%c used with type void*",
    "Unexpected format %%%c used with type float32",
    "Unexpected format %%%c used with type char",
    "Unexpected format %%%c used with type const char*",
    "Unexpected format %%%c used with type const String&",
};
constexpr wchar_t const* wide_message = L"Unexpected format %%%c used with type %s";
constexpr char const* wide_type_names[] = {
    "int32",     "card32", "int64",       "card64",           "void*",
    "float32",   "char",   "const char*", "const UniString&", "const UniChar16*",
    "UniChar16",
};

String error_message(char letter, FormatType type) {
    return String::format(narrow_messages[static_cast<unsigned char>(type)], letter);
}

UniString error_message(wchar_t letter, FormatType type) {
    return UniString::format(
        wide_message, letter, wide_type_names[static_cast<unsigned char>(type)]);
}

bool is_decimal(unsigned int letter) {
    constexpr unsigned int letters = 1u | 1u << ('i' - 'd') | 1u << ('u' - 'd');
    return letter - 'd' <= 17 && (letters >> (letter - 'd') & 1) != 0;
}

bool is_text(unsigned int letter) {
    return letter == 's' || letter == 'S';
}

// The digits that a hexadecimal letter asks for, null for other letters.
char const* hexadecimal_digits(unsigned int letter) {
    return letter == 'x' ? lower_digits : letter == 'X' ? upper_digits : nullptr;
}

char const* pointer_digits(unsigned int letter) {
    return letter == 'p' ? lower_digits : letter == 'P' ? upper_digits : hexadecimal_digits(letter);
}

template <typename Unit>
bool append_integer(
    StringWriter<Unit>& out, Conversion<Unit> const& conversion,
    FormatArgument<Unit> const& argument) {
    bool const is_signed = argument.type == FormatType::int32 || argument.type == FormatType::int64;
    bool const is_32 = argument.type == FormatType::int32 || argument.type == FormatType::card32;
    if (is_decimal(conversion.letter)) {
        if (is_signed) {
            put_signed(out, conversion, argument.integer);
        } else {
            put_decimal(out, conversion, static_cast<unsigned long long>(argument.integer));
        }
        return true;
    }
    char const* const digits = hexadecimal_digits(conversion.letter);
    if (!digits) return false;
    // The narrow form prints the low half of 64 bits.
    bool const low_half = is_32 || sizeof(Unit) == 1;
    unsigned long long const value = static_cast<unsigned long long>(argument.integer);
    put_hexadecimal(out, conversion, low_half ? value & 0xFFFFFFFF : value, digits);
    return true;
}

template <typename Unit>
bool append_pointer(StringWriter<Unit>& out, Unit letter, void const* pointer) {
    char const* const digits = pointer_digits(letter);
    if (digits) put_pointer(out, reinterpret_cast<unsigned long long>(pointer), digits);
    return digits != nullptr;
}

template <typename Unit>
bool append_string(
    StringWriter<Unit>& out, Conversion<Unit> const& conversion, BASIC_STRING<Unit> const& text) {
    if (!is_text(conversion.letter)) return false;
    out.put_text(text.data(), text.length(), conversion.width, conversion.left_justify);
    return true;
}

// Terminated text ignores width and justification.
template <typename Unit, typename Own>
bool append_terminated(StringWriter<Unit>& out, Unit letter, Own const* text) {
    if (!is_text(letter) && letter != 'C') return false;
    if constexpr (sizeof(Own) == sizeof(Unit)) {
        out.put_text(text, CHAR_TRAITS<Unit>::length(text));
    } else {
        put_converted(out, text, 0, false);
    }
    return true;
}

template <typename Unit>
bool append_unit(
    StringWriter<Unit>& out, Conversion<Unit> const& conversion,
    FormatArgument<Unit> const& argument) {
    if (conversion.letter != 'c') return false;
    bool const narrow = argument.type == FormatType::narrow_unit;
    out.put(static_cast<Unit>(narrow ? argument.integer & 0xFF : argument.integer));
    return true;
}

// Appends one argument. False, with nothing appended, if the letter does not suit its type.
template <typename Unit>
bool append_converted(
    StringWriter<Unit>& out, Conversion<Unit> const& conversion,
    FormatArgument<Unit> const& argument) {
    switch (argument.type) {
    case FormatType::int32:
    case FormatType::card32:
    case FormatType::int64:
    case FormatType::card64: return append_integer(out, conversion, argument);
    case FormatType::pointer: return append_pointer(out, conversion.letter, argument.pointer);
    case FormatType::float32:
        if (conversion.letter != 'f') return false;
        put_float(out, conversion, argument.real);
        return true;
    case FormatType::own_string:
        return append_string(
            out, conversion, *static_cast<BASIC_STRING<Unit> const*>(argument.pointer));
    case FormatType::narrow_text:
        return append_terminated(
            out, conversion.letter, static_cast<char const*>(argument.pointer));
    case FormatType::wide_text:
        return append_terminated(
            out, conversion.letter, static_cast<wchar_t const*>(argument.pointer));
    case FormatType::narrow_unit:
    case FormatType::wide_unit: return append_unit(out, conversion, argument);
    }
    return false;
}

// The member's step: what was built gives way to the message if that is wanted.
template <typename Unit>
bool append_one(
    TextOf<Unit>& out, Conversion<Unit> const& conversion, FormatArgument<Unit> const& argument) {
    StringWriter<Unit> writer(out);
    if (append_converted(writer, conversion, argument)) {
        writer.close();
        return true;
    }
    if (show_format_errors) out = error_message(conversion.letter, argument.type);
    return false;
}

enum class Step { done, format_at_end, bad_letter };

// Copies text up to the next conversion and appends the argument there.
template <typename Unit>
Step append_next(
    StringWriter<Unit>& out, FormatReader<Unit>& reader, FormatArgument<Unit> const& argument,
    Unit& letter) {
    Unit const* const end = reader.text + reader.length;
    for (;;) {
        Unit const* const stop = out.put_plain(reader.text + reader.position, end);
        if (stop == end) return Step::format_at_end;
        reader.position = static_cast<unsigned int>(stop - reader.text) + 1;
        while (reader.take('l')) {}
        if (!reader.take('%')) break;
        out.put('%');
    }
    Conversion<Unit> const conversion = parse_typed(reader);
    letter = conversion.letter;
    return append_converted(out, conversion, argument) ? Step::done : Step::bad_letter;
}

// Copies what is left, with "%%" as '%' and any other '%' as it stands.
template <typename Unit>
void append_all(StringWriter<Unit>& out, FormatReader<Unit>& reader) {
    Unit const* const end = reader.text + reader.length;
    Unit const* at = reader.text + reader.position;
    while (at < end && (at = out.put_plain(at, end)) != end) {
        out.put('%');
        at += end - at > 1 && at[1] == '%' ? 2 : 1;
    }
    reader.position = reader.position < reader.length ? reader.length : reader.position;
}

template <typename Unit>
TextOf<Unit> format_list(
    Unit const* format, unsigned int length, FormatArgument<Unit> const* arguments,
    unsigned int count) {
    TextOf<Unit> result;
    result.reserve(first_capacity);
    StringWriter<Unit> out(result);
    FormatReader<Unit> reader = read_typed(format, length);
    for (unsigned int i = 0; i < count; ++i) {
        Unit letter = 0;
        Step const step = append_next(out, reader, arguments[i], letter);
        if (step == Step::done) continue;
        out.close();
        if (step == Step::bad_letter && show_format_errors)
            result = error_message(letter, arguments[i].type);
        return result;
    }
    append_all(out, reader);
    out.close();
    return result;
}

template <typename Unit>
void parse_public(
    TextOf<Unit> const& format, Unit& ch, unsigned short& position, short& precision, char& sign,
    unsigned short& width, bool& left_justify, char& pad) {
    FormatReader<Unit> reader{format.data(), format.length(), position};
    Conversion<Unit> const parsed = parse_typed(reader);
    position = static_cast<unsigned short>(reader.position);
    ch = parsed.letter;
    precision = parsed.precision;
    sign = parsed.sign;
    width = parsed.width;
    left_justify = parsed.left_justify;
    pad = parsed.pad;
}

template <typename Unit>
bool append_rest_public(TextOf<Unit>& out, TextOf<Unit> const& format, unsigned short& position) {
    if (&out == &format) return append_rest_public<Unit>(out, TextOf<Unit>(format), position);
    FormatReader<Unit> reader = read_typed(format.data(), format.length());
    reader.position = position;
    StringWriter<Unit> writer(out);
    append_all(writer, reader);
    writer.close();
    position = static_cast<unsigned short>(reader.position);
    return true;
}

}  // namespace

template <typename Unit>
void put_decimal(
    StringWriter<Unit>& out, Conversion<Unit> const& conversion, unsigned long long value,
    char sign) {
    char buffer[20];  // the most that 64 bits take
    char* const end = buffer + sizeof(buffer);
    char const* const text = write_decimal(end, value);
    out.put_number(sign, {text, static_cast<unsigned int>(end - text)}, conversion);
}

template <typename Unit>
void put_signed(StringWriter<Unit>& out, Conversion<Unit> const& conversion, long long value) {
    unsigned long long const bits = static_cast<unsigned long long>(value);
    if (value < 0) {
        put_decimal(out, conversion, 0 - bits, '-');
    } else {
        put_decimal(out, conversion, bits, conversion.sign);
    }
}

template <typename Unit>
void put_hexadecimal(
    StringWriter<Unit>& out, Conversion<Unit> const& conversion, unsigned long long value,
    char const* digits) {
    char buffer[16];
    char* const end = buffer + sizeof(buffer);
    char const* const text = write_hexadecimal(end, value, digits);
    out.put_number(0, {text, static_cast<unsigned int>(end - text)}, conversion);
}

// 16 digits, whatever the conversion says.
template <typename Unit>
void put_pointer(StringWriter<Unit>& out, unsigned long long value, char const* digits) {
    Conversion<Unit> const full{.width = 16, .pad = '0'};
    put_hexadecimal(out, full, value, digits);
}

template <typename Unit>
void put_float(StringWriter<Unit>& out, Conversion<Unit> const& conversion, float value) {
    FloatText text(value, conversion.precision != 0 ? conversion.precision : 6);
    if (conversion.precision == 0) text.trim_default();
    out.put_number(value < 0 ? '\0' : conversion.sign, text.text(), conversion);
}

namespace {

template <typename Unit, typename Other>
void put_recoded(
    StringWriter<Unit>& out, Other const* text, unsigned int width, bool left_justify,
    Unit* (*recode)(Unit*, Other const*)) {
    unsigned int const count = utf8_length(text);
    unsigned int const padding = width > count ? width - count : 0;
    Unit* to = out.space(count + padding);
    if (!left_justify) to = out.fill(to, padding, ' ');
    to = recode(to, text);  // its terminator lands on padding or on the string's own
    if (left_justify) out.fill(to, padding, ' ');
}

}  // namespace

void put_converted(
    StringWriter<wchar_t>& out, char const* text, unsigned int width, bool left_justify) {
    put_recoded(out, text, width, left_justify, &utf8_decode);
}

void put_converted(
    StringWriter<char>& out, wchar_t const* text, unsigned int width, bool left_justify) {
    put_recoded(out, text, width, left_justify, &utf8_encode);
}

#define QX_BOTH_WIDTHS(Unit)                                                                       \
    template void put_signed(StringWriter<Unit>&, Conversion<Unit> const&, long long);             \
    template void put_decimal(                                                                     \
        StringWriter<Unit>&, Conversion<Unit> const&, unsigned long long, char);                   \
    template void put_hexadecimal(                                                                 \
        StringWriter<Unit>&, Conversion<Unit> const&, unsigned long long, char const*);            \
    template void put_pointer(StringWriter<Unit>&, unsigned long long, char const*);               \
    template void put_float(StringWriter<Unit>&, Conversion<Unit> const&, float);

QX_BOTH_WIDTHS(char)
QX_BOTH_WIDTHS(wchar_t)
#undef QX_BOTH_WIDTHS

}  // namespace formatting

using namespace formatting;

String format_arguments(
    char const* format, unsigned int length, FormatArgument<char> const* arguments,
    unsigned int count) {
    return format_list(format, length, arguments, count);
}

UniString format_arguments(
    wchar_t const* format, unsigned int length, FormatArgument<wchar_t> const* arguments,
    unsigned int count) {
    return format_list(format, length, arguments, count);
}

// --- The members of String -----------------------------------------------------------------------

String String::format(String const& format) {
    return format_list<char>(format.data(), format.length(), nullptr, 0);
}

void String::parse_format_arguments(
    String const& format, char& ch, unsigned short& position, short& precision, char& sign,
    unsigned short& width, bool& left_justify, char& pad) {
    parse_public<char>(format, ch, position, precision, sign, width, left_justify, pad);
}

bool String::append_rest(String& out, String const& format, unsigned short& position) {
    return append_rest_public<char>(out, format, position);
}

bool String::append_formatted_type(
    String const& value, char& ch, String& out, short precision, char sign, unsigned short width,
    bool left_justify, char pad) {
    return append_one<char>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool String::append_formatted_type(
    char value, char& ch, String& out, short precision, char sign, unsigned short width,
    bool left_justify, char pad) {
    return append_one<char>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool String::append_formatted_type(
    int value, char& ch, String& out, short precision, char sign, unsigned short width,
    bool left_justify, char pad) {
    return append_one<char>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool String::append_formatted_type(
    unsigned int value, char& ch, String& out, short precision, char sign, unsigned short width,
    bool left_justify, char pad) {
    return append_one<char>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool String::append_formatted_type(
    float value, char& ch, String& out, short precision, char sign, unsigned short width,
    bool left_justify, char pad) {
    return append_one<char>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool String::append_formatted_type(
    char const* value, char& ch, String& out, short precision, char sign, unsigned short width,
    bool left_justify, char pad) {
    return append_one<char>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool String::append_formatted_type(
    void const* value, char& ch, String& out, short precision, char sign, unsigned short width,
    bool left_justify, char pad) {
    return append_one<char>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool String::append_formatted_type(
    long long value, char& ch, String& out, short precision, char sign, unsigned short width,
    bool left_justify, char pad) {
    return append_one<char>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool String::append_formatted_type(
    unsigned long long value, char& ch, String& out, short precision, char sign,
    unsigned short width, bool left_justify, char pad) {
    return append_one<char>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

// --- The members of UniString --------------------------------------------------------------------

UniString UniString::format(UniString const& format) {
    return format_list<wchar_t>(format.data(), format.length(), nullptr, 0);
}

void UniString::parse_format_arguments(
    UniString const& format, wchar_t& ch, unsigned short& position, short& precision, char& sign,
    unsigned short& width, bool& left_justify, char& pad) {
    parse_public<wchar_t>(format, ch, position, precision, sign, width, left_justify, pad);
}

bool UniString::append_rest(UniString& out, UniString const& format, unsigned short& position) {
    return append_rest_public<wchar_t>(out, format, position);
}

bool UniString::append_formatted_type(
    UniString const& value, wchar_t& ch, UniString& out, short precision, char sign,
    unsigned short width, bool left_justify, char pad) {
    return append_one<wchar_t>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool UniString::append_formatted_type(
    char value, wchar_t& ch, UniString& out, short precision, char sign, unsigned short width,
    bool left_justify, char pad) {
    return append_one<wchar_t>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool UniString::append_formatted_type(
    int value, wchar_t& ch, UniString& out, short precision, char sign, unsigned short width,
    bool left_justify, char pad) {
    return append_one<wchar_t>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool UniString::append_formatted_type(
    unsigned int value, wchar_t& ch, UniString& out, short precision, char sign,
    unsigned short width, bool left_justify, char pad) {
    return append_one<wchar_t>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool UniString::append_formatted_type(
    float value, wchar_t& ch, UniString& out, short precision, char sign, unsigned short width,
    bool left_justify, char pad) {
    return append_one<wchar_t>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool UniString::append_formatted_type(
    char const* value, wchar_t& ch, UniString& out, short precision, char sign,
    unsigned short width, bool left_justify, char pad) {
    return append_one<wchar_t>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool UniString::append_formatted_type(
    void const* value, wchar_t& ch, UniString& out, short precision, char sign,
    unsigned short width, bool left_justify, char pad) {
    return append_one<wchar_t>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool UniString::append_formatted_type(
    long long value, wchar_t& ch, UniString& out, short precision, char sign, unsigned short width,
    bool left_justify, char pad) {
    return append_one<wchar_t>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool UniString::append_formatted_type(
    unsigned long long value, wchar_t& ch, UniString& out, short precision, char sign,
    unsigned short width, bool left_justify, char pad) {
    return append_one<wchar_t>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool UniString::append_formatted_type(
    wchar_t const* value, wchar_t& ch, UniString& out, short precision, char sign,
    unsigned short width, bool left_justify, char pad) {
    return append_one<wchar_t>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

bool UniString::append_formatted_type(
    wchar_t value, wchar_t& ch, UniString& out, short precision, char sign, unsigned short width,
    bool left_justify, char pad) {
    return append_one<wchar_t>(out, {ch, precision, sign, width, left_justify, pad}, value);
}

}  // namespace QX
