#include "qx/data/xml.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/data/xml_support.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/random.h"

namespace {

using test::dump;
using test::parsed;

TEST(Xml, finders_give_the_first_match_and_go_on_from_a_place) {
    QX::XML const tree = parsed<QX::XML>("<x/><a n='1' k='2' n='3'/><b k='2'/><a k='9'/>");
    auto const a = tree.find_tag("a");
    ASSERT_EQ(a - tree.tags.begin(), 1);
    EXPECT_EQ(tree.find_tag("a", a + 1) - tree.tags.begin(), 3);
    EXPECT_EQ(tree.find_tag("A"), tree.tags.end());

    auto const n = a->find_attribute("n");
    EXPECT_STREQ(n->value.c_str(), "1");
    EXPECT_STREQ(a->find_attribute("n", n + 1)->value.c_str(), "3");
    EXPECT_EQ(a->find_attribute("n", n + 3), a->attributes.end());

    // A later duplicate counts, and the child's own name does not.
    EXPECT_EQ(tree.find_tag_with_attribute("n", "3"), a);
    EXPECT_EQ(tree.find_tag_with_attribute("k", "2", a + 1) - tree.tags.begin(), 2);
    EXPECT_EQ(tree.find_tag_with_attribute("k", "3"), tree.tags.end());

    QX::XML writable = tree;
    writable.find_tag("b")->find_attribute("k")->value = "7";
    EXPECT_EQ(writable.find_tag_with_attribute("k", "7") - writable.tags.begin(), 2);
}

constexpr char sample[] = "<?xml v='1'?>t<a n='1' m='2'>x<b/>y<c>z</c></a>w";

TEST(Xml, copies_are_deep_and_may_come_from_inside) {
    auto const tree = parsed<QX::XML>(sample);
    QX::XML copy = tree;
    EXPECT_EQ(dump(copy), dump(tree));
    copy.tags[0].tags[1].content = "changed";
    EXPECT_EQ(dump(tree), dump(parsed<QX::XML>(sample)));

    QX::XML::Tag tag = tree;
    tag = tag.tags[0];
    EXPECT_EQ(dump(tag), dump(tree.tags[0]));
    tag = std::move(tag.tags[1]);
    EXPECT_EQ(dump(tag), "c\"z\"");
    tag.clear();
    EXPECT_EQ(dump(tag), "");
    EXPECT_NE(tag.content.capacity(), 0u);
}

TEST(Xml, a_copy_that_runs_out_of_memory_leaves_the_target_as_it_was) {
    auto const tree = parsed<QX::XML>(sample);
    for (unsigned int nth = 1;; ++nth) {
        QX::XML target = parsed<QX::XML>("<old/>");
        bool thrown = false;
        try {
            test::FailingAllocation const failing(nth);
            target = tree;
        } catch (std::bad_alloc const&) {
            thrown = true;
        }
        EXPECT_EQ(dump(target), thrown ? "?xml(old)" : dump(tree));
        if (!thrown) break;
    }
}

TEST(Xml, comments_are_cut_out_of_a_text) {
    struct {
        char const* text;
        char const* stripped;
    } const rows[] = {
        {"", ""},
        {"a<b>c", "a<b>c"},
        {"<!-- x -->", ""},
        {"a<!-- <b> --><!---->c<!--d-->e", "ace"},
        {"a='<!-- x -->'", "a=''"},
        {"a<!-- b", "a"},
        {"a<!-->b-->c", "ac"},
        {"a<!-b-->", "a<!-b-->"},
    };
    for (auto const& row : rows) {
        std::string text = row.text;
        QX::XML::strip_comments(text.data());
        EXPECT_STREQ(text.c_str(), row.stripped);
    }
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
        {"<b/><a/>", "?xml(a b)"},
        {"<a y='1' x='2' x='1'/>", "?xml(a@x=1@x=2@y=1)"},
        {"<a k='2' z=''/><a k='1' y='' z=''/>", "?xml(a@k=2@z= a@k=1@y=@z=)"},
        {"<a k='2' z=''/><a k='1' y='' z=''/><a/>", "?xml(a a@k=1@y=@z= a@k=2@z=)", "k"},
        {"<a x='2'/><a x='1'/><a w='3'/>", "?xml(a@w=3 a@x=1 a@x=2)"},
        {"<a><c/></a><a><b/><d/></a><a><b/></a><a/>", "?xml(a a(b) a(b d) a(c))"},
        {"<a><b/><c><z/></c></a><a><c><y/></c><b/></a>", "?xml(a(b c(y)) a(b c(z)))"},
        {"<a/>1<b/>2<a/>3", "?xml(a~1 a~3 b~2)"},
        {"<a\xE9/><ab/>", "?xml(a\xE9 ab)"},
    };
    for (auto const& row : rows) {
        auto tree = parsed<QX::XML>(row.text);
        xml_sort_no_epilog(tree, row.attribute);
        EXPECT_EQ(dump(tree), row.sorted) << row.text;
    }
    // The attribute's name may stand in the tree: what counts is what the first sorting puts there,
    // "v" here. The document's own attributes are sorted too.
    auto tree = parsed<QX::XML>("<?xml b='1' a='2'?><k w='1' v='2'/><k v='1' w='2'/>");
    xml_sort_no_epilog(tree, tree.tags[0].attributes[0].name);
    EXPECT_EQ(dump(tree), "?xml@a=2@b=1(k@v=1@w=2 k@v=2@w=1)");
}

