#include "qx/app/debug_menu.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "tests/app/host.h"
#include "tests/harness/stand_in.h"

#include <memory>
#include <string>
#include <vector>

namespace {

using QX::DebugMenuItem;
using QX::DebugMenuManager;

// An item whose check mark and selections the test sees.
class Item : public DebugMenuItem {
public:
    explicit Item(char const* path = "") : DebugMenuItem(QX::String(path), nullptr) {}
    bool mark = false;
    int selected = 0;

protected:
    void select() override { ++selected; }
    bool checked() const override { return mark; }
};

// The tree below a node: "a(b(Enable,c)),d", items made by the tree with a star.
std::string shape(DebugMenuItem const& node) {
    std::string text;
    for (DebugMenuItem const* child : node.children()) {
        EXPECT_EQ(child->parent(), &node);
        if (!text.empty()) text += ',';
        text += child->name().c_str();
        if (child->auto_created()) text += '*';
        if (!child->children().empty()) text += '(' + shape(*child) + ')';
    }
    return text;
}

class DebugMenu : public testing::Test {
protected:
    DebugMenu() {
        DebugMenuManager::create(QX::QXWindow(), true);
        root = DebugMenuManager::instance();
    }
    ~DebugMenu() override {
        DebugMenuManager::destroy();
        DebugMenuManager::m_instance = nullptr;
    }

    void place(DebugMenuItem& item) { root->DebugMenuItem::add(item, item.path()); }

