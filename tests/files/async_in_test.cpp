#include "qx/files/async_in.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <cstring>
#include <string>

#include "tests/files/late_completion.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

static_assert(sizeof(QX::AsyncIn) == 64);  // as the contract gives

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

DWORD asked_share, asked_flags;

HANDLE WINAPI
tell_open(LPCSTR, DWORD, DWORD share, LPSECURITY_ATTRIBUTES, DWORD, DWORD flags, HANDLE) {
    asked_share = share;
    asked_flags = flags;
    HANDLE const event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    SetLastError(5);
    return event;
}

TEST_F(AsyncIn, an_open_leaves_no_error_when_it_fails_and_the_systems_when_it_succeeds) {
    unsigned int opened = 0;
    auto const count = [](wchar_t const*, void* user) { ++*static_cast<unsigned int*>(user); };
    EXPECT_EQ(QX::AsyncIn::hook_open(count, &opened, nullptr), nullptr);
    QX::AsyncIn file;
    EXPECT_TRUE(file.error() == 6 && !file.open("C:\\no such file"));
    EXPECT_TRUE(file.status() == QX::FILE_OK && !file.close() && file.size64() == ~0ull);
    EXPECT_EQ(file.status(), QX::FILE_NOT_FOUND);
    test::StandIn const open("CreateFileA", tell_open);
    EXPECT_EQ(QX::AsyncIn("a").status(), QX::FILE_ACCESS_DENIED);
    EXPECT_TRUE(asked_share == 1 && asked_flags == 0x68000000);
    EXPECT_TRUE(QX::AsyncIn::hook_open(nullptr, nullptr, nullptr) != nullptr && opened == 1);
}

TEST_F(AsyncIn, a_read_completes_on_its_own_thread_in_an_alertable_wait_only) {
    QX::AsyncIn file(path_.c_str());
    DWORD thread = 0;
    auto const note = [](QX::AsyncIn& in, void* user) {
        EXPECT_EQ(in.status(), QX::FILE_OK);
        *static_cast<DWORD*>(user) = GetCurrentThreadId();
    };
    ASSERT_TRUE(file.read(memory_, 1024, 512, note, &thread));
    Sleep(20);
    EXPECT_TRUE(file.status() == QX::FILE_PENDING && file.marker_ == &file && !thread);
    EXPECT_FALSE(file.read(memory_ + 4096, 0, 512, nullptr, nullptr));
    EXPECT_EQ(SleepEx(INFINITE, TRUE), static_cast<DWORD>(WAIT_IO_COMPLETION));
    EXPECT_TRUE(thread == GetCurrentThreadId() && memory_[4096] == 0);
    EXPECT_EQ(std::string(memory_, 512), std::string(512, 'c'));
}

TEST_F(AsyncIn, a_read_without_callback_returns_after_its_completion) {
    QX::AsyncIn file(path_.c_str());
    test::LateCompletion const late(20);
    QueueUserAPC([](ULONG_PTR) {}, GetCurrentThread(), 0);  // ends the first wait
    EXPECT_TRUE(file.read(memory_, 0, 4096, nullptr, nullptr));
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
    EXPECT_TRUE(file.read(memory_, 0, 512, nullptr, nullptr) && memory_[0] == 'a');
}

DWORD sector_size;
std::string asked_roots;

BOOL WINAPI tell_sector_size(LPCSTR root, LPDWORD, LPDWORD size, LPDWORD, LPDWORD) {
    asked_roots += root ? *root : '.';
    *size = sector_size;
    return sector_size != 0;
}

TEST(Alignment, is_asked_once_a_drive_and_both_cases_share_a_slot) {
    unsigned int position, size, memory;
    std::memset(QX::AsyncInPlatform::alignments, 0, sizeof QX::AsyncInPlatform::alignments);
    test::StandIn const disk("GetDiskFreeSpaceA", tell_sector_size);
    for (DWORD const told : {0, 2048, 4}) {
        sector_size = told;
        for (char const drive : {'q', 'Q'})
            EXPECT_EQ(QX::AsyncInPlatform::alignment(drive), told ? 2048u : 0u);
    }
    EXPECT_TRUE(QX::AsyncIn::aligns(position, size, memory, ""));
    EXPECT_TRUE(position == 8 && size == 8 && memory == 8);
    EXPECT_TRUE(QX::AsyncIn::aligns(position, size, memory, "q:\\x") && memory == 2048);
    for (char const other : {'1', ':', '@', '[', '`', '{', '\xE4'})
        EXPECT_TRUE(!QX::AsyncIn::aligns(position, size, memory, other) && memory == 0);
    EXPECT_EQ(asked_roots, "qQq.");
    QX::DiskGeometry::init();  // takes the 4 as well
    EXPECT_EQ(QX::DiskGeometry::s_bytes_per_sector_mask, ~3ull);
    sector_size = 0;
    QX::DiskGeometry::init();
    EXPECT_EQ(QX::DiskGeometry::s_bytes_per_sector, 512u);
}

}  // namespace
