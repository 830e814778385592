#include "qx/data/xml.h"

#include <cstring>
#include <memory>
#include <vector>

#include "benchmarks/bench.h"
#include "benchmarks/data/texts.h"
#include "qx/data/xml_parser.h"
#include "qx/files/file_streams.h"
#include "qx/memory/heap.h"

#if defined(QX_RIVAL_PUGIXML)
#include <pugixml.hpp>
#endif
#if defined(QX_RIVAL_TINYXML2)
#include <tinyxml2.h>
#endif

namespace {

struct {
    unsigned long long all, texts, attributes;
} heap_bytes;

// As the arena rounds: 8 bytes in front, multiples of 16, 32 at least. Blocks given back while an
// array grows are not taken off, so that the sum is an upper bound.
void count_block(void const*, unsigned int size) {
    unsigned int const chunk = size ? std::max(32u, (size + 8 + 15) & ~15u) : 0;
    heap_bytes.all += chunk;
    if (size < 64) heap_bytes.texts += chunk;
    if (size == 8 * sizeof(QX::XML_ATTRIBUTE) + 16) heap_bytes.attributes += chunk;
}

double seconds_of(std::function<void()> const& work) {
    auto const start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Each parse drops the tree of the one before, with every contender.
void parse_row(bench::Table const& table, char const* name, std::string const& text, int times) {
    std::vector<char> buffer(text.c_str(), text.c_str() + text.size() + 1);
    auto const repeat = [times](auto work) {
        return [times, work] {
            for (int i = 0; i < times; ++i) work();
        };
    };
    QX::XML tree;
    QX::XMLParser other;
    std::vector<bench::Contender> contenders{
        {"QXLibs", repeat([&] {
             std::memcpy(buffer.data(), text.c_str(), text.size() + 1);
             bench::keep(tree.parse_std_xml(buffer.data()));
         })},
        {"QXLibs, second parser", repeat([&] { bench::keep(other.parse(buffer.data())); })}};
#if defined(QX_RIVAL_TINYXML2)
    tinyxml2::XMLDocument tiny;
    contenders.push_back({"tinyxml2", repeat([&] { tiny.Parse(text.c_str(), text.size()); })});
#endif
#if defined(QX_RIVAL_PUGIXML)
    pugi::xml_document pugi;
    contenders.push_back(
        {"pugixml (no owned texts)", repeat([&] { pugi.load_buffer(text.c_str(), text.size()); })});
#endif
    table.row(name, static_cast<double>(text.size()) * times, contenders);
}

void write_row(bench::Table const& table, char const* name, std::string text, bool pretty) {
    QX::XML tree;
    tree.parse_std_xml(text.data());
    QX::XMLParser other;
    other.parse(text.data());
    std::vector<bench::Contender> contenders{
        {"QXLibs",
         [&] {
             QX::FileOut file("NUL");
             tree.write(file, pretty, true);
         }},
        {"QXLibs, second writer", [&] {
             QX::FileOut file("NUL");
             other.write(file, pretty);
         }}};
#if defined(QX_RIVAL_PUGIXML)
    pugi::xml_document pugi;
    pugi.load_buffer(text.c_str(), text.size());
    contenders.push_back(
        {"pugixml",
         [&] { pugi.save_file("NUL", "\t", pretty ? pugi::format_indent : pugi::format_raw); }});
#endif
#if defined(QX_RIVAL_TINYXML2)
    tinyxml2::XMLDocument tiny;
    tiny.Parse(text.c_str(), text.size());
    contenders.push_back({"tinyxml2", [&] { tiny.SaveFile("NUL", !pretty); }});
#endif
    table.row(name, static_cast<double>(text.size()), contenders);
}

void destruction_and_room(std::string const& text) {
    std::vector<double> parse, destroy;
    for (int round = 0; round < 7; ++round) {
        std::string copy = text;
        auto tree = std::make_unique<QX::XML>();
        if (round == 0) QX::allocation_hook = count_block;
        parse.push_back(seconds_of([&] { tree->parse_std_xml(copy.data()); }));
        QX::allocation_hook = nullptr;
        destroy.push_back(seconds_of([&] { tree.reset(); }));
    }
    double const size = static_cast<double>(text.size());
    std::printf(
        "\nparsing %.3g ns/byte, destroying %.3g ns/byte; at most %.2f bytes of heap for a byte of "
        "text: %.2f texts, %.2f arrays of attributes, the rest arrays of tags\n",
        bench::median(parse) / size * 1e9, bench::median(destroy) / size * 1e9,
        static_cast<double>(heap_bytes.all) / size, static_cast<double>(heap_bytes.texts) / size,
        static_cast<double>(heap_bytes.attributes) / size);
}

}  // namespace

int main() {
    std::string const large = texts::xml(12000000), small = texts::xml(1900);
    destruction_and_room(large);
    bench::Table const table("XML (per byte of text)");
    parse_row(table, "parse 12 MB", large, 1);
    parse_row(table, "parse 2 KB, 2000 times", small, 2000);
    write_row(table, "write 12 MB indented", large, true);
    write_row(table, "write 12 MB raw", large, false);
}
