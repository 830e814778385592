// format.h - typed formatting: String::format and UniString::format.
//
// The members are declared with the strings and explained here. A format is text with
// conversions in it; "%%" is one '%'. A conversion is, strictly in this order:
//
//     %           then, in the typed form only, any number of 'l', which mean nothing
//     -           left-justify
//     + or space  the sign of numbers that are not negative
//     0           pad with '0'; without it with spaces
//     digits      the width, which never truncates
//     .digits     the precision; 0 is the same as none
//     letter
//
// The typed form keeps the type of each argument, and the type, not an 'l', gives the width of an
// integer. A letter that does not suit the type ends the text there; so does a surplus argument.
// Conversions without an argument are copied as they stand. Nothing is reported.
//
//     String::format("%5d|%-5d|%05d", 42, 42, 42)  =>  "   42|42   |00042"
//     String::format("%05d", -42)                  =>  "00-42"  (the sign is part of the text)
//     String::format("%+d % d", 5, 5)              =>  "+5  5"
//     String::format("%+-5d", 5)                   =>  ""       (flags in the wrong order)
//     String::format("ab%sxy", 5)                  =>  "ab"
//     String::format("%d")                         =>  "%d"
//     String::format("%f %.2f", 1.5f, 1.0f)        =>  "1.5 1.00"
//     String::format("%p", pointer)                =>  16 digits, whatever the width
//
//     argument             letters           notes
//     int, long long       d i u, x X        hexadecimal takes the value as unsigned; of 64 bits
//                                            the narrow form prints the low 32
//     their unsigned kin   d i u, x X        no sign character
//     float, double        f                 6 decimals without a precision, of which zeros are
//                                            cut but for the first; a double is narrowed
//     String               S s               padded with spaces; the precision means nothing
//     char const*          C S s             as it stands: no padding
//     char                 c                 as it stands
//     void const*          p x, P X          lower case, upper case
//
// UniString takes UniString, wchar_t const* and wchar_t as the narrow form takes its own, and also
// char const* (decoded from UTF-8) and char.
//
// The untyped form, format_unsafe, reads a variable argument list by the letters alone, in slots
// of 8 bytes. Where it differs:
//
//     point               typed                            format_unsafe
//     'l'                 any number after '%', skipped    only "llu" and "llx"
//     width, precision    wrap at 8 bits (300 is 44)       wrap at 16 bits
//     X                   upper case                       lower case (wide: upper)
//     p and P             differ                           both lower case (wide: differ)
//     %s                  padded for strings only          always padded, with spaces
//     64-bit hexadecimal  the low 32 bits (wide: all)      two halves, neither padded
//     a bad letter        keeps what was built             the empty string
//
//     letters of the narrow format_unsafe            of the wide one
//     d i     int                                    d (and no i)
//     u x X   unsigned int                           the same
//     p P     64-bit pointer                         the same
//     f       double, narrowed                       the same
//     c       char                                   wchar_t
//     C       wchar_t const*, as UTF-8, unpadded     wchar_t const*, unpadded
//     s       char const*                            char const*, decoded from UTF-8
//     S       String const*                          wchar_t const*
//     llu     64-bit decimal, unpadded               as llx
//     llx     64-bit hexadecimal: 0xFF is "0ff" and 0x1000000FF is "1ff"
//
// Numbers alone:
//
//     String::format(255u)                    =>  "255"
//     String::format(255u, 16)                =>  "ff"    radix 2 to 36, else ""
//     String::format(0xFFFFFFFFu, 10)         =>  "-1"    radix 10 is signed
//     String::format(5u, 2, "ab")             =>  "bab"   at most the 32 last digits
//     String::format_signed(-5)               =>  "-5"
//     String::format64(1ull << 40)            =>  "1099511627776"
//     String::format(1.005f, 2)               =>  "1.00"
//     String::format(12.0f, 0)                =>  "12."   the point stays
//     UniString::format(1.5f, 3, false)       =>  L"1.5"
//     UniString::format(2.0f, 3, false)       =>  L"2"    (and the point goes)
//     UniString::format64(255, 16, digits)    =>  L"ff"
//
// 0 is "0" in every radix, even one that is not allowed. Float digits are those of the exact value
// rounded at the last decimal, halves away from zero. A negative number of decimals counts as 0.
// Infinities and other non-numbers are "1.#INF", "1.#QNAN" and "1.#IND", cut and rounded as if
// they were digits.
//
// A typed format is taken up to its 65535th character. Failure: only exhaustion throws
// (std::bad_alloc); strings that were being appended to stay valid. A null text faults. Threads:
// no state but show_format_errors.
#pragma once

