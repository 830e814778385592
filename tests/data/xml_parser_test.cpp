#include "qx/data/xml_parser.h"

#include <gtest/gtest.h>

#include <string>

#include "qx/data/entities.h"
#include "qx/memory/heap.h"
#include "tests/data/xml_support.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"

namespace {

// The tree that comes of a text, with "!" in front where the parse fails, and "!0" where it leaves
// a 0 in place of a ';'. Otherwise the text is whole again afterwards. It lies at a guard page.
template <typename Document>
std::string read(std::string const& text) {
    test::Guarded const guarded(text.c_str(), text.size() + 1);
    Document tree;
    std::string result = test::parse(tree, guarded.data()) ? "" : "!";
    std::string after(guarded.data(), text.size());
    std::size_t const mark = after.find('\0');
    if (mark != after.npos && text[mark] == ';') {
        after[mark] = ';';
        result += '0';
    }
    EXPECT_EQ(after, text);
    return result + test::dump(tree);
}

struct Row {
    char const* text;
    char const* tree;
    char const* other_tree = nullptr;  // of XMLParser, where it differs
};

void expect_trees(std::initializer_list<Row> rows) {
    for (Row const& row : rows) {
        EXPECT_EQ(read<QX::XML>(row.text), row.tree) << row.text;
        char const* const other = row.other_tree ? row.other_tree : row.tree;
        EXPECT_EQ(read<QX::XMLParser>(row.text), other) << row.text;
    }
}

// clang-format off
TEST(XmlParser, reads_each_form_as_told) {
    expect_trees({
        {"", "?xml"},
        {"<a>x<b/>y<c/>z</a>t", "?xml(a\"x\"(b~y c~z)~t)"},
        // The declaration.
        {"<?XmL\tversion='1.0' encoding = \"x\" ?> <a/>", "?xml@version=1.0@encoding=x\" \"(a)"},
        // Attributes: the '=' and the quote are taken on trust.
        {"<a b = '1'b=\"2\"\n/>", "?xml(a@b=1@b=2)"},
        {"<a b=1 d='2' 1e='3'>", "?xml(a@b= d='2' @e=3)"},
        {"<a b:'1' ='2'>", "?xml(a@b:'1'=2)"},
        {"<a b x1y1>", "?xml(a@b=y)"},
        {"<a =='1'>", "?xml(a@==1)"},
        // Names.
        {"<a/b/>t", "?xml(a~/>t)", "?xml(a/b~t)"},
        {"<>x</>", "?xml(\"x\")"},
        {"<a / ></a>y", "?xml(a~>)"},
        // Comments and other markup leave nothing, not even a seam.
        {"x<!-- <a/> -->y<!DOCTYPE a [>]<!>z", "?xml\"xy]z\""},
        {"<a/>x<!---->y<!-->-->", "?xml(a~xy)"},
        // Ends: not compared, and not needed.
        {"<a><b>x", "?xml(a(b\"x\"))"},
        {"<a>x</a y=z>w", "?xml(a\"x\"~w)"},
        // Cut short.
        {"<", "!?xml()"},
        {"<a b='x", "!?xml(a@b=)"},
        {"<a/", "!?xml(a)", "!?xml()"},
        {"x<!-- -", "!?xml\"x\""},
        {"x&lt", "!?xml\"x\""},
        {"\xEF\xBB\xBF<a/>", "!"},
    });
}

TEST(XmlParser, references_have_one_rule_in_attributes_and_another_in_content) {
    expect_trees({
        // The second parser has named characters only, and no apos.
        {"<a n='&lt;&apos;&#00065;&#0;&#xE9;&#x41;&#xFFff;&#65535;'/>",
         "?xml(a@n=<'A\xC3\xA9" "A\xEF\xBF\xBF\xEF\xBF\xBF)", "!0?xml(a@n=<)"},
        // Behind "#x" content has decimal digits.
        {"<a>&lt;&apos;&#65;&#0;&#x41;&#x10000;", "?xml(a\"<'A)\xE2\x9C\x90\")", "!0?xml(a\"<\")"},
        {"<a>&#xE9;", "!0?xml(a)"},
        {"<a>&#`;", "!0?xml(a)"},
        {"<a n='&#x10000;'/>", "!0?xml(a@n=)"},
        {"<a n='&#x100000041;'/>", "!0?xml(a@n=)"},
        {"<a n='&#x;'/>", "!0?xml(a@n=)"},
        {"<a n='&;'/>", "!0?xml(a@n=)"},
    });
}
// clang-format on

TEST(XmlParser, every_named_character_is_found_by_name_and_by_code) {
    unsigned long long sum = 0;
    for (QX::Entity const& entity : QX::entity_table) {
        EXPECT_EQ(QX::find_entity(entity.name), entity.code);
        EXPECT_STREQ(QX::entity_name(entity.code), entity.name);
        sum += entity.code;
    }
    // Summed over the tables of HTML 4, and 39.
    EXPECT_EQ(sum, 868281u);
    EXPECT_EQ(QX::find_entity("am"), 0u);
    EXPECT_EQ(QX::entity_name(0x10027), nullptr);
}

// Plain start tags are read at one go; where the hook is to see each block they go step by step.
template <typename Document>
void expect_one_reading(std::string const& text) {
    std::string const at_one_go = read<Document>(text);
    auto const hook = std::exchange(QX::allocation_hook, [](void const*, unsigned int) {});
    EXPECT_EQ(at_one_go, read<Document>(text)) << text;
    QX::allocation_hook = hook;
}

TEST(XmlParser, damaged_documents_are_read_within_bounds_and_in_both_ways_alike) {
    std::string const whole =
        "<?xml v='1'?><a b=\"&lt;\" c=''>x&amp;<!-- c --><c d='e'/>y</a>\n<f/>";
    std::string const changes("\0<>/&;\"'=!- a\x80", 14);
    test::Random random;
    for (std::size_t i = 0; i < whole.size() * changes.size(); ++i) {
        std::string text = whole;
        std::size_t const at = i / changes.size();
        text[at] = changes[i % changes.size()];
        if (!text[at]) text.resize(at);
        for (auto more = random.below(12), place = random.below(60); more; --more)
            if (place < text.size()) text.insert(place, " k='0123456789abcdefgh'");
        expect_one_reading<QX::XML>(text);
        expect_one_reading<QX::XMLParser>(text);
    }
}

TEST(XmlParser, running_out_of_memory_anywhere_leaves_a_sound_tree) {
    auto const parse = [](test::Attempt const& attempt) {
        QX::XML tree;
        char text[] = "<?xml v='1'?><a b=\"&lt;\">x&amp;<c d='e'/>y</a>";
        attempt([&] { tree.parse_std_xml(text); });
    };
    test::walk_allocations({{"parse", parse}});
}

// All texts of a tag are made together: the small ones must go again.
TEST(XmlParser, a_text_that_the_system_has_no_room_for_leaves_nothing_of_its_tag) {
    std::string text = "<a b='c' d='" + std::string(1 << 26, 'x') + "'/>";
    QX::XML tree;
    test::StandIn const system(
        "VirtualAlloc", +[]() -> void* { return nullptr; });
    EXPECT_THROW(tree.parse_std_xml(text.data()), std::bad_alloc);
}

TEST(XmlParser, files_are_read_whole_and_marked_wide_text_is_narrowed) {
    std::tuple<std::string, char const*, int> const files[] = {
        {"<a b='c'/>", "?xml(a@b=c)", 0},
        {std::string("\xFF\xFE<\0a\0/\0>\0", 10), "?xml(a)", 0},
        {std::string("\xFE\xFF\0<\0a\0/\0>", 10), "?xml(a)", 0},
        {"", "!", 0},
        {"\xFF", "!", 0},
        {"<a/><b/>", "!", 4},
    };
    test::TempFolder const folder;
    for (auto const& [bytes, expected, start] : files) {
        QX::FileIn file(folder.write("in.xml", bytes).c_str(), false);
        file.seek(start);
        QX::XMLParser tree;
        bool const good = tree.parse(file);
        EXPECT_EQ((good ? "" : "!") + test::dump(tree), expected);
    }
    QX::FileIn closed;
    EXPECT_FALSE(QX::XMLParser().parse(closed));
}

}  // namespace
