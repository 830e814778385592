#include <atomic>

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

// What a thread is started with, and frees.
struct WatchRequest {
    HANDLE folder;
    String path;
};

struct Subscriber {
    void (*fn)(UniString const& name, void* user);
    void* user;
};

// Read by the threads as they start.
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
        auto const& change = *reinterpret_cast<FILE_NOTIFY_INFORMATION const*>(changes);
        UniString const name = path + UniString(change.FileName, change.FileNameLength / 2);
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

// The folder's handle stays open when the thread ends.
DWORD WINAPI run_thread(void* argument) {
    if (ThreadCallback const start = start_callback) start();
    auto const request = static_cast<WatchRequest*>(argument);
    UniString const path = must_fix_string_widen(request->path);
    HANDLE const folder = request->folder;
    delete request;
    return watch_folder(folder, path);
}

void start_watch(String const& path) {
    // Both are made before threads can race for them.
    subscribers_lock();
    subscribers();
    HANDLE const folder = CreateFileA(
        path.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
        FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (folder == INVALID_HANDLE_VALUE) return;
    auto const request = new WatchRequest{folder, path};
    HANDLE const thread = CreateThread(nullptr, thread_stack_size, run_thread, request, 0, nullptr);
    if (thread) {
        threads().push_back(thread);
    } else {
        delete request;
        CloseHandle(folder);
    }
}

}  // namespace

void FileChangeNotification::monitor(String const& path) {
    if (start_callback.load()) {
        start_watch(path);
    } else {
        pending_paths().push_back(path);
    }
}

void FileChangeNotification::register_thread_callbacks(void (*start)(void), void (*end)(void)) {
    start_callback = start;
    end_callback = end;
    for (String const& path : pending_paths()) start_watch(path);
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
