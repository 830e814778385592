#include "qx/text/string.h"

namespace QX {

namespace {

// The temporary with room for both parts is already exact. It is copied all the same where the
// allocation hook would see the blocks.
template <typename Text, typename CharT>
Text joined(CharT const* a, unsigned int a_count, CharT const* b, unsigned int b_count) {
    Text sum(a_count + b_count);
    sum.append(a, a_count);
    sum.append(b, b_count);
    if (QX_LIKELY(!allocation_hook)) return sum;
    return Text(static_cast<Text const&>(sum));
}

// The text is not measured: it may end before the string does.
bool equals_text(UniString const& a, wchar_t const* b) {
    unsigned int const count = a.length();
    wchar_t const* const characters = a.data();
    for (unsigned int i = 0; i < count; ++i) {
        if (b[i] == 0 || b[i] != characters[i]) return false;
    }
    return b[count] == 0;
}

}  // namespace

String operator+(String const& a, String const& b) {
    return joined<String>(a.data(), a.length(), b.data(), b.length());
}

String operator+(String const& a, char const* b) {
    return joined<String>(a.data(), a.length(), b, String::traits_type::length(b));
}

String operator+(char const* a, String const& b) {
    return joined<String>(a, String::traits_type::length(a), b.data(), b.length());
}

String operator+(String const& a, char b) {
    return joined<String>(a.data(), a.length(), &b, 1);
}

String operator+(char a, String const& b) {
    return joined<String>(&a, 1, b.data(), b.length());
}

UniString operator+(UniString const& a, UniString const& b) {
    return joined<UniString>(a.data(), a.length(), b.data(), b.length());
}

UniString operator+(UniString const& a, wchar_t const* b) {
    return joined<UniString>(a.data(), a.length(), b, UniString::traits_type::length(b));
}

UniString operator+(wchar_t const* a, UniString const& b) {
    return joined<UniString>(a, UniString::traits_type::length(a), b.data(), b.length());
}

UniString operator+(UniString const& a, wchar_t b) {
    return joined<UniString>(a.data(), a.length(), &b, 1);
}

UniString operator+(wchar_t a, UniString const& b) {
    return joined<UniString>(&a, 1, b.data(), b.length());
}

bool operator==(UniString const& a, UniString const& b) {
    return a.length() == b.length() &&
           UniString::traits_type::compare(a.data(), b.data(), a.length()) == 0;
}

bool operator==(UniString const& a, wchar_t const* b) {
    return equals_text(a, b);
}

bool operator!=(UniString const& a, UniString const& b) {
    return !(a == b);
}

bool operator!=(UniString const& a, wchar_t const* b) {
    return !equals_text(a, b);
}

bool operator<(UniString const& a, UniString const& b) {
    return a.compare(b) < 0;
}

bool operator<=(UniString const& a, UniString const& b) {
    return a.compare(b) <= 0;
}

bool operator>(UniString const& a, UniString const& b) {
    return a.compare(b) > 0;
}

bool operator>=(UniString const& a, UniString const& b) {
    return a.compare(b) >= 0;
}

}  // namespace QX
