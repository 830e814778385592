// convert_bench.cpp - UTF-8 to UTF-16 and back beside the system's conversion, warm buffers.
#include "qx/base/windows.h"

#include <string>
#include <vector>

#include "benchmarks/bench.h"
#include "qx/text/convert.h"

namespace {

// Texts of about `size` bytes with so many of 100 characters from each range, in random order.
std::wstring text_of(unsigned int size, unsigned int latin, unsigned int cjk) {
    std::wstring text;
    unsigned int state = 6;
    for (unsigned int bytes = 0; bytes < size;) {
        state = state * 1664525 + 1013904223;
        unsigned int const pick = (state >> 8) % 100;
        unsigned int const offset = (state >> 16) & 63;
        if (pick < latin)
            text += static_cast<wchar_t>(0xC0 + offset), bytes += 2;
        else if (pick < latin + cjk)
            text += static_cast<wchar_t>(0x4E00 + offset), bytes += 3;
        else
            text += static_cast<wchar_t>('0' + offset), ++bytes;
    }
    return text;
}

void both_ways(bench::Table const& table, char const* name, std::wstring const& wide) {
    unsigned int const repeats = wide.size() > 1000 ? 4 : 20000;
    std::vector<char> narrow(wide.size() * 3 + 1);
    std::vector<wchar_t> units(wide.size() + 1);
    std::vector<char> bytes(narrow.size());
    auto const size =
        static_cast<int>(QX::utf8_encode(narrow.data(), wide.c_str()) - narrow.data());
    auto const count = static_cast<int>(wide.size());

    auto const repeat = [=](auto work) {
        return [=] {
            for (unsigned int i = 0; i < repeats; ++i) work();
        };
    };
    char const* const from_narrow = narrow.data();
    wchar_t const* const from_wide = wide.c_str();
    wchar_t* const to_wide = units.data();
    char* const to_narrow = bytes.data();
    auto const row = [&](char const* what, auto ours, auto theirs) {
        table.row(
            (std::string(name) + what).c_str(), repeats * static_cast<double>(size),
            {{"QXLibs", repeat(ours)}, {"system", repeat(theirs)}});
    };
    row(
        ", 8 to 16", [=] { bench::keep(QX::utf8_decode(to_wide, from_narrow)); },
        [=] { bench::keep(MultiByteToWideChar(CP_UTF8, 0, from_narrow, size, to_wide, count)); });
    row(
        ", 16 to 8", [=] { bench::keep(QX::utf8_encode(to_narrow, from_wide)); },
        [=] {
            bench::keep(WideCharToMultiByte(
                CP_UTF8, 0, from_wide, count, to_narrow, static_cast<int>(size), nullptr, nullptr));
        });
}

}  // namespace

int main() {
    bench::Table const table("text conversion (per byte of UTF-8)");
    constexpr unsigned int large = 1 << 20;
    both_ways(table, "ASCII, 1 MiB", text_of(large, 0, 0));
    both_ways(table, "10 % Latin, 1 MiB", text_of(large, 10, 0));
    both_ways(table, "90 % CJK, 1 MiB", text_of(large, 0, 90));
    both_ways(table, "mixed, 1 MiB", text_of(large, 5, 20));
    both_ways(table, "ASCII, 64 bytes", text_of(64, 0, 0));
    both_ways(table, "mixed, 64 bytes", text_of(64, 5, 20));
}
