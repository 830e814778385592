// semaphore.h - a counting semaphore that is never shared by name.
//
// A name that exists already is refused, not joined: the object then holds a null handle, and so it
// does where the system could not make a semaphore. Nothing is reported; a wait on the null handle
// returns at once with a failure.
//
//     Semaphore first(0, 1, "pool", "done");   // named "<process id>:pool:done"
//     Semaphore second(0, 1, "pool", "done");  // null: taken
//     Semaphore third(0, 1, nullptr, "done");  // without a name: never refused
//
// Users wait on `handle()` with the system's own wait, and post with its release of 1.
// Threads: any may wait and post; the object dies when none does so any more.
#pragma once

#include "qx/base/export.h"

namespace QX {

// The system half: owns one handle. Neither copied nor moved.
class SemaphorePlatform {
public:
    // `name` goes to the system as it stands; null makes a semaphore without a name.
    QX_API SemaphorePlatform(unsigned int initial, unsigned int maximum, char const* name);

    // The name is made private to the process from its id and both texts. Without `name` there is
    // none, whatever `sub_name` says. A null `sub_name` counts as "".
    QX_API SemaphorePlatform(
        unsigned int initial, unsigned int maximum, char const* name, char const* sub_name);

    // Closes the handle.
    QX_API ~SemaphorePlatform();

    SemaphorePlatform(SemaphorePlatform const&) = delete;
    SemaphorePlatform& operator=(SemaphorePlatform const&) = delete;

    // Null where creation failed or the name was taken. Stays the object's.
    void* handle() const { return handle_; }

private:
    void* handle_;
};

// The public form.
class Semaphore : public SemaphorePlatform {
public:
    using SemaphorePlatform::SemaphorePlatform;
};

}  // namespace QX
