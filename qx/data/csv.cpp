#include "qx/data/csv.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <emmintrin.h>

#include "qx/base/block_scan.h"
#include "qx/memory/heap.h"

namespace QX {

namespace {

// True if the last column ends inside the text. A carriage return behind another may be the byte
// that is stepped over, so a line feed behind it proves nothing.
bool ends_its_last_line(char const* data, unsigned int size) {
    if (size == 0 || data[size - 1] == '\r') return true;
    if (size < 2 || data[size - 1] != '\n' || data[size - 2] != '\r') return false;
    return size == 2 || data[size - 3] != '\r';
}

// The copy takes `size` bytes; where the last column has no line end, a terminator comes behind.
char* copy_text(char const* data, unsigned int size) {
    bool const whole = ends_its_last_line(data, size);
    auto* const copy =
        static_cast<char*>(custom_malloc(size + (whole ? 0ull : 1ull), HEAP_GENERAL));
    if (size) std::memcpy(copy, data, size);
    if (!whole) copy[size] = 0;
    return copy;
}

char** make_columns(unsigned int count) {
    return static_cast<char**>(custom_malloc(count * 8ull, HEAP_GENERAL));
}

constexpr int block_size = sizeof(__m128i);
constexpr int window_size = 64;

// Windows never reach past the text, so their loads are checked as any others are.
__m128i load(char const* at) {
    return _mm_loadu_si128(reinterpret_cast<__m128i const*>(at));
}

// One bit for each byte that is a tab or a carriage return.
std::uint64_t separators(__m128i bytes) {
    using namespace block_scan;
    return static_cast<unsigned int>(
        _mm_movemask_epi8(either(equal(bytes, '\t'), equal(bytes, '\r'))));
}

// The same for the last bytes of the text, fewer than a window.
std::uint64_t last_separators(char const* at, int size) {
    std::uint64_t found = 0;
    int i = 0;
    for (; i + block_size <= size; i += block_size) found |= separators(load(at + i)) << i;
    for (; i != size; ++i) found |= std::uint64_t{at[i] == '\t' || at[i] == '\r'} << i;
    return found;
}

// The same for the next 64 bytes before `end`: most lines then end in their first window or two.
// A line that ends among the first 16 bytes needs no more, and tables of short lines skip the rest.
std::uint64_t next_separators(char const* at, char const* end) {
    if (end - at < window_size) return last_separators(at, static_cast<int>(end - at));
    __m128i const first = load(at);
    std::uint64_t found = separators(first);
    if (_mm_movemask_epi8(block_scan::equal(first, '\r'))) return found;
    for (int i = block_size; i != window_size; i += block_size)
        found |= separators(load(at + i)) << i;
    return found;
}

// Where a line's columns go, up to its limit.
struct Columns {
    char** next;
    char** end;

    void add(char* text) {
        if (next != end) *next++ = text;
    }
};

// Ends the line at a carriage return and gives the place where the next one starts. Kept: without
// a line feed the step over it is made all the same, and the next line loses its first byte.
char* end_line(char* at, char const* end) {
    if (at + 1 < end && at[1] == '\n') at[1] = 0;
    return at + 2;
}

// Cuts one line into columns; gives the place where the next one starts.
char* split(char* column, char* end, Columns& columns) {
    for (char* window = column; window < end; window += window_size) {
        for (auto found = next_separators(window, end); found; found &= found - 1) {
            char* const at = window + std::countr_zero(found);
            char const separator = *at;
            *at = 0;
            columns.add(column);
            if (separator == '\r') return end_line(at, end);
            column = at + 1;
        }
    }
    if (column < end) columns.add(column);
    return end;
}

}  // namespace

CSV_FILE::CSV_FILE(char const* data, unsigned int size, String const& default_value)
    : buffer_(copy_text(data, size)), pos_(buffer_), end_(buffer_ + size),
      default_value_(&default_value) {}

CSV_FILE::~CSV_FILE() {
    custom_free(buffer_);
}

CSV_LINE::CSV_LINE(CSV_FILE& file, unsigned int columns)
    : file_(&file), column_limit_(columns), pointer_count_(columns),
      columns_(make_columns(columns)) {
    std::fill_n(columns_, columns, nullptr);
}

CSV_LINE::CSV_LINE(CSV_LINE const& other)
    : file_(other.file_), column_limit_(other.column_limit_), pointer_count_(other.pointer_count_),
      columns_(make_columns(other.pointer_count_)), count_(other.count_), line_(other.line_) {
    std::copy_n(other.columns_, pointer_count_, columns_);
}

CSV_LINE::~CSV_LINE() {
    custom_free(columns_);
}

bool CSV_LINE::readln() {
    count_ = 0;
    if (file_->pos_ >= file_->end_) {
        line_ = 0;
        return false;
    }
    line_ = ++file_->line_;
    Columns columns{columns_, columns_ + column_limit_};
    file_->pos_ = split(file_->pos_, file_->end_, columns);
    count_ = static_cast<unsigned int>(columns.next - columns_);
    std::fill(columns.next, columns.end, nullptr);
    return true;
}

unsigned int CSV_LINE::find_column(char const* name) const {
    for (unsigned int i = 0; i != count_; ++i) {
        if (std::strcmp(columns_[i], name) == 0) return i;
    }
    return ncol;
}

char const* CSV_LINE::get_temp_string(unsigned int column) const {
    if (column < count_) return columns_[column];
    String const dropped(file_->default_value());
    return "";
}

int CSV_LINE::get_int32(unsigned int column) const {
    return std::atoi(get_temp_string(column));
}

float CSV_LINE::get_float(unsigned int column) const {
    return static_cast<float>(std::atof(get_temp_string(column)));
}

}  // namespace QX
