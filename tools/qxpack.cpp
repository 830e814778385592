// qxpack.cpp - creates, lists, extracts and verifies packs. The format is told in
// docs/formats/pack.md.
#include "qx/base/windows.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "qx/files/file_streams.h"
#include "qx/files/pack_file.h"
#include "tools/command.h"

namespace {

namespace fs = std::filesystem;
using tool::fail;
using tool::fail_usage;

constexpr unsigned int default_alignment = 4096;
constexpr unsigned int copy_block = 1 << 20;
constexpr unsigned long long pack_size_max = 0xFFFFFFFF;
constexpr unsigned long long progress_interval_ms = 500;

char const usage[] =
    "qxpack - creates and reads packs\n"
    "\n"
    "  qxpack create [--key N] [--align N] [--duplicates] OUT.pack FOLDER\n"
    "      packs every file under FOLDER, by its name relative to FOLDER\n"
    "  qxpack list [--key N] PACK\n"
    "      prints offset, size and name of each entry, in the order of the data\n"
    "  qxpack extract [--key N] PACK FOLDER\n"
    "      writes every entry under FOLDER\n"
    "  qxpack verify [--key N] PACK\n"
    "      checks the whole pack\n"
    "\n"
    "  --key N       the pack's key, 0 to 65535 (default 0: none)\n"
    "  --align N     entries start on multiples of N, a power of two (default 4096)\n"
    "  --duplicates  allow names that differ by case alone\n"
    "  --help        this text\n"
    "\n"
    "Numbers may be hexadecimal (0x...). Exit codes: 0 done, 1 failed, 2 wrong usage.\n";

std::string to_narrow(std::wstring const& text, unsigned int code_page = CP_UTF8) {
    int const length = static_cast<int>(text.size());
    std::string bytes(3 * text.size() + 1, 0);
    BOOL lossy = FALSE;
    int const size = WideCharToMultiByte(
        code_page, code_page == CP_UTF8 ? 0 : WC_NO_BEST_FIT_CHARS, text.data(), length,
        bytes.data(), static_cast<int>(bytes.size()), nullptr,
        code_page == CP_UTF8 ? nullptr : &lossy);
    if (lossy) fail(to_narrow(text) + ": not expressible in the system's code page");
    bytes.resize(size);
    return bytes;
}

// UTF-8, or bytes of their own where that fails.
std::wstring to_wide(std::string const& text) {
    int const length = static_cast<int>(text.size());
    std::wstring wide(text.size(), 0);
    int const size = MultiByteToWideChar(
        CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), length, wide.data(), length);
    if (size || text.empty())
        wide.resize(size);
    else
        wide.assign(
            reinterpret_cast<unsigned char const*>(text.data()),
            reinterpret_cast<unsigned char const*>(text.data()) + length);
    return wide;
}

std::string shown(fs::path const& path) {
    return to_narrow(path.wstring());
}

std::string system_words() {
    std::string words(QX::file_in_last_error().c_str());
    words = words.substr(words.find("\n\n") + 2);
    while (!words.empty() && std::strchr("\r\n", words.back())) words.pop_back();
    return words;
}

// Names that a system without case would take for one another are equal.
std::wstring folded(std::string const& name) {
    std::wstring wide = to_wide(name);
    for (wchar_t& c : wide) c = static_cast<wchar_t>(std::towlower(c));
    return wide;
}

// A line on the error stream that tells how far long work has come.
class Progress {
public:
    Progress(char const* what, unsigned long long total) : what_(what), total_(total) {}
    ~Progress() {
        if (shown_) std::fprintf(stderr, "\r%s: done    \n", what_);
    }

    void advance(unsigned long long bytes) {
        done_ += bytes;
        unsigned long long const now = GetTickCount64();
        if (now < next_) return;
        next_ = now + progress_interval_ms;
        shown_ = true;
        std::fprintf(stderr, "\r%s: %3llu %%", what_, total_ ? done_ * 100 / total_ : 100);
        std::fflush(stderr);
    }

private:
    char const* what_;
    unsigned long long total_;
    unsigned long long done_ = 0;
    unsigned long long next_ = GetTickCount64() + progress_interval_ms;
    bool shown_ = false;
};

struct Options {
    unsigned short key = 0;
    unsigned int alignment = default_alignment;
    bool duplicates = false;
    tool::Words operands;
};

// --- Creating ------------------------------------------------------------------------------------

struct Source {
    fs::path path;
    std::string name;
    unsigned int size;
    unsigned int offset;
};

// What the pack is called until it is finished.
fs::path partial_of(fs::path const& pack) {
    return pack.wstring() + L".partial";
}

