// xml_tree_impl.h - what the workings on trees share: the walk without recursion.
#pragma once

#include <cstddef>
#include <vector>

namespace QX {

// All tags of a tree: parents before their children, the children of one tag side by side.
template <typename Tag>
std::vector<Tag*> list_tree(Tag& root) {
    std::vector<Tag*> listed{&root};
    for (std::size_t i = 0; i != listed.size(); ++i) {
        auto* child = listed[i]->tags.data();
        for (auto left = listed[i]->tags.size(); left; --left) listed.push_back(child++);
    }
    return listed;
}

}  // namespace QX
