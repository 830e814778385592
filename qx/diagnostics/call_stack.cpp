#include "qx/diagnostics/call_stack.h"

#include <cstdio>
#include <cstring>

namespace QX {

CallStack::CallStack() : hash_(0), trace_{}, size_(0) {}

CallStack::CallStack(bool, unsigned int) : CallStack() {}

void CallStack::capture(unsigned int) {}

CallStack::Symbol CallStack::fetch(unsigned int) const {
    return {{}, "<not-found>", 0};
}

namespace stack {

namespace {

constexpr unsigned int digits_each = 8;

}  // namespace

void offsets_to_string(std::array<unsigned int, 32> const& offsets, char* text) {
    static constexpr char digits[] = "0123456789abcdef";
    for (unsigned int const offset : offsets) {
        for (unsigned int shift = 32; shift != 0; shift -= 4)
            *text++ = digits[offset >> (shift - 4) & 15];
    }
    *text = 0;
}

std::array<unsigned int, 32> string_to_offsets(char const* text) {
    std::array<unsigned int, 32> offsets = {};
    for (unsigned int& offset : offsets) {
        std::sscanf(text, "%08x", &offset);
        if (strnlen(text, digits_each) < digits_each) break;
        text += digits_each;
    }
    return offsets;
}

}  // namespace stack

}  // namespace QX
