#include "tests/harness/guarded.h"

#include "qx/base/windows.h"

#include <cstring>

namespace test {

namespace {
constexpr std::size_t page = 4096;
}

Guarded::Guarded(void const* bytes, std::size_t size) : size_(size) {
    std::size_t const usable = (size + page - 1) / page * page;
    mapping_ = VirtualAlloc(nullptr, usable + page, MEM_RESERVE, PAGE_NOACCESS);
    char* const start = static_cast<char*>(mapping_);
    if (usable) VirtualAlloc(start, usable, MEM_COMMIT, PAGE_READWRITE);
    data_ = start + usable - size;
    if (bytes && size) std::memcpy(data_, bytes, size);
}

Guarded::~Guarded() {
    VirtualFree(mapping_, 0, MEM_RELEASE);
}

}  // namespace test