    DebugMenuManager* root;
};

TEST_F(DebugMenu, public_entry_points_are_inert) {
    Item item("a/b");
    root->add(item);
    root->update_menus();
    EXPECT_EQ(shape(*root), "");
    EXPECT_EQ(root->next_id(), 0u);
    EXPECT_FALSE(root->dirty());
    EXPECT_STREQ(item.name().c_str(), "<Unknown>");
    EXPECT_EQ(item.parent(), nullptr);
    EXPECT_EQ(item.id(), 0xFFFFFFFFu);
}

TEST_F(DebugMenu, paths_make_the_menus_that_they_name) {
    struct Row {
        char const* path;
        char const* tree;  // once it is placed too
    };
    constexpr Row rows[] = {
        {"a/b/c", "a*(b*(c))"},
        {"a/b", "a*(b*(Enable,c))"},
        {"a/b", "a*(b*(Enable,Enable,c))"},
        {"A", "a*(b*(Enable,Enable,c)),A"},
        {"A", "a*(b*(Enable,Enable,c)),A(Enable)"},
        {"a/", "a*(b*(Enable,Enable,c),),A(Enable)"},
        {"/x", "a*(b*(Enable,Enable,c),),A(Enable),*(x)"},
        {"a/b/c/d", "a*(b*(Enable,Enable,c(d)),),A(Enable),*(x)"},
    };
    std::vector<std::unique_ptr<Item>> items;
    for (Row const& row : rows) {
        items.push_back(std::make_unique<Item>(row.path));
        place(*items.back());
        EXPECT_EQ(shape(*root), row.tree);
        EXPECT_TRUE(items.back()->dirty());
        EXPECT_STREQ(items.back()->path().c_str(), row.path);
    }
    EXPECT_EQ(root->next_id(), 11u);  // eight items and three menus, in the order of placing
    EXPECT_EQ(items[0]->id(), 2u);
    EXPECT_EQ(items[1]->id(), 3u);
    EXPECT_STREQ(root->children()[0]->path().c_str(), "a/b/c");
    EXPECT_STREQ(root->children()[0]->children()[0]->path().c_str(), "b/c");
}

TEST_F(DebugMenu, command_reaches_every_item_of_the_id) {
    Item first("a/x"), second("b/y"), other("c");
    for (Item* item : {&first, &second, &other}) place(*item);
    second.id_ = first.id_;
    root->command(first.id());
    root->command(0xFFFFFFFE);
    EXPECT_EQ(first.selected + second.selected, 2);
    EXPECT_EQ(other.selected, 0);

    Item below("c/d");  // a hit keeps it from the item's own children
    place(below);
    below.id_ = other.id_;
    root->command(other.id());
    EXPECT_EQ(other.selected, 1);
    EXPECT_EQ(below.selected, 0);

    static int runs = 0;
    DebugMenuItem plain(QX::String("d"), [] { ++runs; });
    DebugMenuItem empty(QX::String("e"), nullptr);
    place(plain);
    place(empty);
    root->command(plain.id());
    root->command(empty.id());
    EXPECT_EQ(runs, 1);
}

TEST_F(DebugMenu, update_follows_marks_and_removals) {
    Item leaf("a/b/c"), sibling("a/d");
    place(leaf);
    place(sibling);
    EXPECT_EQ(root->update(), QX::UPDATE_REBUILT);
    EXPECT_EQ(root->update(), QX::UPDATE_UNCHANGED);
    leaf.mark = true;
    EXPECT_EQ(root->update(), QX::UPDATE_REBUILT);
    EXPECT_TRUE(leaf.is_checked());
    EXPECT_EQ(root->update(), QX::UPDATE_UNCHANGED);

    // A menu that lost its last child goes with the next update, and its parents with it.
    leaf.parent()->remove(leaf);
    leaf.parent_ = nullptr;
    sibling.mark = true;
    EXPECT_EQ(shape(*root), "a*(b*,d)");
    EXPECT_EQ(root->update(), QX::UPDATE_REBUILT);
    EXPECT_TRUE(sibling.is_checked());  // not passed over
    EXPECT_EQ(shape(*root), "a*(d)");
    EXPECT_EQ(root->update(), QX::UPDATE_UNCHANGED);
    root->remove(leaf);  // no child of this node, which is marked all the same
    EXPECT_EQ(root->update(), QX::UPDATE_REBUILT);
}

TEST_F(DebugMenu, destroyed_items_leave_the_tree_and_their_children_free) {
    Item child("a/x/y");
    {
        Item menu("a/x");
        place(menu);
        place(child);
        EXPECT_EQ(shape(*root), "a*(x(y))");
        root->update();
    }
    EXPECT_EQ(child.parent(), nullptr);
    EXPECT_EQ(shape(*root), "a*");
    EXPECT_TRUE(root->children()[0]->dirty());
}

// --- Native menus --------------------------------------------------------------------------------

MENUITEMINFOA item_info(HMENU menu, UINT position, char* text, UINT size) {
    MENUITEMINFOA info = {};
    info.cbSize = sizeof info;
    info.fMask = MIIM_STATE | MIIM_ID | MIIM_SUBMENU | MIIM_TYPE;
    info.dwTypeData = text;
    info.cch = size;
    GetMenuItemInfoA(menu, position, TRUE, &info);
    return info;
}

TEST_F(DebugMenu, native_menus_mirror_the_tree) {
    Item mark("a/mark"), plain("a/plain"), top("top");
    mark.mark = true;
    for (Item* item : {&mark, &plain, &top}) place(*item);
    ASSERT_TRUE(root->DebugMenuItem::create());
    ASSERT_EQ(GetMenuItemCount(root->menu()), 2);

    char text[32];
    MENUITEMINFOA const menu = item_info(root->menu(), 0, text, sizeof text);
    EXPECT_STREQ(text, "a");
    EXPECT_EQ(menu.hSubMenu, mark.parent()->menu());
    MENUITEMINFOA const first = item_info(menu.hSubMenu, 0, text, sizeof text);
    EXPECT_STREQ(text, "mark");
    EXPECT_EQ(first.wID, mark.id());
    EXPECT_EQ(first.fState, UINT{MFS_CHECKED});
    EXPECT_EQ(item_info(menu.hSubMenu, 1, text, sizeof text).fState, 0u);
    EXPECT_FALSE(plain.valid());

    HMENU const handle = root->menu();
    root->destroy_handles();
    EXPECT_FALSE(root->valid());
    EXPECT_FALSE(mark.parent()->valid());
    EXPECT_FALSE(IsMenu(handle));
}

BOOL WINAPI refuse_item(HMENU, UINT position, BOOL by_position, MENUITEMINFOA const* info) {
    EXPECT_EQ(position, 0xFFFFFFFFu);
    EXPECT_TRUE(by_position);
    EXPECT_EQ(info->cbSize, 80u);
    EXPECT_EQ(info->fMask, 55u);
    EXPECT_EQ(info->cch, 1u);
    return FALSE;
}

TEST_F(DebugMenu, refused_branch_is_forgotten_and_kept_for_the_next_pass) {
    Item item("a/b");
    place(item);
    root->update();
    test::StandIn const call("InsertMenuItemA", refuse_item);
    EXPECT_TRUE(root->DebugMenuItem::create());
    EXPECT_TRUE(root->dirty());
    EXPECT_FALSE(item.parent()->valid());
    EXPECT_TRUE(root->valid());
    EXPECT_EQ(root->update(), QX::UPDATE_REBUILT);
    EXPECT_FALSE(root->valid());
}

// --- The manager ---------------------------------------------------------------------------------

TEST(DebugMenuManager, outlives_itself_as_an_address_alone) {
    EXPECT_EQ(DebugMenuManager::instance(), nullptr);
    DebugMenuManager::destroy();
    {
        QX::DebugMenuManagerSuppressAdditions const early;
        QX::QXWindow window;
        window.set_hwnd(reinterpret_cast<HWND>(0x66));
        DebugMenuManager::create(window, true);
        EXPECT_EQ(DebugMenuManager::instance()->window().get_hwnd(), window.get_hwnd());
        EXPECT_TRUE(DebugMenuManager::instance()->enabled());
    }
    DebugMenuManager* const manager = DebugMenuManager::instance();
    EXPECT_EQ(manager->suppress_count(), 0u);  // made before the manager was
    {
        QX::DebugMenuManagerSuppressAdditions const one, two;
        EXPECT_EQ(manager->suppress_count(), 2u);
    }
    EXPECT_EQ(manager->suppress_count(), 0u);
    DebugMenuManager::destroy();
    EXPECT_EQ(DebugMenuManager::instance(), manager);
}

}  // namespace
