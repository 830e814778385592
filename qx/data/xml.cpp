#include "qx/data/xml.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "qx/data/xml_tree_impl.h"
#include "qx/memory/batches.h"

namespace QX {

namespace {

template <typename Iterator>
Iterator find_named(Iterator start, Iterator end, String const& wanted) {
    return std::find_if(start, end, [&](auto const& entry) { return entry.name == wanted; });
}

template <typename Iterator>
Iterator find_attributed(Iterator start, Iterator end, String const& wanted, String const& value) {
    return std::find_if(start, end, [&](auto const& tag) {
        return std::any_of(tag.attributes.begin(), tag.attributes.end(), [&](auto const& held) {
            return held.name == wanted && held.value == value;
        });
    });
}

}  // namespace

template <XmlEquality equality>
XML_TAG<equality>::XML_TAG(XML_TAG const& other)
    : name(other.name), attributes(other.attributes), content(other.content), epilog(other.epilog) {
    if (!other.tags.empty()) copy_children(other);
}

template <XmlEquality equality>
XML_TAG<equality>& XML_TAG<equality>::operator=(XML_TAG const& other) {
    if (this == &other) return *this;
    XML_TAG copy(other);
    swap(copy);
    return *this;
}

// Each array gets its full size at once and never moves, so that places in it can wait their turn.
template <XmlEquality equality>
void XML_TAG<equality>::copy_children(XML_TAG const& other) {
    std::vector<std::pair<XML_TAG*, XML_TAG const*>> waiting{{this, &other}};
    while (!waiting.empty()) {
        auto const [to, from] = waiting.back();
        waiting.pop_back();
        to->tags.reserve(from->tags.size());
        for (XML_TAG const& child : from->tags) {
            to->tags.push_back(XML_TAG(child.name, child.content));
            XML_TAG& copy = to->tags.back();
            copy.attributes = child.attributes;
            copy.epilog = child.epilog;
            if (!child.tags.empty()) waiting.push_back({&copy, &child});
        }
    }
}

namespace {

// Takes the blocks out of what is to be destroyed and gives them back in batches. Called in the
// opposite order of their making, so that most of them join the arena's free end one by one.
class BlockBin {
public:
    BlockBin() = default;
    ~BlockBin() { empty(); }

    BlockBin(BlockBin const&) = delete;
    BlockBin& operator=(BlockBin const&) = delete;

    void take(String& text) {
        if (text.capacity() != 0) add(text.data());
        std::construct_at(&text);
    }

    // The array's elements hold nothing any more.
    template <typename T>
    void take(DynamicArray<T>& array) {
        if (T* const elements = array.data()) add(block_of_aligned(elements));
        std::construct_at(&array);
    }

    // What is left of the tag has nothing to release.
    template <typename Tag>
    void take_childless(Tag& tag) {
        take(tag.epilog);
        take(tag.tags);
        take(tag.content);
        for (auto i = tag.attributes.size(); i-- != 0;) {
            take(tag.attributes[i].value);
            take(tag.attributes[i].name);
        }
        take(tag.attributes);
        take(tag.name);
    }

private:
    void add(void const* block) {
        if (count_ == room) empty();
        blocks_[count_++] = block;
    }

    void empty() {
        if (count_) custom_free_all(blocks_, count_);
        count_ = 0;
    }

    static constexpr unsigned int room = 64;

