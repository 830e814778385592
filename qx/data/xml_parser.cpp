#include "qx/data/xml_parser.h"

#include <array>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "qx/base/block_scan.h"
#include "qx/base/compiler.h"
#include "qx/data/entities.h"
#include "qx/data/xml.h"
#include "qx/files/file_streams.h"
#include "qx/memory/batches.h"

namespace QX {

namespace {

// What a character ends, as bits. The terminator ends everything.
enum Ends : unsigned char {
    ends_blanks = 1,          // anything but white space
    ends_attribute_name = 2,  // '=' and white space
    ends_element_name = 4,    // '/' '>' and white space
};

constexpr bool is_blank(char c) {
    return c == '\t' || c == '\n' || c == '\r' || c == ' ';
}

constexpr std::array<unsigned char, 256> make_ends() {
    std::array<unsigned char, 256> ends{};
    for (unsigned int i = 0; i < 256; ++i) {
        char const c = static_cast<char>(i);
        bool const blank = is_blank(c);
        ends[i] = (blank ? 0 : ends_blanks) | (c == '=' || blank ? ends_attribute_name : 0) |
                  (c == '/' || c == '>' || blank ? ends_element_name : 0);
    }
    ends[0] = 0xFF;
    return ends;
}

constexpr std::array<unsigned char, 256> ends = make_ends();

char* skip_to(char* at, Ends what) {
    while (!(ends[static_cast<unsigned char>(*at)] & what)) ++at;
    return at;
}

char* skip_blanks(char* at) {
    return skip_to(at, ends_blanks);
}

// Up to `a`, `b` or the terminator.
char* skip_to_characters(char* at, char a, char b) {
    return block_scan::find(at, [=](__m128i bytes) {
        return block_scan::either(
            block_scan::either(block_scan::equal(bytes, a), block_scan::equal(bytes, b)),
            block_scan::equal(bytes, 0));
    });
}

char* skip_to_character(char* at, char wanted) {
    return skip_to_characters(at, wanted, wanted);
}

// A text in a block that was made for it.
class FilledText : public String {
public:
    FilledText(void* block, char const* text, unsigned int length) {
        char* const characters = static_cast<char*>(block);
        if (length <= sizeof(__m128i) && block_scan::fits_page(text)) {
            // The arena's blocks have room for this.
            _mm_storeu_si128(reinterpret_cast<__m128i*>(characters), block_scan::load(text));
        } else {
            std::memcpy(characters, text, length);
        }
        characters[length] = 0;
        adopt_block(characters, length);
    }
};

// A first run is taken over as an exact copy, which is what appending to an empty text gives.
void append_run(String& target, char const* first, char const* end) {
    if (first == end) return;
    auto const length = static_cast<unsigned int>(end - first);
    if (QX_LIKELY(target.capacity() == 0)) {
        target = FilledText(custom_malloc(length + 1ull, HEAP_GENERAL), first, length);
    } else {
        target.append(first, length);
    }
}

// The name of a tag and the names and values of its attributes, whose blocks are made together.
class PlainRuns {
public:
    bool full() const { return count_ == room; }

    void add(char const* first, char const* end) {
        texts_[count_] = first;
        lengths_[count_] = static_cast<unsigned int>(end - first);
        if (first != end) sizes_[used_++] = lengths_[count_] + 1ull;
        ++count_;
    }

    // False, with the tag as it was, where the blocks are to be made one by one.
    template <typename Tag>
    bool store(Tag& tag) {
        if (allocation_hook) return false;
        if (count_ > 1) tag.attributes.reserve(first_attributes);
        void* blocks[room];
        if (!custom_malloc_all(sizes_, blocks, used_)) return false;
        void** next = blocks;
        fill(tag.name, 0, next);
        tag.attributes.resize(count_ / 2);
        unsigned int run = 1;
        for (XML_ATTRIBUTE& attribute : tag.attributes) {
            fill(attribute.name, run++, next);
            fill(attribute.value, run++, next);
        }
        return true;
    }

private:
    void fill(String& target, unsigned int at, void**& next) const {
        if (lengths_[at]) target = FilledText(*next++, texts_[at], lengths_[at]);
    }

