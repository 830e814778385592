#include <algorithm>
#include <functional>
#include <string_view>
#include <vector>

#include "qx/data/xml.h"
#include "qx/data/xml_tree_impl.h"

namespace QX {

namespace {

using Hash = std::size_t;

Hash mix(Hash a, Hash b) {
    a = (a ^ b) * 0x9E3779B97F4A7C15;
    return a ^ (a >> 32);
}

Hash hash_of(String const& text) {
    return std::hash<std::string_view>()({text.data(), text.length()});
}

// -1, 0 or 1, and more: name first, then value.
int compare(XML_ATTRIBUTE const& a, XML_ATTRIBUTE const& b) {
    int const names = a.name.compare(b.name);
    return names ? names : a.value.compare(b.value);
}

using Attributes = DynamicArray<XML_ATTRIBUTE, DefaultAllocator>;

bool same(XML_ATTRIBUTE const& a, XML_ATTRIBUTE const& b) {
    return a.name == b.name && a.value == b.value;
}

std::vector<XML_ATTRIBUTE const*> in_order(Attributes const& attributes) {
    std::vector<XML_ATTRIBUTE const*> order;
    for (XML_ATTRIBUTE const& attribute : attributes) order.push_back(&attribute);
    std::sort(order.begin(), order.end(), [](auto const* a, auto const* b) {
        return compare(*a, *b) < 0;
    });
    return order;
}

// The same attributes, each as often, in any order.
bool same_attributes(Attributes const& a, Attributes const& b) {
    if (a.size() != b.size()) return false;
    if (std::equal(a.begin(), a.end(), b.begin(), same)) return true;
    auto const left = in_order(a), right = in_order(b);
    return std::equal(left.begin(), left.end(), right.begin(), [](auto const* x, auto const* y) {
        return same(*x, *y);
    });
}

// Everything but the children.
template <XmlEquality equality>
bool same_but_children(XML_TAG<equality> const& a, XML_TAG<equality> const& b) {
    if (a.tags.size() != b.tags.size() || !(a.name == b.name)) return false;
    if constexpr (equality == XmlEquality::text) {
        if (!(a.content == b.content) || !(a.epilog == b.epilog)) return false;
    }
    return same_attributes(a.attributes, b.attributes);
}

template <XmlEquality equality>
Hash hash_but_children(XML_TAG<equality> const& tag) {
    Hash hash = hash_of(tag.name);
    if constexpr (equality == XmlEquality::text) {
        hash = mix(mix(hash, hash_of(tag.content)), hash_of(tag.epilog));
    }
    Hash any_order = tag.attributes.size();
    for (XML_ATTRIBUTE const& attribute : tag.attributes)
        any_order += mix(hash_of(attribute.name), hash_of(attribute.value));
    return mix(hash, any_order);
}

// Two tags are equal if and only if they are of one class. Classes are found from the leaves up: a
// tag's class is told by the tag itself and the sorted classes of its children.
template <typename Tag>
class Classes {
public:
    explicit Classes(std::size_t tag_count) : heads_(2 * tag_count + 1, none) {}

    static constexpr unsigned int none = 0xFFFFFFFF;

    // The root's class. With `may_add` false a class not seen before gives `none`.
    unsigned int sort_out(std::vector<Tag const*> const& listed, bool may_add) {
        std::vector<unsigned int>& own = classes_of_[may_add ? 0 : 1];
        own.resize(listed.size());
        std::size_t first_child = listed.size();
        for (std::size_t i = listed.size(); i-- != 0;) {
            Tag const& tag = *listed[i];
            first_child -= tag.tags.size();
            unsigned int* const children = own.data() + first_child;
            std::sort(children, children + tag.tags.size());
            own[i] = find({&tag, children, hash(tag, children), none}, may_add);
            if (own[i] == none) return none;
        }
        return own[0];
    }

private:
    struct Class {
        Tag const* tag;
        unsigned int const* children;
        Hash hash;
        unsigned int next;
    };

    static Hash hash(Tag const& tag, unsigned int const* children) {
        Hash hash = hash_but_children(tag);
        for (std::size_t i = 0; i != tag.tags.size(); ++i) hash = mix(hash, children[i]);
        return hash;
    }

    unsigned int find(Class const& wanted, bool may_add) {
        unsigned int& head = heads_[wanted.hash % heads_.size()];
        for (unsigned int i = head; i != none; i = classes_[i].next) {
            Class const& held = classes_[i];
            if (held.hash == wanted.hash && same_but_children(*held.tag, *wanted.tag) &&
                std::equal(held.children, held.children + held.tag->tags.size(), wanted.children))
                return i;
        }
        if (!may_add) return none;
        classes_.push_back(wanted);
        classes_.back().next = head;
        return head = static_cast<unsigned int>(classes_.size() - 1);
    }

