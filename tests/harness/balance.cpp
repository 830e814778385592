#include "tests/harness/balance.h"

#include "qx/base/windows.h"

#include <psapi.h>
#include <tlhelp32.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>

#include "qx/memory/arena.h"

namespace test {

namespace {

constexpr int settle_attempts = 40;  // threads that have ended take a moment to go
constexpr unsigned int settle_ms = 5;

constexpr struct {
    char const* what;
    unsigned long long Holdings::*count;
    unsigned long long slack;
} counted[] = {
    {"handles", &Holdings::handles, 0},
    {"events", &Holdings::events, 3},  // a lock gets one when threads first meet at it
    {"threads", &Holdings::threads, 0},
    {"windows", &Holdings::windows, 0},
    {"blocks", &Holdings::blocks, 0}};

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

// Handles are multiples of 4, given out from the lowest free one on. Wine counts none of them in
// GetProcessHandleCount, and no user objects in GetGuiResources.
void count_handles(Holdings& holdings) {
    constexpr int type_information = 2;
    constexpr std::uintptr_t widest_gap = 4 * 64;
    using Query = LONG WINAPI(HANDLE, int, void*, ULONG, ULONG*);
    static auto* const query = reinterpret_cast<Query*>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryObject")));
    struct {
        USHORT length, room;
        wchar_t const* name;
        char rest[1024];
    } type;
    std::uintptr_t last = 0;
    for (std::uintptr_t at = 4; at < last + widest_gap; at += 4) {
        if (query(reinterpret_cast<HANDLE>(at), type_information, &type, sizeof type, nullptr) < 0)
            continue;
        last = at;
        bool const is_event = std::wstring_view(type.name, type.length / 2) == L"Event";
        ++(is_event ? holdings.events : holdings.handles);
    }
}

BOOL CALLBACK count_window(HWND, LPARAM count) {
    ++*reinterpret_cast<unsigned long long*>(count);
    return TRUE;
}

unsigned long long count_windows() {
    unsigned long long count = 0;
    EnumThreadWindows(GetCurrentThreadId(), count_window, reinterpret_cast<LPARAM>(&count));
    return count;
}

unsigned long long private_bytes() {
    PROCESS_MEMORY_COUNTERS counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return counters.PagefileUsage;
}

bool grew(Holdings const& before, Holdings const& now) {
    return std::any_of(std::begin(counted), std::end(counted), [&](auto const& row) {
        return now.*row.count > before.*row.count + row.slack;
    });
}

}  // namespace

Holdings current_holdings() {
    Holdings holdings;
    count_handles(holdings);
    holdings.threads = count_threads();
    holdings.windows = count_windows();
    holdings.private_bytes = private_bytes();
    holdings.blocks = QX::arena::statistics().blocks_in_use;
    return holdings;
}

void expect_no_growth(Holdings const& before, Holdings const& now) {
    for (auto const& [what, count, slack] : counted)
        EXPECT_LE(now.*count, before.*count + slack) << what << " left by the case";
}

namespace {

class BalanceListener : public testing::EmptyTestEventListener {
public:
    BalanceListener() {
        std::ifstream file(QX_TEST_LASTING);
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            std::string name, reason;
            if (words >> name >> reason && name[0] != '#')
                lasting_[name] = reason[0] == '+' ? std::atoi(reason.c_str()) : -1;
        }
    }

    void OnTestStart(testing::TestInfo const&) override { before_ = current_holdings(); }

    void OnTestEnd(testing::TestInfo const& info) override {
        int const allowed = allowed_handles(info);
        if (allowed < 0 || info.result()->Failed() || info.result()->Skipped()) return;
        before_.handles += static_cast<unsigned int>(allowed);
        Holdings now = current_holdings();
        for (int i = 0; i < settle_attempts && grew(before_, now); ++i) {
            Sleep(settle_ms);
            now = current_holdings();
        }
        expect_no_growth(before_, now);
        EXPECT_TRUE(QX::arena::validate()) << "the arena is damaged";
    }

private:
    // What the case may leave in handles; -1 excuses it altogether.
    int allowed_handles(testing::TestInfo const& info) const {
        std::string const suite = info.test_suite_name();
        for (std::string const& name : {suite + "." + info.name(), suite + ".*"}) {
            if (auto const row = lasting_.find(name); row != lasting_.end()) return row->second;
        }
        return 0;
    }

    std::map<std::string, int> lasting_;  // by "Suite.Case" or "Suite.*"
    Holdings before_;
};

}  // namespace

testing::TestEventListener* new_balance_listener() {
    return new BalanceListener;
}

}  // namespace test
