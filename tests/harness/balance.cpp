#include "tests/harness/balance.h"

#include "qx/base/windows.h"

#include <psapi.h>
#include <tlhelp32.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <vector>

#include "qx/memory/arena.h"

namespace test {

namespace {

constexpr int settle_attempts = 40;  // threads that have ended take a moment to go
constexpr unsigned int settle_ms = 5;

unsigned long count_threads() {
    HANDLE const snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE) return 0;
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    unsigned long count = 0;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
    }
    CloseHandle(snapshot);
    return count;
}

// The system's table of all handles. Wine counts none in GetProcessHandleCount and no user objects
// in GetGuiResources.
struct HandleRow {
    USHORT process, creator;
    UCHAR type, flags;
    USHORT handle;
    void* object;
    ULONG access;
};

unsigned long count_handles() {
    constexpr int all_handles = 16;
    using Query = LONG WINAPI(int, void*, ULONG, ULONG*);
    static auto* const query = reinterpret_cast<Query*>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    static std::vector<HandleRow> table(1 << 14);
    ULONG used = 0;
    ULONG const size = static_cast<ULONG>(table.size() * sizeof(HandleRow));
    if (query(all_handles, table.data(), size, &used) < 0) return 0;
    ULONG const count = *reinterpret_cast<ULONG const*>(table.data());
    auto const* const rows =
        reinterpret_cast<HandleRow const*>(reinterpret_cast<char const*>(table.data()) + 8);
    auto const own = static_cast<USHORT>(GetCurrentProcessId());
    return static_cast<unsigned long>(std::count_if(
        rows, rows + count, [own](HandleRow const& row) { return row.process == own; }));
}

BOOL CALLBACK count_window(HWND, LPARAM count) {
    ++*reinterpret_cast<unsigned long*>(count);
    return TRUE;
}

unsigned long count_windows() {
    unsigned long count = 0;
    EnumThreadWindows(GetCurrentThreadId(), count_window, reinterpret_cast<LPARAM>(&count));
    return count;
}

unsigned long long private_bytes() {
    PROCESS_MEMORY_COUNTERS counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return counters.PagefileUsage;
}

bool grew(Holdings const& before, Holdings const& now) {
    return now.handles > before.handles || now.threads > before.threads ||
           now.windows > before.windows || now.blocks > before.blocks;
}

}  // namespace

Holdings current_holdings() {
    Holdings holdings;
    holdings.handles = count_handles();
    holdings.threads = count_threads();
    holdings.windows = count_windows();
    holdings.private_bytes = private_bytes();
    holdings.blocks = QX::arena::statistics().blocks_in_use;
    return holdings;
}

BalanceListener::BalanceListener() {
    std::ifstream file(QX_TEST_LASTING);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string name, reason;
        if (words >> name >> reason && name[0] != '#')
            lasting_[name] = reason[0] == '+' ? std::atoi(reason.c_str()) : -1;
    }
}

void BalanceListener::OnTestStart(testing::TestInfo const&) {
    before_ = current_holdings();
}

int BalanceListener::allowed_handles(testing::TestInfo const& info) const {
    std::string const suite = info.test_suite_name();
    for (std::string const& name : {suite + "." + info.name(), suite + ".*"}) {
        if (auto const row = lasting_.find(name); row != lasting_.end()) return row->second;
    }
    return 0;
}

void BalanceListener::OnTestEnd(testing::TestInfo const& info) {
    int const allowed = allowed_handles(info);
    if (allowed < 0 || info.result()->Failed() || info.result()->Skipped()) return;

    Holdings before = before_;
    before.handles += static_cast<unsigned long>(allowed);
    Holdings now = current_holdings();
    for (int i = 0; i < settle_attempts && grew(before, now); ++i) {
        Sleep(settle_ms);
        now = current_holdings();
    }
    EXPECT_LE(now.handles, before.handles) << "handles left by the case";
    EXPECT_LE(now.threads, before.threads) << "threads left by the case";
    EXPECT_LE(now.windows, before.windows) << "windows left by the case";
    EXPECT_LE(now.blocks, before.blocks) << "blocks left by the case";
    EXPECT_TRUE(QX::arena::validate()) << "the arena is damaged";
}

}  // namespace test
