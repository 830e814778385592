// window.h - one top-level system window as a copyable handle, and the messages a game cares about.
//
// The host registers the window class and writes the window procedure; the library does neither:
//
//     LRESULT CALLBACK procedure(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
//         if (window.process_wnd_proc(message, wparam, lparam)) return 0;
//         return DefWindowProcW(hwnd, message, wparam, lparam);
//     }
//
//     WindowInitialiser initialiser;
//     initialiser.class_name = L"Game";
//     initialiser.instance = instance;
//     initialiser.set_default_window_style(true, true);
//     window.create({0, 0, 1280, 720}, initialiser, false);
//     if (!window.valid()) ...
//
// Nothing here reports failure: `valid` is the one question to ask after `create`.
// Threads: everything belongs to the thread that created the window and pumps its messages.
#pragma once

#include "qx/base/compiler.h"
#include "qx/base/export.h"
#include "qx/base/rectangle.h"
#include "qx/text/string.h"

struct HINSTANCE__;
struct HMENU__;
struct HMONITOR__;
struct HWND__;

namespace QX {

// While set, every message that process_wnd_proc sees is written to the debugger. Off at start.
extern QX_API bool debug_log_windows_messages;

// What `create` makes a window from. Filled by the host; the handles are borrowed.
struct WindowInitialiser {
    HMENU__* menu = nullptr;          // attached if `create` is asked for a menu
    UniString class_name;             // a class that the host has registered
    UniString title;                  // the window's caption
    HINSTANCE__* instance = nullptr;  // the module that registered the class
    bool fixed_style = false;         // false: a windowed window takes the sizeable style
    unsigned int style = 0;           // the system's style bits

    // The menu for `create`; still the host's.
    QX_API void set_menu(HMENU__* new_menu);

    // Chooses the style; the system menu's bit is never in it.
    //
    //     not windowed                         =>  0x90000000, borderless
    //     windowed, fixed_style false          =>  0x00C70000, sizeable
    //     windowed, fixed_style and bordered   =>  0x14C20000, caption and minimise box
    //     windowed, fixed_style, no border     =>  0x90000000
    //
    // The sizeable style differs from the 0x00CF0000 that `create` places by the system's
    // defaults: only a host that stores that value itself gets that placement.
    QX_API void set_default_window_style(bool windowed, bool bordered);
};

QX_FIXED_SLOTS_BEGIN

// The operating-system half of QXWindow: the handle and the message dispatch.
class QX_API QXWindowPlatform {
public:
    virtual void get_min_max_info(int& max_height, int& max_track_height) = 0;
    virtual void activate_app(bool active) const = 0;
    virtual void activate(bool active) const = 0;
    virtual void pause_rendering(bool pause) const = 0;
    virtual bool resize(unsigned int kind) const = 0;
    virtual bool nc_hit_test() const = 0;
    virtual bool sys_command(unsigned int message, unsigned int command) const = 0;
    virtual void debug_key(unsigned int key, bool control) const = 0;
    virtual void lock_workstation(bool locked) const = 0;

    // Whether there is a handle, be it stale.
    bool valid() const;

    // Makes at most one virtual call for a message. True means that the message is finished:
    //
    //     WM_SIZE            resize(wparam)                false, whatever the call answers
    //     WM_ACTIVATE        activate(wparam != 0)         false
    //     WM_ACTIVATEAPP     activate_app(wparam != 0)     false
    //     WM_GETMINMAXINFO   get_min_max_info(a, b)        false
    //     WM_NCHITTEST       nc_hit_test()                 the call's answer
    //     WM_KEYDOWN         debug_key(wparam, control)    false
    //     WM_SYSCOMMAND      sys_command(0x112, wparam)    the call's answer
    //     WM_ENTERMENULOOP, WM_ENTERSIZEMOVE   pause_rendering(true)    false
    //     WM_EXITMENULOOP, WM_EXITSIZEMOVE     pause_rendering(false)   false
    //     WM_WTSSESSION_CHANGE with 7 or 8     lock_workstation(wparam == 7)   false
    //     any other          none                          false
    //
    // get_min_max_info sets the heights of the maximum size and of the maximum tracking size; the
    // handler must set both.
    bool process_wnd_proc(unsigned int message, unsigned long long wparam, long long lparam);

    HWND__* get_hwnd() const;
    void set_hwnd(HWND__* window);

    // Whether the monitor nearest to the window is this one.
    bool on_monitor(HMONITOR__* monitor) const;

protected:
    QXWindowPlatform();
    QXWindowPlatform(QXWindowPlatform const&) = default;
    QXWindowPlatform& operator=(QXWindowPlatform const&) = default;
    ~QXWindowPlatform() = default;

    void clone(QXWindowPlatform const& other);                // takes the other's handle
    bool test_equality(QXWindowPlatform const& other) const;  // compares the handles

private:
    HWND__* window_ = nullptr;  // not owned
};

// A copyable handle on one system window. Destroying it leaves the system window alone; only
// `destroy` ends that. With no handler the calls below do nothing and answer false.
class QX_API QXWindow : public QXWindowPlatform {
public:
    // What the host implements. The slots are fixed; not owned by the window, and must outlive its
    // messages. Called on the window's thread from `process_wnd_proc`, or when the host calls the
    // member of the same name; `window` is the one that was asked.
    class EventHandler {
    public:
        virtual void reserved() {}  // never called