#include <concepts>
#include <initializer_list>

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

// Whether a letter that does not suit its argument replaces the text built so far by a message,
// such as "Unexpected format %s used with type int32". False, and the library never sets it.
QX_API extern bool show_format_errors;

// A format on its way into the formatter: borrowed, never copied.
template <typename Unit>
class FormatText {
public:
    // No integer is a text, so that a literal 0 in front of others chooses the number forms.
    template <std::convertible_to<Unit const*> Text>
    requires(!std::integral<Text>) FormatText(Text const& text)
        : text_(text), length_(CHAR_TRAITS<Unit>::length(text_)) {}
    FormatText(BASIC_STRING<Unit> const& text) : text_(text.data()), length_(text.length()) {}

    Unit const* data() const { return text_; }
    unsigned int length() const { return length_; }

private:
    Unit const* text_;
    unsigned int length_;
};

// What the formatter is told of one argument. The names are those of its messages.
enum class FormatType : unsigned char {
    int32,
    card32,
    int64,
    card64,
    pointer,
    float32,
    narrow_unit,
    narrow_text,
    own_string,  // a String in the narrow form, a UniString in the wide one
    wide_text,
    wide_unit,
};

// One argument with its type: borrowed. Which constructor takes it is the compiler's choice among
// the types that can be formatted, so that short, bool and enumerations are integers and any
// other pointer is a void const*.
template <typename Unit>
class FormatArgument {
public:
    FormatArgument(int value) : type(FormatType::int32), integer(value) {}
    FormatArgument(unsigned int value) : type(FormatType::card32), integer(value) {}
    FormatArgument(long value) : FormatArgument(static_cast<int>(value)) {}
    FormatArgument(unsigned long value) : FormatArgument(static_cast<unsigned int>(value)) {}
    FormatArgument(long long value) : type(FormatType::int64), integer(value) {}
    FormatArgument(unsigned long long value)
        : type(FormatType::card64), integer(static_cast<long long>(value)) {}
    FormatArgument(float value) : type(FormatType::float32), real(value) {}
    FormatArgument(double value) : FormatArgument(static_cast<float>(value)) {}
    FormatArgument(char value) : type(FormatType::narrow_unit), integer(value) {}
    FormatArgument(char const* value) : type(FormatType::narrow_text), pointer(value) {}
    FormatArgument(void const* value) : type(FormatType::pointer), pointer(value) {}
    FormatArgument(decltype(nullptr)) : type(FormatType::pointer), pointer(nullptr) {}
    FormatArgument(BASIC_STRING<Unit> const& value)
        : type(FormatType::own_string), pointer(&value) {}
    FormatArgument(wchar_t value) requires(sizeof(Unit) > 1)
        : type(FormatType::wide_unit), integer(value) {}
    FormatArgument(wchar_t const* value) requires(sizeof(Unit) > 1)
        : type(FormatType::wide_text), pointer(value) {}

    FormatType type;
    union {
        long long integer;
        float real;
        void const* pointer;
    };
};

// The typed form with its arguments in a list.
QX_API String format_arguments(
    char const* format, unsigned int length, FormatArgument<char> const* arguments,
    unsigned int count);
QX_API UniString format_arguments(
    wchar_t const* format, unsigned int length, FormatArgument<wchar_t> const* arguments,
    unsigned int count);

template <typename Unit>
auto format_typed(FormatText<Unit> format, std::initializer_list<FormatArgument<Unit>> arguments) {
    return format_arguments(
        format.data(), format.length(), arguments.begin(),
        static_cast<unsigned int>(arguments.size()));
}

template <typename First, typename... Rest>
String String::format(FormatText<char> format, First const& first, Rest const&... rest) {
    return format_typed<char>(format, {FormatArgument<char>(first), FormatArgument<char>(rest)...});
}

template <typename First, typename... Rest>
UniString UniString::format(FormatText<wchar_t> format, First const& first, Rest const&... rest) {
    return format_typed<wchar_t>(
        format, {FormatArgument<wchar_t>(first), FormatArgument<wchar_t>(rest)...});
}

}  // namespace QX
