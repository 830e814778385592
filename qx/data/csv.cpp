#include "qx/data/csv.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <emmintrin.h>

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

// One bit for each of the next 16 bytes before `end` that is a tab or a carriage return.
unsigned int separators(char const* at, char const* end) {
    if (end - at < 16) {
        unsigned int found = 0;
        for (int i = 0; i != end - at; ++i) found |= (at[i] == '\t' || at[i] == '\r') << i;
        return found;
    }
    __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(at));
    __m128i const tabs = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\t'));
    __m128i const returns = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\r'));
    return static_cast<unsigned int>(_mm_movemask_epi8(_mm_or_si128(tabs, returns)));
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

// Ends the line at a carriage return and gives the place where the next one starts. Kept: without
// a line feed the step over it is made all the same, and the next line loses its first byte.
char* CSV_LINE::end_line(char* at) {
    if (at + 1 < file_->end_ && at[1] == '\n') at[1] = 0;
    return at + 2;
}

bool CSV_LINE::readln() {
    count_ = 0;
    if (file_->pos_ >= file_->end_) {
        line_ = 0;
        return false;
    }
    line_ = ++file_->line_;
    file_->pos_ = split(file_->pos_);
    std::fill_n(columns_ + count_, column_limit_ - count_, nullptr);
    return true;
}

// Cuts one line into columns; gives the place where the next one starts.
char* CSV_LINE::split(char* column) {
    char* const end = file_->end_;
    for (char* block = column; block < end; block += sizeof(__m128i)) {
        for (unsigned int found = separators(block, end); found; found &= found - 1) {
            char* const at = block + std::countr_zero(found);
            char const separator = *at;
            *at = 0;
            add_column(column);
            if (separator == '\r') return end_line(at);
            column = at + 1;
        }
    }
    if (column < end) add_column(column);
    return end;
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
