#include "qx/app/debug_menu.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "tests/harness/stand_in.h"

#include <deque>
#include <string>

namespace {

using QX::DebugMenuItem;
using QX::DebugMenuManager;

// An item whose check mark and selections the test sees.
class Item : public DebugMenuItem {
public:
    explicit Item(char const* path) : DebugMenuItem(QX::String(path), nullptr) {}
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
        text += std::string(text.empty() ? "" : ",") + child->name().c_str();
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
    EXPECT_TRUE(shape(*root).empty() && !root->dirty() && item.id() == 0xFFFFFFFF);
    EXPECT_STREQ(item.name().c_str(), "<Unknown>");
}

TEST_F(DebugMenu, paths_make_the_menus_that_they_name) {
    struct Row {
        char const* path;
        char const* tree;  // once it is placed too
        unsigned int id;   // menus made on the way take theirs first
    };
    constexpr Row rows[] = {
        {"a/b/c", "a*(b*(c))", 2},
        {"a/b", "a*(b*(Enable,c))", 3},
        {"A", "a*(b*(Enable,c)),A", 4},
        {"A", "a*(b*(Enable,c)),A(Enable)", 5},
        {"a/", "a*(b*(Enable,c),),A(Enable)", 6},
        {"/x", "a*(b*(Enable,c),),A(Enable),*(x)", 8},
        {"a/b/c/d", "a*(b*(Enable,c(d)),),A(Enable),*(x)", 9},
    };
    std::deque<Item> items;
    for (Row const& row : rows) {
        place(items.emplace_back(row.path));
        EXPECT_EQ(shape(*root), row.tree);
        EXPECT_TRUE(items.back().id() == row.id && items.back().dirty());
    }
    EXPECT_STREQ(root->children()[0]->children()[0]->path().c_str(), "b/c");
}

int runs = 0;

TEST_F(DebugMenu, command_reaches_every_item_of_the_id) {
    Item first("a/x"), second("b/y"), below("a/x/d");
    DebugMenuItem plain(QX::String("d"), [] { ++runs; }), empty(QX::String("e"), nullptr);
    for (DebugMenuItem* item : {&plain, &empty}) place(*item);
    for (DebugMenuItem* item : {&first, &second, &below}) place(*item);
    second.id_ = below.id_ = first.id_;
    for (unsigned int id : {first.id(), plain.id(), empty.id()}) root->command(id);
    EXPECT_TRUE(first.selected == 1 && second.selected == 1 && runs == 1);
    EXPECT_EQ(below.selected, 0);  // a hit keeps it from the item's own children
}

TEST_F(DebugMenu, update_follows_marks_and_removals) {
    Item leaf("a/b/c"), sibling("a/d");
    place(leaf);
    place(sibling);
    auto const expect_rebuilt_once = [&](char const* tree) {
        EXPECT_EQ(root->update(), QX::UPDATE_REBUILT);
        EXPECT_EQ(root->update(), QX::UPDATE_UNCHANGED);
        EXPECT_EQ(shape(*root), tree);
    };
    expect_rebuilt_once("a*(b*(c),d)");
    leaf.mark = true;
    expect_rebuilt_once("a*(b*(c),d)");

    // A menu that lost its last child goes with the next update; its sibling is not passed over.
    leaf.parent()->remove(leaf);
    leaf.parent_ = nullptr;
    sibling.mark = true;
    expect_rebuilt_once("a*(d)");
    EXPECT_TRUE(leaf.is_checked() && sibling.is_checked());
    root->remove(leaf);  // no child of this node, which is marked all the same
    expect_rebuilt_once("a*(d)");
    std::make_unique<Item>("a/x")->DebugMenuItem::add(leaf, "y");  // destroyed at once
    EXPECT_EQ(leaf.parent(), nullptr);
}

BOOL WINAPI refuse_item(HMENU, UINT, BOOL, MENUITEMINFOA const*) {
    return FALSE;
}

TEST_F(DebugMenu, native_menus_mirror_the_tree_and_forget_a_refused_branch) {
    Item mark("a/mark"), plain("a/plain");
    mark.mark = true;
    place(mark);
    place(plain);
    root->update();
    ASSERT_TRUE(root->DebugMenuItem::create());
    HMENU const menu = mark.parent()->menu();
    EXPECT_EQ(GetSubMenu(root->menu(), 0), menu);
    EXPECT_EQ(GetMenuState(menu, 0, MF_BYPOSITION), UINT{MF_CHECKED});
    EXPECT_EQ(GetMenuState(menu, 1, MF_BYPOSITION), 0u);
    EXPECT_EQ(GetMenuItemID(menu, 1), plain.id());
    char label[32];
    GetMenuStringA(menu, 1, label, sizeof label, MF_BYPOSITION);
    EXPECT_STREQ(label, "plain");
    root->destroy_handles();
    EXPECT_FALSE(root->valid() || mark.parent()->valid() || IsMenu(menu));

    test::StandIn const call("InsertMenuItemA", refuse_item);
    EXPECT_TRUE(root->DebugMenuItem::create());
    EXPECT_TRUE(root->valid() && root->dirty() && !mark.parent()->valid());
    EXPECT_TRUE(root->update() == QX::UPDATE_REBUILT && !root->valid());
}

TEST(DebugMenuManager, outlives_itself_as_an_address_alone) {
    DebugMenuManager::destroy();
    auto early = std::make_unique<QX::DebugMenuManagerSuppressAdditions>();
    QX::QXWindow window;
    window.set_hwnd(reinterpret_cast<HWND>(0x66));
    DebugMenuManager::create(window, true);
    DebugMenuManager* const manager = DebugMenuManager::instance();
    EXPECT_TRUE(manager->window() == window && manager->enabled());
    {
        QX::DebugMenuManagerSuppressAdditions const one, two;
        EXPECT_EQ(manager->suppress_count(), 2u);
        early.reset();  // made before the manager, it did not count
        EXPECT_EQ(manager->suppress_count(), 2u);
    }
    EXPECT_EQ(manager->suppress_count(), 0u);
    DebugMenuManager::destroy();
    EXPECT_EQ(DebugMenuManager::instance(), manager);
}

}  // namespace
