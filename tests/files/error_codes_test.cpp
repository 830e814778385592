#include "qx/files/error_codes.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <utility>

namespace {

TEST(FileStatus, folds_every_raw_number_in_two_ways) {
    std::map<unsigned int, std::pair<int, int>> const rows = {
        {0, {0, 0}},     {38, {1, 1}},   {997, {2, 2}},  {2, {3, 3}},     {3, {3, 3}},
        {6, {3, 3}},     {161, {3, 24}}, {183, {4, 4}},  {8, {6, 6}},     {14, {6, 24}},
        {1816, {24, 6}}, {5, {7, 7}},    {13, {7, 24}},  {87, {19, 19}},  {998, {24, 19}},
        {123, {20, 20}}, {32, {21, 21}}, {22, {22, 24}}, {1006, {23, 24}}};
    for (unsigned int raw = 0; raw < 70000; ++raw) {
        auto const row = rows.find(raw);
        auto const [status, open] = row != rows.end() ? row->second : std::pair(24, 24);
        ASSERT_EQ(QX::status_of_error(raw), status) << raw;
        ASSERT_EQ(QX::status_of_open_error(raw), open) << raw;
    }
    EXPECT_EQ(QX::file_status(INVALID_HANDLE_VALUE), QX::FILE_UNKNOWN_ERROR);
    EXPECT_EQ(QX::file_status(nullptr), QX::FILE_OK);
}

TEST(LastErrorText, tells_the_number_and_the_words_of_the_system_or_the_c_library) {
    for (int const number : {0, 2, 22, 9999}) {
        char words[512] = {};
        auto const raw = static_cast<DWORD>(number);
        FormatMessageA(0x1200, nullptr, raw, 0, words, sizeof words, nullptr);
        std::string const which = std::to_string(number) + " which means:\n\n";
        for (auto const text :
             {QX::file_in_last_error, QX::async_in_last_error, QX::mem_file_in_last_error,
              QX::pack_file_last_error}) {
            SetLastError(raw);
            EXPECT_EQ(text().c_str(), "QX::GetLastError() returned " + which + words + "\n");
        }
        for (auto const text : {QX::file_out_last_error, QX::endian_out_last_error}) {
            errno = number;
            EXPECT_EQ(text().c_str(), "errno = " + which + std::strerror(number) + "\n");
        }
    }
}

}  // namespace
