#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "qx/base/windows.h"
#include "qx/memory/arena.h"
#include "qx/memory/heap.h"
#include "tests/harness/stand_in.h"

namespace {

// Watches allocation_hook for its life.
struct Hook {
    using Call = std::pair<void const*, unsigned int>;

    Hook() {
        count = 0;
        MEMORY_TRACKING::register_allocation_fn([](void const* block, unsigned int size) {
            seen[count++ % 8] = {block, size};
        });
    }
    ~Hook() { MEMORY_TRACKING::register_allocation_fn(nullptr); }

    static inline Call seen[8];
    static inline unsigned int count;
};

// Whether a block of 200 bytes is filled with `value`. Releases it.
bool is_filled(void* block, unsigned char value) {
    auto* const bytes = static_cast<unsigned char*>(block);
    bool const all = std::count(bytes, bytes + 200, value) == 200;
    QX::custom_free(block);
    return all;
}

}  // namespace

TEST(CustomMalloc, serves_any_size_and_id_and_shows_the_hook_each_block_and_its_end) {
    Hook const hook;
    void* const block = QX::custom_malloc(33, QX::HEAP_THIRD);
    void* const empty = QX::custom_malloc(0, static_cast<QX::HEAPS>(99));
    for (void* each : {block, empty, static_cast<void*>(nullptr)}) QX::custom_free(each);
    try {
        QX::custom_malloc(~0ull, QX::HEAP_GENERAL);
        ADD_FAILURE() << "served";
    } catch (std::bad_alloc const& failure) {
        EXPECT_STREQ(failure.what(), "bad allocation");
    }
    Hook::Call const expected[] = {{block, 33}, {empty, 0}, {block, 0}, {empty, 0}};
    EXPECT_TRUE(std::equal(expected, expected + 4, hook.seen) && hook.count == 4);
}

TEST(CustomMalloc, fills_its_blocks_once_told_to_and_those_of_no_heap_object) {
    QX::HeapPlatform heap(QX::HEAP_SECOND, nullptr);
    auto const take = [] { return QX::custom_malloc(200, QX::HEAP_GENERAL); };
    EXPECT_FALSE(is_filled(take(), 0xCA));
    QX::enable_alloc_clear();
    EXPECT_TRUE(is_filled(take(), 0xCA));
    QX::change_alloc_clear_val(0xA5);
    EXPECT_FALSE(is_filled(heap.malloc(200).first, 0xA5));
    EXPECT_TRUE(is_filled(take(), 0xA5));
}

TEST(MallocAligned, rounds_to_any_alignment_from_four) {
    for (unsigned int const alignment : {0u, 2u, 4u, 7u, 24u, 4096u}) {
        unsigned int const step = std::max(alignment, 4u);
        Hook const hook;
        void* const block = QX::malloc_aligned(100, alignment, QX::HEAP_GENERAL);
        void* base;
        std::memcpy(&base, static_cast<char*>(block) - 8, sizeof base);
        EXPECT_EQ(hook.seen[0], Hook::Call(base, 100 + 8 + step));
        std::uintptr_t const end = reinterpret_cast<std::uintptr_t>(base) + 8 + step;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block), end / step * step);
        QX::custom_free(base);
        for (unsigned long long const size : {~0ull, ~0ull - 8, ~0ull - 8 - step, ~0ull >> 1})
            EXPECT_THROW(QX::malloc_aligned(size, alignment, QX::HEAP_GENERAL), std::bad_alloc);
    }
}

TEST(GlobalNew, draws_on_the_arena_in_every_form) {
    auto const count = [] { return QX::arena::statistics().blocks_in_use; };
    auto const before = count();
    void* const array = operator new[](20);
    void* const quiet = operator new(4, std::nothrow);
    EXPECT_EQ(count(), before + 2);
    operator delete[](array, 20ull);
    operator delete(quiet, std::nothrow);
    EXPECT_EQ(count(), before);
    std::size_t const volatile too_much = ~0ull - 100;
    EXPECT_EQ(operator new(too_much, std::nothrow), nullptr);
    EXPECT_THROW(operator delete(operator new(too_much)), std::bad_alloc);
}

TEST(HeapPlatform, serves_every_heap_from_the_arena_without_hook) {
    Hook const hook;
    QX::HeapPlatform heap(QX::HEAP_THIRD, 4096, 0);
    QX::HeapPlatform const& seen = heap;
    unsigned int const before = seen.calculate_current_size();
    auto const [block, owner] = heap.malloc(50000);
    EXPECT_EQ(owner, &heap);
    heap.free(heap.realloc(block, 90000).first);
    EXPECT_TRUE(hook.count == 0 && seen.calculate_current_size() == before);
    void* const busy = HeapAlloc(heap.OS_heap(), 0, 5000);
    EXPECT_GE(heap.calculate_current_size(), before + 5000);
    HeapFree(heap.OS_heap(), 0, busy);
}

TEST(HeapPlatform, stays_usable_where_no_system_heap_is_to_be_had) {
    test::StandIn const system(
        "HeapCreate", +[](DWORD, SIZE_T, SIZE_T) -> HANDLE { return nullptr; });
    QX::HeapPlatform heap(QX::HEAP_SECOND, 4096, 0);
    EXPECT_TRUE(heap.OS_heap() == nullptr && heap.calculate_current_size() == 0);
    heap.free(heap.malloc(10).first);
}

TEST(Heaps, come_up_once_with_the_process_heap) {
    EXPECT_TRUE(QX::init_heaps() && QX::init_heaps() && QX::init_large_allocations_heap());
    QX::HeapPlatform heap(QX::HEAP_THIRD, nullptr);
    QX::platform_init_heaps(&heap);
    EXPECT_EQ(heap.id(), QX::HEAP_GENERAL);
    heap.~HeapPlatform();
    EXPECT_EQ(new (&heap) QX::HeapPlatform(QX::HEAP_SECOND, GetProcessHeap()), &heap);
    EXPECT_TRUE(HeapFree(heap.OS_heap(), 0, HeapAlloc(GetProcessHeap(), 0, 10))) << "still alive";
    QX::platform_init_heaps(nullptr);
}

TEST(MemoryInfo, agrees_with_the_system) {
    MEMORYSTATUSEX status = {};
    status.dwLength = sizeof status;
    GlobalMemoryStatusEx(&status);
    EXPECT_EQ(QX::memory_info().total_physical, status.ullTotalPhys);
    EXPECT_EQ(QX::memory_info().total_virtual, status.ullTotalVirtual);
    EXPECT_TRUE(QX::is_RAM_present(status.ullTotalPhys));
    EXPECT_FALSE(QX::is_RAM_present(status.ullTotalPhys + 1));
}

DWORD cache_flags;

BOOL WINAPI cache_size(SIZE_T* minimum, SIZE_T* maximum, DWORD* flags) {
    EXPECT_EQ(*flags, 5u);
    *minimum = 111, *maximum = 222, *flags = cache_flags;
    return TRUE;
}

TEST(MemoryInfo, gives_only_cache_limits_that_are_enforced) {
    test::StandIn const system("GetSystemFileCacheSize", cache_size);
    for (DWORD flags : {0u, 1u, 4u, 5u, 10u}) {
        cache_flags = flags;
        QX::CURRENT_MEMORY_INFO const info = QX::current_memory_info();
        EXPECT_EQ(info.minimum_file_cache, flags & 4 ? 111u : 0u);
        EXPECT_EQ(info.maximum_file_cache, flags & 1 ? 222u : 0u);
    }
}
