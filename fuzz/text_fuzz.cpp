// text_fuzz.cpp - any bytes decode, match and parse, and what was decoded survives the way back.
#include <cstring>

#include "fuzz/driver.h"
#include "qx/text/convert.h"
#include "qx/text/match.h"

namespace {

void require(bool holds) {
    if (!holds) __builtin_trap();
}

// Units go to UTF-8 and back unchanged, whatever they are.
void convert(char const* text) {
    unsigned int const length = QX::utf8_length(text);
    QX::UniString const units = QX::must_fix_string_widen(text);
    require(units.length() <= length);
    QX::UniString const until_end(units.c_str());
    QX::String const narrow = QX::must_fix_string_narrow(units);
    require(narrow.length() == QX::utf8_length(units.c_str()));
    require(QX::must_fix_string_widen(narrow) == until_end);
}

void parse(QX::String const& text) {
    int number;
    float value;
    if (text.parse(number) && text.length() > 1) require(text.find('x') == QX::String::npos);
    if (text.parse(value)) require(text.find('.') != QX::String::npos);
    QX::must_fix_string_widen(text).parse(value);
}

// The text up to a "/" is the pattern for what follows.
void match(char* text) {
    char* const bar = std::strchr(text, '/');
    if (!bar) return;
    *bar = 0;
    bool const fits = QX::matches_dos_pattern(bar + 1, text);
    QX::String const upper = QX::uppercase(QX::String(bar + 1));
    require(QX::matches_dos_pattern(upper.c_str(), text) == fits);
}

void one(char* data, std::size_t size) {
    if (size == 0) return;
    data[size - 1] = 0;
    convert(data);
    parse(data);
    match(data);
}

}  // namespace

int main(int argc, char** argv) {
    return fuzz::run(
        "text", argc, argv,
        {"plain text of more than sixteen bytes ", "*.t?t/file.TXT ", "-12.50e-3 ", "1e99999999 ",
         "\xC3\xA9t\xC3\xA9 \xE2\x82\xAC \xED\xA0\xBD\xED\xB8\x80 and \xF0\x9F\x98\x80 behind "},
        one);
}
