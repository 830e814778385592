#include "qx/app/debug_menu.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <deque>
#include <memory>
#include <string>

namespace {

using QX::DebugMenuItem;
using QX::DebugMenuManager;

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

DebugMenuManager* create_manager() {
    DebugMenuManager::create(QX::QXWindow(), true);
    return DebugMenuManager::instance();
}

int runs = 0;

TEST(DebugMenu, public_entry_points_are_inert) {
    DebugMenuManager* const root = create_manager();
    DebugMenuItem item(QX::String("a/b"), [] { ++runs; });
    root->add(item);
    root->update_menus();
    EXPECT_TRUE(shape(*root).empty() && !root->dirty() && item.id() == 0xFFFFFFFF);
    EXPECT_STREQ(item.name().c_str(), "<Unknown>");
    item.command(item.id());
    EXPECT_EQ(runs, 1);
    DebugMenuManager::destroy();
}

TEST(DebugMenu, paths_make_the_menus_that_they_name) {
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
    DebugMenuManager* const root = create_manager();
    std::deque<DebugMenuItem> items;
    for (Row const& row : rows) {
        DebugMenuItem& item = items.emplace_back(QX::String(row.path), [] { ++runs; });
        root->add(item, item.path());
        EXPECT_EQ(shape(*root), row.tree);
        EXPECT_TRUE(item.id() == row.id && item.dirty());
        root->command(row.id);
    }
    EXPECT_EQ(runs, 7);
    EXPECT_TRUE(root->create() && GetMenuItemCount(root->menu()) == 3);
    for (auto result : {QX::UPDATE_REBUILT, QX::UPDATE_UNCHANGED})
        EXPECT_EQ(root->update(), result);
    items.clear();
    while (root->update() != QX::UPDATE_UNCHANGED) {}
    EXPECT_EQ(shape(*root), "");  // menus that lost their last child are gone too
    DebugMenuManager::destroy();
}

TEST(DebugMenuManager, outlives_itself_as_an_address_alone) {
    DebugMenuManager::m_instance = nullptr;
    auto early = std::make_unique<QX::DebugMenuManagerSuppressAdditions>();
    DebugMenuManager* const manager = create_manager();
    {
        QX::DebugMenuManagerSuppressAdditions const one, two;
        early.reset();  // made before the manager, it did not count
        EXPECT_EQ(manager->suppress_count(), 2u);
    }
    EXPECT_EQ(manager->suppress_count(), 0u);
    DebugMenuManager::destroy();
    EXPECT_EQ(DebugMenuManager::instance(), manager);
}

}  // namespace
