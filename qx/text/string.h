// string.h - String and UniString, the library's value strings.
//
// String holds UTF-8 in `char`, UniString UTF-16 code units in `wchar_t`. Storage, growth, search
// and comparison are those of BASIC_STRING, told in basic_string.h; here stand what the two add
// under their own names, the operators, and the members whose rules are told in format.h
// (`format` and kin) and parse.h (`parse`).
//
//     String("ab") + 'c'        =>  "abc"
//     String('a')               =>  "a"
//     String(10)                =>  ""      (room for 10: numbers are not converted)
//     String::format(10u)       =>  "10"
//     String::format("%d", 10)  =>  "10"
#pragma once

#include <concepts>

#include "qx/text/basic_string.h"

namespace QX {

class UniString;

// Defined in format.h, which a caller of the typed form includes.
template <typename Unit>
class FormatText;

// The argument list of the untyped form. Made from exactly a char*, so that a literal or a 0 is
// an argument and not a list.
class ArgumentPointer {
public:
    template <std::same_as<char*> Pointer>
    ArgumentPointer(Pointer pointer) : slots_(pointer) {}

    char const* slots() const { return slots_; }

private:
    char const* slots_;
};

// Narrow text: UTF-8. 16 bytes: length, capacity, pointer.
class String : public BASIC_STRING<char> {
public:
    String() = default;
    explicit String(Allocator<char> const&) {}
    String(char const* text) : BASIC_STRING(text) {}
    String(char const* text, unsigned int count) : BASIC_STRING(text, count) {}
    String(unsigned int count, char value) : BASIC_STRING(count, value) {}
    String(String const& other, unsigned int pos, unsigned int count)
        : BASIC_STRING(other, pos, count) {}
    String(BASIC_STRING const& other) : BASIC_STRING(other) {}
    String(BASIC_STRING&& other) noexcept : BASIC_STRING(static_cast<BASIC_STRING&&>(other)) {}
    String(char value) : BASIC_STRING(&value, 1) {}

    // Empty, with room for `count` characters.
    explicit String(int count) { reserve(static_cast<unsigned int>(count)); }
    explicit String(unsigned int count) { reserve(count); }

    // As those of the template, and each gives this string.
    String& operator=(BASIC_STRING const& other) {
        BASIC_STRING::operator=(other);
        return *this;
    }
    String& operator=(BASIC_STRING&& other) noexcept {
        swap(other);
        return *this;
    }
    String& operator=(char const* text) {
        BASIC_STRING::operator=(text);
        return *this;
    }
    String& operator=(char value) {
        BASIC_STRING::operator=(value);
        return *this;
    }

    char const* get_temporary_chars() const { return storage(); }

    // Empties and gives the block back. Has no twin in UniString.
    void clear_and_dealloc() { release_block(); }

    String& append(String const& other) {
        BASIC_STRING::append(other);
        return *this;
    }
    String& append(char const* text, unsigned int count) {
        BASIC_STRING::append(text, count);
        return *this;
    }
    String& operator+=(String const& other) { return append(other); }
    String& operator+=(char value) {
        BASIC_STRING::operator+=(value);
        return *this;
    }
    // As if `text` were made a String first, so that it may point into this one.
    String& operator+=(char const* text) {
        append_text(text);
        return *this;
    }

    using BASIC_STRING::compare;
    int compare(unsigned int pos, unsigned int count, char const* text) const {
        return compare(pos, count, text, traits_type::length(text));
    }

    String substr(unsigned int pos = 0, unsigned int count = npos) const {
        return String(*this, pos, count);
    }

    // --- Formatting: rules and grammar in format.h -----------------------------------------------

    // The typed form: each argument keeps its type. Defined in format.h.
    template <typename First, typename... Rest>
    static String format(FormatText<char> format, First const& first, Rest const&... rest);
    QX_API static String format(String const& format);

    // The untyped form, read by the letters alone; the second takes a char* to the arguments.
    QX_API static String format_unsafe(String format, ...);
    QX_API static String format_unsafe(String format, ArgumentPointer arguments);

