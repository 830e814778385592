// debug_menu.h - a tree of menu items that development builds hang on a window's menu bar.
//
// A client declares items with a path and a plain function:
//
//     QX::DebugMenuItem reload("files/reload", reload_files);
//     QX::DebugMenuManager::instance()->add(reload);
//
// In this configuration the manager's `add` and `update_menus` are inert: they return at once, no
// item reaches the tree through them and nothing is drawn. They stay so that clients link. The
// tree itself is below them.
// Threads: no locks; the menu belongs to the thread that owns the window.
#pragma once

#include "qx/app/window.h"
#include "qx/base/dynamic_array.h"
#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

// What an item's update did.
enum DEBUG_MENU_ITEM_UPDATE_RESULT : int {
    UPDATE_REBUILT = 0,  // its native menu is gone and is to be made again
    UPDATE_UNCHANGED = 1,
    UPDATE_REMOVED = 2,  // the item has deleted itself
};

// The native half: one menu handle.
class DebugMenuPlatform {
public:
    // The handle is null where the system has no menu left. An earlier one is not destroyed.
    QX_API void create_menu();
    QX_API void destroy_menu();
    QX_API void invalidate();   // forgets the handle without a system call
    QX_API bool valid() const;  // whether there is a handle

    QX_API HMENU__* menu() const;  // the handle; null if there is none

protected:
    HMENU__* menu_ = nullptr;
};

// One entry, or one sub-menu, of the tree. Free until placed; then listed by its parent, which
// owns only what the tree made for itself. Destroying an item takes it out of its parent.
class QX_API DebugMenuItem : public DebugMenuPlatform {
public:
    // `action` may be null.
    DebugMenuItem(String const& path, void (*action)());
    DebugMenuItem(DebugMenuItem const&) = delete;
    DebugMenuItem& operator=(DebugMenuItem const&) = delete;
    virtual ~DebugMenuItem();

    // Runs every item of the subtree with this command id; more than one may have it.
    void command(unsigned int id);

    void (*function() const)();
    String const& path() const;  // as given at construction
    String const& name() const;  // the label; "<Unknown>" until placed
    DebugMenuItem* parent() const;
    bool auto_created() const;  // made by the tree to hold the middle of a path
    bool dirty() const;         // the native menu must be built again
    DynamicArray<DebugMenuItem*, DefaultAllocator> const& children() const;
    unsigned int id() const;  // the command id; 0xFFFFFFFF until placed
    bool is_checked() const;  // the last answer of `checked`

protected:
    virtual void select();         // calls the function
    virtual bool checked() const;  // false unless overridden

private:
    friend class DebugMenuManager;

    // Places an item below this node, making the sub-menus on its path:
    //
    //     "a"      =>  the child "a"
    //     "a/b/c"  =>  "c" within "b" within "a"
    //     "a/"     =>  a child of "a" with an empty name
    //
    // Where the path names a menu that is already there, the item becomes its first child,
    // "Enable".
    void add(DebugMenuItem& item, String const& path);

    // Makes the native menus of the subtree. False, with what was made left, if the system has
    // none.
    bool create();

    // Hangs a child's native menu into this one. True on failure, the child's menus then forgotten.
    bool insert_into_menu(DebugMenuItem& child);

    // Follows changes of the subtree, throwing away native menus that no longer fit.
    DEBUG_MENU_ITEM_UPDATE_RESULT update();

    // Takes a child out, keeping the order, and marks this node dirty even if it had no such child.
    void remove(DebugMenuItem& child);

    // Gives a placed item its id and its check mark.
    void initialise();

    void destroy_handles();  // of the subtree
    void null_handles();     // of the subtree, without a system call

    DebugMenuItem* find_child(String const& name) const;
    DebugMenuItem& find_or_make_menu(String const& name, String const& path);
    void place(DebugMenuItem& item, String const& name, unsigned long long at);
    bool update_children();

    void (*function_)();
    String path_;
    String name_;
    DebugMenuItem* parent_ = nullptr;
    bool auto_created_ = false;
    bool dirty_ = false;
    DynamicArray<DebugMenuItem*, DefaultAllocator> children_;
    unsigned int id_ = 0xFFFFFFFF;
    bool is_checked_ = false;
};

// The root of the tree, one in the process.
class QX_API DebugMenuManager : public DebugMenuItem {
public:
    ~DebugMenuManager() override;

    // Makes the manager; one that is there already is lost. The flag is kept as `enabled`.
    static void create(QXWindow const& window, bool enabled);

    // Ends the manager if there ever was one. `instance` still answers its address, which must not
    // be used, nor be destroyed again, before the next `create`.
    static void destroy();

    // Null before the first `create`.
    static DebugMenuManager* instance();

    void add(DebugMenuItem& item);  // inert
    void update_menus();            // inert

    QXWindow const& window() const;
    unsigned int next_id() const;         // the id of the next item placed
    unsigned int suppress_count() const;  // live suppressing objects
    bool enabled() const;

private:
    friend class DebugMenuItem;
    friend class DebugMenuManagerSuppressAdditions;

    // The tree's own operations of these names, beside the manager's.
    using DebugMenuItem::add;
    using DebugMenuItem::create;

    DebugMenuManager(QXWindow const& window, bool enabled);

    static DebugMenuManager* m_instance;

    QXWindow window_;
    unsigned int next_id_ = 0;
    unsigned int suppress_count_ = 0;
    bool enabled_;
};

// Counts itself in the manager, if there is one, for its life. Nothing reads the count.
class DebugMenuManagerSuppressAdditions {
public:
    QX_API DebugMenuManagerSuppressAdditions();
    QX_API ~DebugMenuManagerSuppressAdditions();
    DebugMenuManagerSuppressAdditions(DebugMenuManagerSuppressAdditions const&) = delete;
    DebugMenuManagerSuppressAdditions& operator=(DebugMenuManagerSuppressAdditions const&) = delete;

private:
    bool counted_;
};

}  // namespace QX
