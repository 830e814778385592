// qxxml.cpp - checks, shows, formats, sorts and strips XML files, as the library reads and writes.
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "qx/data/entities.h"
#include "qx/data/xml.h"
#include "qx/data/xml_parser.h"
#include "qx/files/file_streams.h"
#include "qx/text/convert.h"
#include "tools/command.h"

namespace {

using tool::fail;
using tool::fail_usage;
using tool::shown;

constexpr std::size_t faults_shown = 20;

char const usage[] =
    "qxxml - checks and rewrites XML files as the library reads and writes them\n"
    "\n"
    "  qxxml check FILE...\n"
    "      tells what is wrong in each file, with line and column; also what the library\n"
    "      would accept but read otherwise than it is written\n"
    "  qxxml tree [--second] FILE...\n"
    "      shows what the library makes of each file: after a line \"# FILE\" a line for each tag\n"
    "      (<NAME), attribute (@NAME=VALUE), text before the first child (\"TEXT) and text behind\n"
    "      the tag (~TEXT), a tab in front for each level; line ends, tabs and backslashes in\n"
    "      texts are \\n, \\r, \\t and \\\\; --second reads by the second parser\n"
    "  qxxml format [--raw] [--lossy] IN OUT\n"
    "      writes IN on indented lines, or with --raw with its texts as they are\n"
    "  qxxml sort [--by ATTRIBUTE] [--lossy] IN OUT\n"
    "      sorts attributes and tags, those of one name by ATTRIBUTE, and formats\n"
    "  qxxml strip IN OUT\n"
    "      removes comments and leaves everything else as it is\n"
    "\n"
    "  --lossy  write even if texts are lost that the written form cannot hold\n"
    "  --help   this text\n"
    "\n"
    "IN and OUT may be one file: OUT is replaced once it is written whole.\n"
    "Exit codes: 0 done, 1 failed or faults found, 2 wrong usage.\n";

// --- Checking ------------------------------------------------------------------------------------

struct Fault {
    std::size_t offset;
    std::string text;
};

std::string place(std::string_view text, std::size_t offset) {
    std::string_view const before = text.substr(0, offset);
    auto const lines = std::count(before.begin(), before.end(), '\n');
    std::size_t const start = before.rfind('\n') + 1;  // 0 where there is none
    return std::to_string(lines + 1) + ":" + std::to_string(offset - start + 1);
}

// Walks a text by stricter rules than the parser's and notes where it breaks them.
class Checker {
public:
    explicit Checker(std::string_view text) : text_(text) {}

    std::vector<Fault> const& run() {
        if (text_.find('\0') != text_.npos)
            note(text_.find('\0'), "a zero byte ends the text here");
        if (!text_.empty() && static_cast<signed char>(text_[0]) < 0) {
            note(0, "begins with a byte above ASCII (a byte order mark?), which is refused");
        } else if (read_declaration() && read_content()) {
            for (Open const& open : open_) note(open.offset, "<" + open.name + "> is not closed");
        }
        return faults_;
    }

private:
    struct Open {
        std::string name;
        std::size_t offset;
    };

    static constexpr std::string_view blanks = "\t\n\r ";

    void note(std::size_t offset, std::string text) {
        faults_.push_back({offset, std::move(text)});
    }

    // False: nothing behind this can be told.
    bool stop(std::size_t offset, std::string text) {
        note(offset, std::move(text));
        return false;
    }

    bool at_end() const { return at_ >= text_.size(); }
    bool starts(std::string_view what) const { return text_.substr(at_).starts_with(what); }
    void skip_blanks() { at_ = std::min(text_.find_first_not_of(blanks, at_), text_.size()); }

    // Moves behind `what`.
    bool skip_past(std::string_view what, std::size_t from, char const* fault) {
        std::size_t const found = text_.find(what, from);
        if (found == text_.npos) return stop(at_, fault);
        at_ = found + what.size();
        return true;
    }

    bool read_declaration() {
        if (!starts("<?xml") || text_.size() < 6 || blanks.find(text_[5]) == blanks.npos)
            return true;
        std::size_t const start = at_;
        at_ += 5;
        std::set<std::string> names;
        for (skip_blanks(); !starts("?>"); skip_blanks()) {
            if (at_end()) return stop(start, "the declaration has no end");
            if (!read_attribute(names)) return false;
        }
        at_ += 2;
        return true;
    }

    bool read_content() {
        for (;;) {
            at_ = text_.find_first_of("<&", at_);
            if (at_ == text_.npos) return true;
            if (text_[at_] == '&') {
                check_reference(at_, true);
                ++at_;
            } else if (!read_markup()) {
                return false;
            }
        }
    }

