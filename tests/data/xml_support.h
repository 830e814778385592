// xml_support.h - trees as one line of text, and the ways in and out that the XML cases share.
#pragma once

#include <string>

#include "qx/data/xml.h"
#include "qx/data/xml_parser.h"
#include "qx/files/file_streams.h"
#include "tests/harness/temp_folder.h"

namespace test {

// name@attribute=value"content"(children)~epilog, without what is empty.
template <typename Tag>
std::string dump(Tag const& tag) {
    std::string text = tag.name.c_str();
    for (auto const& attribute : tag.attributes)
        text += std::string("@") + attribute.name.c_str() + "=" + attribute.value.c_str();
    if (!tag.content.empty()) text += std::string("\"") + tag.content.c_str() + "\"";
    for (auto const& child : tag.tags)
        text += (&child == &tag.tags.front() ? "(" : " ") + dump(child);
    if (!tag.tags.empty()) text += ')';
    if (!tag.epilog.empty()) text += std::string("~") + tag.epilog.c_str();
    return text;
}

template <typename Document>
bool parse(Document& tree, char* text) {
    if constexpr (requires { tree.parse_std_xml(text); })
        return tree.parse_std_xml(text);
    else
        return tree.parse(text);
}

template <typename Document>
Document parsed(std::string text) {
    Document tree;
    if (!parse(tree, text.data())) tree.name = "failed";
    return tree;
}

// What `write` leaves in a file.
template <typename Document, typename... Flags>
std::string written(Document const& tree, Flags... flags) {
    TempFolder const folder;
    std::string const path = folder.file("tree.xml");
    QX::FileOut file(path.c_str());
    tree.write(file, flags...);
    file.close();
    return read_file(path);
}

}  // namespace test
