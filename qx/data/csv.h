// csv.h - a reader of tab-separated tables held in memory.
//
// Columns are separated by one tab, lines end with "\r" or "\r\n". A "\n" alone belongs to the
// column's text; there are no quotes and no escapes, and commas mean nothing:
//
//     "a\tb\r\n"    =>  "a", "b"              "\r"          =>  ""
//     "a\t\tb\r\n"  =>  "a", "", "b"          "a\t\r\n"     =>  "a", ""
//     "a\n\tb\r\n"  =>  "a\n", "b"            "a\tb" (end)  =>  "a", "b"
//
// Three outcomes to know: behind a "\r" without "\n" the next line loses its first byte; columns
// past a line's limit are dropped; a last line without a line end has no last empty column.
//
//     QX::CSV_FILE file(bytes, size, none);
//     QX::CSV_LINE line(file, 16);
//     line.readln();
//     unsigned int const cost = line.find_column("cost");
//     while (line.readln()) total += line.get_int32(cost);
//
// Failure: making a file or a line, or copying the default value, throws std::bad_alloc; nothing
// else fails. No pointer may be null, but for the data of 0 bytes.
#pragma once

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

// The text of one table, and how far it has been read. Reading writes into the copy, so one thread
// at a time serves a file and its lines.
class CSV_FILE {
public:
    // Copies `size` bytes of `data`; they need no terminator. `default_value` stays the caller's
    // and must outlive the file.
    QX_API CSV_FILE(char const* data, unsigned int size, String const& default_value);
    QX_API ~CSV_FILE();

    CSV_FILE(CSV_FILE const&) = delete;
    CSV_FILE& operator=(CSV_FILE const&) = delete;

    char* buffer() const { return buffer_; }     // the copy
    char* pos() const { return pos_; }           // where the next line starts
    char* end() const { return end_; }           // behind the copy
    unsigned int line() const { return line_; }  // lines read so far
    String const& default_value() const { return *default_value_; }

private:
    friend class CSV_LINE;

    char* buffer_;
    char* pos_;
    char* end_;
    unsigned int line_ = 0;
    String const* default_value_;
};

// The columns of the line last read: an array of pointers into the file's copy. The texts stay
// valid for the file's life, also after the next `readln`.
class CSV_LINE {
public:
    // "No such column".
    static constexpr unsigned int ncol = 0xFFFFFFFF;

    // Keeps up to `columns` columns of each line. `file` must outlive the line.
    QX_API CSV_LINE(CSV_FILE& file, unsigned int columns);
    // The copy points into the same texts and reads on from the same file.
    QX_API CSV_LINE(CSV_LINE const& other);
    QX_API ~CSV_LINE();

    CSV_LINE& operator=(CSV_LINE const&) = delete;

    // Reads the next line. At the end of the text false, with `count` and `line` 0.
    QX_API bool readln();

    // The first column of the current line whose text is `name`, or `ncol`. On a header line this
    // gives the indices for the lines below it.
    QX_API unsigned int find_column(char const* name) const;

    // The column's text; "" for one that is not there. The file's default value is copied and
    // dropped on the way, on purpose: it never comes back. Valid as long as the file's text is.
    QX_API char const* get_temp_string(unsigned int column) const;

    // As `atoi` and `atof` read that text: "12abc" => 12, and 0 for a column that is not there.
    QX_API int get_int32(unsigned int column) const;
    QX_API float get_float(unsigned int column) const;

    unsigned int count() const { return count_; }  // columns kept of this line
    unsigned int line() const { return line_; }    // its number, from 1; 0 before and after all

    CSV_FILE* file() const { return file_; }
    unsigned int column_limit() const { return column_limit_; }
    // `column_limit` pointers; from `count` on they are null.
    char* const* columns() const { return columns_; }

private:
    CSV_FILE* file_;
    unsigned int column_limit_;
    unsigned int pointer_count_;
    char** columns_;
    unsigned int count_ = 0;
    unsigned int line_ = 0;
};

}  // namespace QX
