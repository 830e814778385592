#include "qx/files/async_in.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <string>

#include "tests/files/late_completion.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::AsyncInPlatform;

static_assert(sizeof(QX::AsyncIn) == 64);

// A file of eight sectors, each filled with its own letter.
class AsyncIn : public testing::Test {
protected:
    AsyncIn() {
        for (char c = 'a'; c < 'i'; ++c) sectors_ += std::string(512, c);
        path_ = folder_.write("a", sectors_);
    }

    test::TempFolder folder_;
    std::string sectors_, path_;
    alignas(4096) char memory_[8192] = {};
};

TEST_F(AsyncIn, a_failed_open_leaves_a_status_without_error) {
    QX::AsyncIn file;
    EXPECT_EQ(file.error(), 6u);
    EXPECT_FALSE(file.open("C:\\no such file"));
    EXPECT_TRUE(file.status() == QX::FILE_OK && !file.close() && file.size64() == ~0ull);
    EXPECT_EQ(file.status(), QX::FILE_NOT_FOUND);
}

TEST_F(AsyncIn, a_successful_open_takes_whatever_error_the_system_left) {
    unsigned int opened = 0;
    auto const count = [](wchar_t const*, void* user) { ++*static_cast<unsigned int*>(user); };
    EXPECT_EQ(QX::AsyncIn::hook_open(count, &opened, nullptr), nullptr);
    test::StandIn const open(
        "CreateFileA",
        +[](LPCSTR, DWORD, DWORD share, LPSECURITY_ATTRIBUTES, DWORD, DWORD flags, HANDLE) {
            EXPECT_TRUE(share == 1 && flags == 0x68000000);
            HANDLE const handle = CreateEventA(nullptr, FALSE, FALSE, nullptr);
            SetLastError(5);
            return handle;
        });
    EXPECT_EQ(QX::AsyncIn("a").status(), QX::FILE_ACCESS_DENIED);
    EXPECT_TRUE(QX::AsyncIn::hook_open(nullptr, nullptr, nullptr) != nullptr && opened == 1);
}

struct Seen {
    QX::AsyncIn* in = nullptr;
    DWORD thread = 0;
};

TEST_F(AsyncIn, a_read_completes_on_its_own_thread_in_an_alertable_wait_only) {
    QX::AsyncIn file(path_.c_str());
    Seen seen;
    auto const note = [](QX::AsyncIn& in, void* user) {
        EXPECT_EQ(in.status(), QX::FILE_OK);
        *static_cast<Seen*>(user) = {&in, GetCurrentThreadId()};
    };
    ASSERT_TRUE(file.read(memory_, 1024, 512, note, &seen));
    Sleep(20);
    EXPECT_TRUE(file.status() == QX::FILE_PENDING && file.marker_ == &file && !seen.in);
    EXPECT_FALSE(file.read(memory_ + 4096, 0, 512, nullptr, nullptr));
    EXPECT_EQ(SleepEx(INFINITE, TRUE), static_cast<DWORD>(WAIT_IO_COMPLETION));
    EXPECT_TRUE(seen.in == &file && seen.thread == GetCurrentThreadId() && memory_[4096] == 0);
    EXPECT_EQ(std::string(memory_, 512), std::string(512, 'c'));
}

TEST_F(AsyncIn, a_read_without_callback_returns_after_its_completion) {
    QX::AsyncIn file(path_.c_str());
    test::LateCompletion const late(20);
    QueueUserAPC([](ULONG_PTR) {}, GetCurrentThread(), 0);  // ends the first wait
    EXPECT_TRUE(file.read(memory_, 0, 4096, nullptr, nullptr));
    EXPECT_EQ(late.delivered, 1u);
    EXPECT_EQ(std::string(memory_, 4096), sectors_);
    file.read(memory_, 8192, 512, nullptr, nullptr);
    EXPECT_EQ(file.status(), QX::FILE_END_OF_FILE);
}

TEST_F(AsyncIn, after_a_refused_read_further_reads_fail_but_closing_returns) {
    QX::AsyncIn file(path_.c_str());
    {
        test::StandIn const read(
            "ReadFileEx", +[] { return SetLastError(87), FALSE; });
        EXPECT_FALSE(file.read(memory_, 1, 2, nullptr, nullptr));
    }
    EXPECT_EQ(file.status(), QX::FILE_INVALID_PARAMETER);
    EXPECT_FALSE(file.read(memory_, 0, 512, nullptr, nullptr));
    EXPECT_TRUE(file.close() && file.open(path_.c_str()));
    EXPECT_TRUE(file.read(memory_, 0, 512, nullptr, nullptr));
    EXPECT_EQ(memory_[0], 'a');
}

DWORD sector_size;
std::string asked_roots;

BOOL WINAPI tell_sector_size(LPCSTR root, LPDWORD, LPDWORD size, LPDWORD, LPDWORD) {
    asked_roots += root ? *root : '.';
    *size = sector_size;
    return sector_size != 0;
}

TEST(Alignment, is_asked_once_a_drive_and_both_cases_share_a_slot) {
    for (unsigned int& slot : AsyncInPlatform::alignments) slot = 0;
    test::StandIn const disk("GetDiskFreeSpaceA", tell_sector_size);
    sector_size = 0;
    EXPECT_EQ(AsyncInPlatform::alignment('q'), 0u);
    sector_size = 2048;
    EXPECT_EQ(AsyncInPlatform::alignment('q'), 2048u);
    sector_size = 4;
    EXPECT_TRUE(AsyncInPlatform::alignment('Q') == 2048 && AsyncInPlatform::alignments[17] == 2048);
    unsigned int position, size, memory;
    EXPECT_TRUE(QX::AsyncIn::aligns(position, size, memory, ""));
    EXPECT_TRUE(position == 8 && size == 8 && memory == 8);
    EXPECT_TRUE(QX::AsyncIn::aligns(position, size, memory, "q:\\x") && memory == 2048);
    for (char const other : {'1', ':', '@', '[', '`', '{', '\xE4'})
        EXPECT_TRUE(!QX::AsyncIn::aligns(position, size, memory, other) && memory == 0);
    EXPECT_EQ(asked_roots, "qq.");
    for (DWORD const size_told : {4096ul, 0ul}) {
        sector_size = size_told;
        QX::DiskGeometry::init();
        EXPECT_EQ(QX::DiskGeometry::s_bytes_per_sector, size_told ? size_told : 512);
        EXPECT_EQ(QX::DiskGeometry::s_bytes_per_sector_mask, size_told ? ~4095ull : ~511ull);
    }
}

}  // namespace
