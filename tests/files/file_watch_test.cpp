#include "qx/files/file_watch.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <atomic>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "qx/files/search_paths.h"
#include "qx/memory/heap.h"
#include "tests/harness/failing_call.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::FileChangeNotification;
using QX::UniString;

template <typename Condition>
bool comes_true(Condition condition) {
    for (int step = 0; step < 50 && !condition(); ++step) Sleep(100);
    return condition();
}

std::atomic<unsigned int> starts, waits;
HANDLE watched[100];  // by wait
std::atomic<bool> is_overflowing;
std::mutex guard;
std::string notified;  // what subscribers got, each with a '|' behind it
void* real_changes;
HANDLE changed;

BOOL WINAPI changes(
    HANDLE folder, LPVOID buffer, DWORD size, BOOL subtree, DWORD filter, LPDWORD bytes,
    LPOVERLAPPED record, LPOVERLAPPED_COMPLETION_ROUTINE routine) {
    EXPECT_TRUE(size == 16384 && subtree && filter == 0x51 && !record);
    watched[waits++ % 100] = folder;
    if (is_overflowing.exchange(false)) return TRUE;
    return reinterpret_cast<decltype(&ReadDirectoryChangesW)>(real_changes)(
        folder, buffer, size, subtree, filter, bytes, record, routine);
}

void note(UniString const& name, void*) {
    std::lock_guard const hold(guard);
    notified.append(name.begin(), name.end()).append("|");
}

// Ends the watches of its case by cancelling their system calls.
class FileWatch : public testing::Test {
protected:
    FileWatch() { real_changes = stand_in_.original(); }

    ~FileWatch() override {
        for (HANDLE const folder : std::set<HANDLE>(watched, std::end(watched)))
            EXPECT_TRUE(!folder || comes_true([=] { return CancelIoEx(folder, nullptr) != 0; }));
    }

    static void monitor(std::string const& path) {
        QX::SearchPathCollection("").monitor(path.c_str());
    }

    static void register_callbacks() {
        FileChangeNotification::register_thread_callbacks([] { ++starts; }, [] { ADD_FAILURE(); });
    }

    // The first change may come before the system looks.
    bool notices(char const* name) const {
        return comes_true([&] {
            if (*name) folder_.write(name, "x");
            std::lock_guard const hold(guard);
            return notified.find(folder_.file(name) + "|") != notified.npos;
        });
    }

    test::TempFolder folder_;
    test::StandIn stand_in_{"ReadDirectoryChangesW", changes};
};

TEST_F(FileWatch, waits_for_callbacks_and_then_starts_each_folder_once) {
    test::TempFolder second;
    monitor(folder_.path());
    monitor(second.path());
    Sleep(100);
    EXPECT_EQ(waits, 0u);
    for (int time = 0; time < 2; ++time) {
        register_callbacks();
        EXPECT_TRUE(comes_true([] { return waits == 2; }));
        Sleep(100);
    }
    EXPECT_TRUE(waits == 2 && starts == 2 && watched[0] != watched[1]);
}

TEST_F(FileWatch, a_missing_folder_is_not_watched_and_not_retried) {
    std::string const late = folder_.file("late\\");
    monitor(late);
    register_callbacks();
    CreateDirectoryA(late.c_str(), nullptr);
    register_callbacks();
    Sleep(100);
    EXPECT_EQ(waits + starts, 0u);
    monitor(folder_.path());
    FileChangeNotification::register_thread_callbacks(nullptr, nullptr);  // is not called
    EXPECT_TRUE(comes_true([] { return waits == 1; }));
    monitor(folder_.path());
    EXPECT_TRUE(comes_true([] { return waits == 2; }));
}

// An overflow is one change without a name.
TEST_F(FileWatch, notices_changes_in_the_whole_tree_and_tells_no_public_subscriber) {
    QX::QXFileChangeWatcher::init();
    QX::QXFileChangeWatcher::subscribe_file_change(
        folder_.path().c_str(), [](QX::String const&) { ADD_FAILURE(); });
    is_overflowing = true;
    FileChangeNotification::subscribe(note, nullptr);
    register_callbacks();
    monitor(folder_.path());
    EXPECT_TRUE(notices(""));
    EXPECT_TRUE(notices("new"));
    // Wine reports no folder that stood before the watch began.
    CreateDirectoryA(folder_.file("sub").c_str(), nullptr);
    EXPECT_TRUE(notices("sub\\deep"));
    QX::QXFileChangeWatcher::process_file_change_notifications();
    QX::QXFileChangeWatcher::cleanup();
}

unsigned int taken_late;  // allocations behind the start of a thread

HANDLE run_at_once(void*, SIZE_T, LPTHREAD_START_ROUTINE start, LPVOID argument, DWORD, LPDWORD) {
    EXPECT_NO_THROW(start(argument));
    QX::allocation_hook = [](void const*, unsigned int size) { taken_late += size; };
    return GetCurrentThread();
}

// One change; then the system refuses to go on.
BOOL change_once(HANDLE folder, LPVOID buffer) {
    if (std::exchange(changed, folder) == folder) return FALSE;
    *static_cast<FILE_NOTIFY_INFORMATION*>(buffer) = {0, FILE_ACTION_ADDED, 2, {L'x'}};
    return TRUE;
}

TEST_F(FileWatch, is_silent_where_memory_or_the_system_fails) {
    test::StandIn const thread("CreateThread", run_at_once);
    test::StandIn const change("ReadDirectoryChangesW", change_once);
    static unsigned int told;
    FileChangeNotification::register_thread_callbacks(nullptr, nullptr);
    FileChangeNotification::subscribe([](UniString const&, void*) { ++told; }, nullptr);
    QX::SearchPathCollection paths("");
    QX::String const path = folder_.path().c_str();
    auto const watch = [&] {
        told = 0;
        changed = nullptr;
        EXPECT_NO_THROW(paths.monitor(path));
        QX::allocation_hook = nullptr;
        if (changed) CloseHandle(changed);  // stays open by itself
        return told == 1 && taken_late == 0;
    };
    test::walk_failures("watch", watch, {{"CreateFileA", -1}, {"CreateThread"}});
}

}  // namespace
