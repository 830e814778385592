// string_bench.cpp - String beside std::string, on this arena and on the C run-time's heap.
#include <cstdlib>
#include <string>

#include "benchmarks/bench.h"
#include "qx/text/string.h"

namespace {

using QX::String;

template <typename T>
struct SystemHeap {
    using value_type = T;
    SystemHeap() = default;
    template <typename U>
    SystemHeap(SystemHeap<U> const&) {}
    T* allocate(std::size_t count) { return static_cast<T*>(std::malloc(count * sizeof(T))); }
    void deallocate(T* block, std::size_t) { std::free(block); }
    bool operator==(SystemHeap const&) const { return true; }
};

using Standard = std::string;  // new and delete are the arena's in every client
using Foreign = std::basic_string<char, std::char_traits<char>, SystemHeap<char>>;

constexpr unsigned int rounds = 2000;

template <typename Text, typename Work>
bench::Contender contender(char const* name, Work work) {
    return {name, [work] {
                for (unsigned int i = 0; i < rounds; ++i) work(static_cast<Text*>(nullptr));
            }};
}

// One row with all three contenders; `work` takes a null pointer that tells the type.
template <typename Work>
void row(bench::Table const& table, char const* name, unsigned int operations, Work work) {
    table.row(
        name, static_cast<double>(operations) * rounds,
        {contender<String>("QXLibs", work), contender<Standard>("std::string, arena", work),
         contender<Foreign>("std::string, system heap", work)});
}

template <typename Text>
Text const& text_of(unsigned int length) {
    static Text texts[8192];
    Text& text = texts[length];
    if (text.empty()) {
        for (unsigned int i = 0; i < length; ++i) text += static_cast<char>('a' + i * 7 % 23);
    }
    return text;
}

template <typename Text>
unsigned int size_of(Text const& text) {
    return static_cast<unsigned int>(text.size());
}

void appending(bench::Table const& table) {
    for (unsigned int const count : {12u, 1000u}) {
        std::string const name = "append a character, " + std::to_string(count) + " times";
        row(table, name.c_str(), count, [count]<typename Text>(Text*) {
            Text text;
            for (unsigned int i = 0; i < count; ++i) text += static_cast<char>('a' + (i & 15));
            bench::keep(text);
        });
    }
    row(table, "append a literal of 16, 64 times", 64, []<typename Text>(Text*) {
        Text text;
        for (unsigned int i = 0; i < 64; ++i) text += "0123456789abcdef";
        bench::keep(text);
    });
}

void copying(bench::Table const& table, unsigned int length) {
    std::string const size = ", " + std::to_string(length);
    char const* const source = text_of<Standard>(length).c_str();
    row(table, ("construct" + size).c_str(), 1, [source]<typename Text>(Text*) {
        char const* at = source;
        bench::keep(at);
        Text const text(at);
        bench::keep(text);
    });
    row(table, ("copy" + size).c_str(), 1, [length]<typename Text>(Text*) {
        Text const copy(text_of<Text>(length));
        bench::keep(copy);
    });
    row(table, ("assign" + size).c_str(), 1, [length]<typename Text>(Text*) {
        static Text target(text_of<Text>(200));
        target = text_of<Text>(length);
        bench::keep(target);
    });
    row(table, ("add" + size).c_str(), 1, [length]<typename Text>(Text*) {
        Text const sum = text_of<Text>(length) + text_of<Text>(length);
        bench::keep(sum);
    });
}

void comparing(bench::Table const& table, unsigned int length) {
    std::string const size = ", " + std::to_string(length);
    row(table, ("equal" + size).c_str(), 1, [length]<typename Text>(Text*) {
        static Text other;
        if (other.size() != length) other = text_of<Text>(length).c_str();
        bool const equal = text_of<Text>(length) == other;
        bench::keep(equal);
    });
    row(table, ("less, last differs" + size).c_str(), 1, [length]<typename Text>(Text*) {
        static Text other;
        if (other.size() != length) {
            other = text_of<Text>(length).c_str();
            other[length - 1] = 'z';
        }
        bool const less = text_of<Text>(length) < other;
        bench::keep(less);
    });
}

void searching(bench::Table const& table, unsigned int length) {
    std::string const size = " in " + std::to_string(length);
    row(table, ("find absent character" + size).c_str(), 1, [length]<typename Text>(Text*) {
        auto const at = text_of<Text>(length).find('Z');
        bench::keep(at);
    });
    row(table, ("find 7 characters at the end" + size).c_str(), 1, [length]<typename Text>(Text*) {
        static Text const needle("wanted!");
        static Text text;
        if (text.size() != length) text = Text(length - 7, 'a') + needle;
        auto const at = text.find(needle);
        bench::keep(at);
    });
    row(table, ("find 7 of common first letter" + size).c_str(), 1, [length]<typename Text>(Text*) {
        static Text const needle("abcdxyz");
        auto const at = text_of<Text>(length).find(needle);
        bench::keep(at);
    });
}

}  // namespace

int main() {
    bench::Table const table("strings");
    appending(table);
    for (unsigned int const length : {10u, 16u, 40u, 200u}) copying(table, length);
    for (unsigned int const length : {10u, 40u, 200u}) comparing(table, length);
    for (unsigned int const length : {64u, 4096u}) searching(table, length);
}
