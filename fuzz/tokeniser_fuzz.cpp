// tokeniser_fuzz.cpp - any text, under every set of options, is cut and left whole.
#include <cstring>
#include <string>

#include "fuzz/driver.h"
#include "qx/data/tokeniser.h"

namespace {

// The driver's inputs end at a guard page without a terminator: the last byte becomes one.
void one(char* data, std::size_t size) {
    if (!size) return;
    data[size - 1] = 0;
    std::string const before(data, size);
    for (unsigned int options = 0; options < 8; ++options) {
        QX::Tokeniser tokeniser;
        tokeniser.tokenise(data);
        tokeniser.update_options(static_cast<QX::TOKENISER_PROCESSING_OPTIONS>(options));
        char* expected = data;
        while (tokeniser.next() != QX::TTT_END) {
            if (tokeniser.token() != expected || !*expected) __builtin_trap();
            expected += std::strlen(tokeniser.token());
        }
        tokeniser.close();
        if (std::memcmp(data, before.data(), size) != 0) __builtin_trap();
    }
}

}  // namespace

int main(int argc, char** argv) {
    return fuzz::run(
        "tokeniser", argc, argv,
        {"name = 'c' + \"text \\\" more\" // note\r\n0x1F <<= 1.5f->x;",
         "a&&=b||c ^ ~d /* rest */ e", "'\\n' '\\'' \"\\\\\" 12.f 0X \n\r\t."},
        one);
}
