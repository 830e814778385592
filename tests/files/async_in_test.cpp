#include "qx/files/async_in.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <string>

#include "tests/files/late_completion.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::AsyncIn;
using QX::AsyncInPlatform;

static_assert(sizeof(AsyncIn) == 64);

// A file of eight sectors, each filled with its own letter.
std::string sectors() {
    std::string bytes;
    for (char c = 'a'; c < 'i'; ++c) bytes += std::string(512, c);
    return bytes;
}

struct alignas(4096) Memory {
    char bytes[8192] = {};
};

struct Seen {
    AsyncIn* in = nullptr;
    unsigned int calls = 0;
    DWORD thread = 0;
};

void note(AsyncIn& in, void* user) {
    auto& seen = *static_cast<Seen*>(user);
    seen.in = &in;
    EXPECT_EQ(in.status(), QX::FILE_OK);
    seen.thread = GetCurrentThreadId();
    ++seen.calls;
}

TEST(AsyncIn, a_failed_open_leaves_a_status_without_error) {
    AsyncIn file;
    EXPECT_EQ(file.error(), 6u);
    EXPECT_EQ(file.status(), QX::FILE_NOT_FOUND);
    EXPECT_FALSE(file.open("C:\\no such file"));
    EXPECT_EQ(file.status(), QX::FILE_OK);
    EXPECT_FALSE(file.close());
    EXPECT_EQ(file.size64(), ~0ull);
    EXPECT_EQ(file.status(), QX::FILE_NOT_FOUND);
}

DWORD asked_share, asked_flags;

HANDLE WINAPI open_with_error_left(
    LPCSTR, DWORD, DWORD share, LPSECURITY_ATTRIBUTES, DWORD, DWORD flags, HANDLE) {
    asked_share = share;
    asked_flags = flags;
    HANDLE const handle = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    SetLastError(5);
    return handle;
}

TEST(AsyncIn, a_successful_open_takes_whatever_error_the_system_left) {
    test::StandIn const open("CreateFileA", open_with_error_left);
    ASSERT_TRUE(open.found());
    AsyncIn file;
    EXPECT_TRUE(file.open("a"));
    EXPECT_EQ(file.status(), QX::FILE_ACCESS_DENIED);
    EXPECT_EQ(asked_share, 1u);
    EXPECT_EQ(asked_flags, 0x68000000u);
}

TEST(AsyncIn, a_read_completes_on_its_own_thread_in_an_alertable_wait_only) {
    test::TempFolder folder;
    AsyncIn file(folder.write("a", sectors()).c_str());
    Memory memory;
    Seen seen;
    ASSERT_TRUE(file.read(memory.bytes, 1024, 512, note, &seen));
    EXPECT_EQ(file.status(), QX::FILE_PENDING);
    EXPECT_EQ(file.marker_, &file);
    Sleep(20);
    EXPECT_EQ(seen.calls, 0u);
    EXPECT_FALSE(file.read(memory.bytes + 4096, 0, 512, nullptr, nullptr));
    EXPECT_EQ(file.status(), QX::FILE_PENDING);

    EXPECT_EQ(SleepEx(INFINITE, TRUE), static_cast<DWORD>(WAIT_IO_COMPLETION));
    EXPECT_EQ(seen.calls, 1u);
    EXPECT_EQ(seen.in, &file);
    EXPECT_EQ(seen.thread, GetCurrentThreadId());
    EXPECT_EQ(std::string(memory.bytes, 512), std::string(512, 'c'));
    EXPECT_EQ(memory.bytes[4096], 0);
}

void CALLBACK nothing(ULONG_PTR) {}

TEST(AsyncIn, a_read_without_callback_returns_after_its_completion) {
    test::TempFolder folder;
    AsyncIn file(folder.write("a", sectors()).c_str());
    Memory memory;
    test::LateCompletion const late(20);
    ASSERT_TRUE(late.found());
    QueueUserAPC(nothing, GetCurrentThread(), 0);
    EXPECT_TRUE(file.read(memory.bytes, 0, 4096, nullptr, nullptr));
    EXPECT_EQ(late.delivered, 1u);
    EXPECT_EQ(file.status(), QX::FILE_OK);
    EXPECT_EQ(std::string(memory.bytes, 4096), sectors());
    file.read(memory.bytes, 8192, 512, nullptr, nullptr);
    EXPECT_EQ(file.status(), QX::FILE_END_OF_FILE);
}

