#include "qx/data/tokeniser.h"

#include <array>
#include <cstring>

#include "qx/base/block_scan.h"
#include "qx/base/compiler.h"

namespace QX {

char const* const tokeniser_token_type_names[12] = {
    "TTT_END",
    "TTT_WHITESPACE",
    "TTT_IDENTIFIER",
    "TTT_INT",
    "TTT_HEX",
    "TTT_FLOAT",
    "TTT_QUOTED_CHAR",
    "TTT_QUOTED_STRING",
    "TTT_SLASH_SLASH_COMMENT",
    "TTT_SLASH_STAR_COMMENT",
    "TTT_EOL",
    "TTT_SYMBOL",
};

namespace {

// What a token's first character says about it.
enum Start : unsigned char {
    start_other,  // a symbol of one character
    start_end,
    start_blank,
    start_line,
    start_letter,
    start_digit,
    start_assign,  // ! % * =
    start_plus,
    start_minus,
    start_double,  // & | ^ < >
    start_slash,
    start_double_quote,
    start_single_quote,
};

struct CharacterClasses {
    std::array<Start, 256> start{};
    std::array<unsigned char, 256> hex{};  // the digit's value, 16 where it is none

    constexpr void begin_with(char const* characters, Start kind) {
        for (; *characters; ++characters) start[static_cast<unsigned char>(*characters)] = kind;
    }

