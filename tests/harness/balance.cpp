#include "tests/harness/balance.h"

#include "qx/base/windows.h"

#include <tlhelp32.h>

#include <cstdio>
#include <fstream>
#include <sstream>

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

bool grew(Holdings const& before, Holdings const& now) {
    return now.handles > before.handles || now.threads > before.threads ||
           now.blocks > before.blocks;
}

}  // namespace

Holdings current_holdings() {
    Holdings holdings;
    DWORD handles = 0;
    GetProcessHandleCount(GetCurrentProcess(), &handles);
    holdings.handles = handles;
    holdings.threads = count_threads();
    holdings.blocks = QX::arena::statistics().blocks_in_use;
    return holdings;
}

BalanceListener::BalanceListener() {
    std::ifstream file(QX_TEST_LASTING);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string name;
        if (words >> name && name[0] != '#') lasting_.insert(name);
    }
}

void BalanceListener::OnTestStart(testing::TestInfo const&) {
    before_ = current_holdings();
}

bool BalanceListener::is_excused(testing::TestInfo const& info) const {
    std::string const suite = info.test_suite_name();
    return lasting_.count(suite + ".*") || lasting_.count(suite + "." + info.name());
}

void BalanceListener::OnTestEnd(testing::TestInfo const& info) {
    if (is_excused(info) || info.result()->Failed() || info.result()->Skipped()) return;

    Holdings now = current_holdings();
    for (int i = 0; i < settle_attempts && grew(before_, now); ++i) {
        Sleep(settle_ms);
        now = current_holdings();
    }
    EXPECT_LE(now.handles, before_.handles) << "handles left by the case";
    EXPECT_LE(now.threads, before_.threads) << "threads left by the case";
    EXPECT_LE(now.blocks, before_.blocks) << "blocks left by the case";
    EXPECT_TRUE(QX::arena::validate()) << "the arena is damaged";
}

}  // namespace test
