// file_watch.h - threads that watch folders for changes, and the subscription that does nothing.
//
// In the development layout the search paths have the raw data folder watched (search_paths.h). A
// watch has a thread of its own, which starts once a pair of thread callbacks is registered;
// folders asked for earlier wait until then. The thread notices new, renamed, removed and written
// files in the whole tree, and lives until the system refuses to go on. Nothing stops it.
//
// QXFileChangeWatcher has empty operations: nothing can subscribe, and changes go to nobody.
//
// Failure: silent. A folder that can't be opened, or that there is no memory for, is not watched,
// then or later; a watch that has no memory to tell of a change ends. Threads:
// `register_thread_callbacks` and the making of search paths belong to the start-up thread.
#pragma once

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

class FileChangeNotification {
public:
    // Each watching thread calls `start` first; a null `start` is not called, but counts.
    // `end` is kept and
    // never called. Starts the watches that have waited for this.
    QX_API static void register_thread_callbacks(void (*start)(void), void (*end)(void));

private:
    friend class SearchPathCollection;

    // Watches `path`, which ends in a separator, from now on or from the registration on.
    QX_API static void monitor(String const& path);

    // The seam for a working subscription: `fn` is called on the watching threads, one at a time,
    // with watched path and changed name joined. Nothing in the library subscribes.
    QX_API static void subscribe(void (*fn)(UniString const& name, void* user), void* user);
};

class QXFileChangeWatcher {
public:
    QXFileChangeWatcher() = default;
    QXFileChangeWatcher(QXFileChangeWatcher const&) = default;
    // Does nothing, and so do the operations below.
    QXFileChangeWatcher& operator=(QXFileChangeWatcher const&) { return *this; }

    // Each does nothing; a callback handed in is never called.
    QX_API static void init();
    QX_API static void cleanup();
    QX_API static void subscribe_file_change(String const& path, void (*callback)(String const&));
    QX_API static void process_file_change_notifications();
};

}  // namespace QX