bool is_same(fs::path const& a, fs::path const& b) {
    std::error_code missing;
    return fs::equivalent(a, b, missing);
}

// Without the pack itself, nor one that was left unfinished.
std::vector<Source> collect(fs::path const& folder, fs::path const& pack) {
    std::error_code error;
    if (!fs::is_directory(folder, error)) fail(shown(folder) + ": no such folder");
    std::vector<Source> sources;
    fs::recursive_directory_iterator walk(folder, error), end;
    for (; !error && walk != end; walk.increment(error)) {
        if (!walk->is_regular_file()) continue;
        if (is_same(walk->path(), pack) || is_same(walk->path(), partial_of(pack))) continue;
        std::wstring name = walk->path().lexically_relative(folder).wstring();
        std::replace(name.begin(), name.end(), L'/', L'\\');
        unsigned long long const size = walk->file_size();
        if (size > pack_size_max) fail(shown(walk->path()) + ": 4 GiB or more");
        sources.push_back({walk->path(), to_narrow(name), static_cast<unsigned int>(size), 0});
    }
    if (error) fail(shown(folder) + ": " + error.message());
    std::sort(sources.begin(), sources.end(), [](Source const& a, Source const& b) {
        return a.name < b.name;
    });
    return sources;
}

void refuse_duplicates(std::vector<std::string> const& names, char const* advice) {
    std::map<std::wstring, std::string> known;
    for (std::string const& name : names) {
        auto const [place, is_new] = known.emplace(folded(name), name);
        if (!is_new)
            fail(place->second + " and " + name + ": names that differ by case alone" + advice);
    }
}

// Everything before the data. Settles the offsets of the sources.
std::string make_index(fs::path const& pack, std::vector<Source>& sources, Options const& options) {
    std::string names, ends;
    for (Source const& source : sources) names += source.name + '\0';
    unsigned long long position = 16ull + names.size() + 4ull * sources.size();
    for (Source& source : sources) {
        unsigned long long const start = QX::pack_round_up(position, options.alignment);
        position = start + source.size;
        if (position > pack_size_max) fail(shown(pack) + ": would be 4 GiB or more");
        source.offset = static_cast<unsigned int>(start);
        auto const end = static_cast<unsigned int>(position);
        ends.append(reinterpret_cast<char const*>(&end), sizeof end);
    }
    if (QX::pack_round_up(position, options.alignment) > pack_size_max)
        fail(shown(pack) + ": would be 4 GiB or more");

    unsigned int const sizes[] = {
        static_cast<unsigned int>(names.size()), static_cast<unsigned int>(sources.size()),
        options.alignment};
    std::string index(reinterpret_cast<char const*>(sizes), sizeof sizes);
    index += names + ends;
    QX::PackMask(options.key).apply(index.data(), index.size());
    return "PAK2" + index;
}

// A pack on its way to the disk, removed unless it is finished.
class PackWriter {
public:
    explicit PackWriter(fs::path const& pack) : pack_(pack), partial_(partial_of(pack)) {
        if (!file_.open(partial_.c_str(), false, false)) give_up();
    }
    ~PackWriter() {
        file_.close();
        std::error_code ignored;
        fs::remove(partial_, ignored);
    }

    void write(void const* data, unsigned int bytes) {
        if (file_.write(data, bytes) != bytes) give_up();
        position_ += bytes;
    }

    void pad_to(unsigned long long position) {
        static char const zeros[4096] = {};
        while (position_ < position)
            write(
                zeros, static_cast<unsigned int>(
                           std::min<unsigned long long>(position - position_, sizeof zeros)));
    }

    void finish() {
        if (!file_.close()) give_up();
        if (!MoveFileExW(partial_.c_str(), pack_.c_str(), MOVEFILE_REPLACE_EXISTING))
            fail(shown(pack_) + ": can't be replaced: " + system_words());
    }

    unsigned long long position() const { return position_; }

private:
    [[noreturn]] void give_up() { fail(shown(partial_) + ": can't be written: " + system_words()); }

    fs::path pack_, partial_;
    QX::FileOut file_;
    unsigned long long position_ = 0;
};

void copy_into(PackWriter& pack, Source const& source, Progress& progress) {
    QX::FileIn file;
    if (!file.open(source.path.c_str(), false))
        fail(shown(source.path) + ": can't be read: " + system_words());
    std::vector<char> block(copy_block);
    unsigned int left = source.size;
    while (left) {
        unsigned int const step = std::min(left, copy_block);
        if (file.read(block.data(), step) != step)
            fail(shown(source.path) + ": became shorter while it was packed");
        pack.write(block.data(), step);
        progress.advance(step);
        left -= step;
    }
    if (file.read(block.data(), 1)) fail(shown(source.path) + ": grew while it was packed");
}

