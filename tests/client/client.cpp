// A client of the installed package: its own new and delete draw on the arena.
#include "qx/qx.h"

#include <cstdio>

namespace {

unsigned int allocations;

void count(void const*, unsigned int size) {
    if (size) ++allocations;
}

}  // namespace

int main() {
    QX::allocation_hook = count;
    delete[] new int[100];
    QX::allocation_hook = nullptr;
    std::printf("client: %u block of its own came from the arena\n", allocations);
    return allocations == 1 ? 0 : 1;
}
