// A program with one value of each kind that the debugger views show; it stops at show().
#include "qx/qx.h"

extern "C" [[gnu::noinline]] void show() {
    asm volatile("");
}

int main() {
    QX::String const narrow("data\\boot.pack");
    QX::String const empty;
    QX::UniString const wide(L"Gr\u00fc\u00dfe");
    QX::DynamicArray<int, QX::DefaultAllocator> numbers;
    for (int i = 1; i <= 3; ++i) numbers.push_back(i * 11);
    QX_STD::VECTOR<QX::String> texts;
    texts.push_back(narrow);
    QX_STD::LIST<int> list;
    list.push_back(5);
    list.push_back(6);
    QX::FileName const name("Textures/Wall.tga");
    QX::XML tree;
    tree.name = "scene";
    tree.attributes.push_back({"id", "7"});
    tree.tags.push_back({"light", "on"});
    show();
    return static_cast<int>(numbers.size() - texts.size() - tree.tags.size()) - 1;
}
