#include "qx/data/xml.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/data/xml_support.h"
#include "tests/harness/random.h"

namespace {

using test::dump;
using test::parsed;

TEST(Xml, finders_give_the_first_match_and_go_on_from_a_place) {
    QX::XML tree = parsed<QX::XML>("<x/><a n='1' k='2' n='3'/><b k='2'/><a k='9'/>");
    QX::XML const& fixed = tree;
    auto const a = fixed.find_tag("a");
    EXPECT_EQ(a - fixed.tags.begin(), 1);
    EXPECT_EQ(fixed.find_tag("a", a + 1) - fixed.tags.begin(), 3);
    EXPECT_EQ(fixed.find_tag("A"), fixed.tags.end());
    auto const n = a->find_attribute("n");
    EXPECT_STREQ(a->find_attribute("n", n + 1)->value.c_str(), "3");
    EXPECT_EQ(a->find_attribute("n", n + 3), a->attributes.end());
    // A later duplicate counts, and the child's own name does not.
    EXPECT_EQ(fixed.find_tag_with_attribute("n", "3"), a);
    EXPECT_EQ(tree.find_tag_with_attribute("k", "2", tree.tags.begin() + 2) - tree.tags.begin(), 2);
}

TEST(Xml, copies_are_deep_and_may_come_from_inside) {
    auto const tree = parsed<QX::XML>("<?xml v='1'?>t<a n='1' m='2'>x<b/>y<c>z</c></a>w");
    QX::XML copy = tree;
    copy.tags[0].tags[1].content = "changed";
    EXPECT_EQ(dump(QX::XML("n", "c")), "n\"c\"");
    EXPECT_STREQ(tree.tags[0].tags[1].content.c_str(), "z");
    QX::XML::Tag tag = tree.tags[0];
    tag = std::move(tag.tags[1]);
    EXPECT_EQ(dump(tag), "c\"z\"");
}

TEST(Xml, comments_are_cut_out_of_a_text) {
    std::string text = "a<!-- <b> --><!---->c='<!--d-->'<!-b--><!-->e-->f<!-- b";
    QX::XML::strip_comments(text.data());
    EXPECT_STREQ(text.c_str(), "ac=''<!-b-->f");
}

TEST(Xml, trimming_takes_control_characters_and_every_byte_above_ascii) {
    auto tree = parsed<QX::XML>(" \x01 a\xC3\xA9\t<b>\xC3\xA9</b> \n<c> d e </c>f ");
    xml_trim_content(tree);
    EXPECT_EQ(dump(tree), "?xml\"a\"(b c\"d e\"~f)");
}

TEST(Xml, sorting_orders_attributes_and_then_tags) {
    struct {
        char const* text;
        char const* sorted;
        char const* attribute = "";
    } const rows[] = {
        {"<a y='1' x='2' x='1'/>", "?xml(a@x=1@x=2@y=1)"},
        {"<a k='2' z=''/><a k='1' y='' z=''/><a/>", "?xml(a a@k=2@z= a@k=1@y=@z=)"},
        {"<a k='2' z=''/><a k='1' y='' z=''/><a/>", "?xml(a a@k=1@y=@z= a@k=2@z=)", "k"},
        {"<a><b/><c><z/></c></a><a><c><y/></c><b/></a>", "?xml(a(b c(y)) a(b c(z)))"},
        {"<a\xE9/>1<ab/>2<aa/>3", "?xml(a\xE9~1 aa~3 ab~2)"},
    };
    for (auto const& row : rows) {
        auto tree = parsed<QX::XML>(row.text);
        xml_sort_no_epilog(tree, row.attribute);
        EXPECT_EQ(dump(tree), row.sorted) << row.text;
    }
    // The attribute's name may stand in the tree: what counts is what the first sorting puts there.
    auto tree = parsed<QX::XML>("<?xml b='1' a='2'?><k w='1' v='2'/><k v='1' w='2'/>");
    xml_sort_no_epilog(tree, tree.tags[0].attributes[0].name);
    EXPECT_EQ(dump(tree), "?xml@a=2@b=1(k@v=1@w=2 k@v=2@w=1)");
}

// One text for all tags that are to be equal.
template <typename Tag>
std::string canonical(Tag const& tag, bool texts) {
    std::vector<std::string> parts;
    for (auto const& held : tag.attributes)
        parts.push_back(std::string("@") + held.name.c_str() + "=" + held.value.c_str());
    for (Tag const& child : tag.tags) parts.push_back(canonical(child, texts));
    std::sort(parts.begin(), parts.end());
    std::string whole = std::string("(") + tag.name.c_str();
    if (texts) whole += std::string("\"") + tag.content.c_str() + "~" + tag.epilog.c_str();
    for (auto const& part : parts) whole += part;
    return whole + ")";
}

// So few shapes that many trees are alike.
template <typename Tag>
Tag random_tag(test::Random& random, int depth) {
    Tag tag(random.chance(4) ? "b" : "a", random.chance(6) ? "x" : "");
    for (auto count = random.below(3); count; --count)
        tag.attributes.push_back({random.chance(3) ? "m" : "n", random.chance(3) ? "1" : "2"});
    for (auto count = depth ? random.below(3) : 0; count; --count)
        tag.tags.push_back(random_tag<Tag>(random, depth - 1));
    if (random.chance(8)) tag.epilog = "y";
    return tag;
}

template <typename Tag>
void expect_plain_equality(bool texts) {
    test::Random random;
    int equal = 0;
    for (int round = 0; round < 3000; ++round) {
        Tag const tree = random_tag<Tag>(random, 3);
        Tag other = tree, *place = &other;
        while (!place->tags.empty() && !random.chance(4)) {
            std::reverse(place->tags.begin(), place->tags.end());
            place = &place->tags[random.below(place->tags.size())];
        }
        if (random.chance(2)) *place = random_tag<Tag>(random, 1);
        bool const expected = canonical(tree, texts) == canonical(other, texts);
        equal += expected;
        ASSERT_EQ(tree == other, expected) << dump(tree) << "\n" << dump(other);
        ASSERT_EQ(tree != other, !expected);
    }
    EXPECT_NEAR(equal, 1700, 600);
}

TEST(Xml, equality_takes_attributes_and_children_in_any_order_and_passes_over_texts) {
    expect_plain_equality<QX::XML::Tag>(false);
    expect_plain_equality<QX::XMLParser::Tag>(true);
}

// Recursion would run out of stack long before this depth, and a look at all for each would not
// end.
TEST(Xml, trees_of_any_depth_and_width_live_and_die) {
    // Start, end, and the size written of each level.
    constexpr std::tuple<char const*, char const*, int> shapes[] = {
        {"<a>", "", 7}, {"<a><b/>", "</a>", 12}, {"<a/>", "", 5}};
    int const depth = 100000;
    for (auto const& [start, end, written_size] : shapes) {
        std::string text, ends;
        for (int i = 0; i < depth; ++i) text += start, ends += end;
        QX::XML const tree = parsed<QX::XML>(text + ends);
        EXPECT_NEAR(tree.calculate_xml_size(false, false), written_size * depth, 2);
        QX::XML copy = tree;
        std::reverse(copy.tags.begin(), copy.tags.end());
        EXPECT_TRUE(copy == tree);
        xml_sort_no_epilog(copy, "k");
        xml_trim_content(copy);
        copy.tags.push_back(QX::XML::Tag("z", ""));
        EXPECT_FALSE(copy == tree);
    }
}

}  // namespace