    // Numbers alone. Those of `int` and `double` choose between a radix and decimals.
    QX_API static String format(unsigned int value);
    QX_API static String format(unsigned int value, int radix);
    QX_API static String format(unsigned int value, unsigned int radix, char const* digits);
    QX_API static String format(float value, int decimals);
    static String format(int value, int radix) {
        return format(static_cast<unsigned int>(value), radix);
    }
    static String format(double value, int decimals) {
        return format(static_cast<float>(value), decimals);
    }
    QX_API static String format_signed(int value);
    QX_API static String format64(unsigned long long value);

    // The steps of the typed form.
    //
    // Parses one conversion. `position` comes in behind the '%' and any 'l', and goes out behind
    // the letter, in 16 bits. The others only go out: `ch` is the letter, 0 where the format ends
    // before it; what the conversion leaves out is 0, false and, for `pad`, ' '.
    QX_API static void parse_format_arguments(
        String const& format, char& ch, unsigned short& position, short& precision, char& sign,
        unsigned short& width, bool& left_justify, char& pad);
    // Appends the format from `position` on, "%%" as '%' and any other '%' as it stands, and leaves
    // `position` at its end. Always true. `out` may be the format.
    QX_API static bool append_rest(String& out, String const& format, unsigned short& position);

    // Appends one value to `out` by the letter `ch`, which is read and never changed. False where
    // the letter does not suit the type: `out` then stays as it was or, with show_format_errors, is
    // the message. The table of format.h tells what suits, and which types take no padding. A null
    // text faults.
    QX_API static bool append_formatted_type(
        String const& value, char& ch, String& out, short precision, char sign,
        unsigned short width, bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        char value, char& ch, String& out, short precision, char sign, unsigned short width,
        bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        int value, char& ch, String& out, short precision, char sign, unsigned short width,
        bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        unsigned int value, char& ch, String& out, short precision, char sign, unsigned short width,
        bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        float value, char& ch, String& out, short precision, char sign, unsigned short width,
        bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        char const* value, char& ch, String& out, short precision, char sign, unsigned short width,
        bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        void const* value, char& ch, String& out, short precision, char sign, unsigned short width,
        bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        long long value, char& ch, String& out, short precision, char sign, unsigned short width,
        bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        unsigned long long value, char& ch, String& out, short precision, char sign,
        unsigned short width, bool left_justify, char pad);

    // --- Reading numbers: rules in parse.h -------------------------------------------------------

    // False, and `value` as parse.h tells, where the text is no such number.
    QX_API bool parse(int& value) const;
    QX_API bool parse(unsigned int& value) const;
    QX_API bool parse(unsigned long long& value) const;
    QX_API bool parse(float& value) const;
    QX_API bool parse(unsigned char& value, unsigned short radix) const;
    QX_API bool parse(unsigned short& value, unsigned short radix) const;
    QX_API bool parse(unsigned int& value, unsigned short radix) const;
    QX_API bool parse(unsigned long long& value, unsigned short radix) const;
};

// Wide text: UTF-16 code units.
class UniString : public BASIC_STRING<wchar_t> {
public:
    UniString() = default;
    explicit UniString(Allocator<wchar_t> const&) {}
    UniString(wchar_t const* text) : BASIC_STRING(text) {}
    UniString(wchar_t const* text, unsigned int count) : BASIC_STRING(text, count) {}
    UniString(unsigned int count, wchar_t value) : BASIC_STRING(count, value) {}
    UniString(UniString const& other, unsigned int pos, unsigned int count)
        : BASIC_STRING(other, pos, count) {}
    UniString(BASIC_STRING const& other) : BASIC_STRING(other) {}
    UniString(BASIC_STRING&& other) noexcept : BASIC_STRING(static_cast<BASIC_STRING&&>(other)) {}
    UniString(wchar_t value) : BASIC_STRING(&value, 1) {}

