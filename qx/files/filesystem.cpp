#include "qx/files/filesystem.h"

#include <cstring>

#include "qx/files/filesystem_impl.h"
#include "qx/text/format.h"

namespace QX {

namespace path_shape {

namespace {

constexpr unsigned int block_bytes = sizeof(__m128i);

__m128i fold_block(__m128i bytes) {
    __m128i const slash = block_scan::equal(bytes, '/');
    __m128i const capital = block_scan::between(bytes, 'A', 'Z');
    bytes = _mm_xor_si128(bytes, _mm_and_si128(slash, _mm_set1_epi8('/' ^ '\\')));
    return _mm_or_si128(bytes, _mm_and_si128(capital, _mm_set1_epi8('a' - 'A')));
}

// Bit n for the byte n of a block.
unsigned int places_of(char c, __m128i bytes) {
    return static_cast<unsigned int>(_mm_movemask_epi8(block_scan::equal(bytes, c)));
}

// What is noticed while folding block by block.
class Marks {
public:
    void look_at(__m128i folded) {
        unsigned int const slashes = places_of('\\', folded);
        unsigned int const dots = places_of('.', folded);
        runs_ |= slashes & (slashes << 1 | last_slashes_ >> 15) & ~first_two_;
        dotted_ |= slashes & (dots << 1 | last_dots_ >> 15);
        first_two_ = 0;
        last_slashes_ = slashes;
        last_dots_ = dots;
    }

    // A backslash that follows another, but for one at the very start.
    bool runs() const { return runs_ != 0; }
    // A dot with a backslash behind it.
    bool dotted() const { return dotted_ != 0; }

private:
    unsigned int runs_ = 0;
    unsigned int dotted_ = 0;
    unsigned int first_two_ = 3;
    unsigned int last_slashes_ = 0;
    unsigned int last_dots_ = 0;
};

// Makes one backslash of each run, but keeps a pair at the start.
unsigned int collapse(char* text, unsigned int length) {
    unsigned int kept = 2;
    for (unsigned int i = 2; i < length; ++i) {
        if (text[i] == '\\' && text[kept - 1] == '\\') continue;
        text[kept++] = text[i];
    }
    return kept;
}

bool starts_with(Path const& path, char const* start, unsigned int count) {
    return path.length >= count && std::memcmp(path.text, start, count) == 0;
}

// The length of `text` cut back to just behind its last backslash.
unsigned int cut_back(char const* text, unsigned int length) {
    while (length && text[length - 1] != '\\') --length;
    return length;
}

void make_empty(Path& path) {
    path.length = 0;
}

// Resolves every "\..\", first to last. A pair that resolving brings together is seen as well: it
// can only begin with the backslash that the text was cut back to.
void climb(Path& path) {
    char* const text = path.text;
    unsigned int kept = 0;
    for (unsigned int next = 0; next != path.length;) {
        text[kept++] = text[next++];
        while (kept && text[kept - 1] == '\\' && path.length - next >= 3 &&
               std::memcmp(text + next, "..\\", 3) == 0) {
            path.changed = true;
            if (kept == 1) return make_empty(path);
            next += 3;
            kept = cut_back(text, kept - 1);
        }
    }
    path.length = kept;
}

void drop_inner_dots(Path& path) {
    char* const text = path.text;
    unsigned int kept = 0;
    for (unsigned int next = 0; next != path.length;) {
        text[kept++] = text[next++];
        if (text[kept - 1] != '\\') continue;
        while (path.length - next >= 2 && text[next] == '.' && text[next + 1] == '\\') {
            path.changed = true;
            next += 2;
        }
    }
    path.length = kept;
}

void drop_front(Path& path, unsigned int count) {
    path.text += count;
    path.length -= count;
}

}  // namespace

Path fold(char* scratch, char const* text, unsigned int length) {
    Marks marks;
    unsigned int at = 0;
    for (; length - at >= block_bytes; at += block_bytes) {
        __m128i const folded = fold_block(load_block(text + at));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(scratch + at), folded);
        marks.look_at(folded);
    }
    __m128i const folded = fold_block(load_part(text + at, length - at));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(scratch + at), folded);
    marks.look_at(folded);

    Path path = {scratch, length, marks.runs(), marks.dotted()};
    if (QX_UNLIKELY(path.changed)) path.length = collapse(scratch, length);
    // A single leading backslash goes; a pair begins a network path.
    if (length > 1 && scratch[0] == '\\' && scratch[1] != '\\') drop_front(path, 1);
    return path;
}

void resolve(Path& path) {
    if (QX_LIKELY(!path.dotted)) return;
    climb(path);
    if (starts_with(path, "..\\", 3)) return make_empty(path);
    drop_inner_dots(path);
    while (starts_with(path, ".\\", 2)) {
        path.changed = true;
        drop_front(path, 2);
    }
}

void drop_start(Path& path) {
    constexpr char start[] = "data\\";
    constexpr unsigned int start_length = sizeof start - 1;
    constexpr unsigned int last_place = 3;
    for (unsigned int at = 0; at <= last_place; ++at) {
        if (path.length < at + start_length) return;
        if (std::memcmp(path.text + at, start, start_length) != 0) continue;
        path.changed = true;
        return drop_front(path, at + start_length);
    }
}

}  // namespace path_shape

