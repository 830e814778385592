// format_fuzz.cpp - both formatters in both widths, on formats that end at a page's end.
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz/driver.h"
#include "qx/text/format.h"
#include "tests/harness/guarded.h"

namespace {

template <typename Text>
void check(Text const& text) {
    if (text.c_str()[text.length()] != 0 || text.length() > text.capacity()) std::abort();
}

// A string serves every letter that takes a pointer: its length reads as a terminated text.
template <typename Text, typename Unit>
void format_all(Unit const* format, std::size_t length, Text const& string) {
    check(Text::format(string));
    check(QX::format_typed<Unit>(format, {}));
    check(Text::format(format, -7, 1.5f, string));
    check(Text::format(format, string, 3e38f, 7u, 'c'));
    check(Text::format(format, "text", -1ll, string.c_str(), ~0ull, 1e-40f));

    std::vector<void const*> const pointers(length + 1, &string);
    test::Guarded const slots(pointers.data(), pointers.size() * 8);
    check(Text::format_unsafe(format, slots.data()));
}

// Every conversion is at least two characters, so the slots suffice.
void one(char* data, std::size_t size) {
    if (size == 0) return;
    data[size - 1] = 0;
    format_all<QX::String, char>(data, size, "abc");

    std::wstring wide(data, data + size);
    test::Guarded const copy(wide.c_str(), size * sizeof(wchar_t));
    auto const* const text = reinterpret_cast<wchar_t const*>(copy.data());
    format_all<QX::UniString, wchar_t>(text, size, L"abc");
}

}  // namespace

int main(int argc, char** argv) {
    return fuzz::run(
        "format", argc, argv,
        {"%s %d %.2f%%", "%-+05d|%0300x|%.200f|%lld", "%S%C%c%s%llu%llx%p%P%X%u%i", "%5%ll%q"},
        one);
}
