// xml.h - an XML document as a tree that owns its texts: load, query by name, edit, write back.
//
// For configuration and design data: no namespaces, no schema, no document types. Mixed content is
// kept in two texts of each tag: `content` stands before its first child, `epilog` behind its own
// end tag, inside the parent:
//
//     <a>x<b/>y<c/>z</a>   =>  a.content "x", b.epilog "y", c.epilog "z"
//
// The document is itself a tag, named "?xml": the declaration's attributes are its attributes, the
// top-level elements its children.
//
//     QX::XML xml;
//     if (!xml.parse_std_xml(buffer)) return false;
//     auto const level = xml.find_tag("level");
//     if (level != xml.tags.end()) level->attributes.push_back({"seen", "1"});
//     xml.write(file, true, true);
//
// Texts in a tree are decoded UTF-8. Trees of any depth that memory bears are parsed, copied,
// compared, sorted, written and destroyed without recursion. Exhaustion passes std::bad_alloc
// through; trees built in part stay valid. No buffer may be null. A tree has no locks; separate
// trees are independent.
#pragma once

#include "qx/base/dynamic_array.h"
#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

class FileOut;

// One attribute: a plain record.
struct XML_ATTRIBUTE {
    using MovesOnGrowth = void;

    String name;
    String value;  // decoded
};

// What two tags must share to be equal. The names, attributes and children always count, the last
// two in any order; duplicates count as often as they stand.
enum class XmlEquality {
    structure,  // content and epilog are not looked at
    text,       // they are
};

// One tag: a plain record. Children lie by value in `tags`, so a reference or iterator into an
// array is valid until that array next grows. One tree class for both kinds of document; they
// differ in what makes two tags equal.
template <XmlEquality equality>
class XML_TAG {
public:
    using MovesOnGrowth = void;
    using Attribute = XML_ATTRIBUTE;
    using Tag = XML_TAG;
    using Attributes = DynamicArray<Attribute, DefaultAllocator>;
    using Tags = DynamicArray<XML_TAG, DefaultAllocator>;

    String name;            // '?' or '!' in front has its own way of being written
    Attributes attributes;  // in document order; duplicates are allowed
    String content;         // the text before the first child
    Tags tags;              // the children
    String epilog;          // the text between this tag's end and what follows in the parent

    XML_TAG() = default;
    XML_TAG(String const& tag_name, String const& tag_content)
        : name(tag_name), content(tag_content) {}
    // Copies are deep; assigning a tag from its own descendant is fine.
    QX_API XML_TAG(XML_TAG const& other);
    XML_TAG(XML_TAG&& other) noexcept = default;
    QX_API XML_TAG& operator=(XML_TAG const& other);
    XML_TAG& operator=(XML_TAG&& other) noexcept {
        XML_TAG taken(static_cast<XML_TAG&&>(other));
        swap(taken);
        return *this;
    }
    ~XML_TAG() {
        if (!tags.empty()) destroy_children();
    }

    void swap(XML_TAG& other) noexcept {
        name.swap(other.name);
        attributes.swap(other.attributes);
        content.swap(other.content);
        tags.swap(other.tags);
        epilog.swap(other.epilog);
    }

    // Empties all five. The texts keep their capacity.
    QX_API void clear();

    // What counts is told at XmlEquality.
    QX_API bool operator==(XML_TAG const& other) const;
    bool operator!=(XML_TAG const& other) const { return !(*this == other); }

    // The first attribute of that name, from `start` on where it is given; the end iterator if
    // there is none. Names are compared exactly.
    QX_API typename Attributes::Iterator find_attribute(String const& wanted);
    QX_API typename Attributes::ConstIterator find_attribute(String const& wanted) const;
    QX_API typename Attributes::Iterator
    find_attribute(String const& wanted, typename Attributes::Iterator start);
    QX_API typename Attributes::ConstIterator
    find_attribute(String const& wanted, typename Attributes::ConstIterator start) const;

