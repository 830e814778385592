#include <cstdarg>

#include "qx/text/format_impl.h"

namespace QX {

namespace formatting {

namespace {

// What a letter takes from the list and makes of it.
enum class Output : unsigned char {
    none,
    signed_32,
    unsigned_32,
    lower_hexadecimal,
    upper_hexadecimal,
    lower_pointer,
    upper_pointer,
    real,
    unit,
    own_text,          // in the form's own width, padded
    own_text_plain,    // the same, unpadded
    other_text,        // in the other width, padded
    other_text_plain,  // the same, unpadded
    string,            // String const*, padded
    decimal_64,
    halves,
};

struct Letter {
    char letter;
    Output output;
};

// Upper-case letters do not give upper-case digits in the narrow form.
constexpr Letter narrow_letters[] = {
    {'d', Output::signed_32},
    {'i', Output::signed_32},
    {'u', Output::unsigned_32},
    {'x', Output::lower_hexadecimal},
    {'X', Output::lower_hexadecimal},
    {'p', Output::lower_pointer},
    {'P', Output::lower_pointer},
    {'f', Output::real},
    {'c', Output::unit},
    {'C', Output::other_text_plain},
    {'s', Output::own_text},
    {'S', Output::string},
};
constexpr Letter narrow_long_letters[] = {
    {'u', Output::decimal_64},
    {'x', Output::halves},
};

// There is no %i in the wide form, and its %llu is hexadecimal.
constexpr Letter wide_letters[] = {
    {'d', Output::signed_32},
    {'u', Output::unsigned_32},
    {'x', Output::lower_hexadecimal},
    {'X', Output::upper_hexadecimal},
    {'p', Output::lower_pointer},
    {'P', Output::upper_pointer},
    {'f', Output::real},
    {'c', Output::unit},
    {'C', Output::own_text_plain},
    {'s', Output::other_text},
    {'S', Output::own_text},
};
constexpr Letter wide_long_letters[] = {
    {'u', Output::halves},
    {'x', Output::halves},
};

struct LetterTable {
    Output outputs[128] = {};

    template <unsigned int Count>
    constexpr LetterTable(Letter const (&letters)[Count]) {
        for (Letter const& row : letters)
            outputs[static_cast<unsigned char>(row.letter)] = row.output;
    }

    Output find(unsigned int letter) const { return letter < 128 ? outputs[letter] : Output::none; }
};

template <typename Unit>
struct Tables {
    static constexpr LetterTable plain{narrow_letters};
    static constexpr LetterTable after_ll{narrow_long_letters};
};

template <>
struct Tables<wchar_t> {
    static constexpr LetterTable plain{wide_letters};
    static constexpr LetterTable after_ll{wide_long_letters};
};

// The argument list: slots of 8 bytes.
struct ArgumentSlots {
    char const* next;

