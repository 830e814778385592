#include "qx/data/tokeniser.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/harness/guarded.h"

namespace {

using Options = QX::TOKENISER_PROCESSING_OPTIONS;
using Next = QX::TOKENISER_TOKEN_TYPE (QX::Tokeniser::*)();

// One character a type, in the order of the enumeration: end, blank, word, ...
constexpr char type_letters[] = ".bwihfqs/*n$";

// The tokens of `text`, but those of the types in `dropped`, as "w[name]b[ ]i[12]"; the text is
// whole again afterwards. It lies at a guard page.
std::string walk(
    std::string const& text, int options = 0, Next next = &QX::Tokeniser::next,
    std::string const& dropped = "") {
    test::Guarded const guarded(text.c_str(), text.size() + 1);
    std::string joined;
    QX::Tokeniser tokeniser;
    tokeniser.tokenise(guarded.data());
    tokeniser.update_options(static_cast<Options>(options));
    while (auto const type = (tokeniser.*next)()) {
        if (dropped.find(type_letters[type]) != dropped.npos) continue;
        joined += std::string(1, type_letters[type]) + "[" + tokeniser.token() + "]";
    }
    EXPECT_EQ((tokeniser.*next)(), QX::TTT_END);
    EXPECT_STREQ(tokeniser.token(), "");
    tokeniser.close();
    EXPECT_EQ(guarded.data(), text);
    return joined;
}

TEST(Tokeniser, cuts_each_kind_of_token_as_told) {
    struct {
        char const* text;
        char const* tokens;
        int options = 0;
    } const rows[] = {
        {"", ""},
        {" \t// x\n y/* z", "b[ \t]/[// x]n[\n]b[ ]w[y]*[/* z]"},
        {"\r\n\n\r\n\n\r", "n[\r\n]n[\n\r]n[\n]n[\n\r]"},
        {"!=!%=%*=**===>", "$[!=]$[!]$[%=]$[%]$[*=]$[*]$[*=]$[==]$[>]"},
        {"+++=+-- ->-=-", "$[++]$[+=]$[+]$[--]b[ ]$[->]$[-=]$[-]"},
        {"<<=<<<= <=<=>", "$[<<=]$[<<]$[<=]b[ ]$[<=]$[<=]$[>]"},
        {"&&=&& ||=^^=>>=^=|", "$[&&=]$[&&]b[ ]$[||=]$[^^=]$[>>=]$[^=]$[|]"},
        {"a=b", "w[a]$[=]w[b]"},
        {"x <<= 0x1F", "w[x]b[ ]$[<<=]b[ ]h[0x1F]"},
        {"-1 1.5f 1e5", "$[-]i[1]b[ ]f[1.5f]b[ ]i[1]w[e5]"},
        {"/* a */ b", "*[/* a */ b]"},
        {"x/* */\nc", "w[x]*[/* */\nc]"},
        {"0x 0XfG 1.5f1.5g 1. 2f", "h[0x]b[ ]h[0Xf]w[G]b[ ]f[1.5f]f[1.5]w[g]b[ ]f[1.]b[ ]i[2]w[f]"},
        {"\"a\\\"b\" 'c' \"open", "s[\"a\\\"]w[b]s[\" 'c' \"]w[open]"},
        {"\"a\\\"b\" 'c' \"open", "s[\"a\\\"b\"]b[ ]$[']w[c]$[']b[ ]s[\"open]",
         QX::TPO_BACKSLASH_ESCAPES},
        {"'a\"b''c", "s['a\"b']s['c]", QX::TPO_SINGLE_QUOTE_STRINGS | QX::TPO_QUOTED_CHARS},
        {"'a''\\n''ab'", "q['a']q['\\n']$[']w[ab]$[']", QX::TPO_QUOTED_CHARS},
        {"'''x'\\'y", "q[''']w[x]q['\\'y]", QX::TPO_QUOTED_CHARS},
        // Cut short: what would pass the terminator.
        {"'\\'", "$[']$[\\]$[']", QX::TPO_QUOTED_CHARS},
        {"''", "$[']$[']", QX::TPO_QUOTED_CHARS},
        {"\"a\\", "s[\"a\\]", QX::TPO_BACKSLASH_ESCAPES},
    };
    struct {
        Next next;
        char const* dropped;
    } const skippings[] = {
        {&QX::Tokeniser::next_non_comment, "/*"},
        {&QX::Tokeniser::next_non_comment_non_eol, "/*n"},
        {&QX::Tokeniser::next_non_comment_non_whitespace, "b/*"},
        {&QX::Tokeniser::next_non_comment_non_whitespace_non_eol, "b/*n"},
        {&QX::Tokeniser::next_non_whitespace, "b"},
        {&QX::Tokeniser::next_non_whitespace_non_eol, "bn"},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(walk(row.text, row.options), row.tokens) << row.text;
        for (auto const& [next, dropped] : skippings)
            EXPECT_EQ(
                walk(row.text, row.options, next),
                walk(row.text, row.options, &QX::Tokeniser::next, dropped));
    }
    EXPECT_STREQ(QX::tokeniser_token_type_names[QX::TTT_SYMBOL], "TTT_SYMBOL");
}

TEST(Tokeniser, numbers_are_converted_on_the_way_and_wrap_at_32_bits) {
    struct {
        char const* text;
        unsigned int int_value;
        float float_value;
    } const numbers[] = {
        {"4294967298", 2, 2},
        {"0x", 0, 0},
        {"0x1F", 31, 31},
        {"0xFFFFFFFFe", 0xFFFFFFFE, 4294967294.0f},
        {"12.5f", 12, 12.5f},
        // Each digit's scale is the last one's times 0.1, rounded: not the nearest float.
        {"0.12", 0, 0x1.eb852p-4f},
    };
    QX::Tokeniser tokeniser;
    for (auto const& number : numbers) {
        std::string text = number.text;
        tokeniser.tokenise(text.data());
        EXPECT_EQ(tokeniser.options(), 0);
        tokeniser.update_options(QX::TPO_QUOTED_CHARS | QX::TPO_BACKSLASH_ESCAPES);
        tokeniser.next();
        EXPECT_EQ(tokeniser.int_value(), number.int_value) << text;
        EXPECT_EQ(tokeniser.float_value(), number.float_value) << text;
        tokeniser.close();  // before the text goes
        EXPECT_EQ(tokeniser.buffer(), nullptr);
    }
}

}  // namespace
