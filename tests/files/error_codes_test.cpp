#include "qx/files/error_codes.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <string>

namespace {

struct Row {
    unsigned int raw;
    int status;
    int open_status;
};

// clang-format off
constexpr Row rows[] = {
    {0, 0, 0},      {38, 1, 1},    {997, 2, 2},   {2, 3, 3},     {3, 3, 3},     {6, 3, 3},
    {161, 3, 24},   {183, 4, 4},   {8, 6, 6},     {14, 6, 24},   {1816, 24, 6}, {5, 7, 7},
    {13, 7, 24},    {87, 19, 19},  {998, 24, 19}, {123, 20, 20}, {32, 21, 21},  {22, 22, 24},
    {1006, 23, 24},
};
// clang-format on

TEST(FileStatus, folds_every_raw_number_in_two_ways) {
    std::map<unsigned int, Row> known;
    for (Row const& row : rows) known[row.raw] = row;
    for (unsigned int raw = 0; raw < 70000; ++raw) {
        Row const row = known.count(raw) ? known[raw] : Row{raw, 24, 24};
        ASSERT_EQ(QX::status_of_error(raw), row.status) << raw;
        ASSERT_EQ(QX::status_of_open_error(raw), row.open_status) << raw;
    }
    EXPECT_EQ(QX::file_status(INVALID_HANDLE_VALUE), QX::FILE_UNKNOWN_ERROR);
    EXPECT_EQ(QX::file_status(nullptr), QX::FILE_OK);
}

std::string system_words(DWORD number) {
    char* words = nullptr;
    FormatMessageA(0x1300, nullptr, number, 0, reinterpret_cast<char*>(&words), 0, nullptr);
    std::string const text = words ? words : "";
    LocalFree(words);
    return "QX::GetLastError() returned " + std::to_string(static_cast<int>(number)) +
           " which means:\n\n" + text + "\n";
}

TEST(LastErrorText, tells_the_systems_number_and_words) {
    for (DWORD const number : {0ul, 2ul, 5ul, 87ul, 0x7F123456ul, 0xE0000001ul}) {
        std::string const expected = system_words(number);
        for (auto const text :
             {QX::file_in_last_error, QX::async_in_last_error, QX::mem_file_in_last_error,
              QX::pack_file_last_error}) {
            SetLastError(number);
            EXPECT_EQ(text().c_str(), expected);
        }
    }
}

TEST(LastErrorText, tells_the_c_librarys_number_and_words) {
    for (int const number : {0, 2, 13, 22, 9999}) {
        std::string const expected = "errno = " + std::to_string(number) + " which means:\n\n" +
                                     std::strerror(number) + "\n";
        errno = number;
        EXPECT_EQ(QX::file_out_last_error().c_str(), expected);
        errno = number;
        EXPECT_EQ(QX::endian_out_last_error().c_str(), expected);
    }
}

}  // namespace
