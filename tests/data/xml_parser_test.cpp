#include "qx/data/xml_parser.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>

#include "qx/data/entities.h"
#include "tests/data/xml_support.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/guarded.h"

namespace {

// The tree that comes of a text, with "!" in front where the parse fails. The text lies at a guard
// page and is whole again afterwards.
template <typename Document>
std::string read(std::string const& text) {
    test::Guarded const guarded(text.c_str(), text.size() + 1);
    Document tree;
    bool const good = test::parse(tree, guarded.data());
    EXPECT_EQ(guarded.data(), text);
    return (good ? "" : "!") + test::dump(tree);
}

struct Row {
    char const* text;
    char const* tree;
    char const* other_tree = nullptr;  // of XMLParser, where it differs
};

// clang-format off
constexpr Row rows[] = {
    {"", "?xml"},
    {" text ", "?xml\" text \""},
    {"<a>x<b/>y<c/>z</a>t", "?xml(a\"x\"(b~y c~z)~t)"},
    {"<a/>tail", "?xml(a~tail)"},
    // The declaration.
    {"<?XmL\tversion='1.0' encoding = \"x\" ?> <a/>", "?xml@version=1.0@encoding=x\" \"(a)"},
    {"<?xml?>", "?xml(?xml?)"},
    {"<?xmlx a='1'?>", "!?xml(?xmlx@a=1@=)"},
    {" <?xml a='1'>b", "?xml\" \"(?xml@a=1\"b\")"},
    // Attributes: the '=' and the quote are taken on trust.
    {"<a b=\"1\" b=\"2\"/>", "?xml(a@b=1@b=2)"},
    {"<a b = '1'c='2'\n/>", "?xml(a@b=1@c=2)"},
    {"<a b=1 d='2' 1e='3'>", "?xml(a@b= d='2' @e=3)"},
    {"<a b:'1' ='2'>", "?xml(a@b:'1'=2)"},
    {"<a b x1y1>", "?xml(a@b=y)"},
    {"<a =='1'>", "?xml(a@==1)"},
    {"<a b=&x&>", "?xml(a@b=x)"},
    // Names.
    {"<a/b>", "?xml(a~>)", "?xml(a/b)"},
    {"<a/b/>t", "?xml(a~/>t)", "?xml(a/b~t)"},
    {"<>x</>", "?xml(\"x\")"},
    {"< a='1'/>", "?xml(@a=1)"},
    {"<a / ></a>y", "?xml(a~>)"},
    // Comments and other markup leave nothing, not even a seam.
    {"x<!-- <a/> -->y<!DOCTYPE a [>]<!>z", "?xml\"xy]z\""},
    {"<a/>x<!---->y", "?xml(a~xy)"},
    {"<!-->--><a/>", "?xml(a)"},
    // Ends: not compared, and not needed.
    {"<a></b>", "?xml(a)"},
    {"<a><b>x", "?xml(a(b\"x\"))"},
    {"<a>x</a y=z>w", "?xml(a\"x\"~w)"},
    {"<a/></b>rest", "?xml(a)"},
    // References.
    {"<a>&lt;&amp;&quot;&eacute;&euro;</a>", "?xml(a\"<&\"\xC3\xA9\xE2\x82\xAC\")"},
    {"<a b='&gt;x&Alpha;'/>", "?xml(a@b=>x\xCE\x91)"},
    // Cut short.
    {"<", "!?xml()"},
    {"<a", "!?xml()"},
    {"<a ", "!?xml(a)"},
    {"<a b", "!?xml(a@=)"},
    {"<a b=", "!?xml(a@b=)"},
    {"<a b='x", "!?xml(a@b=)"},
    {"<a b='x'", "!?xml(a@b=x@=)"},
    {"<a/", "!?xml(a)", "!?xml()"},
    {"<a></a", "!?xml(a)"},
    {"x<!-- -", "!?xml\"x\""},
    {"x<!a", "!?xml\"x\""},
    {"x&lt", "!?xml\"x\""},
    {"<?xml ", "!?xml"},
    {"\xEF\xBB\xBF<a/>", "!"},
};
// clang-format on

TEST(XmlParser, reads_each_form_as_told) {
    for (Row const& row : rows) {
        EXPECT_EQ(read<QX::XML>(row.text), row.tree) << row.text;
        char const* const other = row.other_tree ? row.other_tree : row.tree;
        EXPECT_EQ(read<QX::XMLParser>(row.text), other) << row.text;
    }
}

struct Reference {
    char const* name;
    char const* in_attribute;  // null: the parse fails
    char const* in_content;
};

// clang-format off
constexpr Reference references[] = {
    {"lt", "<", "<"},
    {"apos", "'", "'"},
    {"#65", "A", "A"},
    {"#00065", "A", "A"},
    {"#0", "", ""},
    {"#xE9", "\xC3\xA9", nullptr},
    {"#x41", "A", ")"},             // content has decimal digits there
    {"#xFFff", "\xEF\xBF\xBF", nullptr},
    {"#x10000", nullptr, "\xE2\x9C\x90"},
    {"#65535", "\xEF\xBF\xBF", "\xEF\xBF\xBF"},
    {"#65536", nullptr, nullptr},
    {"#x100000041", nullptr, nullptr},
    {"#x", nullptr, nullptr},
    {"#", nullptr, nullptr},
    {"#X41", nullptr, nullptr},
    {"#x4g", nullptr, nullptr},
    {"#x/", nullptr, nullptr},
    {"#x:", nullptr, nullptr},
    {"", nullptr, nullptr},
    {"LT", nullptr, nullptr},
    {" lt", nullptr, nullptr},
};
// clang-format on

// The text of a reference, or the failure that leaves a terminator in place of its ';'.
template <typename Document>
void expect_reference(std::string const& before, char const* name, char const* expected) {
    std::string text = before + "&" + name + ";c'/>";
    std::string const whole = text;
    Document tree;
    bool const good = test::parse(tree, text.data());
    EXPECT_EQ(good, expected != nullptr) << whole;
    if (good) {
        EXPECT_EQ(text, whole);
        QX::XML_ATTRIBUTE const* const held = tree.tags[0].attributes.data();
        std::string const read = held ? held->value.c_str() : tree.tags[0].content.c_str();
        EXPECT_EQ(read.substr(0, read.find('c') + 1), std::string("b") + expected + "c") << whole;
    } else {
        std::size_t const end = before.size() + 1 + std::strlen(name);
        EXPECT_EQ(text.substr(0, end), whole.substr(0, end));
        EXPECT_EQ(text[end], 0);
        EXPECT_EQ(text.substr(end + 1), whole.substr(end + 1));
    }
}

TEST(XmlParser, references_have_one_rule_in_attributes_and_another_in_content) {
    for (Reference const& row : references) {
        expect_reference<QX::XML>("<a n='b", row.name, row.in_attribute);
        expect_reference<QX::XML>("<a>b", row.name, row.in_content);
        // Named characters only, and no apos.
        char const* const other = std::string(row.name) == "lt" ? "<" : nullptr;
        expect_reference<QX::XMLParser>("<a n='b", row.name, other);
        expect_reference<QX::XMLParser>("<a>b", row.name, other);
    }
}

TEST(XmlParser, every_named_character_is_found_by_name_and_by_code) {
    unsigned long long sum = 0;
    for (QX::Entity const& entity : QX::entity_table) {
        EXPECT_EQ(QX::find_entity(entity.name), entity.code);
        EXPECT_STREQ(QX::entity_name(entity.code), entity.name);
        sum += entity.code;
    }
    // Summed over the tables of HTML 4, and 39.
    EXPECT_EQ(sum, 868281u);
    EXPECT_EQ(QX::find_entity("diams"), 9830u);
    EXPECT_EQ(QX::find_entity("lang"), 9001u);
    EXPECT_EQ(QX::find_entity("am"), 0u);
    EXPECT_EQ(QX::entity_name(0x10027), nullptr);
}

constexpr char sample[] = "<?xml v='1'?><a b=\"&lt;\">x&amp;<!-- c --><c d='e'/>y</a>\n<f/>";

// No short or damaged text is read past its end, and only a failed reference leaves a mark.
template <typename Document>
void expect_sound(std::string const& text) {
    test::Guarded const guarded(text.c_str(), text.size() + 1);
    Document tree;
    bool const good = test::parse(tree, guarded.data());
    std::size_t changed = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (guarded.data()[i] != text[i]) changed += text[i] == ';' ? 1 : 2;
    }
    EXPECT_LE(changed, good ? 0u : 1u) << text;
}

