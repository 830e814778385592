#include "qx/files/file_watch.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "qx/files/search_paths.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::FileChangeNotification;
using QX::String;
using QX::UniString;

constexpr DWORD patience_ms = 5000, step_ms = 5;

template <typename Condition>
bool comes_true(Condition condition) {
    for (DWORD waited = 0; waited < patience_ms; waited += step_ms) {
        if (condition()) return true;
        Sleep(step_ms);
    }
    return condition();
}

std::mutex guard;
std::vector<HANDLE> watched;         // once a call
std::vector<std::wstring> notified;  // what subscribers got
unsigned int starts;
bool is_overflowing;
void* real_changes;

void count_start() {
    std::lock_guard const hold(guard);
    ++starts;
}

void must_not_run() {
    ADD_FAILURE();
}

void note_name(UniString const& name, void* user) {
    std::lock_guard const hold(guard);
    if (user == &notified) notified.push_back(name.c_str());
}

BOOL WINAPI changes(
    HANDLE folder, LPVOID buffer, DWORD size, BOOL subtree, DWORD filter, LPDWORD bytes,
    LPOVERLAPPED record, LPOVERLAPPED_COMPLETION_ROUTINE routine) {
    EXPECT_EQ(size, 16384u);
    EXPECT_TRUE(subtree);
    EXPECT_EQ(filter, 0x51u);
    EXPECT_EQ(record, nullptr);
    {
        std::lock_guard const hold(guard);
        watched.push_back(folder);
        if (is_overflowing) {
            is_overflowing = false;
            *bytes = 0;
            return TRUE;
        }
    }
    return reinterpret_cast<decltype(&ReadDirectoryChangesW)>(real_changes)(
        folder, buffer, size, subtree, filter, bytes, record, routine);
}

// The first change may come before the system looks.
template <typename Condition>
bool comes_true_writing(std::string const& name, Condition condition) {
    return comes_true([&] {
        HANDLE const file = CreateFileA(
            name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        CloseHandle(file);
        Sleep(20 * step_ms);
        return condition();
    });
}

unsigned int waits() {
    std::lock_guard const hold(guard);
    return static_cast<unsigned int>(watched.size());
}

bool was_notified(std::string const& name) {
    std::lock_guard const hold(guard);
    std::wstring const wide(name.begin(), name.end());
    return std::find(notified.begin(), notified.end(), wide) != notified.end();
}

// Ends the watches of its case by cancelling their system calls.
class FileWatch : public testing::Test {
protected:
    FileWatch() : stand_in_("ReadDirectoryChangesW", changes) {
        real_changes = stand_in_.original();
    }

    ~FileWatch() override {
        std::sort(watched.begin(), watched.end());
        watched.erase(std::unique(watched.begin(), watched.end()), watched.end());
        for (HANDLE const folder : watched) {
            EXPECT_TRUE(comes_true([folder] { return CancelIoEx(folder, nullptr) != 0; }));
            Sleep(10 * step_ms);
            EXPECT_TRUE(CloseHandle(folder));
        }
    }

    static void monitor(std::string const& path) {
        QX::SearchPathCollection paths("");
        paths.monitor(String(path.c_str()));
    }

    test::TempFolder folder_;
    test::StandIn stand_in_;
};

TEST_F(FileWatch, waits_for_callbacks_and_then_starts_each_folder_once) {
    test::TempFolder second;
    monitor(folder_.path());
    monitor(second.path());
    Sleep(20 * step_ms);
    EXPECT_EQ(waits(), 0u);
    FileChangeNotification::register_thread_callbacks(count_start, must_not_run);
    EXPECT_TRUE(comes_true([] { return waits() == 2; }));
    FileChangeNotification::register_thread_callbacks(count_start, must_not_run);
    Sleep(20 * step_ms);
    EXPECT_EQ(waits(), 2u);
    EXPECT_EQ(starts, 2u);
    EXPECT_NE(watched[0], watched[1]);
}

TEST_F(FileWatch, a_missing_folder_is_not_watched_and_not_retried) {
    std::string const late = folder_.file("late\\");
    monitor(late);
    FileChangeNotification::register_thread_callbacks(count_start, must_not_run);
    CreateDirectoryA(late.c_str(), nullptr);
    FileChangeNotification::register_thread_callbacks(count_start, must_not_run);
    Sleep(20 * step_ms);
    EXPECT_EQ(waits(), 0u);
    EXPECT_EQ(starts, 0u);
}

TEST_F(FileWatch, notices_files_that_come_change_and_go_in_the_whole_tree) {
    FileChangeNotification::subscribe(note_name, &notified);
    FileChangeNotification::register_thread_callbacks(count_start, must_not_run);
    monitor(folder_.path());
    std::string const name = folder_.file("new"), deep = folder_.file("sub\\deep");
    EXPECT_TRUE(comes_true_writing(name, [&] { return was_notified(name); }));
    MoveFileA(name.c_str(), folder_.file("moved").c_str());
    EXPECT_TRUE(comes_true([&] { return was_notified(folder_.file("moved")); }));
    // Wine reports no folder that stood before the watch began.
    CreateDirectoryA(folder_.file("sub").c_str(), nullptr);
    EXPECT_TRUE(comes_true_writing(deep, [&] { return was_notified(deep); }));
}

TEST_F(FileWatch, does_without_a_start_callback) {
    monitor(folder_.path());
    FileChangeNotification::register_thread_callbacks(nullptr, nullptr);
    EXPECT_TRUE(comes_true([] { return waits() == 1; }));
}

TEST_F(FileWatch, an_overflow_is_one_change_without_a_name) {
    is_overflowing = true;
    FileChangeNotification::subscribe(note_name, &notified);
    FileChangeNotification::register_thread_callbacks(count_start, must_not_run);
    monitor(folder_.path());
    EXPECT_TRUE(comes_true([] { return waits() == 2; }));
    EXPECT_TRUE(was_notified(folder_.path()));
    EXPECT_EQ(notified.size(), 1u);
}

void must_not_be_called(String const&) {
    ADD_FAILURE();
}

TEST_F(FileWatch, the_public_subscription_does_nothing) {
    QX::QXFileChangeWatcher::init();
    QX::QXFileChangeWatcher::subscribe_file_change(String(folder_.path().c_str()), nullptr);
    QX::QXFileChangeWatcher::subscribe_file_change(
        String(folder_.path().c_str()), must_not_be_called);
    FileChangeNotification::register_thread_callbacks(count_start, must_not_run);
    monitor(folder_.path());
    EXPECT_TRUE(comes_true_writing(folder_.file("new"), [] { return waits() > 1; }));
    QX::QXFileChangeWatcher::process_file_change_notifications();
    QX::QXFileChangeWatcher::cleanup();
}

}  // namespace