    template <typename Value>
    Value take() {
        Value value;
        std::memcpy(&value, next, sizeof(value));
        next += 8;
        return value;
    }
};

template <typename Unit>
void put_own_text(
    StringWriter<Unit>& out, Conversion<Unit> const& conversion, Unit const* text, bool padded) {
    out.put_text(
        text, CHAR_TRAITS<Unit>::length(text), padded ? conversion.width : 0,
        conversion.left_justify);
}

template <typename Unit>
void put_other_text(
    StringWriter<Unit>& out, Conversion<Unit> const& conversion, ArgumentSlots& slots,
    bool padded) {
    using Other = std::conditional_t<sizeof(Unit) == 1, wchar_t, char>;
    put_converted(
        out, slots.take<Other const*>(), padded ? conversion.width : 0, conversion.left_justify);
}

template <typename Unit>
void put_halves(StringWriter<Unit>& out, unsigned long long value) {
    put_hexadecimal(out, Conversion<Unit>(), value >> 32, lower_digits);
    put_hexadecimal(out, Conversion<Unit>(), value & 0xFFFFFFFF, lower_digits);
}

template <typename Unit>
void put_string(
    StringWriter<Unit>& out, Conversion<Unit> const& conversion, BASIC_STRING<Unit> const& text) {
    out.put_text(text.data(), text.length(), conversion.width, conversion.left_justify);
}

// False for no known letter.
template <typename Unit>
bool append_slot(
    StringWriter<Unit>& out, Conversion<Unit> const& conversion, Output output,
    ArgumentSlots& slots) {
    using Card64 = unsigned long long;
    switch (output) {
    case Output::none: return false;
    case Output::signed_32: put_signed(out, conversion, slots.take<int>()); break;
    case Output::unsigned_32: put_decimal(out, conversion, slots.take<unsigned int>()); break;
    case Output::lower_hexadecimal:
        put_hexadecimal(out, conversion, slots.take<unsigned int>(), lower_digits);
        break;
    case Output::upper_hexadecimal:
        put_hexadecimal(out, conversion, slots.take<unsigned int>(), upper_digits);
        break;
    case Output::lower_pointer: put_pointer(out, slots.take<Card64>(), lower_digits); break;
    case Output::upper_pointer: put_pointer(out, slots.take<Card64>(), upper_digits); break;
    case Output::real: put_float(out, conversion, static_cast<float>(slots.take<double>())); break;
    case Output::unit: out.put(slots.take<Unit>()); break;
    case Output::own_text:
    case Output::own_text_plain:
        put_own_text(out, conversion, slots.take<Unit const*>(), output == Output::own_text);
        break;
    case Output::other_text:
    case Output::other_text_plain:
        put_other_text(out, conversion, slots, output == Output::other_text);
        break;
    case Output::string:
        put_string(out, conversion, *slots.take<BASIC_STRING<Unit> const*>());
        break;
    case Output::decimal_64: put_decimal(out, Conversion<Unit>(), slots.take<Card64>()); break;
    case Output::halves: put_halves(out, slots.take<Card64>()); break;
    }
    return true;
}

// The letter that the conversion ends with; "ll" takes one more.
template <typename Unit>
Output find_output(FormatReader<Unit>& reader, Unit letter) {
    if (letter != 'l') return Tables<Unit>::plain.find(letter);
    if (!reader.take('l')) return Output::none;
    Unit const last = reader.peek();
    ++reader.position;
    return Tables<Unit>::after_ll.find(last);
}

template <typename Unit>
TextOf<Unit> format_slots(TextOf<Unit> const& format, char const* arguments) {
    TextOf<Unit> result;
    result.reserve(first_capacity);
    StringWriter<Unit> out(result);
    FormatReader<Unit> reader{format.data(), format.length()};
    ArgumentSlots slots{arguments};
    Unit const* const end = reader.text + reader.length;
    for (;;) {
        Unit const* const stop = out.put_plain(reader.text + reader.position, end);
        if (stop == end) break;
        reader.position = static_cast<unsigned int>(stop - reader.text) + 1;
        if (reader.take('%')) {
            out.put('%');
            continue;
        }
        Conversion<Unit> const conversion = parse_conversion<unsigned short, short>(reader);
        // A bad letter drops what was built.
        if (!append_slot(out, conversion, find_output(reader, conversion.letter), slots))
            return TextOf<Unit>();
    }
    out.close();
    return result;
}

}  // namespace

}  // namespace formatting

String String::format_unsafe(String format, ...) {
    va_list arguments;
    va_start(arguments, format);
    String result = formatting::format_slots<char>(format, arguments);
    va_end(arguments);
    return result;
}

UniString UniString::format_unsafe(UniString format, ...) {
    va_list arguments;
    va_start(arguments, format);
    UniString result = formatting::format_slots<wchar_t>(format, arguments);
    va_end(arguments);
    return result;
}

String String::format_unsafe(String format, ArgumentPointer arguments) {
    return formatting::format_slots<char>(format, arguments.slots());
}

UniString UniString::format_unsafe(UniString format, ArgumentPointer arguments) {
    return formatting::format_slots<wchar_t>(format, arguments.slots());
}

}  // namespace QX
