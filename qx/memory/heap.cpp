#include "qx/memory/heap.h"

#include <cstring>
#include <new>

#include "qx/memory/arena_impl.h"
#include "qx/memory/arena_system_impl.h"
#include "qx/memory/batches.h"
#include "qx/memory/heap_impl.h"
#include "qx/memory/report.h"

namespace QX {

void (*allocation_hook)(void const* block, unsigned int size) = nullptr;

constinit unsigned int special_flags = special_first_use;

namespace {

unsigned int fill_value = 0xCA;
bool heaps_initialised = false;
[[maybe_unused]] bool reports_out_of_memory = true;
[[maybe_unused]] bool crashes_on_out_of_memory = false;

// The default heap: bytes, so that nothing is built at load time and nothing ends at exit.
alignas(HeapPlatform) unsigned char default_heap[sizeof(HeapPlatform)];

class AllocationFailure : public std::bad_alloc {
public:
    char const* what() const noexcept override { return "bad allocation"; }
};

[[noreturn]] QX_NOINLINE void fail() {
    throw AllocationFailure();
}

inline void tell(void const* block, unsigned long long size) {
    if (QX_UNLIKELY(allocation_hook != nullptr)) {
        allocation_hook(block, static_cast<unsigned int>(size));
    }
}

QX_NOINLINE void* allocate_specially(unsigned long long size) {
    if (special_flags & special_first_use) {
        init_heaps();
        special_flags &= ~special_first_use;
    }
    void* const block = arena::allocate(size);
    if (!block) fail();
    if (special_flags & special_fill) std::memset(block, static_cast<int>(fill_value), size);
    tell(block, size);
    return block;
}

}  // namespace

void* custom_malloc(unsigned long long size, HEAPS) {
    if (QX_UNLIKELY(special_flags != 0)) return allocate_specially(size);
    void* const block = arena::allocate_inline(size);
    if (QX_UNLIKELY(!block)) fail();
    tell(block, size);
    return block;
}

void custom_free(void const* block) {
    if (!block) return;
    arena::release_inline(block);
    tell(block, 0);
}

bool custom_malloc_all(unsigned long long const* sizes, void** blocks, unsigned int count) {
    if (QX_UNLIKELY(special_flags != 0 || allocation_hook)) return false;
    return arena::allocate_all_inline(sizes, blocks, count);
}

void custom_free_all(void const* const* blocks, unsigned int count) {
    arena::release_all_inline(blocks, count);
    for (unsigned int i = 0; i != count; ++i) tell(blocks[i], 0);
}

void* malloc_aligned(unsigned long long size, unsigned int alignment, HEAPS heap) {
    unsigned long long const step = alignment < 4 ? 4 : alignment;
    unsigned long long const room = 8 + step;  // for the word and for rounding up
    void* const base = custom_malloc(size <= ~0ull - room ? size + room : ~0ull, heap);
    unsigned long long const end = reinterpret_cast<unsigned long long>(base) + room;
    void** const result = reinterpret_cast<void**>(end - end % step);
    std::memcpy(reinterpret_cast<char*>(result) - 8, &base, sizeof base);
    return result;
}

void enable_alloc_clear() {
    special_flags |= special_fill;
}

void change_alloc_clear_val(unsigned char value) {
    fill_value = value;
}

std::pair<void*, HeapPlatform*> HeapPlatform::malloc(unsigned long long size) {
    void* const block = arena::allocate(size);
    return {block, block ? this : nullptr};
}

std::pair<void*, HeapPlatform*> HeapPlatform::realloc(void const* block, unsigned long long size) {
    void* const moved = arena::reallocate(block, size);
    return {moved, moved ? this : nullptr};
}

void HeapPlatform::free(void const* block) {
    arena::release(block);
}

bool init_heaps() {
    if (heaps_initialised) return true;
    heaps_initialised = true;
    platform_init_heaps(reinterpret_cast<HeapPlatform*>(default_heap));
    return true;
}

bool verify_heaps(VERIFY_HEAP_OPTIONS options) {
    unsigned int const begin = arena::tick_count_ms();
    MEMORY_TRACKING::report_message_txt("Verifying heaps...");
    if (options == VERIFY_HEAP_BANNER_A || options == VERIFY_HEAP_BANNER_B) return true;
    validate_system_heaps();
    arena::touch_free_chunks();
    MEMORY_TRACKING::report_message_txt(" : duration %dms\n", arena::tick_count_ms() - begin);
    return true;
}

bool is_RAM_present(unsigned long long bytes) {
    return memory_info().total_physical >= bytes;
}

bool is_greater_2gb_addressable() {
    return memory_info().total_virtual > 0x80000000;
}

bool init_large_allocations_heap() {
    return true;
}

void crash_on_out_of_memory() {
    crashes_on_out_of_memory = true;
}

void set_out_of_memory_reporting(bool on) {
    reports_out_of_memory = on;
}

void reserve_out_of_memory_pages() {}
void release_out_of_memory_pages() {}
void out_of_memory_report() {}
void update_memory_report() {}

}  // namespace QX

namespace MEMORY_TRACKING {

void register_allocation_fn(void (*fn)(void const* block, unsigned int size)) {
    QX::allocation_hook = fn;
}

}  // namespace MEMORY_TRACKING
