#include "qx/data/csv.h"

#include <cstring>
#include <tuple>
#include <vector>

#include "benchmarks/bench.h"
#include "benchmarks/data/texts.h"

#if defined(QX_RIVAL_FCCP)
// The parser's own, found where it is expanded.
#pragma GCC diagnostic ignored "-Wstringop-truncation"
#include <libfccp/csv.h>
#endif

namespace {

// One search a cell by the C run-time, on a text that is copied as ours is.
std::size_t split_by_memchr(std::string const& text, std::vector<char>& copy) {
    std::memcpy(copy.data(), text.data(), text.size());
    char* at = copy.data();
    char* const end = at + text.size();
    std::size_t cells = 0;
    while (at < end) {
        char* const line_end = static_cast<char*>(std::memchr(at, '\r', end - at));
        while (char* const tab = static_cast<char*>(std::memchr(at, '\t', line_end - at))) {
            *tab = 0;
            ++cells;
            at = tab + 1;
        }
        *line_end = 0;
        ++cells;
        at = line_end + 2;
    }
    return cells;
}

std::size_t read_all(QX::CSV_FILE& file) {
    QX::CSV_LINE line(file, 6);
    std::size_t cells = 0;
    while (line.readln()) cells += line.count();
    return cells;
}

#if defined(QX_RIVAL_FCCP)
std::size_t read_by_fast_parser(std::string const& text) {
    io::CSVReader<6, io::trim_chars<>, io::no_quote_escape<'\t'>> reader(
        "table", text.data(), text.data() + text.size());
    char *a, *b, *c, *d, *e, *f;
    std::size_t cells = 0;
    while (reader.read_row(a, b, c, d, e, f)) cells += 6;
    return cells;
}
#endif

std::size_t read_by_us(std::string const& text) {
    static QX::String const none;
    QX::CSV_FILE file(text.data(), static_cast<unsigned int>(text.size()), none);
    return read_all(file);
}

std::size_t copy_alone(std::string const& text) {
    static QX::String const none;
    QX::CSV_FILE file(text.data(), static_cast<unsigned int>(text.size()), none);
    return file.end() - file.pos();
}

// Each reads the table from the bytes in memory, `times` times over.
std::vector<bench::Contender> readers(std::string const& text, int times) {
    std::vector<bench::Contender> contenders;
    auto const add = [&](char const* name, auto read) {
        contenders.push_back({name, [&text, times, read]() mutable {
                                  for (int i = 0; i < times; ++i) bench::keep(read(text));
                              }});
    };
    add("QXLibs", read_by_us);
#if defined(QX_RIVAL_FCCP)
    add("fast-cpp-csv-parser", read_by_fast_parser);
#endif
    std::vector<char> copy(text.size() + 1);
    add("memchr of the C run-time, a warm copy",
        [copy](std::string const& bytes) mutable { return split_by_memchr(bytes, copy); });
    add("our copy alone", copy_alone);
    return contenders;
}

}  // namespace

// All but memchr's copy the text into a block of their own: fresh pages for 16 MB, and for 64 KB
// such as our heap has at hand, where the parser takes fresh ones each time.
int main() {
    std::tuple<char const*, std::size_t, int> const rows[] = {
        {"16 MB, 6 columns", 16000000, 1},
        {"64 KB, 6 columns, 250 times", 64000, 250},
    };
    bench::Table const table("table reader (per byte, the copy of the text included)");
    for (auto const& [name, size, times] : rows) {
        std::string const text = texts::table(size);
        table.row(name, static_cast<double>(text.size()) * times, readers(text, times));
    }
}
