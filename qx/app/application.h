// application.h - the process as the library sees it, and the message pump.
//
// The library owns no loop. A host polls once a frame:
//
//     QX::ApplicationInitialiser const initialiser = {instance};
//     QX::Application application(initialiser);
//     while (!QX::Application::process_message_queue()) run_a_frame();
//
// Threads: the pump belongs to the thread that owns the queue, the focus flag to the main thread.
#pragma once

#include "qx/base/export.h"

struct HINSTANCE__;

namespace QX {

// What an Application is made from. Filled by the host.
struct ApplicationInitialiser {
    HINSTANCE__* instance = nullptr;  // the host's module; borrowed, never released
};

// The operating-system half of Application. A plain value: it owns nothing.
class ApplicationPlatform {
public:
    QX_API ApplicationPlatform(ApplicationInitialiser const& initialiser);

    // The handle that the initialiser gave.
    QX_API HINSTANCE__* application_instance() const;

    // Removes, translates and dispatches messages of any window until the queue is empty.
    //
    //     queue empty                    =>  false
    //     ..., quit                      =>  true; the quit message has been dispatched too
    //     ..., gesture (0x119), others   =>  false; the others stay for the next call
    //
    // No bound on the number of messages or the time taken.
    QX_API static bool process_message_queue();

    // Removes messages while the system says that there was one; nothing is dispatched and a quit
    // message goes unnoticed. It offers the system no record to fill, which a system may refuse:
    // nothing is then removed.
    QX_API static void clear_message_queue();

private:
    HINSTANCE__* instance_;
};

// Any number may exist; copies share the instance handle and destroying one releases nothing.
class QX_API Application : public ApplicationPlatform {
public:
    Application(ApplicationInitialiser const& initialiser);
    Application(Application const& other);
    Application& operator=(Application const& other);
    virtual ~Application();

    static bool process_message_queue();  // see ApplicationPlatform
    static void clear_message_queue();    // see ApplicationPlatform

    // Ends the process at once with exit code 0. Does not return.
    static void kill();
};

// Told by the host whenever the process gains or loses the focus. Starts false; while it is false
// the keyboard answers that no key is pressed. A plain flag: tell it on the thread that reads
// input.
QX_API void on_app_focus_change(bool focused);

}  // namespace QX
