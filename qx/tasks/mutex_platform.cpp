#include "qx/tasks/mutex.h"

#include "qx/base/compiler.h"
#include "qx/base/windows.h"

#include <cstring>

namespace QX {

namespace {

constexpr unsigned int heap_spin_count = 10000;

CRITICAL_SECTION* section_in(unsigned char* bytes) {
    return reinterpret_cast<CRITICAL_SECTION*>(bytes);
}

}  // namespace

MutexPlatform::MutexPlatform(unsigned int spin_count) {
    static_assert(sizeof section_ == sizeof(CRITICAL_SECTION));
    static_assert(alignof(CRITICAL_SECTION) <= 8);
    if (spin_count != 0)
        InitializeCriticalSectionAndSpinCount(section_in(section_), spin_count);
    else
        InitializeCriticalSection(section_in(section_));
}

MutexPlatform::~MutexPlatform() {
    DeleteCriticalSection(section_in(section_));
}

MutexPlatform& MutexPlatform::operator=(MutexPlatform const& other) {
    lock_count_ = other.lock_count_;
    std::memmove(section_, other.section_, sizeof section_);
    return *this;
}

void MutexPlatform::acquire() {
    EnterCriticalSection(section_in(section_));
    ++lock_count_;
}

bool MutexPlatform::try_acquire() {
    if (!TryEnterCriticalSection(section_in(section_))) return false;
    ++lock_count_;
    return true;
}

unsigned int MutexPlatform::release() {
    // Read before leaving: afterwards the count is another thread's.
    unsigned int const left = --lock_count_;
    LeaveCriticalSection(section_in(section_));
    return left;
}

SafetyCatch MutexPlatform::suspend() {
    acquire();
    SafetyCatch const depth(lock_count_ - 1);
    while (release() != 0) {}
    return depth;
}

void MutexPlatform::resume(SafetyCatch& depth) {
    if (depth.depth() == 0) return;
    do acquire();
    while (lock_count_ != depth.depth());
}

OptionalCriticalSection::OptionalCriticalSection(CriticalSectionDeclaration& section, bool enabled)
    : enabled_(enabled) {
    if (!enabled) return;
    section_ = &section;
    section.acquire();
}

OptionalCriticalSection::~OptionalCriticalSection() {
    if (enabled_) section_->release();
}

CriticalSectionDeclaration& heap_cs() {
    static CriticalSectionDeclaration section(heap_spin_count);
    return section;
}

}  // namespace QX