namespace {

using path_shape::Path;
using path_shape::Scratch;

void report(Path const& path, bool* changed) {
    if (path.changed && changed) *changed = true;
}

bool is_separator(char c) {
    return c == '\\' || c == '/';
}

bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The last separator wholly before `end`: a backslash if there is one, else a slash.
template <typename Text>
unsigned int last_separator(Text const& path, unsigned int end) {
    using Unit = typename Text::value_type;
    unsigned int const backslash = path.rfind(Unit('\\'), end);
    return backslash != Text::npos ? backslash : path.rfind(Unit('/'), end);
}

template <typename Text>
Text parent_of(Text const& path) {
    unsigned int at = last_separator(path, path.length());
    if (at != Text::npos && at + 1 == path.length()) at = last_separator(path, at);
    return at != Text::npos ? path.substr(0, at + 1) : path;
}

template <typename Text>
Text name_of(Text const& path) {
    unsigned int const at = last_separator(path, path.length());
    return at != Text::npos ? path.substr(at + 1) : path;
}

template <typename Text>
Text stem_of(Text const& path) {
    using Unit = typename Text::value_type;
    unsigned int const dot = path.rfind(Unit('.'));
    return dot != Text::npos ? path.substr(0, dot) : path;
}

// What the escape `\c` stands for; 0 for none.
wchar_t unescaped(wchar_t c) {
    switch (c) {
    case L'"':
    case L'\'':
    case L'\\': return c;
    case L'n': return L'\n';
    case L'r': return L'\r';
    default: return 0;
    }
}

}  // namespace

namespace Filesystem {

String sanitise_file_name(String const& path, bool* changed) {
    Scratch scratch(path.length());
    Path const folded = path_shape::fold(scratch.text(), path.data(), path.length());
    report(folded, changed);
    return String(folded.text, folded.length);
}

String sanitise_relative_path(String path, bool* changed) {
    if (path.empty()) return path;
    Path resolved = {&path[0u], path.length()};
    path_shape::resolve(resolved);
    report(resolved, changed);
    if (resolved.length == path.length()) return path;
    return String(resolved.text, resolved.length);
}

String sanitise_path_start(String const& path, bool* changed) {
    // Nothing is written: the step only moves the start.
    Path cut = {const_cast<char*>(path.data()), path.length()};
    path_shape::drop_start(cut);
    report(cut, changed);
    return String(cut.text, cut.length);
}

String sanitise_to_windows(String const& path) {
    String shaped = path;
    for (char& c : shaped) {
        if (c == '/') c = '\\';
    }
    return shaped;
}

String sanitise_to_unix(String const& path) {
    Scratch scratch(path.length());
    char* const first = scratch.text();
    char* out = first;
    for (char const c : path) {
        if (!is_separator(c))
            *out++ = c;
        else if (out == first || out[-1] != '/')
            *out++ = '/';
    }
    return String(first, static_cast<unsigned int>(out - first));
}

String sanitise_trailing_slash(String const& path) {
    if (path.empty() || path.back() == '\\') return path;
    if (path.back() != '/') return path + '\\';
    String shaped = path;
    shaped[shaped.length() - 1] = '\\';
    return shaped;
}

String trim_trailing_slash(String const& path) {
    unsigned int length = path.length();
    while (length && is_separator(path[length - 1])) --length;
    return path.substr(0, length);
}

String regify(String const& text) {
    String pattern;
    for (char const c : text) {
        if (is_letter(c))
            pattern += String::format("[%c%c]", c, static_cast<char>(c ^ ('a' - 'A')));
        else
            pattern += c;
    }
    return pattern;
}

bool absolute_path(char const* path) {
    if (path[0] == '\\' && path[1] == '\\') return true;
    return path[0] && path[1] == ':' && is_separator(path[2]);
}

UniString extension(UniString const& path, bool empty_if_none) {
    unsigned int const dot = path.rfind(L'.');
    if (dot != UniString::npos) return path.substr(dot);
    return empty_if_none ? UniString() : path;
}

String remove_extension(String const& path) {
    return stem_of(path);
}

UniString remove_extension(UniString const& path) {
    return stem_of(path);
}

String parent_directory(String const& path) {
    return parent_of(path);
}

UniString parent_directory(UniString const& path) {
    return parent_of(path);
}

String remove_parent_directory(String const& path) {
    return name_of(path);
}

UniString remove_parent_directory(UniString const& path) {
    return name_of(path);
}

bool globsearch(
    String const&,
    QX_STD::VECTOR<String, QX_STD::ALLOCATOR<String>, QX_STD::DETAIL::VECTOR_TRAITS>&) {
    return false;
}

void force_opened_files_limit(int) {}

}  // namespace Filesystem

UniString translate_back_slashes(UniString const& text) {
    UniString meant;
    for (unsigned int i = 0; i < text.length(); ++i) {
        if (text[i] != L'\\') {
            meant += text[i];
            continue;
        }
        wchar_t const escape = text[++i];
        if (escape == L'0') return meant;
        wchar_t const unit = unescaped(escape);
        if (unit == 0) return UniString();
        meant += unit;
    }
    return meant;
}

}  // namespace QX