    static constexpr unsigned int first_attributes = 8;  // what a growing array takes first
    static constexpr unsigned int room = 1 + 2 * first_attributes;

    unsigned int count_ = 0;
    unsigned int used_ = 0;
    char const* texts_[room];
    unsigned int lengths_[room];
    unsigned long long sizes_[room];
};

// As UTF-8; the code 0 is no text.
void append_code(String& target, unsigned int code) {
    auto const tail = [](unsigned int bits) { return static_cast<char>(0x80 | (bits & 0x3F)); };
    char bytes[3];
    unsigned int length = 0;
    if (code < 0x80) {
        if (code) bytes[length++] = static_cast<char>(code);
    } else {
        if (code < 0x800) {
            bytes[length++] = static_cast<char>(0xC0 | code >> 6);
        } else {
            bytes[length++] = static_cast<char>(0xE0 | code >> 12);
            bytes[length++] = tail(code >> 6);
        }
        bytes[length++] = tail(code);
    }
    append_run(target, bytes, bytes + length);
}

constexpr unsigned int no_code = 0xFFFFFFFF;

// 0 to 15, or more for what is no digit of either case.
unsigned int digit_value(char c) {
    unsigned int const decimal = static_cast<unsigned char>(c) - unsigned{'0'};
    if (decimal < 10) return decimal;
    unsigned int const letter = (static_cast<unsigned char>(c) | 0x20u) - 'a';
    return letter < 6 ? letter + 10 : 16;
}

// The value of a text that is digits of `radix` and nothing else, up to 65535.
unsigned int read_number(std::string_view digits, unsigned int radix) {
    if (digits.empty()) return no_code;
    unsigned int value = 0;
    for (char const c : digits) {
        unsigned int const digit = digit_value(c);
        if (digit >= radix) return no_code;
        value = value * radix + digit;
        if (value > 0xFFFF) return no_code;
    }
    return value;
}

enum class Place { attribute, content };

// --- Where the two parsers differ ----------------------------------------------------------------

struct StandardRules {
    using Tag = XML::Tag;

    static bool ends_name(char const*) { return true; }

    static unsigned int code_of(std::string_view reference, Place place) {
        if (unsigned int const code = find_entity(reference)) return code;
        if (!reference.starts_with('#')) return no_code;
        if (!reference.starts_with("#x")) return read_number(reference.substr(1), 10);
        // Kept: behind "#x" content has decimal digits.
        return read_number(reference.substr(2), place == Place::attribute ? 16 : 10);
    }
};

struct OtherRules {
    using Tag = XMLParser::Tag;

    static bool ends_name(char const* at) { return *at != '/' || at[1] == '>'; }

    static unsigned int code_of(std::string_view reference, Place) {
        unsigned int const code = reference == "apos" ? 0 : find_entity(reference);
        return code ? code : no_code;
    }
};

// --- What they share -----------------------------------------------------------------------------

// Reads with one cursor, and keeps the tags that are open instead of recursing: each is the last
// of its parent's array, which does not grow before the tag is closed.
template <typename Rules>
class Reader {
public:
    using Tag = typename Rules::Tag;

    static bool read_document(Tag& root, char* buffer) {
        if (static_cast<signed char>(*buffer) < 0) return false;
        root.clear();
        root.name = "?xml";
        Reader reader(buffer);
        if (starts_declaration(buffer) && !reader.read_declaration(root)) return false;
        return reader.read_content(root);
    }

private:
    explicit Reader(char* buffer) : at_(buffer) {}

    static bool starts_declaration(char const* text) {
        return text[0] == '<' && text[1] == '?' && (text[2] | 0x20) == 'x' &&
               (text[3] | 0x20) == 'm' && (text[4] | 0x20) == 'l' && is_blank(text[5]);
    }

