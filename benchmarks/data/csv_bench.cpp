#include "qx/data/csv.h"

#include <cstring>

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

}  // namespace

int main() {
    std::string const text = texts::table(16000000);
    QX::String const none;
    std::vector<char> copy(text.size() + 1);
    bench::Table const table("table reader (per byte, the copy of the text included)");
    table.row("16 MB, 6 columns", static_cast<double>(text.size()), {
        {"QXLibs",
         [&] {
             QX::CSV_FILE file(text.data(), static_cast<unsigned int>(text.size()), none);
             bench::keep(read_all(file));
         }},
#if defined(QX_RIVAL_FCCP)
            {"fast-cpp-csv-parser", [&] { bench::keep(read_by_fast_parser(text)); }},
#endif
            {"memchr of the C run-time, a warm copy",
             [&] { bench::keep(split_by_memchr(text, copy)); }},
        {
            "the copy alone, fresh memory", [&] {
                QX::CSV_FILE file(text.data(), static_cast<unsigned int>(text.size()), none);
                bench::keep(file);
            }
        }
    });
}
