#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <vector>

#include "qx/base/block_scan.h"
#include "qx/base/compiler.h"
#include "qx/data/entities.h"
#include "qx/data/xml.h"
#include "qx/data/xml_parser.h"
#include "qx/files/file_streams.h"
#include "qx/text/convert.h"

namespace QX {

namespace {

// --- Where the bytes go: single characters and blocks --------------------------------------------

class FileSink {
public:
    explicit FileSink(FileOut& file) : file_(file) {}
    ~FileSink() { flush(); }

    FileSink(FileSink const&) = delete;
    FileSink& operator=(FileSink const&) = delete;

    void put(char c) {
        if (used_ == room) flush();
        held_[used_++] = c;
    }

    void write(char const* block, unsigned int size) {
        if (size > room - used_) return write_past(block, size);
        std::memcpy(held_ + used_, block, size);
        used_ += size;
    }

    // A piece of a string in the tree: 16 bytes may be read wherever it lies.
    void write_piece(char const* block, unsigned int size) {
        if (size > sizeof(__m128i) || size > room - used_ || !block_scan::fits_page(block))
            return write(block, size);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(held_ + used_), block_scan::load(block));
        used_ += size;
    }

private:
    void flush() {
        if (used_) file_.write(held_, used_);
        used_ = 0;
    }

    void write_past(char const* block, unsigned int size) {
        flush();
        if (size > room) {
            file_.write(block, size);
        } else {
            write(block, size);
        }
    }

    static constexpr unsigned int room = 16384;

    FileOut& file_;
    unsigned int used_ = 0;
    char held_[room + sizeof(__m128i)];  // short blocks are stored as 16 bytes
};

// Kept: blocks are cut at the window's end, single characters are not.
class WindowSink {
public:
    explicit WindowSink(char* buffer) : first_(buffer), at_(buffer) {}

    void put(char c) { *at_++ = c; }

    void write(char const* block, unsigned int size) {
        unsigned int const used = written();
        if (used >= window) return;
        size = std::min(size, window - used);
        std::memcpy(at_, block, size);
        at_ += size;
    }

    void write_piece(char const* block, unsigned int size) { write(block, size); }

    unsigned int written() const { return static_cast<unsigned int>(at_ - first_); }

private:
    static constexpr unsigned int window = 1024;

    char* first_;
    char* at_;
};

class CountSink {
public:
    void put(char) { ++written_; }
    void write(char const*, unsigned int size) { written_ += size; }
    void write_piece(char const*, unsigned int size) { written_ += size; }
    unsigned int written() const { return written_; }

private:
    unsigned int written_ = 0;
};

template <typename Sink>
void write_text(Sink& sink, std::string_view text) {
    sink.write(text.data(), static_cast<unsigned int>(text.size()));
}

// --- Where the two writers differ ----------------------------------------------------------------

constexpr unsigned int tab_count = 64;

constexpr std::array<char, 1 + tab_count> make_indent() {
    std::array<char, 1 + tab_count> text{};
    text.fill('\t');
    text[0] = '\n';
    return text;
}

constexpr std::array<char, 1 + tab_count> indent = make_indent();

struct StandardStyle {
    using Tag = XML::Tag;

    // Kept: not clamped; past the 64 tabs there is no indent at all.
    static std::string_view indent_at(long long depth) {
        if (depth > tab_count) depth = 0;
        return {indent.data(), static_cast<std::size_t>(depth)};
    }

    template <typename Sink>
    static void write_assignment(Sink& sink, String const& name) {
        sink.put(' ');
        sink.write_piece(name.data(), name.length());
        sink.put(' ');
        sink.put('=');
        sink.put(' ');
        sink.put('\'');
    }

    static constexpr std::string_view named = "\"&'<>";
    static char const* name_of(unsigned int code) { return entity_name(code); }

    // 127 and above; what lies below is written as it is.
    static constexpr unsigned int first_special = 127;