// --- Equality against the plain rule -------------------------------------------------------------

template <typename Tag>
bool plainly_equal(Tag const& a, Tag const& b, bool texts) {
    auto const in_any_order = [](auto const& x, auto const& y, auto same) {
        return std::is_permutation(x.begin(), x.end(), y.begin(), y.end(), same);
    };
    auto const same_attributes = [](auto const& x, auto const& y) {
        return x.name == y.name && x.value == y.value;
    };
    return a.name == b.name && (!texts || (a.content == b.content && a.epilog == b.epilog)) &&
           in_any_order(a.attributes, b.attributes, same_attributes) &&
           in_any_order(a.tags, b.tags, [&](Tag const& x, Tag const& y) {
               return plainly_equal(x, y, texts);
           });
}

// Few names and values, so that many tags are alike.
template <typename Tag>
Tag random_tag(test::Random& random, int depth) {
    Tag tag(random.chance(6) ? "b" : "a", random.chance(6) ? "x" : "");
    for (auto count = random.below(3); count; --count)
        tag.attributes.push_back({random.chance(3) ? "m" : "n", random.chance(3) ? "1" : "2"});
    for (auto count = depth ? random.below(4) : 0; count; --count)
        tag.tags.push_back(random_tag<Tag>(random, depth - 1));
    if (random.chance(8)) tag.epilog = "y";
    return tag;
}

template <typename Tag>
void shuffle(Tag& tag, test::Random& random) {
    for (auto i = tag.attributes.size(); i > 1; --i)
        std::swap(tag.attributes[i - 1], tag.attributes[random.below(i)]);
    for (auto i = tag.tags.size(); i > 1; --i)
        std::swap(tag.tags[i - 1], tag.tags[random.below(i)]);
    for (auto& child : tag.tags) shuffle(child, random);
}

template <typename Tag>
void damage(Tag& tag, test::Random& random) {
    if (!tag.tags.empty() && !random.chance(3))
        return damage(tag.tags[random.below(tag.tags.size())], random);
    switch (random.below(5)) {
    case 0: tag.content = "z"; break;
    case 1: tag.epilog = "z"; break;
    case 2: tag.tags.push_back(Tag("a", "")); break;
    case 3: tag.attributes.push_back({"n", "1"}); break;
    default: tag.name = "c";
    }
}

template <typename Tag>
void expect_plain_equality(bool texts) {
    test::Random random;
    int equal = 0;
    for (int round = 0; round < 2000; ++round) {
        Tag const tree = random_tag<Tag>(random, 3);
        Tag other = random.chance(4) ? random_tag<Tag>(random, 1) : tree;
        shuffle(other, random);
        if (random.chance(2)) damage(other, random);
        bool const expected = plainly_equal(tree, other, texts);
        equal += expected;
        ASSERT_EQ(tree == other, expected) << dump(tree) << "\n" << dump(other);
        ASSERT_EQ(tree != other, !expected);
    }
    EXPECT_NEAR(equal, 1000, 500);
}

TEST(Xml, equality_takes_attributes_and_children_in_any_order_and_passes_over_texts) {
    expect_plain_equality<QX::XML::Tag>(false);
    expect_plain_equality<QX::XMLParser::Tag>(true);
}

// --- Size ----------------------------------------------------------------------------------------

std::string repeated(int count, char const* text) {
    std::string whole;
    for (; count; --count) whole += text;
    return whole;
}

// Parsed, copied, compared, sorted, trimmed, written, and destroyed at each closing brace.
void work_through(std::string text, std::size_t written_size) {
    QX::XML tree;
    ASSERT_TRUE(tree.parse_std_xml(text.data()));
    {
        QX::XML copy = tree;
        EXPECT_TRUE(copy == tree);
        xml_sort_no_epilog(copy, "k");
        xml_trim_content(copy);
        EXPECT_TRUE(copy == tree);
        copy.tags.push_back(QX::XML::Tag("z", ""));
        EXPECT_FALSE(copy == tree);
    }
    EXPECT_EQ(tree.calculate_xml_size(false, false), written_size);
    QX::XMLParser other;
    ASSERT_TRUE(other.parse(text.data()));
    EXPECT_TRUE(other == QX::XMLParser(other));
}

// Recursion would run out of stack long before this depth.
TEST(Xml, trees_of_any_depth_and_width_live_and_die) {
    int const depth = 300000;
    work_through(repeated(depth, "<a>"), 7 * depth - 2);
    work_through(repeated(depth, "<a><b/>") + repeated(depth, "</a>"), 12 * depth);
    work_through(repeated(depth, "<a/>"), 5 * depth);
}

// Children in the opposite order: the match must not take one look at all for each.
TEST(Xml, many_siblings_compare_in_any_order) {
    QX::XML tree, mirrored;
    for (int i = 0; i < 100000; ++i)
        tree.tags.push_back(QX::XML::Tag(std::to_string(i).c_str(), ""));
    for (int i = 100000; i--;) mirrored.tags.push_back(QX::XML::Tag(std::to_string(i).c_str(), ""));
    EXPECT_TRUE(tree == mirrored);
    mirrored.tags[7].name = "x";
    EXPECT_FALSE(tree == mirrored);
}

}  // namespace