void create(Options const& options) {
    fs::path const pack = options.operands[0];
    std::vector<Source> sources = collect(options.operands[1], pack);
    std::vector<std::string> names;
    unsigned long long total = 0;
    for (Source const& source : sources) {
        names.push_back(source.name);
        total += source.size;
    }
    if (!options.duplicates) refuse_duplicates(names, " (--duplicates allows them)");

    std::string const index = make_index(pack, sources, options);
    PackWriter writer(pack);
    Progress progress("packing", total);
    writer.write(index.data(), static_cast<unsigned int>(index.size()));
    for (Source const& source : sources) {
        writer.pad_to(source.offset);
        copy_into(writer, source, progress);
    }
    writer.pad_to(QX::pack_round_up(writer.position(), options.alignment));
    writer.finish();
    std::printf("%s: %zu entries, %llu bytes\n", shown(pack).c_str(), sources.size(), total);
}

// --- Reading -------------------------------------------------------------------------------------

struct Entry {
    std::string name;
    unsigned int offset, size;
};

// Why a pack could not be opened, as far as its first bytes tell.
std::string reason_for(std::string const& path) {
    QX::FileIn file;
    if (!file.open(path.c_str(), false)) return "can't be opened: " + system_words();
    char front[4];
    if (file.read(front, 4) != 4 || std::memcmp(front, "PAK", 3) != 0) return "not a pack";
    if (front[3] == '0' || front[3] == '1')
        return "a pack with wide names, which are not read here";
    if (front[3] != '2') return "a pack of a later version";
    return "damaged, or another key is needed";
}

void open_pack(QX::MemPackFile& pack, Options const& options) {
    std::string const path = to_narrow(options.operands[0], CP_ACP);
    if (!pack.open(path.c_str(), options.key))
        fail(to_narrow(options.operands[0]) + ": " + reason_for(path));
}

// In the order of the data.
std::vector<Entry> entries_of(QX::MemPackFile const& pack) {
    std::vector<Entry> entries;
    pack.enumerate(
        [](QX::MemPackFile const&, char const* name, unsigned int offset, unsigned int size,
           void* user) {
            static_cast<std::vector<Entry>*>(user)->push_back({name, offset, size});
        },
        &entries);
    std::sort(entries.begin(), entries.end(), [](Entry const& a, Entry const& b) {
        return a.offset != b.offset ? a.offset < b.offset : a.name < b.name;
    });
    return entries;
}

unsigned long long total_of(std::vector<Entry> const& entries) {
    unsigned long long total = 0;
    for (Entry const& entry : entries) total += entry.size;
    return total;
}

void list(Options const& options) {
    QX::MemPackFile pack;
    open_pack(pack, options);
    for (Entry const& entry : entries_of(pack))
        std::printf("%10u %10u  %s\n", entry.offset, entry.size, entry.name.c_str());
}