    template <typename Sink>
    static void write_unnamed(Sink& sink, unsigned int code) {
        constexpr char digits[] = "0123456789ABCDEF";
        char const text[] = {
            '&',
            '#',
            'x',
            digits[code >> 12],
            digits[code >> 8 & 15],
            digits[code >> 4 & 15],
            digits[code & 15],
            ';'};
        sink.write(text, sizeof(text));
    }

    static bool has_end_tag(String const& name, long long) {
        return name[0] != '!' && name[0] != '?';
    }
};

struct OtherStyle {
    using Tag = XMLParser::Tag;

    static std::string_view indent_at(long long depth) {
        return {indent.data(), static_cast<std::size_t>(std::min(depth, 32ll) + 1)};
    }

    // Kept: no space in front.
    template <typename Sink>
    static void write_assignment(Sink& sink, String const& name) {
        sink.write_piece(name.data(), name.length());
        write_text(sink, " = '");
    }

    static constexpr std::string_view named = "\"&<>";
    static char const* name_of(unsigned int code) {
        return code == '\'' ? nullptr : entity_name(code);
    }

    static constexpr unsigned int first_special = 128;

    template <typename Sink>
    static void write_unnamed(Sink& sink, unsigned int code) {
        wchar_t const text[] = {static_cast<wchar_t>(code), 0};
        char bytes[4];
        sink.write(bytes, static_cast<unsigned int>(utf8_encode(bytes, text) - bytes));
    }

    static bool has_end_tag(String const& name, long long depth) {
        return depth >= 0 && name[0] != '!';
    }
};

// --- What they share -----------------------------------------------------------------------------

// The ASCII characters that a style writes as they are.
template <typename Style>
constexpr std::array<bool, 256> make_plain() {
    std::array<bool, 256> plain{};
    for (unsigned int c = 1; c < Style::first_special; ++c)
        plain[c] = Style::named.find(static_cast<char>(c)) == std::string_view::npos;
    return plain;
}

bool is_blank(wchar_t c) {
    return c == '\t' || c == '\n' || c == '\r' || c == ' ';
}

template <typename Char>
Char const* skip_blanks(Char const* at) {
    while (is_blank(*at)) ++at;
    return at;
}

// Whether nothing but white space is left once the text is escaped. Bytes above ASCII count as they
// are decoded: one that the terminator cuts short gives nothing.
bool is_blank_text(String const& text) {
    char const* const at = skip_blanks(text.c_str());
    return *at < 0 ? !*skip_blanks(must_fix_string_widen(String(at)).c_str()) : !*at;
}

template <typename Style, typename Sink>
class TreeWriter {
public:
    using Tag = typename Style::Tag;

    TreeWriter(Sink& sink, bool pretty) : sink_(sink), pretty_(pretty) {}

    // Without recursion: `levels_` are the tags whose children are being written.
    void write(Tag const& top, long long depth) {
        if (!open_tag(top, depth)) return;
        levels_.push_back({&top, 0});
        while (!levels_.empty()) {
            Level& level = levels_.back();
            long long const inside = depth + static_cast<long long>(levels_.size());
            if (level.next == level.tag->tags.size()) {
                close_tag(*level.tag, inside - 1);
                levels_.pop_back();
            } else {
                Tag const& child = level.tag->tags[level.next++];
                if (open_tag(child, inside)) levels_.push_back({&child, 0});
            }
        }
    }

private:
    struct Level {
        Tag const* tag;
        unsigned long long next;
    };

    static constexpr std::array<bool, 256> plain_ = make_plain<Style>();