    bool read_declaration(Tag& root);
    bool read_content(Tag& root);
    bool read_element();
    bool read_plain_tag(Tag& tag);
    bool read_name_and_attributes(Tag& tag);
    bool read_name(Tag& tag);
    bool read_attribute(Tag& tag);
    bool read_value(String& value);
    bool read_reference(String& target, Place place);
    bool skip_markup();
    bool close_element();

    char* at_;
    std::vector<Tag*> open_;
    String* target_ = nullptr;  // what the next run of content is appended to
};

template <typename Rules>
bool Reader<Rules>::read_declaration(Tag& root) {
    at_ += 5;
    for (;;) {
        at_ = skip_blanks(at_);
        if (!*at_) return false;
        if (at_[0] == '?' && at_[1] == '>') break;
        if (!read_attribute(root)) return false;
    }
    at_ += 2;
    return true;
}

template <typename Rules>
bool Reader<Rules>::read_content(Tag& root) {
    open_.reserve(32);
    open_.push_back(&root);
    target_ = &root.content;
    for (;;) {
        char* const run = at_;
        at_ = skip_to_characters(at_, '<', '&');
        append_run(*target_, run, at_);
        if (!*at_) return true;
        if (*at_ == '&') {
            if (!read_reference(*target_, Place::content)) return false;
        } else if (at_[1] == '/') {
            if (open_.size() == 1) return true;
            if (!close_element()) return false;
        } else if (at_[1] == '!') {
            if (!skip_markup()) return false;
        } else {
            if (!read_element()) return false;
        }
    }
}

// The end tag's name is not looked at.
template <typename Rules>
bool Reader<Rules>::close_element() {
    at_ = skip_to_character(at_ + 2, '>');
    if (!*at_) return false;
    ++at_;
    target_ = &open_.back()->epilog;
    open_.pop_back();
    return true;
}

// A comment, or anything else that begins with "<!".
template <typename Rules>
bool Reader<Rules>::skip_markup() {
    at_ += 2;
    if (at_[0] == '-' && at_[1] == '-') {
        at_ += 2;
        while (*at_ && !(at_[0] == '-' && at_[1] == '-' && at_[2] == '>')) ++at_;
        if (!*at_) return false;
        at_ += 3;
        return true;
    }
    at_ = skip_to_character(at_, '>');
    if (!*at_) return false;
    ++at_;
    return true;
}

template <typename Rules>
bool Reader<Rules>::read_element() {
    auto& siblings = open_.back()->tags;
    siblings.resize(siblings.size() + 1);
    Tag& tag = siblings.back();
    if (!read_plain_tag(tag) && !read_name_and_attributes(tag)) return false;
    bool const closed = *at_++ == '/';
    if (closed) {
        // Whatever stands here is taken for the '>'.
        if (!*at_) return false;
        ++at_;
        target_ = &tag.epilog;
    } else {
        open_.push_back(&tag);
        target_ = &tag.content;
    }
    return true;
}

template <typename Rules>
bool Reader<Rules>::read_name_and_attributes(Tag& tag) {
    if (!read_name(tag)) return false;
    while (*at_ != '/' && *at_ != '>') {
        if (!read_attribute(tag)) return false;
        at_ = skip_blanks(at_);
    }
    return true;
}

// The usual start tag at one go: no references, few attributes, nothing missing. Anything else is
// left as it was for the step-by-step way.
template <typename Rules>
bool Reader<Rules>::read_plain_tag(Tag& tag) {
    PlainRuns runs;
    char* const name = at_ + 1;
    char* at = skip_to(name, ends_element_name);
    while (*at && !Rules::ends_name(at)) at = skip_to(at + 1, ends_element_name);
    runs.add(name, at);
    for (at = skip_blanks(at); *at != '/' && *at != '>'; at = skip_blanks(at)) {
        if (!*at || runs.full()) return false;
        char* const end = skip_to(at + 1, ends_attribute_name);
        runs.add(at, end);
        at = skip_blanks(end);
        if (!*at) return false;
        at = skip_blanks(at + 1);
        char const quote = *at;
        if (!quote) return false;
        char* const value = at + 1;
        at = skip_to_characters(value, quote, '&');
        if (!*at || *at != quote) return false;
        runs.add(value, at++);
    }
    if (!runs.store(tag)) return false;
    at_ = at;
    return true;
}

// Moves on to what follows the white space behind the name.
template <typename Rules>
bool Reader<Rules>::read_name(Tag& tag) {
    char* const name = at_ + 1;
    char* end = skip_to(name, ends_element_name);
    while (*end && !Rules::ends_name(end)) end = skip_to(end + 1, ends_element_name);
    if (!*end) return false;
    append_run(tag.name, name, end);
    at_ = skip_blanks(end);
    return *at_ != 0;
}

template <typename Rules>
bool Reader<Rules>::read_attribute(Tag& tag) {
    tag.attributes.push_back(XML_ATTRIBUTE());
    XML_ATTRIBUTE& attribute = tag.attributes.back();
    if (!*at_) return false;
    char* const end = skip_to(at_ + 1, ends_attribute_name);
    if (!*end) return false;
    append_run(attribute.name, at_, end);

    at_ = skip_blanks(end);
    if (!*at_) return false;
    // Whatever stands here is taken for the '='.
    at_ = skip_blanks(at_ + 1);
    return *at_ && read_value(attribute.value);
}

// Any character serves as the quote.
template <typename Rules>
bool Reader<Rules>::read_value(String& value) {
    char const quote = *at_++;
    for (;;) {
        char* const run = at_;
        at_ = skip_to_characters(at_, quote, '&');
        if (!*at_) return false;
        append_run(value, run, at_);
        if (*at_ == quote) break;
        if (!read_reference(value, Place::attribute)) return false;
    }
    ++at_;
    return true;
}

// A reference that cannot be resolved leaves a terminator in place of its ';'.
template <typename Rules>
bool Reader<Rules>::read_reference(String& target, Place place) {
    char* const name = at_ + 1;
    char* const end = skip_to_character(name, ';');
    if (!*end) return false;
    unsigned int const code = Rules::code_of({name, static_cast<std::size_t>(end - name)}, place);
    if (code == no_code) {
        *end = 0;
        return false;
    }
    append_code(target, code);
    at_ = end + 1;
    return true;
}

struct FreeBlock {
    void operator()(char* block) const { custom_free(block); }
};

// Drops every zero byte behind a UTF-16 mark, and the mark: a narrowing for ASCII.
void narrow_utf16(char* text, unsigned int size) {
    unsigned short mark = 0;
    if (size < sizeof(mark)) return;
    std::memcpy(&mark, text, sizeof(mark));
    if (mark != 0xFFFE && mark != 0xFEFF) return;
    char* out = text;
    for (unsigned int i = sizeof(mark); i != size; ++i) {
        if (text[i]) *out++ = text[i];
    }
    *out = 0;
}

}  // namespace

bool XML::parse_std_xml(char* buffer) {
    return Reader<StandardRules>::read_document(*this, buffer);
}

bool XMLParser::parse(char* buffer) {
    return Reader<OtherRules>::read_document(*this, buffer);
}

bool XMLParser::parse(FileIn& file) {
    if (file.status() != FILE_OK) return false;
    unsigned int const size = file.size();
    if (size == 0 || file.status() != FILE_OK) return false;
    std::unique_ptr<char, FreeBlock> const text(
        static_cast<char*>(custom_malloc(size + 1ull, HEAP_GENERAL)));
    if (file.read(text.get(), size) != size) return false;
    text.get()[size] = 0;
    narrow_utf16(text.get(), size);
    return parse(text.get());
}

}  // namespace QX
