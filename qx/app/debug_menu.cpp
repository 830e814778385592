#include "qx/app/debug_menu.h"

#include <memory>

namespace QX {

namespace {

constexpr char separator = '/';
constexpr char const unplaced_name[] = "<Unknown>";
constexpr char const switch_name[] = "Enable";

}  // namespace

// --- The item ------------------------------------------------------------------------------------

DebugMenuItem::DebugMenuItem(String const& path, void (*action)())
    : function_(action), path_(path), name_(unplaced_name) {}

// The native menu takes its sub-menus along, so the children only forget theirs.
DebugMenuItem::~DebugMenuItem() {
    if (valid()) {
        destroy_menu();
        for (DebugMenuItem* child : children_) child->null_handles();
    }
    for (DebugMenuItem* child : children_) {
        child->parent_ = nullptr;
        if (child->auto_created_) delete child;
    }
    if (parent_) parent_->remove(*this);
}

void DebugMenuItem::select() {
    if (function_) function_();
}

bool DebugMenuItem::checked() const {
    return false;
}

// A hit does not end the walk.
void DebugMenuItem::command(unsigned int id) {
    if (id == id_) {
        select();
        return;
    }
    for (DebugMenuItem* child : children_) child->command(id);
}

void (*DebugMenuItem::function() const)() {
    return function_;
}

String const& DebugMenuItem::path() const {
    return path_;
}

String const& DebugMenuItem::name() const {
    return name_;
}

DebugMenuItem* DebugMenuItem::parent() const {
    return parent_;
}

bool DebugMenuItem::auto_created() const {
    return auto_created_;
}

bool DebugMenuItem::dirty() const {
    return dirty_;
}

DynamicArray<DebugMenuItem*, DefaultAllocator> const& DebugMenuItem::children() const {
    return children_;
}

unsigned int DebugMenuItem::id() const {
    return id_;
}

bool DebugMenuItem::is_checked() const {
    return is_checked_;
}

// --- Placing -------------------------------------------------------------------------------------

void DebugMenuItem::add(DebugMenuItem& item, String const& path) {
    unsigned int const end = path.find(separator);
    if (end != String::npos) {
        find_or_make_menu(path.substr(0, end), path).add(item, path.substr(end + 1));
    } else if (DebugMenuItem* const menu = find_child(path)) {
        menu->place(item, switch_name, 0);
    } else {
        place(item, path, children_.size());
    }
}

DebugMenuItem* DebugMenuItem::find_child(String const& name) const {
    for (DebugMenuItem* child : children_) {
        if (child->name_ == name) return child;
    }
    return nullptr;
}

DebugMenuItem& DebugMenuItem::find_or_make_menu(String const& name, String const& path) {
    if (DebugMenuItem* const found = find_child(name)) return *found;
    auto menu = std::make_unique<DebugMenuItem>(path, nullptr);
    place(*menu, name, children_.size());
    menu->auto_created_ = true;
    return *menu.release();
}

// Where memory runs out the item is not placed.
void DebugMenuItem::place(DebugMenuItem& item, String const& name, unsigned long long at) {
    String placed_name(name);
    children_.insert(children_.begin() + at, &item);
    item.name_.swap(placed_name);
    item.parent_ = this;
    item.auto_created_ = false;
    item.dirty_ = true;
    item.initialise();
}

void DebugMenuItem::initialise() {
    if (DebugMenuManager* const manager = DebugMenuManager::m_instance) id_ = manager->next_id_++;
    is_checked_ = checked();
}

void DebugMenuItem::remove(DebugMenuItem& child) {
    for (auto at = children_.begin(); at != children_.end(); ++at) {
        if (*at != &child) continue;
        children_.erase(at);
        break;
    }
    dirty_ = true;
}

// --- Native menus --------------------------------------------------------------------------------

bool DebugMenuItem::create() {
    for (DebugMenuItem* child : children_) {
        if (!child->create()) return false;
    }
    if (children_.empty()) return true;
    create_menu();
    if (!valid()) return false;
    for (DebugMenuItem* child : children_) {
        if (insert_into_menu(*child)) dirty_ = true;
    }
    return true;
}

DEBUG_MENU_ITEM_UPDATE_RESULT DebugMenuItem::update() {
    if (auto_created_ && children_.empty()) {
        delete this;
        return UPDATE_REMOVED;
    }
    bool const now_checked = checked();
    if (now_checked != is_checked_) dirty_ = true;
    is_checked_ = now_checked;
    if (update_children()) dirty_ = true;

    if (!dirty_) return UPDATE_UNCHANGED;
    destroy_menu();
    dirty_ = false;
    return UPDATE_REBUILT;
}

// A child that is removed takes itself out of the list. True if any child changed.
bool DebugMenuItem::update_children() {
    bool changed = false;
    for (unsigned long long i = 0; i < children_.size();) {
        DEBUG_MENU_ITEM_UPDATE_RESULT const result = children_[i]->update();
        if (result != UPDATE_UNCHANGED) changed = true;
        if (result != UPDATE_REMOVED) ++i;
    }
    return changed;
}

void DebugMenuItem::destroy_handles() {
    destroy_menu();
    for (DebugMenuItem* child : children_) child->destroy_handles();
}

void DebugMenuItem::null_handles() {
    invalidate();
    for (DebugMenuItem* child : children_) child->null_handles();
}

// --- The manager ---------------------------------------------------------------------------------

DebugMenuManager* DebugMenuManager::m_instance = nullptr;

DebugMenuManager::DebugMenuManager(QXWindow const& window, bool enabled)
    : DebugMenuItem(String(), nullptr), window_(window), enabled_(enabled) {}

DebugMenuManager::~DebugMenuManager() = default;

void DebugMenuManager::create(QXWindow const& window, bool enabled) {
    m_instance = new DebugMenuManager(window, enabled);
}

// The address stays behind.
void DebugMenuManager::destroy() {
    delete m_instance;
}

DebugMenuManager* DebugMenuManager::instance() {
    return m_instance;
}

void DebugMenuManager::add(DebugMenuItem&) {}

void DebugMenuManager::update_menus() {}

QXWindow const& DebugMenuManager::window() const {
    return window_;
}

unsigned int DebugMenuManager::next_id() const {
    return next_id_;
}

unsigned int DebugMenuManager::suppress_count() const {
    return suppress_count_;
}

bool DebugMenuManager::enabled() const {
    return enabled_;
}

DebugMenuManagerSuppressAdditions::DebugMenuManagerSuppressAdditions()
    : counted_(DebugMenuManager::m_instance != nullptr) {
    if (counted_) ++DebugMenuManager::m_instance->suppress_count_;
}

DebugMenuManagerSuppressAdditions::~DebugMenuManagerSuppressAdditions() {
    if (counted_) --DebugMenuManager::m_instance->suppress_count_;
}

}  // namespace QX
