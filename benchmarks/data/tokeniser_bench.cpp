#include "qx/data/tokeniser.h"

#include <cctype>
#include <cstring>

#include "benchmarks/bench.h"
#include "benchmarks/data/texts.h"

namespace {

// A lexer in the manner of generated ones: a switch on the first character, then a table look-up a
// character; it neither terminates tokens nor converts numbers.
class DirectLexer {
public:
    explicit DirectLexer(char const* text) : at_(reinterpret_cast<unsigned char const*>(text)) {
        for (int c = 0; c < 256; ++c) word_[c] = std::isalnum(c) || c == '_';
    }

    // 0 at the end; blanks, line ends and comments are passed over.
    __attribute__((noinline)) int next() {
        for (;;) {
            unsigned char const c = *at_++;
            switch (c) {
            case 0: --at_; return 0;
            case ' ':
            case '\t':
            case '\n':
            case '\r': continue;
            case '"':
                while (*at_ && *at_ != '"') ++at_;
                at_ += *at_ == '"';
                return 1;
            case '0' ... '9':
                while (std::isdigit(*at_)) ++at_;
                if (*at_ != '.') return 2;
                do ++at_;
                while (std::isdigit(*at_));
                return 3;
            case 'a' ... 'z':
            case 'A' ... 'Z':
            case '_':
                while (word_[*at_]) ++at_;
                return 4;
            case '/':
                if (*at_ != '/') return 5;
                while (*at_ && *at_ != '\n') ++at_;
                continue;
            case '-': at_ += *at_ == '>' || *at_ == '-' || *at_ == '='; return 5;
            case '+': at_ += *at_ == '+' || *at_ == '='; return 5;
            case '=':
            case '!':
            case '*': at_ += *at_ == '='; return 5;
            case '&':
            case '<': at_ += *at_ == c; return 5;
            default: return 5;
            }
        }
    }

private:
    unsigned char const* at_;
    bool word_[256];
};

std::size_t count_directly(char const* text) {
    DirectLexer lexer(text);
    std::size_t tokens = 0;
    while (lexer.next()) ++tokens;
    return tokens;
}

}  // namespace

int main() {
    std::string text = texts::code(8000000);
    bench::Table const table("tokeniser (per byte of C-like source)");
    table.row(
        "8 MB", static_cast<double>(text.size()),
        {{"QXLibs",
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
         {"lexer of the generated kind", [&] { bench::keep(count_directly(text.c_str())); }},
         {"strlen of the C run-time", [&] { bench::keep(std::strlen(text.c_str())); }}});
}
