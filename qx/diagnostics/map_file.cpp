#include "qx/diagnostics/map_file.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "qx/text/convert.h"

namespace QX::stack {

namespace {

constexpr int end_of_text = -1;
constexpr unsigned int line_size = 1024;
constexpr unsigned int address_digits = 16;
constexpr char image_base[] = "__ImageBase";

bool is_blank(int c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// The value of a hexadecimal digit, or -1.
int digit_value(int c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

struct Entry {
    std::string name;
    unsigned long long address = 0;
};

class MapReader {
public:
    explicit MapReader(char const* name)
        : file_(_wfopen(must_fix_string_widen(String(name)).c_str(), L"r")) {
        if (file_) block_.resize(1 << 16);
    }

    bool is_open() const { return file_ != nullptr; }

    bool skip_header() {
        std::string line;
        while (read_line(line)) {
            if (line.compare(std::min<std::size_t>(line.size(), 2), 7, "Address") == 0)
                return read_line(line);
        }
        return false;
    }

    // False where the text ends or no number stands in the third place.
    bool read_entry(Entry& entry) {
        if (!skip_token()) return false;
        if (!read_name(entry.name) || !read_address(entry.address)) return false;
        while (peek() != end_of_text && take() != '\n') {}
        return true;
    }

private:
    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    int peek() {
        if (at_ == filled_) {
            filled_ = std::fread(block_.data(), 1, block_.size(), file_.get());
            at_ = 0;
            if (filled_ == 0) return end_of_text;
        }
        return static_cast<unsigned char>(block_[at_]);
    }

    // Only behind a peek that gave a character.
    int take() { return static_cast<unsigned char>(block_[at_++]); }

    // Longer lines come in pieces.
    bool read_line(std::string& line) {
        line.clear();
        if (peek() == end_of_text) return false;
        while (line.size() < line_size && peek() != end_of_text) {
            int const c = take();
            if (c == '\n') break;
            line += static_cast<char>(c);
        }
        return true;
    }

    bool skip_blanks() {
        while (is_blank(peek())) take();
        return peek() != end_of_text;
    }

    bool skip_token() {
        if (!skip_blanks()) return false;
        while (peek() != end_of_text && !is_blank(peek())) take();
        return true;
    }

    bool read_name(std::string& name) {
        name.clear();
        if (!skip_blanks()) return false;
        while (peek() != end_of_text && !is_blank(peek())) name += static_cast<char>(take());
        return true;
    }

    bool read_address(unsigned long long& address) {
        if (!skip_blanks()) return false;
        address = 0;
        unsigned int digits = 0;
        for (int value; (value = digit_value(peek())) >= 0; take(), ++digits)
            address = address << 4 | static_cast<unsigned int>(value);
        return digits != 0 && digits <= address_digits;
    }

    std::unique_ptr<std::FILE, Closer> file_;
    std::vector<char> block_;
    std::size_t at_ = 0;
    std::size_t filled_ = 0;
};

using Prefixes = std::vector<char const*>;

Prefixes label_prefixes(char** more) {
    Prefixes prefixes = {"Label_",      "MY_$",        "ExceptionLabel_",
                         "RandomData_", "cpuidLabel_", "syscallLabel_"};
    for (; *more != nullptr; ++more) prefixes.push_back(*more);
    return prefixes;
}

bool is_label(std::string const& name, Prefixes const& prefixes) {
    return std::any_of(prefixes.begin(), prefixes.end(), [&](char const* prefix) {
        return name.compare(0, std::strlen(prefix), prefix) == 0;
    });
}

using Names = std::map<unsigned int, std::string>;
using Offsets = std::array<unsigned int, 32>;

// `next` walks the targets in ascending order up to `end`. Each entry ends one target at most.
void merge(
    MapReader& reader, Prefixes const& prefixes, unsigned int const* next, unsigned int const* end,
    Names& names) {
    Entry entry;
    do {
        if (!reader.read_entry(entry)) return;
    } while (entry.name != image_base);

    unsigned long long const base = entry.address;
    std::string previous = entry.name;
    while (next != end && reader.read_entry(entry)) {
        if (is_label(entry.name, prefixes)) continue;
        // Signed: what stands below the base, such as the line of the entry point, ends nothing.
        if (static_cast<long long>(*next) < static_cast<long long>(entry.address - base))
            names.emplace(*next++, previous);
        previous.swap(entry.name);
    }
}

}  // namespace

std::array<String, 32> symbolicate_from_map(
    std::array<unsigned int, 32> const& offsets, char const* map_file_name,
    char** ignored_prefixes) {
    std::array<String, 32> result;
    Offsets sorted = offsets;
    std::sort(sorted.begin(), sorted.end());
    auto const* const first = std::upper_bound(sorted.begin(), sorted.end(), 0u);
    if (first == sorted.end()) return result;

    MapReader reader(map_file_name);
    if (!reader.is_open() || !reader.skip_header()) return result;
    Names names;
    merge(reader, label_prefixes(ignored_prefixes), first, sorted.end(), names);

    for (std::size_t i = 0; i < offsets.size() && offsets[i] != 0; ++i) {
        auto const found = names.find(offsets[i]);
        if (found != names.end()) result[i] = found->second.c_str();
    }
    return result;
}

}  // namespace QX::stack
