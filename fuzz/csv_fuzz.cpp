// csv_fuzz.cpp - any bytes are a table whose texts lie inside it.
#include <cstring>

#include "fuzz/driver.h"
#include "qx/data/csv.h"

namespace {

void one(char* data, std::size_t size) {
    QX::String const none;
    QX::CSV_FILE file(data, static_cast<unsigned int>(size), none);
    QX::CSV_LINE line(file, size ? static_cast<unsigned char>(data[0]) % 9 : 0);
    std::size_t total = 0;
    while (line.readln()) {
        for (unsigned int i = 0; i <= line.count(); ++i) {
            total += std::strlen(line.get_temp_string(i));
            line.get_float(i);
            if (i < line.count() && line.find_column(line.get_temp_string(i)) > i) __builtin_trap();
        }
    }
    if (total > size) __builtin_trap();
}

}  // namespace

int main(int argc, char** argv) {
    return fuzz::run(
        "csv", argc, argv,
        {"id\tname\tcost\r\n1\tsword\t12.5\r\n2\tbow\t7\r\n", "a\t\tb\r\r\n\tc\n\td", "\t\t\r"},
        one);
}