    std::vector<unsigned int> heads_;
    std::vector<Class> classes_;
    std::vector<unsigned int> classes_of_[2];
};

// The order of xml_sort_no_epilog.
class TagOrder {
public:
    explicit TagOrder(String const& attribute) : attribute_(attribute) {}

    bool less(XML::Tag const& a, XML::Tag const& b) {
        int const own = compare_but_children(a, b);
        if (own) return own < 0;
        if (a.tags.empty() || b.tags.empty()) return a.tags.size() < b.tags.size();
        return compare_children(a, b) < 0;
    }

private:
    struct Level {
        XML::Tag const* a;
        XML::Tag const* b;
        unsigned long long next;
    };

    String const* first_value(XML::Tag const& tag) const {
        auto const found = tag.find_attribute(attribute_);
        return found != tag.attributes.end() ? &found->value : nullptr;
    }

    int compare_chosen_attribute(XML::Tag const& a, XML::Tag const& b) const {
        String const* const left = first_value(a);
        String const* const right = first_value(b);
        if (!left || !right) return (left != nullptr) - (right != nullptr);
        return left->compare(*right);
    }

    static int compare_counts(unsigned long long a, unsigned long long b) {
        return (a > b) - (a < b);
    }

    int compare_but_children(XML::Tag const& a, XML::Tag const& b) const {
        if (int const names = a.name.compare(b.name)) return names;
        if (!attribute_.empty()) {
            if (int const chosen = compare_chosen_attribute(a, b)) return chosen;
        }
        if (int const counts = compare_counts(a.attributes.size(), b.attributes.size()))
            return counts;
        for (unsigned long long i = 0; i != a.attributes.size(); ++i) {
            if (int const pair = compare(a.attributes[i], b.attributes[i])) return pair;
        }
        return 0;
    }

    int compare_children(XML::Tag const& a, XML::Tag const& b) {
        levels_.assign(1, {&a, &b, 0});
        while (!levels_.empty()) {
            Level& level = levels_.back();
            XML::Tag::Tags const& left = level.a->tags;
            XML::Tag::Tags const& right = level.b->tags;
            if (level.next == std::min(left.size(), right.size())) {
                if (int const counts = compare_counts(left.size(), right.size())) return counts;
                levels_.pop_back();
                continue;
            }
            XML::Tag const& x = left[level.next];
            XML::Tag const& y = right[level.next++];
            if (int const own = compare_but_children(x, y)) return own;
            levels_.push_back({&x, &y, 0});
        }
        return 0;
    }

    String const attribute_;  // a copy: the caller's may lie in the tree that is being sorted
    std::vector<Level> levels_;
};

void sort_children(XML::Tag& tag, TagOrder& order) {
    if (tag.tags.size() < 2) return;
    std::vector<XML::Tag*> sorted;
    for (XML::Tag& child : tag.tags) sorted.push_back(&child);
    std::stable_sort(sorted.begin(), sorted.end(), [&](auto const* a, auto const* b) {
        return order.less(*a, *b);
    });
    XML::Tag::Tags moved;
    moved.reserve(tag.tags.capacity());
    for (XML::Tag* const child : sorted) moved.push_back(std::move(*child));
    tag.tags.swap(moved);
}

}  // namespace

template <XmlEquality equality>
bool XML_TAG<equality>::operator==(XML_TAG const& other) const {
    if (!same_but_children(*this, other)) return false;
    if (tags.empty()) return true;
    auto const left = list_tree<XML_TAG const>(*this);
    auto const right = list_tree<XML_TAG const>(other);
    if (left.size() != right.size()) return false;
    Classes<XML_TAG> classes(left.size());
    unsigned int const wanted = classes.sort_out(left, true);
    return classes.sort_out(right, false) == wanted;
}

void xml_sort_no_epilog(XML& xml, String const& attribute) {
    auto const listed = list_tree<XML::Tag>(xml);
    for (XML::Tag* const tag : listed) {
        std::sort(
            tag->attributes.data(), tag->attributes.data() + tag->attributes.size(),
            [](XML_ATTRIBUTE const& a, XML_ATTRIBUTE const& b) { return compare(a, b) < 0; });
    }
    // A name that stands in the tree is taken as the sorted attributes have left it.
    TagOrder order(attribute);
    for (std::size_t i = listed.size(); i-- != 0;) sort_children(*listed[i], order);
}

template bool
XML_TAG<XmlEquality::structure>::operator==(XML_TAG<XmlEquality::structure> const&) const;
template bool XML_TAG<XmlEquality::text>::operator==(XML_TAG<XmlEquality::text> const&) const;

}  // namespace QX
