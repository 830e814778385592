#include "qx/data/tokeniser.h"

#include <cstring>

#include "benchmarks/bench.h"
#include "benchmarks/data/texts.h"

#if defined(QX_RIVAL_RE2C)
#include <generated_lexer.h>
#endif

namespace {

#if defined(QX_RIVAL_RE2C)
std::size_t count_by_generated_lexer(char const* text) {
    auto const* at = reinterpret_cast<unsigned char const*>(text);
    std::size_t tokens = 0;
    while (generated_next(at)) ++tokens;
    return tokens;
}
#endif

}  // namespace

int main() {
    std::string text = texts::code(8000000);
    bench::Table const table("tokeniser (per byte of C-like source)");
    table.row("8 MB", static_cast<double>(text.size()), {
        {"QXLibs",
         [&] {
             QX::Tokeniser tokeniser;
             tokeniser.tokenise(text.data());
             std::size_t tokens = 0;
             while (tokeniser.next_non_comment_non_whitespace_non_eol() != QX::TTT_END) ++tokens;
             tokeniser.close();
             bench::keep(tokens);
         }},
            {"QXLibs, every token, blanks as well",
             [&] {
                 QX::Tokeniser tokeniser;
                 tokeniser.tokenise(text.data());
                 std::size_t tokens = 0;
                 while (tokeniser.next() != QX::TTT_END) ++tokens;
                 tokeniser.close();
                 bench::keep(tokens);
             }},
#if defined(QX_RIVAL_RE2C)
            {"re2c's lexer, nothing terminated or converted",
             [&] { bench::keep(count_by_generated_lexer(text.c_str())); }},
#endif
        {
            "strlen of the C run-time", [&] { bench::keep(std::strlen(text.c_str())); }
        }
    });
}