BOOL WINAPI refuse(HANDLE, LPVOID, DWORD, LPOVERLAPPED, LPOVERLAPPED_COMPLETION_ROUTINE) {
    SetLastError(87);
    return FALSE;
}

TEST(AsyncIn, after_a_refused_read_further_reads_fail_but_closing_returns) {
    test::TempFolder folder;
    std::string const path = folder.write("a", sectors());
    AsyncIn file(path.c_str());
    Memory memory;
    {
        test::StandIn const read("ReadFileEx", refuse);
        ASSERT_TRUE(read.found());
        EXPECT_FALSE(file.read(memory.bytes, 1, 2, nullptr, nullptr));
    }
    EXPECT_EQ(file.status(), QX::FILE_INVALID_PARAMETER);
    EXPECT_EQ(file.marker_, &file);
    EXPECT_FALSE(file.read(memory.bytes, 0, 512, nullptr, nullptr));
    EXPECT_TRUE(file.close());
    ASSERT_TRUE(file.open(path.c_str()));
    EXPECT_TRUE(file.read(memory.bytes, 0, 512, nullptr, nullptr));
    EXPECT_EQ(memory.bytes[0], 'a');
}

unsigned int hook_calls;

void note_open(wchar_t const*, void*) {
    ++hook_calls;
}

TEST(AsyncIn, has_an_open_hook_of_its_own) {
    test::TempFolder folder;
    std::string const path = folder.write("a", "x");
    EXPECT_EQ(AsyncIn::hook_open(note_open, nullptr, nullptr), nullptr);
    AsyncIn file(path.c_str());
    EXPECT_FALSE(file.open(folder.file("missing").c_str()));
    QX::FileIn const plain(path.c_str(), false);
    EXPECT_EQ(AsyncIn::hook_open(nullptr, nullptr, nullptr), note_open);
    EXPECT_EQ(hook_calls, 1u);
}

DWORD sector_size;
unsigned int times_asked;
std::string asked_root;

BOOL WINAPI tell_sector_size(
    LPCSTR root, LPDWORD per_cluster, LPDWORD size, LPDWORD free_clusters, LPDWORD clusters) {
    ++times_asked;
    asked_root = root ? root : "(current)";
    *per_cluster = *free_clusters = *clusters = 1;
    *size = sector_size;
    return sector_size != 0;
}

TEST(Alignment, is_asked_once_a_drive_and_both_cases_share_a_slot) {
    for (unsigned int& slot : AsyncInPlatform::alignments) slot = 0;
    test::StandIn const disk("GetDiskFreeSpaceA", tell_sector_size);
    ASSERT_TRUE(disk.found());
    times_asked = sector_size = 0;
    EXPECT_EQ(AsyncInPlatform::alignment('q'), 0u);
    EXPECT_EQ(AsyncInPlatform::alignments[17], 0u);
    sector_size = 2048;
    EXPECT_EQ(AsyncInPlatform::alignment('q'), 2048u);
    EXPECT_EQ(asked_root, "q:\\");
    sector_size = 4;
    EXPECT_EQ(AsyncInPlatform::alignment('Q'), 2048u);
    unsigned int position, size, memory;
    EXPECT_TRUE(AsyncIn::aligns(position, size, memory, ""));
    EXPECT_EQ(asked_root, "(current)");
    EXPECT_TRUE(position == 8 && size == 8 && memory == 8);
    EXPECT_TRUE(AsyncIn::aligns(position, size, memory, "q:\\x"));
    EXPECT_EQ(memory, 2048u);
    for (char const other : {'1', ':', '@', '[', '`', '{', '\xE4'})
        EXPECT_FALSE(AsyncIn::aligns(position, size, memory, other));
    EXPECT_EQ(memory, 0u);
    EXPECT_EQ(times_asked, 3u);
}

TEST(DiskGeometry, falls_back_to_512_bytes) {
    test::StandIn const disk("GetDiskFreeSpaceA", tell_sector_size);
    for (DWORD const size : {4096ul, 0ul}) {
        sector_size = size;
        QX::DiskGeometry::init();
        unsigned long long const expected = size ? size : 512;
        EXPECT_EQ(QX::DiskGeometry::s_bytes_per_sector, expected);
        EXPECT_EQ(QX::DiskGeometry::s_bytes_per_sector_mask, ~(expected - 1));
    }
    EXPECT_EQ(asked_root, "(current)");
}

}  // namespace