    // Empty, with room for `count` characters.
    explicit UniString(int count) { reserve(static_cast<unsigned int>(count)); }
    explicit UniString(unsigned int count) { reserve(count); }

    // As those of the template, and each gives this string.
    UniString& operator=(BASIC_STRING const& other) {
        BASIC_STRING::operator=(other);
        return *this;
    }
    UniString& operator=(BASIC_STRING&& other) noexcept {
        swap(other);
        return *this;
    }
    UniString& operator=(wchar_t const* text) {
        BASIC_STRING::operator=(text);
        return *this;
    }
    UniString& operator=(wchar_t value) {
        BASIC_STRING::operator=(value);
        return *this;
    }

    wchar_t const* get_temporary_uni_chars() const { return storage(); }

    UniString& append(UniString const& other) {
        BASIC_STRING::append(other);
        return *this;
    }
    UniString& append(wchar_t const* text, unsigned int count) {
        BASIC_STRING::append(text, count);
        return *this;
    }
    UniString& operator+=(UniString const& other) { return append(other); }
    UniString& operator+=(wchar_t value) {
        BASIC_STRING::operator+=(value);
        return *this;
    }
    // As if `text` were made a UniString first, so that it may point into this one.
    UniString& operator+=(wchar_t const* text) {
        append_text(text);
        return *this;
    }

    using BASIC_STRING::compare;
    int compare(unsigned int pos, unsigned int count, wchar_t const* text) const {
        return compare(pos, count, text, traits_type::length(text));
    }

    UniString substr(unsigned int pos = 0, unsigned int count = npos) const {
        return UniString(*this, pos, count);
    }

    // --- Formatting: rules and grammar in format.h -----------------------------------------------

    // The typed form: each argument keeps its type. Defined in format.h.
    template <typename First, typename... Rest>
    static UniString format(FormatText<wchar_t> format, First const& first, Rest const&... rest);
    QX_API static UniString format(UniString const& format);

    // The untyped form, read by the letters alone; the second takes a char* to the arguments.
    QX_API static UniString format_unsafe(UniString format, ...);
    QX_API static UniString format_unsafe(UniString format, ArgumentPointer arguments);

    // Numbers alone. Those of `int` and `double` choose between a radix and decimals.
    QX_API static UniString format(unsigned int value);
    QX_API static UniString format(unsigned int value, int radix);
    QX_API static UniString format(unsigned int value, unsigned int radix, wchar_t const* digits);
    QX_API static UniString format(float value, int decimals);
    static UniString format(int value, int radix) {
        return format(static_cast<unsigned int>(value), radix);
    }
    static UniString format(double value, int decimals) {
        return format(static_cast<float>(value), decimals);
    }
    QX_API static UniString format(float value, unsigned short decimals, bool keep_zeros);
    QX_API static UniString format_signed(int value);
    QX_API static UniString format64(unsigned long long value);
    QX_API static UniString
    format64(unsigned long long value, unsigned int radix, wchar_t const* digits);

    // The steps of the typed form.
    //
    // Parses one conversion. `position` comes in behind the '%' and any 'l', and goes out behind
    // the letter, in 16 bits. The others only go out: `ch` is the letter, 0 where the format ends
    // before it; what the conversion leaves out is 0, false and, for `pad`, ' '.
    QX_API static void parse_format_arguments(
        UniString const& format, wchar_t& ch, unsigned short& position, short& precision,
        char& sign, unsigned short& width, bool& left_justify, char& pad);
    // Appends the format from `position` on, "%%" as '%' and any other '%' as it stands, and leaves
    // `position` at its end. Always true. `out` may be the format.
    QX_API static bool
    append_rest(UniString& out, UniString const& format, unsigned short& position);

