#include "qx/data/tokeniser.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/harness/guarded.h"
#include "tests/harness/random.h"

namespace {

using Options = QX::TOKENISER_PROCESSING_OPTIONS;
using Next = QX::TOKENISER_TOKEN_TYPE (QX::Tokeniser::*)();

constexpr unsigned int all_options = 7;

// One character a type, in the order of the enumeration: end, blank, word, ...
constexpr char type_letters[] = ".bwihfqs/*n$";

// The tokens of `text` as "w[name]b[ ]i[12]"; the text is whole again afterwards.
// It lies at a guard page.
std::string
walk(std::string const& text, unsigned int options = 0, Next next = &QX::Tokeniser::next) {
    test::Guarded const guarded(text.c_str(), text.size() + 1);
    std::string joined;
    QX::Tokeniser tokeniser;
    tokeniser.tokenise(guarded.data());
    tokeniser.update_options(static_cast<Options>(options));
    while (auto const type = (tokeniser.*next)()) {
        joined += type_letters[type];
        joined += std::string("[") + tokeniser.token() + "]";
    }
    EXPECT_EQ((tokeniser.*next)(), QX::TTT_END);
    EXPECT_STREQ(tokeniser.token(), "");
    tokeniser.close();
    EXPECT_EQ(guarded.data(), text);
    return joined;
}

struct Row {
    char const* text;
    char const* tokens;
    unsigned int options = 0;
};

// clang-format off
constexpr Row rows[] = {
    {"", ""},
    {"a=b", "w[a]$[=]w[b]"},
    {"_a1 \tB\x7F\xE9", "w[_a1]b[ \t]w[B]$[\x7F]$[\xE9]"},
    {"\r\n\n\r\n\n\r", "n[\r\n]n[\n\r]n[\n]n[\n\r]"},
    {"!=!%=%*=**===", "$[!=]$[!]$[%=]$[%]$[*=]$[*]$[*=]$[==]"},
    {"+++=+-- ->-=-", "$[++]$[+=]$[+]$[--]b[ ]$[->]$[-=]$[-]"},
    {"<<=<<<= <=<=>", "$[<<=]$[<<]$[<=]b[ ]$[<=]$[<=]$[>]"},
    {"&&=&& ||=^^=>>=^=|", "$[&&=]$[&&]b[ ]$[||=]$[^^=]$[>>=]$[^=]$[|]"},
    {"=>", "$[=]$[>]"},
    {"a/b/=c//d\ne", "w[a]$[/]w[b]$[/=]w[c]/[//d]n[\n]w[e]"},
    {"x/* a */ b\nc", "w[x]*[/* a */ b\nc]"},
    {"0x 0XfG 1.5f1.5g 1. 1e5 2f -1",
     "h[0x]b[ ]h[0Xf]w[G]b[ ]f[1.5f]f[1.5]w[g]b[ ]f[1.]b[ ]i[1]w[e5]"
                                     "b[ ]i[2]w[f]b[ ]$[-]i[1]"},
    {"\"a\\\"b\" 'c' \"open", "s[\"a\\\"]w[b]s[\" 'c' \"]w[open]"},
    {"\"a\\\"b\" 'c' \"open",
     "s[\"a\\\"b\"]b[ ]$[']w[c]$[']b[ ]s[\"open]", QX::TPO_BACKSLASH_ESCAPES},
    {"'a\"b''c", "s['a\"b']s['c]", QX::TPO_SINGLE_QUOTE_STRINGS | QX::TPO_QUOTED_CHARS},
    {"'a''\\n''ab'", "q['a']q['\\n']$[']w[ab]$[']", QX::TPO_QUOTED_CHARS},
    {"'''x'\\'y", "q[''']w[x]q['\\'y]", QX::TPO_QUOTED_CHARS},
    // Cut short: what would pass the terminator.
    {"'\\'", "$[']$[\\]$[']", QX::TPO_QUOTED_CHARS},
    {"'\\", "$[']$[\\]", QX::TPO_QUOTED_CHARS},
    {"''", "$[']$[']", QX::TPO_QUOTED_CHARS},
    {"\"a\\", "s[\"a\\]", QX::TPO_BACKSLASH_ESCAPES},
};
// clang-format on

TEST(Tokeniser, cuts_each_kind_of_token_as_told) {
    for (Row const& row : rows) EXPECT_EQ(walk(row.text, row.options), row.tokens) << row.text;
}

TEST(Tokeniser, numbers_are_converted_on_the_way_and_wrap_at_32_bits) {
    struct {
        char const* text;
        unsigned int int_value;
        float float_value;
    } const numbers[] = {
        {"0", 0, 0},
        {"4294967295", 4294967295u, 4294967295.0f},
        {"4294967298", 2, 2},
        {"0x", 0, 0},
        {"0xFFFFFFFFe", 0xFFFFFFFE, 4294967294.0f},
        {"12.5f", 12, 12.5f},
        // Each digit's scale is the last one's times 0.1, rounded: not the nearest float.
        {"0.12", 0, 0x1.eb852p-4f},
    };
    for (auto const& number : numbers) {
        std::string text = number.text;
        QX::Tokeniser tokeniser;
        tokeniser.tokenise(text.data());
        tokeniser.next();
        EXPECT_EQ(tokeniser.int_value(), number.int_value) << text;
        EXPECT_EQ(tokeniser.float_value(), number.float_value) << text;
        tokeniser.close();
    }
}

TEST(Tokeniser, starting_again_drops_the_options_and_closing_forgets_the_text) {
    char text[] = "'a'";
    QX::Tokeniser tokeniser;
    tokeniser.tokenise(text);
    tokeniser.update_options(QX::TPO_QUOTED_CHARS);
    EXPECT_EQ(tokeniser.next(), QX::TTT_QUOTED_CHAR);
    tokeniser.close();
    EXPECT_EQ(tokeniser.buffer(), nullptr);
    tokeniser.tokenise(text);
    EXPECT_EQ(tokeniser.next(), QX::TTT_SYMBOL);
}

TEST(Tokeniser, type_names_are_in_the_order_of_the_types) {
    EXPECT_STREQ(QX::tokeniser_token_type_names[QX::TTT_END], "TTT_END");
    EXPECT_STREQ(QX::tokeniser_token_type_names[QX::TTT_SYMBOL], "TTT_SYMBOL");
}

// The tokens of a text that holds no brackets, but those of the letters in `dropped`.
std::string without(std::string const& joined, char const* dropped) {
    std::string kept;
    for (std::size_t at = 0; at < joined.size();) {
        std::size_t const end = joined.find(']', at) + 1;
        if (!std::strchr(dropped, joined[at])) kept += joined.substr(at, end - at);
        at = end;
    }
    return kept;
}

struct Skipping {
    Next next;
    char const* dropped;
};

constexpr Skipping skippings[] = {
    {&QX::Tokeniser::next_non_comment, "/*"},
    {&QX::Tokeniser::next_non_comment_non_eol, "/*n"},
    {&QX::Tokeniser::next_non_comment_non_whitespace, "b/*"},
    {&QX::Tokeniser::next_non_comment_non_whitespace_non_eol, "b/*n"},
    {&QX::Tokeniser::next_non_whitespace, "b"},
    {&QX::Tokeniser::next_non_whitespace_non_eol, "bn"},
};

// Tokens laid end to end are the text, whatever it holds; the skipping forms only drop some.
TEST(Tokeniser, every_text_is_cut_without_loss_and_never_read_past_its_end) {
    constexpr char alphabet[] = "ab_09xf.'\"\\/*+-<>=&! \t\r\n\x80";
    test::Random random;
    for (int round = 0; round < 2000; ++round) {
        std::string text;
        for (auto length = random.below(24); length; --length)
            text += alphabet[random.below(sizeof(alphabet) - 1)];
        unsigned int const options = random.below(all_options + 1);

        std::string const joined = walk(text, options);
        std::string whole;
        for (std::size_t at = 0; at < joined.size();) {
            std::size_t const end = joined.find(']', at);
            whole += joined.substr(at + 2, end - at - 2);
            at = end + 1;
        }
        ASSERT_EQ(whole, text);
        for (auto const& skipping : skippings) {
            ASSERT_EQ(walk(text, options, skipping.next), without(joined, skipping.dropped))
                << text;
        }
    }
}

}  // namespace