    // The first child of that name, likewise.
    QX_API typename Tags::Iterator find_tag(String const& wanted);
    QX_API typename Tags::ConstIterator find_tag(String const& wanted) const;
    QX_API typename Tags::Iterator find_tag(String const& wanted, typename Tags::Iterator start);
    QX_API typename Tags::ConstIterator
    find_tag(String const& wanted, typename Tags::ConstIterator start) const;

    // The first child that has an attribute `wanted` of the value `value`, whatever the child's
    // own name; of several attributes of that name any may match.
    QX_API typename Tags::Iterator
    find_tag_with_attribute(String const& wanted, String const& value);
    QX_API typename Tags::ConstIterator
    find_tag_with_attribute(String const& wanted, String const& value) const;
    QX_API typename Tags::Iterator find_tag_with_attribute(
        String const& wanted, String const& value, typename Tags::Iterator start);
    QX_API typename Tags::ConstIterator find_tag_with_attribute(
        String const& wanted, String const& value, typename Tags::ConstIterator start) const;

private:
    QX_API void destroy_children() noexcept;
    void copy_children(XML_TAG const& other);
};

// A document: its own tag, with ways in and out. One thread at a time.
class XML : public XML_TAG<XmlEquality::structure> {
public:
    using XML_TAG::XML_TAG;

    // Fills the tree from a writable, terminated text; false on text that is cut short or has a
    // bad reference, with the tree as far as it was read. A first byte of 0x80 and above (a byte
    // order mark) is refused with the tree untouched. The buffer is whole again on return, but
    // that a reference which could not be resolved has a 0 in place of its ';': the buffer's new
    // length then tells the place. Where the length is the old one, the text was cut short in the
    // last, deepest tag, or in a comment, end tag or reference behind it. That tag and its last
    // attribute may lack a name or have part of a value.
    //
    // Lenient on purpose: end tags are not compared with their start tags, elements still open at
    // the end of the text are closed, the character behind an attribute's name is taken for the
    // '=' and any character for the quote. Comments and <!...> leave no trace.
    //
    //     &lt;  &eacute;   the 253 named characters of entities.h, everywhere
    //     &#65;            decimal, everywhere; up to 65535
    //     &#x41;           in attributes hexadecimal ("A"), in content decimal (")"), on
    //                      purpose
    QX_API bool parse_std_xml(char* buffer);

    // Removes every "<!--" up to the next "-->", in place; one without an end takes the rest of
    // the text. Purely textual: markers inside values count too.
    QX_API static void strip_comments(char* buffer);

    // Writes the document with its own tag, or with `include_root` false only its children.
    // `pretty` puts tags and texts on indented lines (up to depth 64; deeper ones get no indent)
    // and drops texts of white space. The text behind a tag that is written "<a />" is not
    // written, on purpose. A failed write shows in the file's error, and writing goes on.
    //
    //     <a v = 'it&apos;s'><b /></a>
    QX_API void write(FileOut& file, bool pretty, bool include_root) const;

    // The same into memory; returns the bytes written. For short fragments: only 1024 bytes are
    // written in blocks. Names, values and texts are cut there, but single characters of markup
    // still land behind them, so a larger document needs a buffer of `calculate_xml_size` bytes
    // and comes out cut.
    QX_API unsigned int write_to_buffer(char* buffer, bool pretty, bool include_root) const;

    // The whole document's size in bytes.
    QX_API unsigned int calculate_xml_size(bool pretty, bool include_root) const;
};

// Sorts the attributes of every tag by name, then value, and then every tag's children, deepest
// first: by name; by the first attribute named `attribute` (unless that is empty; those without
// come first); by the number of attributes; by attribute pairs; by children pairs in this same
// order; by the number of children. Texts are compared by String::compare. Epilogs move with
// their tags without being looked at; equal tags keep their order.
QX_API void xml_sort_no_epilog(XML& xml, String const& attribute);

// Trims content and epilog of the document and every tag at both ends. Bytes of 0x80 and above
// count as white space here, like control characters, on purpose.
//
//     "  caf\xC3\xA9 "  =>  "caf"
QX_API void xml_trim_content(XML& xml);

}  // namespace QX