    bool read_markup() {
        if (starts("<!--")) return skip_past("-->", at_ + 4, "the comment has no end");
        if (starts("</")) return read_end_tag();
        if (starts("<![CDATA[")) note(at_, "a CDATA section is dropped on reading");
        if (starts("<!")) return skip_past(">", at_ + 2, "the declaration has no end");
        if (starts("<?")) note(at_, "a processing instruction is read as a tag");
        return read_tag();
    }

    bool read_end_tag() {
        std::size_t const start = at_;
        std::size_t const end = text_.find('>', at_);
        if (end == text_.npos) return stop(start, "the end tag has no end");
        std::string_view name = text_.substr(start + 2, end - start - 2);
        name = name.substr(0, name.find_last_not_of(blanks) + 1);
        std::string const tag = "</" + std::string(name) + ">";
        if (open_.empty()) return stop(start, tag + " closes nothing; the rest is not read");
        if (open_.back().name != name)
            note(
                start, tag + " closes <" + open_.back().name + "> of " +
                           place(text_, open_.back().offset));
        open_.pop_back();
        at_ = end + 1;
        return true;
    }

    bool read_tag() {
        std::size_t const start = at_;
        std::size_t const end = std::min(text_.find_first_of("\t\n\r />", at_), text_.size());
        std::string const name(text_.substr(start + 1, end - start - 1));
        if (name.empty()) note(start, "a tag without a name");
        at_ = end;
        std::set<std::string> names;
        for (skip_blanks(); !at_end(); skip_blanks()) {
            if (text_[at_] == '>') {
                open_.push_back({name, start});
                ++at_;
                return true;
            }
            if (starts("/>")) {
                at_ += 2;
                return true;
            }
            if (text_[at_] == '/') return stop(at_, "'/' without '>' in <" + name + ">");
            if (!read_attribute(names)) return false;
        }
        return stop(start, "<" + name + " has no '>'");
    }

    bool read_attribute(std::set<std::string>& names) {
        std::size_t const start = at_;
        at_ = std::min(text_.find_first_of("\t\n\r =/>\"'", at_ + 1), text_.size());
        std::string const name(text_.substr(start, at_ - start));
        skip_blanks();
        if (!starts("=")) return stop(start, "attribute '" + name + "' has no value");
        ++at_;
        skip_blanks();
        if (at_end() || (text_[at_] != '"' && text_[at_] != '\''))
            return stop(at_, "the value of '" + name + "' has no quotes");
        std::size_t const end = text_.find(text_[at_], at_ + 1);
        if (end == text_.npos) return stop(at_, "the value of '" + name + "' has no end");
        for (++at_; at_ != end; ++at_) {
            if (text_[at_] == '&') check_reference(at_, false);
        }
        ++at_;
        if (!names.insert(name).second) note(start, "attribute '" + name + "' is there twice");
        return true;
    }

