#include <atomic>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include "qx/base/dynamic_array.h"
#include "qx/base/windows.h"
#include "qx/files/file_watch.h"
#include "qx/tasks/mutex.h"
#include "qx/text/convert.h"

namespace QX {

namespace {

constexpr DWORD thread_stack_size = 4096;
constexpr unsigned int changes_size = 16384;
constexpr DWORD change_filter =
    FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_CREATION;

using ThreadCallback = void (*)(void);

struct CloseFolder {
    void operator()(HANDLE folder) const { CloseHandle(folder); }
};

// What a thread is started with, and frees.
struct WatchRequest {
    std::unique_ptr<void, CloseFolder> folder;
    String path;
};

struct Subscriber {
    void (*fn)(UniString const& name, void* user);
    void* user;
};

// Never null once a pair is registered. Read by the threads as they start.
std::atomic<ThreadCallback> start_callback = nullptr;
ThreadCallback end_callback = nullptr;

DynamicArray<String, DefaultAllocator>& pending_paths() {
    static DynamicArray<String, DefaultAllocator> paths;
    return paths;
}

DynamicArray<HANDLE, DefaultAllocator>& threads() {
    static DynamicArray<HANDLE, DefaultAllocator> handles;
    return handles;
}

DynamicArray<Subscriber, DefaultAllocator>& subscribers() {
    static DynamicArray<Subscriber, DefaultAllocator> all;
    return all;
}

CriticalSectionDeclaration& subscribers_lock() {
    static CriticalSectionDeclaration lock;
    return lock;
}

void tell_subscribers(UniString const& path, char const* changes) {
    OptionalCriticalSection const hold(subscribers_lock(), true);
    for (;;) {
        // Wine sets the records at any even place.
        constexpr std::size_t head = offsetof(FILE_NOTIFY_INFORMATION, FileName);
        FILE_NOTIFY_INFORMATION change;
        std::memcpy(&change, changes, head);
        auto const* const text = reinterpret_cast<wchar_t const*>(changes + head);
        UniString const name = path + UniString(text, change.FileNameLength / 2);
        for (Subscriber const& subscriber : subscribers()) subscriber.fn(name, subscriber.user);
        if (change.NextEntryOffset == 0) return;
        changes += change.NextEntryOffset;
    }
}

DWORD watch_folder(HANDLE folder, UniString const& path) {
    alignas(DWORD) char changes[changes_size];
    for (;;) {
        // After an overflow the system writes nothing: the walk then finds one change without name.
        ZeroMemory(changes, sizeof(FILE_NOTIFY_INFORMATION));
        DWORD bytes;
        if (!ReadDirectoryChangesW(
                folder, changes, changes_size, TRUE, change_filter, &bytes, nullptr, nullptr))
            return 1;
        tell_subscribers(path, changes);
    }
}

// The folder's handle stays open when its watch ends. Where memory fails the thread ends as well.
DWORD WINAPI run_thread(void* argument) {
    std::unique_ptr<WatchRequest> request(static_cast<WatchRequest*>(argument));
    try {
        start_callback.load()();
        UniString const path = must_fix_string_widen(request->path);
        HANDLE const folder = request->folder.release();
        request.reset();
        return watch_folder(folder, path);
    } catch (std::bad_alloc const&) {
        return 1;
    }
}

void start_watch(String const& path) {
    // Both are made before threads can race for them.
    subscribers_lock();
    subscribers();
    auto request = std::make_unique<WatchRequest>(nullptr, path);
    threads().reserve(threads().size() + 1);
    HANDLE const folder = CreateFileA(
        path.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
        FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (folder == INVALID_HANDLE_VALUE) return;
    request->folder.reset(folder);
    HANDLE const thread =
        CreateThread(nullptr, thread_stack_size, run_thread, request.get(), 0, nullptr);
    if (!thread) return;
    request.release();
    threads().push_back(thread);
}

}  // namespace

void FileChangeNotification::monitor(String const& path) {
    try {
        if (start_callback.load()) {
            start_watch(path);
        } else {
            pending_paths().push_back(path);
        }
    } catch (std::bad_alloc const&) {}
}

void FileChangeNotification::register_thread_callbacks(void (*start)(void), void (*end)(void)) {
    start_callback = start ? start : [] {};
    end_callback = end;
    for (String const& path : pending_paths()) monitor(path);
    pending_paths().clear();
}

void FileChangeNotification::subscribe(void (*fn)(UniString const&, void*), void* user) {
    OptionalCriticalSection const hold(subscribers_lock(), true);
    subscribers().push_back({fn, user});
}

void QXFileChangeWatcher::init() {}

void QXFileChangeWatcher::cleanup() {}

void QXFileChangeWatcher::subscribe_file_change(String const&, void (*)(String const&)) {}

void QXFileChangeWatcher::process_file_change_notifications() {}

}  // namespace QX
