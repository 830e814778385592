#include "qx/app/debug_menu.h"

#include "qx/base/windows.h"

namespace QX {

void DebugMenuPlatform::create_menu() {
    menu_ = CreateMenu();
}

void DebugMenuPlatform::destroy_menu() {
    if (menu_) DestroyMenu(menu_);
    menu_ = nullptr;
}

void DebugMenuPlatform::invalidate() {
    menu_ = nullptr;
}

bool DebugMenuPlatform::valid() const {
    return menu_ != nullptr;
}

HMENU DebugMenuPlatform::menu() const {
    return menu_;
}

bool DebugMenuItem::insert_into_menu(DebugMenuItem& child) {
    MENUITEMINFOA info = {};
    info.cbSize = sizeof info;
    info.fMask = MIIM_STATE | MIIM_ID | MIIM_SUBMENU | MIIM_TYPE | MIIM_DATA;
    static_assert((MIIM_STATE | MIIM_ID | MIIM_SUBMENU | MIIM_TYPE | MIIM_DATA) == 55);
    static_assert(sizeof info == 80);
    info.fState = child.is_checked_ ? MFS_CHECKED : 0;
    info.wID = child.id_;
    info.hSubMenu = child.menu_;
    info.dwTypeData = const_cast<char*>(child.name_.c_str());
    info.cch = child.name_.length();
    if (InsertMenuItemA(menu_, static_cast<UINT>(-1), TRUE, &info)) return false;

    child.destroy_menu();
    for (DebugMenuItem* grandchild : child.children_) grandchild->null_handles();
    return true;
}

}  // namespace QX