    unsigned int count_ = 0;
    void const* blocks_[room];
};

}  // namespace

// Destroys depth first, last child first, without recursion and without memory: while an element's
// children go, its `tags` hold the array it stands in itself, and the room of its name holds the
// way back to the element above.
template <XmlEquality equality>
void XML_TAG<equality>::destroy_children() noexcept {
    BlockBin bin;
    Tags level;
    level.swap(tags);
    XML_TAG* above = nullptr;
    for (;;) {
        for (; !level.empty() && level.back().tags.empty(); level.pop_back())
            bin.take_childless(level.back());
        if (!level.empty()) {
            XML_TAG* const open = &level.back();
            level.swap(open->tags);
            std::destroy_at(&open->name);
            std::memcpy(static_cast<void*>(&open->name), &above, sizeof(above));
            above = open;
        } else {
            if (!above) return;
            XML_TAG* const open = above;
            std::memcpy(&above, static_cast<void const*>(&open->name), sizeof(above));
            std::construct_at(&open->name);
            level.swap(open->tags);
        }
    }
}

template <XmlEquality equality>
void XML_TAG<equality>::clear() {
    name.clear();
    attributes.clear();
    content.clear();
    tags.clear();
    epilog.clear();
}

template <XmlEquality equality>
auto XML_TAG<equality>::find_attribute(String const& wanted) -> typename Attributes::Iterator {
    return find_named(attributes.begin(), attributes.end(), wanted);
}

template <XmlEquality equality>
auto XML_TAG<equality>::find_attribute(String const& wanted) const ->
    typename Attributes::ConstIterator {
    return find_named(attributes.begin(), attributes.end(), wanted);
}

template <XmlEquality equality>
auto XML_TAG<equality>::find_attribute(String const& wanted, typename Attributes::Iterator start) ->
    typename Attributes::Iterator {
    return find_named(start, attributes.end(), wanted);
}

template <XmlEquality equality>
auto XML_TAG<equality>::find_attribute(
    String const& wanted, typename Attributes::ConstIterator start) const ->
    typename Attributes::ConstIterator {
    return find_named(start, attributes.end(), wanted);
}

template <XmlEquality equality>
auto XML_TAG<equality>::find_tag(String const& wanted) -> typename Tags::Iterator {
    return find_named(tags.begin(), tags.end(), wanted);
}

template <XmlEquality equality>
auto XML_TAG<equality>::find_tag(String const& wanted) const -> typename Tags::ConstIterator {
    return find_named(tags.begin(), tags.end(), wanted);
}

template <XmlEquality equality>
auto XML_TAG<equality>::find_tag(String const& wanted, typename Tags::Iterator start) ->
    typename Tags::Iterator {
    return find_named(start, tags.end(), wanted);
}

template <XmlEquality equality>
auto XML_TAG<equality>::find_tag(String const& wanted, typename Tags::ConstIterator start) const ->
    typename Tags::ConstIterator {
    return find_named(start, tags.end(), wanted);
}

template <XmlEquality equality>
auto XML_TAG<equality>::find_tag_with_attribute(String const& wanted, String const& value) ->
    typename Tags::Iterator {
    return find_attributed(tags.begin(), tags.end(), wanted, value);
}

template <XmlEquality equality>
auto XML_TAG<equality>::find_tag_with_attribute(String const& wanted, String const& value) const ->
    typename Tags::ConstIterator {
    return find_attributed(tags.begin(), tags.end(), wanted, value);
}

template <XmlEquality equality>
auto XML_TAG<equality>::find_tag_with_attribute(
    String const& wanted, String const& value, typename Tags::Iterator start) ->
    typename Tags::Iterator {
    return find_attributed(start, tags.end(), wanted, value);
}

template <XmlEquality equality>
auto XML_TAG<equality>::find_tag_with_attribute(
    String const& wanted, String const& value, typename Tags::ConstIterator start) const ->
    typename Tags::ConstIterator {
    return find_attributed(start, tags.end(), wanted, value);
}

void XML::strip_comments(char* buffer) {
    char* out = std::strstr(buffer, "<!--");
    for (char* comment = out; comment;) {
        char* const end = std::strstr(comment + 4, "-->");
        if (!end) break;
        char* const kept = end + 3;
        comment = std::strstr(kept, "<!--");
        std::size_t const length = comment ? comment - kept : std::strlen(kept);
        std::memmove(out, kept, length);
        out += length;
    }
    if (out) *out = 0;
}

namespace {

void trim(String& text) {
    auto const blank = [](char c) { return static_cast<signed char>(c) < 33; };
    char* const first = std::find_if_not(text.begin(), text.end(), blank);
    char* last = text.end();
    while (last != first && blank(last[-1])) --last;
    auto const length = static_cast<unsigned int>(last - first);
    if (length == text.length()) return;
    std::memmove(text.begin(), first, length);
    text.resize(length);
}

}  // namespace

void xml_trim_content(XML& xml) {
    for (XML::Tag* const tag : list_tree<XML::Tag>(xml)) {
        trim(tag->content);
        trim(tag->epilog);
    }
}

template class XML_TAG<XmlEquality::structure>;
template class XML_TAG<XmlEquality::text>;

}  // namespace QX
