#include <gtest/gtest.h>

#include <string>

#include "qx/data/xml.h"
#include "qx/data/xml_parser.h"
#include "qx/text/convert.h"
#include "tests/data/xml_support.h"
#include "tests/harness/random.h"

namespace {

struct Row {
    char const* text;
    bool pretty;
    bool include_root;
    char const* written;
};

// clang-format off
constexpr Row rows[] = {
    {"<a v=\"it's\" v='2'/>", false, false, "<a v = 'it&apos;s' v = '2' />"},
    {"<a> \t\r\n</a><b>x</b>", false, false, "<a /><b>x</b>"},
    {"<a/>lost<b> <c/>kept</b>kept", false, false, "<a /><b> <c /></b>kept"},
    {"<?xml version='1.0'?>\n<a/>", false, true, "<?xml version = '1.0'?>\n<a />"},
    {"<?xml version='1.0'?>", false, true, "<?xml version = '1.0'? />"},
    {"", false, true, "<?xml? />"},
    {"", false, false, ""},
    {"<a>&euro;&#256;&#127;\t&#1;&eacute;\"</a>", false, false,
     "<a>&euro;&#x0100;&#x007F;\t\x01&eacute;&quot;</a>"},
    {"<?p?></?p?>", false, false, "<?p?? />"},
    {"<?p a='1'>x</p><q/>", false, false, "<?p a = '1'?>x<q />"},
    {"<a><b>x</b>  <c/></a>t<d/>", true, false, "<a>\n<b>\n\tx\n</b>\n<c /></a>t<d />"},
    // Decoded: a sequence cut short is nothing, an overlong blank is a blank, U+0120 is neither.
    {"<a>\xE9</a><b> \xC0\xA0</b><c>\xC4\xA0</c>", true, false,
     "<a></a><b></b><c>\n&#x0120;</c>"},
    {"<a><b> &lt; </b></a>", true, true, "<?xml?>\n<a>\n\t<b>\n\t\t &lt; \n\t</b>\n</a>"},
};
// clang-format on

TEST(XmlWriter, writes_each_form_as_told) {
    for (Row const& row : rows) {
        QX::XML const tree = test::parsed<QX::XML>(row.text);
        EXPECT_EQ(test::written(tree, row.pretty, row.include_root), row.written) << row.text;
        EXPECT_EQ(tree.calculate_xml_size(row.pretty, row.include_root), std::strlen(row.written));
        char buffer[256] = {};
        EXPECT_EQ(
            tree.write_to_buffer(buffer, row.pretty, row.include_root), std::strlen(row.written));
        EXPECT_STREQ(buffer, row.written);
    }
}

TEST(XmlWriter, names_that_begin_with_an_exclamation_mark_have_no_end) {
    QX::XML tree;
    tree.tags.push_back(QX::XML::Tag("!a", ""));
    tree.tags.push_back(QX::XML::Tag("!b", "x"));
    tree.tags.push_back(QX::XML::Tag("", "\xC3\xA9\xC4\x80&"));
    EXPECT_EQ(test::written(tree, false, false), "<!a><!b>x<>&eacute;&#x0100;&amp;</>");
}

// One tag in the other, `depth` of them.
template <typename Document>
Document chain(int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += "<t>";
    return test::parsed<Document>(text);
}

// The same, pretty: line `depth` has `tabs(depth)` tabs, and no line break where they are negative.
template <typename Tabs>
std::string pretty_chain(int depth, Tabs tabs) {
    auto const line = [&](int at, char const* text) {
        return (tabs(at) < 0 ? "" : "\n" + std::string(tabs(at), '\t')) + text;
    };
    std::string text;
    for (int at = 0; at < depth; ++at) text += line(at, at < depth - 1 ? "<t>" : "<t />");
    for (int at = depth - 1; at--;) text += line(at, "</t>");
    return text;
}

TEST(XmlWriter, the_indent_ends_at_depth_64) {
    EXPECT_EQ(test::written(chain<QX::XML>(67), true, false), pretty_chain(67, [](int depth) {
                  return depth <= 64 ? depth - 1 : -1;
              }));
}

TEST(XmlWriter, the_second_writer_runs_attributes_on_and_keeps_utf8) {
    struct {
        char const* text;
        bool pretty;
        char const* written;
    } const other_rows[] = {
        {"<?xml version='1.0'?><a n='v' m='\"'>x<b>y</b>z</a>", false,
         "<?xmlversion = '1.0'?><an = 'v'm = '&quot;'>x<b>y</b>z</a>"},
        {"<?xml version='1.0'?><a n='v'>x<b>y</b></a> <c/>", true,
         "<?xmlversion = '1.0'?>\n<an = 'v'>\n\tx\n\t<b>\n\t\ty\n\t</b>\n</a>\n<c />"},
        {"<a>'\xC3\xA9\xC4\x80\x7F</a>", false, "<?xml?><a>'&eacute;\xC4\x80\x7F</a>"},
        {"<?p a='1'>x</p>y", false, "<?xml?><?pa = '1'?>x</?p>y"},
        {"", false, "<?xml? />"},
    };
    for (auto const& row : other_rows) {
        auto const tree = test::parsed<QX::XMLParser>(row.text);
        EXPECT_EQ(test::written(tree, row.pretty), row.written) << row.text;
    }
    QX::XMLParser marked;
    marked.name = "!x";
    marked.tags.push_back(QX::XMLParser::Tag("!y", "z"));
    EXPECT_EQ(test::written(marked, false), "<!x><!y>z");
}

TEST(XmlWriter, the_second_writers_indent_is_clamped_at_32_tabs) {
    EXPECT_EQ(
        test::written(chain<QX::XMLParser>(40), true),
        "<?xml?>" + pretty_chain(40, [](int depth) { return std::min(depth, 32); }));
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

    // A reference is cut in the middle.
    buffer.assign(1100, '#');
    tree.tags[0] = QX::XML::Tag(QX::String(1019, 'n'), "&&");
    EXPECT_EQ(tree.write_to_buffer(buffer.data(), false, false), 1025u);
    EXPECT_EQ(buffer.substr(1019, 7), "n>&am>#");
}

TEST(XmlWriter, a_failed_write_shows_in_the_files_error) {
    QX::FileOut file;
    test::parsed<QX::XML>("<a/>").write(file, false, false);
    EXPECT_NE(file.status(), QX::FILE_OK);
}

QX::String random_text(test::Random& random, unsigned int highest_code) {
    QX::String text;
    for (auto length = random.below(9); length; --length) {
        wchar_t const code[] = {static_cast<wchar_t>(1 + random.below(highest_code)), 0};
        text += QX::must_fix_string_narrow(QX::UniString(code));
    }
    return text;
}

// What the writer keeps: texts that are not blank, epilogs behind tags that have a body.
void grow(QX::XML::Tag& tag, test::Random& random, int depth) {
    for (auto count = random.below(4); count; --count)
        tag.attributes.push_back(
            {QX::String("n") + random_text(random, 1), random_text(random, 0xFFFF)});
    tag.content = QX::String("c") + random_text(random, 126);
    for (auto count = depth ? random.below(4) : 0; count; --count) {
        tag.tags.push_back(QX::XML::Tag("t", ""));
        grow(tag.tags.back(), random, depth - 1);
        tag.tags.back().epilog = random_text(random, 126);
    }
}

TEST(XmlWriter, what_is_written_reads_back_as_the_same_tree) {
    test::Random random;
    for (int round = 0; round < 60; ++round) {
        QX::XML tree;
        tree.name = "?xml";
        grow(tree, random, 4);
        tree.attributes.clear();
        std::string text = test::written(tree, false, false);
        EXPECT_EQ(text.size(), tree.calculate_xml_size(false, false));
        tree.content.clear();
        ASSERT_EQ(test::dump(test::parsed<QX::XML>(text)), test::dump(tree));
    }
}

}  // namespace