TEST(XmlParser, every_prefix_and_one_byte_change_of_a_document_is_read_within_bounds) {
    std::string const whole = sample;
    for (std::size_t size = 0; size < whole.size(); ++size) {
        // With a 0 the text ends there.
        for (char const c : std::string("\0<>/&;\"'=!- a\x80", 14)) {
            std::string changed = c ? whole : whole.substr(0, size + 1);
            changed[size] = c;
            expect_sound<QX::XML>(changed);
            expect_sound<QX::XMLParser>(changed);
        }
    }
}

TEST(XmlParser, running_out_of_memory_anywhere_leaves_a_sound_tree) {
    for (unsigned int nth = 1;; ++nth) {
        std::string text = sample;
        QX::XML tree;
        bool thrown = false;
        test::FailingAllocation const failing(nth);
        try {
            tree.parse_std_xml(text.data());
        } catch (std::bad_alloc const&) {
            thrown = true;
        }
        EXPECT_EQ(thrown, failing.fired());
        if (!thrown) break;
        EXPECT_EQ(text, sample);
    }
}

TEST(XmlParser, files_are_read_whole_and_marked_wide_text_is_narrowed) {
    struct {
        std::string bytes;
        char const* tree;
    } const files[] = {
        {"<a b='c'/>", "?xml(a@b=c)"},
        {std::string("\xFF\xFE<\0a\0/\0>\0", 10), "?xml(a)"},
        {std::string("\xFE\xFF\0<\0a\0/\0>", 10), "?xml(a)"},
        {"", "!"},
        {"\xFF", "!"},
        {"\xEF\xBB\xBF<a/>", "!"},
    };
    test::TempFolder const folder;
    for (auto const& row : files) {
        QX::FileIn file(folder.write("in.xml", row.bytes).c_str(), false);
        QX::XMLParser tree;
        bool const good = tree.parse(file);
        EXPECT_EQ((good ? "" : "!") + test::dump(tree), row.tree);
    }
    QX::FileIn closed;
    EXPECT_FALSE(QX::XMLParser().parse(closed));
    QX::FileIn half(folder.write("in.xml", "<a/><b/>").c_str(), false);
    half.seek(4);
    EXPECT_FALSE(QX::XMLParser().parse(half));
}

}  // namespace
