// xml_fuzz.cpp - any text is read by both parsers, and what they make of it can be worked with.
#include <cstring>
#include <string>

#include "fuzz/driver.h"
#include "qx/data/xml.h"
#include "qx/data/xml_parser.h"

namespace {

// The text is whole again, but for the ';' of a reference that failed.
void expect_whole(char const* data, std::string const& before, bool good) {
    std::size_t changed = 0;
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (data[i] == before[i]) continue;
        if (before[i] != ';' || data[i] != 0) __builtin_trap();
        ++changed;
    }
    if (changed > (good ? 0u : 1u)) __builtin_trap();
}

void one(char* data, std::size_t size) {
    if (!size) return;
    data[size - 1] = 0;
    std::string const before(data, size);

    QX::XML tree;
    bool const good = tree.parse_std_xml(data);
    expect_whole(data, before, good);
    QX::XML copy = tree;
    xml_sort_no_epilog(copy, "a");
    if (!(copy == tree)) __builtin_trap();
    xml_trim_content(copy);
    if (tree.calculate_xml_size(true, true) < tree.name.length() + 3) __builtin_trap();

    std::memcpy(data, before.data(), size);
    QX::XMLParser other;
    expect_whole(data, before, other.parse(data));
    if (!(other == QX::XMLParser(other))) __builtin_trap();

    std::memcpy(data, before.data(), size);
    QX::XML::strip_comments(data);
    if (std::strlen(data) >= size) __builtin_trap();
}

}  // namespace

int main(int argc, char** argv) {
    return fuzz::run(
        "xml", argc, argv,
        {"<?xml version='1.0'?><a b=\"&lt;\" c='2'>x&amp;&#65;<!-- c --><d/>y<d e=''>z</d></a>\n",
         "<a><b><c><d></d></c>t</b><!DOCTYPE x><a b='&#x41;'/></a>&#x41;",
         "<a/b c=d d/><?p q='&;'?>"},
        one);
}
