#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "qx/data/xml.h"
#include "qx/data/xml_parser.h"
#include "qx/text/convert.h"
#include "tests/data/xml_support.h"
#include "tests/harness/random.h"

namespace {

using test::parsed;
using test::written;

TEST(XmlWriter, writes_each_form_as_told) {
    struct {
        char const* text;
        bool pretty, include_root;
        char const* written;
    } const rows[] = {
        {"<a v=\"it's\" v='2'/>", false, false, "<a v = 'it&apos;s' v = '2' />"},
        {"<a/>lost<b> \t\r\n</b><b> <c/>kept</b>kept", false, false, "<a /><b /><b> <c /></b>kept"},
        {"<?xml version='1.0'?>\n<a/>", false, true, "<?xml version = '1.0'?>\n<a />"},
        {"", false, true, "<?xml? />"},
        {"<a>&euro;&#256;&#127;\t&#1;&eacute;\"</a>", false, false,
         "<a>&euro;&#x0100;&#x007F;\t\x01&eacute;&quot;</a>"},
        {"<?p a='1'>x</p><q/>", false, false, "<?p a = '1'?>x<q />"},
        {"<a><b>x</b>  <c/></a>t<d/>", true, false, "<a>\n<b>\n\tx\n</b>\n<c /></a>t<d />"},
        // Decoded: a sequence cut short is nothing, an overlong blank is a blank, U+0120 is
        // neither.
        {"<a>\xE9</a><b> \xC0\xA0</b><c>\xC4\xA0</c>", true, false,
         "<a></a><b></b><c>\n&#x0120;</c>"},
        {"<a><b> &lt; </b></a>", true, true, "<?xml?>\n<a>\n\t<b>\n\t\t &lt; \n\t</b>\n</a>"},
    };
    for (auto const& row : rows) {
        auto const tree = parsed<QX::XML>(row.text);
        EXPECT_EQ(written(tree, row.pretty, row.include_root), row.written) << row.text;
        EXPECT_EQ(tree.calculate_xml_size(row.pretty, row.include_root), std::strlen(row.written));
    }
}

TEST(XmlWriter, the_second_writer_runs_attributes_on_and_keeps_utf8) {
    struct {
        char const* text;
        bool pretty;
        char const* written;
    } const rows[] = {
        {"<?xml version='1.0'?><a n='v' m='\"'>x<b>y</b></a> <c/>", true,
         "<?xmlversion = '1.0'?>\n<an = 'v'm = '&quot;'>\n\tx\n\t<b>\n\t\ty\n\t</b>\n</a>\n<c />"},
        {"<a>'\xC3\xA9\xC4\x80\x7F</a>", false, "<?xml?><a>'&eacute;\xC4\x80\x7F</a>"},
        {"<?p a='1'>x</p>y", false, "<?xml?><?pa = '1'?>x</?p>y"},
    };
    for (auto const& row : rows)
        EXPECT_EQ(written(parsed<QX::XMLParser>(row.text), row.pretty), row.written) << row.text;
}

TEST(XmlWriter, the_first_writers_indent_ends_at_depth_64_and_the_seconds_is_clamped) {
    std::string text;
    for (int i = 0; i < 68; ++i) text += "<t>";
    auto const line = [](int tabs, char const* tag) {
        return "\n" + std::string(tabs, '\t') + tag;
    };
    std::string const first = written(parsed<QX::XML>(text), true, false);
    EXPECT_NE(first.find(line(62, "<t>") + line(63, "<t><t><t>")), first.npos);
    std::string const second = written(parsed<QX::XMLParser>(text), true);
    EXPECT_NE(second.find(line(31, "<t>") + line(32, "<t>") + line(32, "<t>")), second.npos);
}

TEST(XmlWriter, a_buffer_gets_1024_bytes_in_blocks_and_the_markup_behind_them) {
    QX::XML tree;
    tree.tags.push_back(QX::XML::Tag(QX::String(2000, 'n'), "&&"));
    tree.tags[0].attributes.push_back({"name", "value"});
    std::string buffer(1100, '#');
    // '<' and 1023 characters of the name; then " ", " ", "=", " ", "'", "'", ">" and the end
    // tag's ">".
    EXPECT_EQ(tree.write_to_buffer(buffer.data(), false, false), 1032u);
    EXPECT_EQ(buffer, "<" + std::string(1023, 'n') + "  = ''>>" + std::string(68, '#'));
    EXPECT_EQ(tree.calculate_xml_size(false, false), 2001u + 15 + 1 + 10 + 2003);
}

QX::String random_text(test::Random& random, unsigned int highest_code) {
    QX::UniString text;
    for (auto length = 1 + random.below(8); length; --length)
        text += static_cast<wchar_t>(1 + random.below(highest_code));
    return QX::must_fix_string_narrow(text);
}

// What the writer keeps: texts that are not blank, epilogs behind tags that have a body.
QX::XML::Tag random_tag(test::Random& random, int depth) {
    QX::XML::Tag tag("t", QX::String("c") + random_text(random, 126));
    for (auto count = random.below(4); count; --count)
        tag.attributes.push_back({"n", random_text(random, 0xFFFF)});
    for (auto count = depth ? random.below(4) : 0; count; --count)
        tag.tags.push_back(random_tag(random, depth - 1));
    tag.epilog = random_text(random, 126);
    return tag;
}

TEST(XmlWriter, what_is_written_reads_back_as_the_same_tree) {
    test::Random random;
    for (int round = 0; round < 60; ++round) {
        QX::XML tree;
        tree.name = "?xml";
        tree.tags.push_back(random_tag(random, 5));
        std::string const text = written(tree, false, false);
        EXPECT_EQ(text.size(), tree.calculate_xml_size(false, false));
        ASSERT_EQ(test::dump(parsed<QX::XML>(text)), test::dump(tree));
    }
}

}  // namespace