    constexpr CharacterClasses() {
        hex.fill(16);
        start[0] = start_end;
        begin_with(" \t", start_blank);
        begin_with("\n\r", start_line);
        begin_with("!%*=", start_assign);
        begin_with("+", start_plus);
        begin_with("-", start_minus);
        begin_with("&|^<>", start_double);
        begin_with("/", start_slash);
        begin_with("\"", start_double_quote);
        begin_with("'", start_single_quote);
        begin_with("0123456789", start_digit);
        begin_with("_ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz", start_letter);
        for (unsigned char i = 0; i < 10; ++i) hex['0' + i] = i;
        for (unsigned char i = 0; i < 6; ++i) hex['a' + i] = hex['A' + i] = 10 + i;
    }
};

constexpr CharacterClasses classes;

unsigned char code(char c) {
    return static_cast<unsigned char>(c);
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

// The end of an identifier that has begun before `at`.
char* identifier_end(char* at) {
    return block_scan::find(at, [](__m128i bytes) {
        __m128i const lower = block_scan::either(bytes, _mm_set1_epi8(0x20));
        __m128i const letters = block_scan::between(lower, 'a', 'z');
        __m128i const digits = block_scan::between(bytes, '0', '9');
        __m128i const inside =
            block_scan::either(block_scan::either(letters, digits), block_scan::equal(bytes, '_'));
        return block_scan::equal(inside, 0);
    });
}

// The next `quote`, or the terminator, or with `escapes` a backslash.
char* quoted_end(char* at, char quote, bool escapes) {
    char const third = escapes ? '\\' : quote;
    return block_scan::find(at, [=](__m128i bytes) {
        return block_scan::either(
            block_scan::either(block_scan::equal(bytes, quote), block_scan::equal(bytes, 0)),
            block_scan::equal(bytes, third));
    });
}

char* line_end_of(char* at) {
    return block_scan::find(at, [](__m128i bytes) {
        return block_scan::either(
            block_scan::either(block_scan::equal(bytes, '\n'), block_scan::equal(bytes, '\r')),
            block_scan::equal(bytes, 0));
    });
}

// The length of an operator that starts with a doubling character: <, <=, <<, <<=.
unsigned int double_length(char const* at) {
    if (at[1] == at[0]) return at[2] == '=' ? 3 : 2;
    return at[1] == '=' ? 2 : 1;
}

constexpr unsigned int bit(TOKENISER_TOKEN_TYPE type) {
    return 1u << type;
}

constexpr unsigned int blank = bit(TTT_WHITESPACE);
constexpr unsigned int line_end = bit(TTT_EOL);
constexpr unsigned int comment = bit(TTT_SLASH_SLASH_COMMENT) | bit(TTT_SLASH_STAR_COMMENT);

}  // namespace

void Tokeniser::tokenise(char* text) {
    buffer_ = text;
    cursor_ = text;
    saved_char_ = *text;
    options_ = {};
}

void Tokeniser::close() {
    if (cursor_) *cursor_ = saved_char_;
    *this = {};
}

// Moves the cursor behind the token at `at`.
QX_ALWAYS_INLINE TOKENISER_TOKEN_TYPE Tokeniser::scan(char* at) {
    auto const symbol = [&](unsigned int length) {
        cursor_ = at + length;
        return TTT_SYMBOL;
    };
    switch (classes.start[code(*at)]) {
    case start_end: cursor_ = at; return TTT_END;
    case start_blank:
        do ++at;
        while (is_blank(*at));
        cursor_ = at;
        return TTT_WHITESPACE;
    case start_line:
        // The two line characters differ in these bits, so either finds its partner.
        cursor_ = at + (at[1] == (*at ^ '\n' ^ '\r') ? 2 : 1);
        return TTT_EOL;
    case start_letter: cursor_ = identifier_end(at + 1); return TTT_IDENTIFIER;
    case start_digit: return scan_number(at);
    case start_assign: return symbol(at[1] == '=' ? 2 : 1);
    case start_plus: return symbol(at[1] == '+' || at[1] == '=' ? 2 : 1);
    case start_minus: return symbol(at[1] == '-' || at[1] == '>' || at[1] == '=' ? 2 : 1);
    case start_double: return symbol(double_length(at));
    case start_slash: return scan_slash(at);
    case start_double_quote: return scan_quoted_string(at, '"');
    case start_single_quote: return scan_single_quote(at);
    default: return symbol(1);
    }
}

// Skipped tokens are never seen by the caller, so only the last one is terminated.
QX_ALWAYS_INLINE TOKENISER_TOKEN_TYPE Tokeniser::next_past(unsigned int skipped) {
    char* at = cursor_;
    *at = saved_char_;
    TOKENISER_TOKEN_TYPE type = scan(at);
    while (bit(type) & skipped) type = scan(at = cursor_);
    token_ = at;
    saved_char_ = *cursor_;
    *cursor_ = 0;
    return type;
}

TOKENISER_TOKEN_TYPE Tokeniser::next() {
    return next_past(0);
}

TOKENISER_TOKEN_TYPE Tokeniser::next_non_comment() {
    return next_past(comment);
}

TOKENISER_TOKEN_TYPE Tokeniser::next_non_comment_non_eol() {
    return next_past(comment | line_end);
}

TOKENISER_TOKEN_TYPE Tokeniser::next_non_comment_non_whitespace() {
    return next_past(comment | blank);
}

TOKENISER_TOKEN_TYPE Tokeniser::next_non_comment_non_whitespace_non_eol() {
    return next_past(comment | blank | line_end);
}

TOKENISER_TOKEN_TYPE Tokeniser::next_non_whitespace() {
    return next_past(blank);
}

TOKENISER_TOKEN_TYPE Tokeniser::next_non_whitespace_non_eol() {
    return next_past(blank | line_end);
}

TOKENISER_TOKEN_TYPE Tokeniser::scan_slash(char* at) {
    if (at[1] == '/') {
        cursor_ = line_end_of(at + 2);
        return TTT_SLASH_SLASH_COMMENT;
    }
    if (at[1] == '*') {
        // Kept: the closing mark is not recognised, so the comment takes the rest of the text.
        cursor_ = at + std::strlen(at);
        return TTT_SLASH_STAR_COMMENT;
    }
    cursor_ = at + (at[1] == '=' ? 2 : 1);
    return TTT_SYMBOL;
}

TOKENISER_TOKEN_TYPE Tokeniser::scan_quoted_string(char* at, char quote) {
    bool const escapes = options_ & TPO_BACKSLASH_ESCAPES;
    at = quoted_end(at + 1, quote, escapes);
    while (escapes && *at == '\\') at = quoted_end(at + (at[1] ? 2 : 1), quote, escapes);
    cursor_ = at + (*at == quote);
    return TTT_QUOTED_STRING;
}

TOKENISER_TOKEN_TYPE Tokeniser::scan_single_quote(char* at) {
    if (options_ & TPO_SINGLE_QUOTE_STRINGS) return scan_quoted_string(at, '\'');

    cursor_ = at + 1;
    if (!(options_ & TPO_QUOTED_CHARS) || !at[1] || !at[2]) return TTT_SYMBOL;
    if (at[1] == '\\') {
        // '\'x is taken whole as well: the quote at offset 2 settles it.
        if (!at[3] || (at[2] != '\'' && at[3] != '\'')) return TTT_SYMBOL;
        cursor_ = at + 4;
    } else {
        if (at[2] != '\'') return TTT_SYMBOL;
        cursor_ = at + 3;
    }
    return TTT_QUOTED_CHAR;
}

TOKENISER_TOKEN_TYPE Tokeniser::scan_number(char* at) {
    if (*at == '0' && (at[1] | 0x20) == 'x') return scan_hex(at + 2);

    unsigned int value = 0;
    for (; is_digit(*at); ++at) value = value * 10 + (code(*at) - '0');
    int_value_ = value;
    float_value_ = static_cast<float>(value);
    if (*at == '.') return scan_fraction(at + 1);
    cursor_ = at;
    return TTT_INT;
}

TOKENISER_TOKEN_TYPE Tokeniser::scan_hex(char* at) {
    unsigned int value = 0;
    for (unsigned int digit; (digit = classes.hex[code(*at)]) < 16; ++at) {
        value = value << 4 | digit;
    }
    int_value_ = value;
    float_value_ = static_cast<float>(value);
    cursor_ = at;
    return TTT_HEX;
}

TOKENISER_TOKEN_TYPE Tokeniser::scan_fraction(char* at) {
    float value = float_value_;
    float scale = 1.0f;
    for (; is_digit(*at); ++at) {
        scale *= 0.1f;
        value += static_cast<float>(*at - '0') * scale;
    }
    float_value_ = value;
    cursor_ = at + ((*at | 0x20) == 'f');
    return TTT_FLOAT;
}

}  // namespace QX