    void check_reference(std::size_t start, bool in_content) {
        std::size_t const end = text_.find_first_of(";&<\t\n\r \"'", start + 1);
        if (end == text_.npos || text_[end] != ';')
            return note(start, "'&' begins no reference (\"&amp;\" is meant?)");
        std::string_view const name = text_.substr(start + 1, end - start - 1);
        std::string const whole = "&" + std::string(name) + ";";
        if (QX::find_entity(name)) return;
        if (!name.starts_with('#')) return note(start, whole + " is not a known name");
        bool const hexadecimal = name.starts_with("#x");
        std::string_view const digits = name.substr(hexadecimal ? 2 : 1);
        unsigned int code = 0;
        auto const [stopped, error] = std::from_chars(
            digits.data(), digits.data() + digits.size(), code, hexadecimal ? 16 : 10);
        if (error != std::errc() || stopped != digits.data() + digits.size() || code > 0xFFFF)
            return note(start, whole + " is no number up to 65535");
        if (hexadecimal && in_content)
            note(start, whole + " in content is read with decimal digits");
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::vector<Open> open_;
    std::vector<Fault> faults_;
};

// --- Files ---------------------------------------------------------------------------------------

// The last byte is a terminator.
std::string read_whole(std::wstring const& name) {
    QX::FileIn file;
    if (!file.open(name.c_str(), false)) fail(shown(name) + ": cannot be opened");
    unsigned long long const size = file.size64();
    if (size >= 0x7FFFFFFF) fail(shown(name) + ": too large");
    std::string text(size, 0);
    if (file.read(text.data(), static_cast<unsigned int>(size)) != size)
        fail(shown(name) + ": cannot be read");
    return text;
}

// Calls `write` on a new file and puts that in the place of `name` once it is whole.
template <typename Write>
void replace_file(std::wstring const& name, Write write) {
    std::wstring const staged = name + L".new";
    QX::FileOut file;
    if (!file.open(staged.c_str(), false, true)) fail(shown(staged) + ": cannot be created");
    write(file);
    bool const whole = file.status() == QX::FILE_OK && file.close();
    if (!whole) file.close();
    if (!whole || !MoveFileExW(staged.c_str(), name.c_str(), MOVEFILE_REPLACE_EXISTING)) {
        DeleteFileW(staged.c_str());
        fail(shown(name) + ": cannot be written");
    }
}

std::size_t print_faults(std::wstring const& name, std::string_view text) {
    Checker checker(text);
    std::vector<Fault> const& faults = checker.run();
    for (std::size_t i = 0; i < std::min(faults.size(), faults_shown); ++i) {
        std::fprintf(
            stderr, "%s:%s: %s\n", shown(name).c_str(), place(text, faults[i].offset).c_str(),
            faults[i].text.c_str());
    }
    if (faults.size() > faults_shown)
        std::fprintf(
            stderr, "%s: and %zu more\n", shown(name).c_str(), faults.size() - faults_shown);
    return faults.size();
}

QX::XML read_tree(std::wstring const& name) {
    std::string text = read_whole(name);
    std::string const before = text;
    QX::XML tree;
    if (!tree.parse_std_xml(text.data())) {
        print_faults(name, before);
        fail(shown(name) + ": cannot be parsed");
    }
    return tree;
}

// --- Showing -------------------------------------------------------------------------------------

// The letter that stands for `c` behind a backslash, or 0.
char escaped(char c) {
    switch (c) {
    case '\n': return 'n';
    case '\r': return 'r';
    case '\t': return 't';
    case '\\': return '\\';
    default: return 0;
    }
}

void print_line(std::size_t depth, char kind, std::string_view text) {
    static std::string line;
    line.assign(depth, '\t');
    line += kind;
    for (char const c : text) {
        char const letter = escaped(c);
        if (letter) line += '\\';
        line += letter ? letter : c;
    }
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stdout);
}

std::string_view view(QX::String const& text) {
    return {text.data(), text.length()};
}

template <typename Tag>
void print_start(Tag const& tag, std::size_t depth) {
    print_line(depth, '<', view(tag.name));
    for (auto const& attribute : tag.attributes)
        print_line(
            depth + 1, '@',
            std::string(view(attribute.name)) + "=" + std::string(view(attribute.value)));
    if (!tag.content.empty()) print_line(depth + 1, '"', view(tag.content));
}

template <typename Tag>
void print_tree(Tag const& root) {
    std::vector<std::pair<Tag const*, std::size_t>> open{{&root, 0}};
    print_start(root, 0);
    while (!open.empty()) {
        auto& [tag, next] = open.back();
        if (next != tag->tags.size()) {
            Tag const& child = tag->tags[next++];
            print_start(child, open.size());
            open.push_back({&child, 0});
        } else {
            open.pop_back();
            if (!tag->epilog.empty()) print_line(open.size(), '~', view(tag->epilog));
        }
    }
}

// --- Commands ------------------------------------------------------------------------------------

bool is_blank(QX::String const& text) {
    return std::string_view(text.data(), text.length()).find_first_not_of("\t\n\r ") ==
           std::string_view::npos;
}

// Whether content comes back as it was: characters without a name are written as hexadecimal
// references, which content reads with decimal digits.
bool reads_back(QX::String const& text) {
    QX::UniString const wide = QX::must_fix_string_widen(text);
    for (wchar_t const c : wide) {
        if (c >= 127 && !QX::entity_name(c)) return false;
    }
    return true;
}

// The texts of a tree that writing would lose.
std::size_t count_losses(QX::XML const& tree) {
    std::size_t losses = 0;
    std::vector<QX::XML::Tag const*> open{&tree};
    while (!open.empty()) {
        QX::XML::Tag const& tag = *open.back();
        open.pop_back();
        bool const empty = tag.tags.empty() && is_blank(tag.content);
        losses +=
            (empty && !is_blank(tag.epilog)) + !reads_back(tag.content) + !reads_back(tag.epilog);
        for (QX::XML::Tag const& child : tag.tags) open.push_back(&child);
    }
    return losses;
}

void trim(QX::String& text) {
    std::string_view const whole(text.data(), text.length());
    std::size_t const first = whole.find_first_not_of("\t\n\r ");
    if (first == whole.npos) return text.clear();
    std::size_t const length = whole.find_last_not_of("\t\n\r ") + 1 - first;
    if (length != whole.size())
        text = QX::String(text.data() + first, static_cast<unsigned int>(length));
}

// Takes the white space around texts, so that formatting twice gives what formatting once gives.
void trim_texts(QX::XML& tree) {
    std::vector<QX::XML::Tag*> open{&tree};
    while (!open.empty()) {
        QX::XML::Tag& tag = *open.back();
        open.pop_back();
        trim(tag.content);
        trim(tag.epilog);
        for (QX::XML::Tag& child : tag.tags) open.push_back(&child);
    }
}

struct Options {
    bool raw = false;
    bool lossy = false;
    bool second = false;
    QX::String by;
    tool::Words names;
};

int check(Options const& options) {
    std::size_t faults = 0;
    for (std::wstring const& name : options.names) {
        std::string text = read_whole(name);
        std::size_t found = print_faults(name, text);
        QX::XML tree;
        if (!found && !tree.parse_std_xml(text.data())) {
            std::fprintf(stderr, "%s: cannot be parsed\n", shown(name).c_str());
            found = 1;
        }
        if (!found) std::printf("%s: good\n", shown(name).c_str());
        std::fflush(stdout);
        faults += found;
    }
    return faults ? tool::exit_failed : 0;
}

template <typename Document>
bool show(std::wstring const& name, bool (Document::*parse)(char*)) {
    std::string text = read_whole(name);
    Document tree;
    std::printf("# %s\n", shown(name).c_str());
    bool const parsed = (tree.*parse)(text.data());
    if (parsed) print_tree<typename Document::Tag>(tree);
    std::fflush(stdout);
    if (!parsed) std::fprintf(stderr, "%s: cannot be parsed\n", shown(name).c_str());
    return parsed;
}

int show_all(Options const& options) {
    bool all = true;
    for (std::wstring const& name : options.names) {
        all &= options.second ? show<QX::XMLParser>(name, &QX::XMLParser::parse)
                              : show<QX::XML>(name, &QX::XML::parse_std_xml);
    }
    return all ? 0 : tool::exit_failed;
}

int rewrite(Options const& options, bool sorted) {
    QX::XML tree = read_tree(options.names[0]);
    std::size_t const losses = count_losses(tree);
    if (losses) {
        std::string const text = shown(options.names[0]) + ": " + std::to_string(losses) +
                                 " texts cannot be written so that they are read back";
        if (!options.lossy) fail(text + "; --lossy writes all the same");
        std::fprintf(stderr, "%s\n", text.c_str());
    }
    if (sorted) xml_sort_no_epilog(tree, options.by);
    if (!options.raw) trim_texts(tree);
    replace_file(options.names[1], [&](QX::FileOut& file) {
        tree.write(file, !options.raw, !tree.attributes.empty());
        if (!options.raw) file.write("\n", 1);
    });
    return 0;
}

int strip(Options const& options) {
    std::string text = read_whole(options.names[0]);
    QX::XML::strip_comments(text.data());
    replace_file(options.names[1], [&](QX::FileOut& file) {
        file.write(text.data(), static_cast<unsigned int>(std::strlen(text.c_str())));
    });
    return 0;
}

// Takes the options that `command` knows; the rest are file names.
Options read_options(std::wstring const& command, tool::Words const& words) {
    Options options;
    bool const formats = command == L"format", sorts = command == L"sort";
    options.names = tool::take_options(words, [&](std::wstring const& option, auto value) {
        if (option == L"--raw" && formats) return options.raw = true;
        if (option == L"--second" && command == L"tree") return options.second = true;
        if (option == L"--lossy" && (formats || sorts)) return options.lossy = true;
        if (option != L"--by" || !sorts) return false;
        options.by = shown(value()).c_str();
        if (options.by.empty()) fail_usage("--by takes the name of an attribute");
        return true;
    });
    return options;
}

int run(std::wstring const& command, tool::Words const& words) {
    tool::Words const commands = {L"check", L"tree", L"format", L"sort", L"strip"};
    if (std::find(commands.begin(), commands.end(), command) == commands.end())
        fail_usage(shown(command) + ": no such command");
    Options const options = read_options(command, words);
    if (command == L"check" || command == L"tree") {
        if (options.names.empty()) fail_usage(shown(command) + ": no file given");
        return command == L"check" ? check(options) : show_all(options);
    }
    if (options.names.size() != 2) fail_usage(shown(command) + ": IN and OUT are wanted");
    return command == L"strip" ? strip(options) : rewrite(options, command == L"sort");
}

}  // namespace

int main() {
    return tool::run("qxxml", usage, run);
}