    // False for a tag that is written whole, its end included.
    bool open_tag(Tag const& tag, long long depth) {
        write_indent(depth);
        sink_.put('<');
        sink_.write_piece(tag.name.data(), tag.name.length());
        for (XML_ATTRIBUTE const& attribute : tag.attributes) {
            Style::write_assignment(sink_, attribute.name);
            write_escaped(attribute.value);
            sink_.put('\'');
        }
        char const first = tag.name[0];
        if (first == '?') sink_.put('?');
        if (tag.tags.empty() && std::all_of(tag.content.begin(), tag.content.end(), is_blank)) {
            write_text(sink_, first == '!' ? ">" : " />");
            return false;
        }
        sink_.put('>');
        write_content(tag.content, depth + 1);
        return true;
    }

    void close_tag(Tag const& tag, long long depth) {
        if (Style::has_end_tag(tag.name, depth)) {
            write_indent(depth);
            write_text(sink_, "</");
            sink_.write_piece(tag.name.data(), tag.name.length());
            sink_.put('>');
        }
        write_content(tag.epilog, depth);
    }

    void write_indent(long long depth) {
        if (pretty_) write_text(sink_, Style::indent_at(depth));
    }

    void write_content(String const& text, long long depth) {
        if (pretty_) {
            if (is_blank_text(text)) return;
            write_indent(depth);
        }
        write_escaped(text);
    }

    void write_escaped(String const& text) {
        for (char const* at = text.c_str();; ++at) {
            char const* const run = at;
            at = plain_end(at);
            sink_.write_piece(run, static_cast<unsigned int>(at - run));
            if (!*at) return;
            if (*at < 0) return write_widened(at);
            write_code(static_cast<unsigned char>(*at));
        }
    }

    // What is named in ASCII is in both styles, or is written as it is after all.
    static char const* plain_end(char const* at) {
        return block_scan::find(at, [](__m128i bytes) {
            using block_scan::either, block_scan::equal;
            __m128i const quotes = either(equal(bytes, '"'), equal(bytes, '\''));
            __m128i const brackets = either(equal(bytes, '<'), equal(bytes, '>'));
            __m128i const others = either(equal(bytes, '&'), equal(bytes, 127));
            // Bytes from 0x80 on, and the terminator.
            __m128i const ends = _mm_cmplt_epi8(bytes, _mm_set1_epi8(1));
            return either(either(quotes, brackets), either(others, ends));
        });
    }

    void write_widened(char const* text) {
        UniString const wide = must_fix_string_widen(String(text));
        for (wchar_t const* at = wide.c_str(); *at; ++at) write_code(*at);
    }

    void write_code(unsigned int code) {
        if (char const* const name = Style::name_of(code)) {
            write_text(sink_, "&");
            write_text(sink_, name);
            write_text(sink_, ";");
        } else if (code < 0x80 && plain_[code]) {
            char const c = static_cast<char>(code);
            sink_.write(&c, 1);
        } else {
            Style::write_unnamed(sink_, code);
        }
    }

    Sink& sink_;
    bool const pretty_;
    std::vector<Level> levels_;
};

template <typename Sink>
void write_document(Sink& sink, XML const& xml, bool pretty, bool include_root) {
    TreeWriter<StandardStyle, Sink> writer(sink, pretty);
    if (include_root) return writer.write(xml, 0);
    for (XML::Tag const& tag : xml.tags) writer.write(tag, 0);
}

}  // namespace

void XML::write(FileOut& file, bool pretty, bool include_root) const {
    FileSink sink(file);
    write_document(sink, *this, pretty, include_root);
}

unsigned int XML::write_to_buffer(char* buffer, bool pretty, bool include_root) const {
    WindowSink sink(buffer);
    write_document(sink, *this, pretty, include_root);
    return sink.written();
}

unsigned int XML::calculate_xml_size(bool pretty, bool include_root) const {
    CountSink sink;
    write_document(sink, *this, pretty, include_root);
    return sink.written();
}

void XMLParser::write(FileOut& file, bool pretty) const {
    FileSink sink(file);
    TreeWriter<OtherStyle, FileSink>(sink, pretty).write(*this, -1);
}

}  // namespace QX