// The system opens a device for such a part of a path, whatever follows its first dot.
bool is_device(std::string const& part) {
    std::wstring stem = to_wide(part.substr(0, part.find('.')));
    while (!stem.empty() && stem.back() == L' ') stem.pop_back();
    for (wchar_t& c : stem) c = static_cast<wchar_t>(std::towupper(c));
    for (wchar_t const* const name : {L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"}) {
        if (stem == name) return true;
    }
    bool const is_port = stem.rfind(L"COM", 0) == 0 || stem.rfind(L"LPT", 0) == 0;
    return is_port && stem.size() == 4 && std::wcschr(L"0123456789\u00B9\u00B2\u00B3", stem[3]);
}

// What keeps a name from standing under the folder it is extracted to as it is; null for nothing.
char const* fault_of(std::string const& name) {
    constexpr char const* no_name = "is no name for a file under a folder";
    std::string part;
    for (char const c : name + '\\') {
        if (c == '\\' || c == '/') {
            if (part.empty() || part.back() == '.' || part.back() == ' ') return no_name;
            if (is_device(part)) return "is a name that Windows keeps for a device";
            part.clear();
        } else if (static_cast<unsigned char>(c) < 32 || std::strchr(":*?\"<>|", c)) {
            return no_name;
        } else {
            part += c;
        }
    }
    return nullptr;
}

void write_entry(fs::path const& path, char const* data, unsigned int size, Progress& progress) {
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    QX::FileOut file;
    bool good = file.open(path.c_str(), false, false);
    while (good && size) {
        unsigned int const step = std::min(size, copy_block);
        good = file.write(data, step) == step;
        progress.advance(step);
        data += step;
        size -= step;
    }
    if (!good || !file.close()) fail(shown(path) + ": can't be written: " + system_words());
}

void extract(Options const& options) {
    QX::MemPackFile pack;
    open_pack(pack, options);
    std::vector<Entry> const entries = entries_of(pack);
    std::vector<std::string> names;
    for (Entry const& entry : entries) {
        if (char const* const fault = fault_of(entry.name))
            fail(to_narrow(options.operands[0]) + ": entry \"" + entry.name + "\" " + fault);
        names.push_back(entry.name);
    }
    refuse_duplicates(names, ", one file would replace the other");

    fs::path const folder = options.operands[1];
    std::error_code error;
    fs::create_directories(folder, error);
    if (!fs::is_directory(folder, error)) fail(shown(folder) + ": can't be made");
    Progress progress("extracting", total_of(entries));
    for (Entry const& entry : entries)
        write_entry(
            folder / to_wide(entry.name), pack.data(entry.name.c_str()), entry.size, progress);
    std::printf("%s: %zu entries extracted\n", shown(folder).c_str(), entries.size());
}

// Reads every byte, so that an unreadable sector shows.
void read_through(QX::MemPackFile const& pack, std::vector<Entry> const& entries) {
    Progress progress("verifying", total_of(entries));
    for (Entry const& entry : entries) {
        char* at = const_cast<char*>(pack.data(entry.name.c_str()));
        for (unsigned int left = entry.size; left;) {
            unsigned int const step = std::min(left, copy_block);
            QX::UnbufferedFileIn::touch(at, step);
            progress.advance(step);
            at += step;
            left -= step;
        }
    }
}

void verify(Options const& options) {
    QX::MemPackFile pack;
    open_pack(pack, options);
    std::string const path = to_narrow(options.operands[0]);
    unsigned int sizes[3];
    std::memcpy(sizes, pack.first() + 4, sizeof sizes);
    QX::PackMask(options.key).apply(sizes, sizeof sizes);

    if (pack.count() != sizes[1])
        fail(path + ": " + std::to_string(sizes[1] - pack.count()) + " names stand twice");
    if (sizes[2] == 0 || (sizes[2] & (sizes[2] - 1)) != 0)
        fail(path + ": the alignment " + std::to_string(sizes[2]) + " is no power of two");
    std::vector<Entry> const entries = entries_of(pack);
    unsigned long long names_size = 0;
    for (Entry const& entry : entries) names_size += entry.name.size() + 1;
    if (names_size != sizes[0]) fail(path + ": bytes behind the last name");
    read_through(pack, entries);

    std::printf(
        "%s: good, %zu entries, %llu bytes, alignment %u\n", path.c_str(), entries.size(),
        total_of(entries), sizes[2]);
    if (sizes[2] % 512 != 0 || pack.size64() % sizes[2] != 0)
        std::printf("%s: not laid out for asynchronous reading\n", path.c_str());
}

// --- Command line --------------------------------------------------------------------------------

struct Command {
    wchar_t const* name;
    std::size_t operand_count;
    void (*run)(Options const&);
};

constexpr Command commands[] = {
    {L"create", 2, create},
    {L"list", 1, list},
    {L"extract", 2, extract},
    {L"verify", 1, verify},
};

unsigned int
parse_number(std::wstring const& option, std::wstring const& text, unsigned int limit) {
    wchar_t* end = nullptr;
    unsigned long long const value = std::wcstoull(text.c_str(), &end, 0);
    if (!std::iswdigit(text[0]) || *end || value > limit)
        fail_usage(to_narrow(option) + " takes a number up to " + std::to_string(limit));
    return static_cast<unsigned int>(value);
}

Options parse_options(Command const& command, tool::Words const& words) {
    Options options;
    bool const creating = command.run == create;
    options.operands = tool::take_options(words, [&](std::wstring const& option, auto value) {
        if (option == L"--key") {
            options.key = static_cast<unsigned short>(parse_number(option, value(), 65535));
        } else if (option == L"--align" && creating) {
            options.alignment = parse_number(option, value(), 1u << 30);
            if (options.alignment == 0 || (options.alignment & (options.alignment - 1)) != 0)
                fail_usage("--align takes a power of two");
        } else {
            if (option != L"--duplicates" || !creating) return false;
            options.duplicates = true;
        }
        return true;
    });
    if (options.operands.size() != command.operand_count)
        fail_usage(
            to_narrow(command.name) + " takes " + std::to_string(command.operand_count) + " names");
    return options;
}

int run(std::wstring const& name, tool::Words const& words) {
    for (Command const& command : commands) {
        if (name != command.name) continue;
        command.run(parse_options(command, words));
        return 0;
    }
    fail_usage(to_narrow(name) + ": no such command");
}

}  // namespace

int main() {
    return tool::run("qxpack", usage, run);
}