        // The system asks how large the window may become. Both heights come in without a value and
        // must be set, in pixels of the whole window; the widths are the system's.
        virtual void
        get_min_max_info(QXWindow const& window, int& max_height, int& max_track_height) = 0;

        // Another application's window gave way to one of this application, or the reverse.
        virtual void activate_app(QXWindow const& window, bool active) = 0;

        // This window became the active one, by a click or otherwise, or ceased to be.
        virtual void activate(QXWindow const& window, bool active) = 0;

        // The client area has its new size; `kind` is WM_SIZE's: 0 restored, 1 minimised, 2
        // maximised. The result reaches only a host that calls `resize` itself.
        virtual bool resize(QXWindow const& window, unsigned int kind) = 0;

        // True when the user begins to use a menu or to move or size the window, false at the end.
        virtual void pause_rendering(QXWindow const& window, bool pause) = 0;

        // The system asks what lies under the cursor. True: the message is finished; false: the
        // system finds out.
        virtual bool nc_hit_test(QXWindow const& window) = 0;

        // A command of the system menu or its keys, such as SC_CLOSE or SC_SCREENSAVE; `message` is
        // 0x112. True: it is dealt with, and the system does nothing; false: the system does it.
        virtual bool
        sys_command(QXWindow const& window, unsigned int message, unsigned int command) = 0;

        // A key went down, or repeats: its virtual code, and whether a control key is held.
        virtual void debug_key(QXWindow const& window, unsigned int key, bool control) = 0;

        // The session was locked, or unlocked.
        virtual void lock_workstation(QXWindow const& window, bool locked) = 0;

    protected:
        ~EventHandler() = default;
    };

    QXWindow();
    QXWindow(EventHandler* handler);
    QXWindow(WindowInitialiser const& initialiser);

    // A copy has the handle and the handler; its style is not to be relied on.
    QXWindow(QXWindow const& other);
    QXWindow& operator=(QXWindow const& other);

    bool operator==(QXWindow const& other) const;  // the same system window

    EventHandler* event_handler() const;
    void set_event_handler(EventHandler& handler);

    unsigned int style() const;  // from `create` or the style setters

    // Each forwards to the handler, with this window in front.
    void get_min_max_info(int& max_height, int& max_track_height) override;
    void activate_app(bool active) const override;
    void activate(bool active) const override;
    void pause_rendering(bool pause) const override;
    bool resize(unsigned int kind) const override;
    bool nc_hit_test() const override;
    bool sys_command(unsigned int message, unsigned int command) const override;
    void debug_key(unsigned int key, bool control) const override;
    void lock_workstation(bool locked) const override;

    // Creates the system window and asks for its lock and unlock messages.
    //
    // `rectangle` is the client area in screen coordinates. A corner off the nearest monitor's
    // work area opens at the work area's corner; a window may still run over the other edges.
    // With the style 0x00CF0000 the rectangle is the whole window instead, taken as given, and a
    // left or top of 0x80000000 leaves place and size to the system.
    void create(Rectangle const& rectangle, WindowInitialiser const& initialiser, bool with_menu);

    // Ends the system window if `valid`. The handle stays, stale.
    void destroy();

    // Whether the handle is a live window of this process.
    bool valid() const;

    // The caption style (0x14C20000) or the borderless one, in front of no other window.
    void set_windowed_style(bool bordered);

    // The borderless style. Moving the window and changing the display are the host's.
    void set_fullscreen_style();

    // From a client rectangle to the whole window's, for the style in force or for the caption
    // style.
    void adjust_window_rect_current_style(Rectangle& rectangle, bool menu) const;
    void adjust_window_rect_windowed_style(Rectangle& rectangle, bool menu) const;

    // Restores the registry's display mode, with the system's flags.
    void change_display_settings(unsigned int flags);

    // The system's answers; on failure the rectangle stays as it was.
    void get_client_rect(Rectangle& rectangle) const;
    void get_window_rect(Rectangle& rectangle) const;   // in screen coordinates
    void get_display_rect(Rectangle& rectangle) const;  // the client's, moved to 0, 0
    void get_monitor_rect(Rectangle& rectangle) const;  // all of the nearest monitor
    static void primary_display_size(unsigned int& width, unsigned int& height);

    void move_window(int x, int y, int width, int height, bool repaint);
    void set_window_pos(bool topmost, int x, int y, int width, int height, int flags);
    void show_window(int command);
    void update_window();
    void invalidate();  // all of it, without erasing
    bool is_iconic() const;
    bool is_visible() const;
    bool is_focused() const;  // the thread's active window, or else the foreground one
    void set_focus();         // and brings the window to the top
    void flash_notify();      // flashes the task bar until the window comes to the front

    // Shows a minimised window, and a maximised one, at its normal size.
    void restore_window();

    bool has_menu() const;
    // Takes the menu off the window. The menu itself stays its maker's, who destroys it.
    void remove_debug_menu();

    // Makes the pump answer true once it gets there.
    static void post_quit_message();

    // The window under a point of the screen, with no handler; null where there is none.
    static QXWindow window_from_point(int x, int y);

private:
    EventHandler* event_handler_ = nullptr;  // not owned
    unsigned int style_ = 0;
};

QX_FIXED_SLOTS_END

}  // namespace QX