    // Appends one value to `out` by the letter `ch`, which is read and never changed. False where
    // the letter does not suit the type: `out` then stays as it was or, with show_format_errors, is
    // the message. The table of format.h tells what suits, and which types take no padding. A null
    // text faults.
    QX_API static bool append_formatted_type(
        UniString const& value, wchar_t& ch, UniString& out, short precision, char sign,
        unsigned short width, bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        char value, wchar_t& ch, UniString& out, short precision, char sign, unsigned short width,
        bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        int value, wchar_t& ch, UniString& out, short precision, char sign, unsigned short width,
        bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        unsigned int value, wchar_t& ch, UniString& out, short precision, char sign,
        unsigned short width, bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        float value, wchar_t& ch, UniString& out, short precision, char sign, unsigned short width,
        bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        char const* value, wchar_t& ch, UniString& out, short precision, char sign,
        unsigned short width, bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        void const* value, wchar_t& ch, UniString& out, short precision, char sign,
        unsigned short width, bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        long long value, wchar_t& ch, UniString& out, short precision, char sign,
        unsigned short width, bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        unsigned long long value, wchar_t& ch, UniString& out, short precision, char sign,
        unsigned short width, bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        wchar_t const* value, wchar_t& ch, UniString& out, short precision, char sign,
        unsigned short width, bool left_justify, char pad);
    QX_API static bool append_formatted_type(
        wchar_t value, wchar_t& ch, UniString& out, short precision, char sign,
        unsigned short width, bool left_justify, char pad);

    // --- Reading numbers: rules in parse.h -------------------------------------------------------

    // False, and `value` as parse.h tells, where the text is no such number.
    QX_API bool parse(int& value) const;
    QX_API bool parse(unsigned int& value) const;
    QX_API bool parse(long long& value) const;
    QX_API bool parse(unsigned long long& value) const;
    QX_API bool parse(float& value) const;
    QX_API bool parse(unsigned int& value, unsigned short radix) const;
};

// Sums have exactly the capacity that they need.
QX_API String operator+(String const& a, String const& b);
QX_API String operator+(String const& a, char const* b);
QX_API String operator+(char const* a, String const& b);
QX_API String operator+(String const& a, char b);
QX_API String operator+(char a, String const& b);

// Likewise.
QX_API UniString operator+(UniString const& a, UniString const& b);
QX_API UniString operator+(UniString const& a, wchar_t const* b);
QX_API UniString operator+(wchar_t const* a, UniString const& b);
QX_API UniString operator+(UniString const& a, wchar_t b);
QX_API UniString operator+(wchar_t a, UniString const& b);

// Equal lengths and characters. A text is compared up to its terminator and not measured first.
inline bool operator==(String const& a, String const& b) {
    return a.length() == b.length() &&
           String::traits_type::compare(a.data(), b.data(), a.length()) == 0;
}
inline bool operator==(String const& a, char const* b) {
    unsigned int const count = String::traits_type::length(b);
    return a.length() == count && String::traits_type::compare(a.data(), b, count) == 0;
}
QX_API bool operator==(UniString const& a, UniString const& b);
QX_API bool operator==(UniString const& a, wchar_t const* b);

// True as soon as a length or a character differs.
inline bool operator!=(String const& a, String const& b) {
    return !(a == b);
}
inline bool operator!=(String const& a, char const* b) {
    return !(a == b);
}
QX_API bool operator!=(UniString const& a, UniString const& b);
QX_API bool operator!=(UniString const& a, wchar_t const* b);

// The order of `compare`: bytes of a String count as signed.
inline bool operator<(String const& a, String const& b) {
    return a.compare(b) < 0;
}
inline bool operator<=(String const& a, String const& b) {
    return a.compare(b) <= 0;
}
inline bool operator>(String const& a, String const& b) {
    return a.compare(b) > 0;
}
inline bool operator>=(String const& a, String const& b) {
    return a.compare(b) >= 0;
}
QX_API bool operator<(UniString const& a, UniString const& b);
QX_API bool operator<=(UniString const& a, UniString const& b);
QX_API bool operator>(UniString const& a, UniString const& b);
QX_API bool operator>=(UniString const& a, UniString const& b);

}  // namespace QX
