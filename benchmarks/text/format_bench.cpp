// format_bench.cpp - formatting into strings, beside the C run-time's and run-time formats of fmt.
#include <cstdio>
#include <functional>
#include <string>

#include "benchmarks/bench.h"
#include "qx/text/format.h"

#if defined(QX_RIVAL_FMT)
#include <fmt/format.h>
#include <fmt/printf.h>
#endif

namespace {

using QX::String;
using QX::UniString;

constexpr int rounds = 100000;

// `rounds` calls of one formatter, each with another number and float.
template <typename One>
std::function<void()> repeat(One one) {
    return [one] {
        for (int i = 0; i < rounds; ++i) {
            int const number = (i * 7919) & 0xFFFFF;
            one(number, static_cast<float>(number) * 0.37f - 1000.0f);
        }
    };
}

// One workload for everyone. `braces` is the same format in fmt's own grammar.
template <typename... Pick>
void row(
    bench::Table const& table, char const* format, [[maybe_unused]] char const* braces,
    Pick... pick) {
    std::vector<bench::Contender> contenders{
        {"String::format", repeat([=](int number, float real) {
             String const text = String::format(format, pick(number, real)...);
             bench::keep(text.c_str());
         })},
        {"snprintf (mingw)", repeat([=](int number, float real) {
             char buffer[256];
             std::snprintf(buffer, sizeof(buffer), format, pick(number, real)...);
             bench::keep(buffer[0]);
         })},
        {"_snprintf (C run-time)", repeat([=](int number, float real) {
             char buffer[256];
             _snprintf(buffer, sizeof(buffer), format, pick(number, real)...);
             bench::keep(buffer[0]);
         })}};
#if defined(QX_RIVAL_FMT)
    contenders.push_back({"fmt::format_to", repeat([=](int number, float real) {
                              char buffer[256];
                              *fmt::format_to(buffer, fmt::runtime(braces), pick(number, real)...) =
                                  0;
                              bench::keep(buffer[0]);
                          })});
    contenders.push_back({"fmt::format", repeat([=](int number, float real) {
                              std::string const text =
                                  fmt::format(fmt::runtime(braces), pick(number, real)...);
                              bench::keep(text.c_str());
                          })});
    contenders.push_back({"fmt::sprintf", repeat([=](int number, float real) {
                              std::string const text = fmt::sprintf(format, pick(number, real)...);
                              bench::keep(text.c_str());
                          })});
#endif
    table.row(format, rounds, contenders);
}

}  // namespace

int main() {
    bench::Table const table("formatting");
    auto const word = [](int, float) { return "some text"; };
    auto const number = [](int n, float) { return n; };
    auto const real = [](int, float f) { return f; };
    row(table, "%s %d %.2f", "{} {} {:.2f}", word, number, real);
    row(table, "%d", "{}", number);
    row(table, "[%s]", "[{}]", word);
    row(table, "%.3f %.3f %.3f", "{:.3f} {:.3f} {:.3f}", real, real, real);
    row(table, "%08X %.20f", "{:08X} {:.20f}", number, real);

    table.row(
        "untyped %s %d %.2f", rounds,
        {{"String::format_unsafe", repeat([](int n, float f) {
              String const text = String::format_unsafe("%s %d %.2f", "some text", n, f);
              bench::keep(text.c_str());
          })},
         {"_snprintf (C run-time)", repeat([](int n, float f) {
              char buffer[256];
              _snprintf(buffer, sizeof(buffer), "%s %d %.2f", "some text", n, f);
              bench::keep(buffer[0]);
          })}});
    table.row(
        "wide %s %d %.2f", rounds,
        {{"UniString::format", repeat([](int n, float f) {
              UniString const text = UniString::format(L"%s %d %.2f", L"some text", n, f);
              bench::keep(text.c_str());
          })},
         {"_snwprintf (C run-time)", repeat([](int n, float f) {
              wchar_t buffer[256];
              _snwprintf(buffer, 256, L"%s %d %.2f", L"some text", n, static_cast<double>(f));
              bench::keep(buffer[0]);
          })}});
    return 0;
}
