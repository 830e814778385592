// tokeniser.h - cuts writable text into C-like tokens, in place and without allocating.
//
//     "a=b"          =>  IDENTIFIER a, SYMBOL =, IDENTIFIER b, END
//     "x <<= 0x1F"   =>  IDENTIFIER x, WHITESPACE, SYMBOL <<=, WHITESPACE, HEX 0x1F (31), END
//     "-1 1.5f 1e5"  =>  SYMBOL -, INT 1, WHITESPACE, FLOAT 1.5f, WHITESPACE, INT 1,
//                        IDENTIFIER e5, END
//     "/* a */ b"    =>  SLASH_STAR_COMMENT to the end of the text, END
//
// Each token is made a terminated text by writing a 0 over the character behind it; the next call
// puts that character back. Every input yields tokens: there is no error state. Lines are not
// counted: line ends are tokens, and callers count those.
//
//     QX::Tokeniser tokeniser;
//     tokeniser.tokenise(text);
//     while (tokeniser.next_non_whitespace() != QX::TTT_END) use(tokeniser.token());
//     tokeniser.close();
#pragma once

#include "qx/base/export.h"

namespace QX {

enum TOKENISER_TOKEN_TYPE : int {
    TTT_END = 0,                  // the text's terminator; given again at each further call
    TTT_WHITESPACE = 1,           // a run of spaces and tabs
    TTT_IDENTIFIER = 2,           // a letter or '_', then letters, digits and '_'
    TTT_INT = 3,                  // decimal digits; no sign, no suffix, no exponent
    TTT_HEX = 4,                  // "0x" or "0X" and any number of digits, none included
    TTT_FLOAT = 5,                // digits, '.', digits, then 'f' or 'F' if there is one
    TTT_QUOTED_CHAR = 6,          // 'a' or '\n', with TPO_QUOTED_CHARS
    TTT_QUOTED_STRING = 7,        // quoted text with its quotes; may end with the text instead
    TTT_SLASH_SLASH_COMMENT = 8,  // up to a line end, which is left to the next token
    TTT_SLASH_STAR_COMMENT = 9,   // up to the end of the text: the closing mark is not looked for
    TTT_EOL = 10,                 // "\n", "\r", "\r\n" or "\n\r"
    TTT_SYMBOL = 11,              // everything else; operators of up to three characters are one
};

// The enumerators' names, indexed by their values.
QX_API extern char const* const tokeniser_token_type_names[12];

enum TOKENISER_PROCESSING_OPTIONS : unsigned char {
    TPO_QUOTED_CHARS = 1,          // ' may begin a quoted character; without it ' is a symbol
    TPO_BACKSLASH_ESCAPES = 2,     // in quoted strings a backslash protects the next character
    TPO_SINGLE_QUOTE_STRINGS = 4,  // ' begins a quoted string; TPO_QUOTED_CHARS has no effect then
};

// Both sets of options.
constexpr TOKENISER_PROCESSING_OPTIONS
operator|(TOKENISER_PROCESSING_OPTIONS a, TOKENISER_PROCESSING_OPTIONS b) {
    return static_cast<TOKENISER_PROCESSING_OPTIONS>(int{a} | int{b});
}

// A cursor over one text that the caller owns. Plain data: a copy continues from the same place,
// but only one of the two may go on, since both write into the text. One thread at a time.
class Tokeniser {
public:
    // Starts at `text`, which is writable, terminated and not null, with no options set.
    QX_API void tokenise(char* text);

    // A set of TPO_ bits. May be changed between any two tokens.
    void update_options(TOKENISER_PROCESSING_OPTIONS options) { options_ = options; }

    // Moves to the next token and gives its type.
    QX_API TOKENISER_TOKEN_TYPE next();

    // As `next`, past the kinds named.
    QX_API TOKENISER_TOKEN_TYPE next_non_comment();
    QX_API TOKENISER_TOKEN_TYPE next_non_comment_non_eol();
    QX_API TOKENISER_TOKEN_TYPE next_non_comment_non_whitespace();
    QX_API TOKENISER_TOKEN_TYPE next_non_comment_non_whitespace_non_eol();
    QX_API TOKENISER_TOKEN_TYPE next_non_whitespace();
    QX_API TOKENISER_TOKEN_TYPE next_non_whitespace_non_eol();

    // Makes the text whole again and forgets it. The text belongs to the tokeniser until then.
    QX_API void close();

    // The current token, terminated until the next call. At TTT_END the empty text.
    char* token() const { return token_; }

    // The last number's value; other tokens leave both alone. Integers wrap at 32 bits.
    // For TTT_FLOAT `int_value` is the part before the point.
    unsigned int int_value() const { return int_value_; }
    float float_value() const { return float_value_; }

    char* buffer() const { return buffer_; }         // the text's start
    char* cursor() const { return cursor_; }         // where the next token begins
    char saved_char() const { return saved_char_; }  // what stood at `cursor`
    TOKENISER_PROCESSING_OPTIONS options() const { return options_; }

private:
    TOKENISER_TOKEN_TYPE next_past(unsigned int skipped);
    TOKENISER_TOKEN_TYPE scan(char* at);
    TOKENISER_TOKEN_TYPE scan_slash(char* at);
    TOKENISER_TOKEN_TYPE scan_quoted_string(char* at, char quote);
    TOKENISER_TOKEN_TYPE scan_single_quote(char* at);
    TOKENISER_TOKEN_TYPE scan_number(char* at);
    TOKENISER_TOKEN_TYPE scan_hex(char* at);
    TOKENISER_TOKEN_TYPE scan_fraction(char* at);

    char* token_ = nullptr;
    unsigned int int_value_ = 0;
    float float_value_ = 0;
    char* buffer_ = nullptr;
    char* cursor_ = nullptr;
    char saved_char_ = 0;
    TOKENISER_PROCESSING_OPTIONS options_ = {};
};

}  // namespace QX
