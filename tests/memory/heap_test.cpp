#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <list>
#include <new>
#include <regex>
#include <string>
#include <vector>

#include "qx/base/windows.h"
#include "qx/memory/arena.h"
#include "qx/memory/heap.h"
#include "qx/memory/report.h"
#include "tests/harness/stand_in.h"

namespace {

struct Seen {
    void const* block;
    unsigned int size;
};

Seen seen[4];
unsigned int seen_count;

void note(void const* block, unsigned int size) {
    if (seen_count < 4) seen[seen_count] = {block, size};
    ++seen_count;
}

// Watches allocation_hook for its life.
struct Hook {
    Hook() {
        seen_count = 0;
        MEMORY_TRACKING::register_allocation_fn(note);
    }
    ~Hook() { MEMORY_TRACKING::register_allocation_fn(nullptr); }
};

char printed[256];

void WINAPI note_text(char const* text) {
    std::strncat(printed, text, sizeof printed - std::strlen(printed) - 1);
}

// What the debugger would see during `work`.
template <typename Work>
std::string printed_by(Work work) {
    test::StandIn const debugger("OutputDebugStringA", note_text);
    printed[0] = 0;
    work();
    return printed;
}

// Whether a block of 200 bytes is filled with `value`. Releases it.
bool is_filled(void* block, unsigned char value) {
    auto* const bytes = static_cast<unsigned char*>(block);
    bool const all = std::count(bytes, bytes + 200, value) == 200;
    QX::custom_free(block);
    return all;
}

HANDLE WINAPI no_heap(DWORD, SIZE_T, SIZE_T) {
    return nullptr;
}

}  // namespace

TEST(CustomMalloc, serves_any_size_and_id_and_shows_the_hook_each_block_and_its_end) {
    Hook const hook;
    void* const block = QX::custom_malloc(33, QX::HEAP_THIRD);
    void* const empty = QX::custom_malloc(0, static_cast<QX::HEAPS>(99));
    QX::custom_free(block);
    QX::custom_free(empty);
    QX::custom_free(nullptr);
    EXPECT_NE(block, empty);
    EXPECT_EQ(seen_count, 4u);
    unsigned int const sizes[] = {33, 0, 0, 0};
    for (unsigned int i = 0; i < 4; ++i) {
        EXPECT_EQ(seen[i].block, i % 2 ? empty : block);
        EXPECT_EQ(seen[i].size, sizes[i]);
    }
}

TEST(CustomMalloc, throws_bad_alloc_with_its_own_text) {
    try {
        QX::custom_malloc(~0ull, QX::HEAP_GENERAL);
        FAIL();
    } catch (std::bad_alloc const& failure) {
        EXPECT_STREQ(failure.what(), "bad allocation");
    }
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
    unsigned int const rows[][2] = {{0, 4}, {2, 4}, {4, 4}, {7, 7}, {24, 24}, {4096, 4096}};
    for (auto const& [alignment, step] : rows) {
        Hook const hook;
        void* const block = QX::malloc_aligned(100, alignment, QX::HEAP_GENERAL);
        void* base;
        std::memcpy(&base, static_cast<char*>(block) - 8, sizeof base);
        EXPECT_EQ(seen[0].block, base);
        EXPECT_EQ(seen[0].size, 100 + 8 + step);
        std::uintptr_t const end = reinterpret_cast<std::uintptr_t>(base) + 8 + step;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block), end / step * step);
        QX::custom_free(base);
    }
}

// On both sides of the library, plain, array and nothrow forms draw on the arena.
TEST(GlobalNew, draws_on_the_arena_in_every_form) {
    auto const count = [] { return QX::arena::statistics().blocks_in_use; };
    auto const before = count();
    void* const plain = operator new(4);
    void* const array = operator new[](20);
    void* const quiet = operator new(4, std::nothrow);
    void* const quiet_array = operator new[](20, std::nothrow);
    EXPECT_EQ(count(), before + 4);
    operator delete(plain);
    operator delete[](array, 20ull);
    operator delete(quiet, 4ull);
    operator delete[](quiet_array, std::nothrow);
    EXPECT_EQ(count(), before);
    std::size_t const volatile too_much = ~0ull - 100;
    EXPECT_EQ(operator new(too_much, std::nothrow), nullptr);
    EXPECT_THROW(operator delete(operator new(too_much)), std::bad_alloc);
}

TEST(HeapPlatform, serves_every_heap_from_the_arena_without_hook) {
    Hook const hook;
    QX::HeapPlatform heap(QX::HEAP_THIRD, 4096, 0);
    EXPECT_EQ(heap.id(), QX::HEAP_THIRD);
    unsigned int const before = heap.calculate_current_size();
    auto const [block, owner] = heap.malloc(50000);
    EXPECT_EQ(owner, &heap);
    EXPECT_EQ(heap.calculate_current_size(), before);
    heap.free(heap.realloc(block, 90000).first);
    heap.free(nullptr);
    EXPECT_EQ(seen_count, 0u);
    void* const busy = HeapAlloc(heap.OS_heap(), 0, 5000);
    EXPECT_GE(heap.calculate_current_size(), before + 5000);
    HeapFree(heap.OS_heap(), 0, busy);
}

TEST(HeapPlatform, stays_usable_where_no_system_heap_is_to_be_had) {
    test::StandIn const system("HeapCreate", no_heap);
    QX::HeapPlatform heap(QX::HEAP_SECOND, 4096, 0);
    EXPECT_EQ(heap.OS_heap(), nullptr);
    EXPECT_EQ(heap.calculate_current_size(), 0u);
    heap.free(heap.malloc(10).first);
}

TEST(HeapPlatform, leaves_the_process_heap_alive_and_builds_in_place) {
    alignas(QX::HeapPlatform) unsigned char room[sizeof(QX::HeapPlatform)];
    auto* const place = reinterpret_cast<QX::HeapPlatform*>(room);
    EXPECT_EQ(new (place) QX::HeapPlatform(QX::HEAP_SECOND, GetProcessHeap()), place);
    place->~HeapPlatform();
    EXPECT_TRUE(HeapFree(GetProcessHeap(), 0, HeapAlloc(GetProcessHeap(), 0, 10)));
}

TEST(Heaps, come_up_once_with_the_process_heap) {
    EXPECT_TRUE(QX::init_heaps() && QX::init_heaps() && QX::init_large_allocations_heap());
    QX::HeapPlatform heap(QX::HEAP_THIRD, nullptr);
    QX::platform_init_heaps(&heap);
    EXPECT_EQ(heap.id(), QX::HEAP_GENERAL);
    EXPECT_EQ(heap.OS_heap(), GetProcessHeap());
    QX::platform_init_heaps(nullptr);
}

// With more heaps than the check has room for, the system hands out none of them.
TEST(VerifyHeaps, prints_the_banner_and_for_all_but_banners_the_duration) {
    std::list<QX::HeapPlatform> heaps;
    for (int i = 0; i < 70; ++i) heaps.emplace_back(QX::HEAP_SECOND, 0, 0);
    for (int option : {0, 1, 2, 3, -1}) {
        std::string const text = printed_by([option] {
            EXPECT_TRUE(QX::verify_heaps(static_cast<QX::VERIFY_HEAP_OPTIONS>(option)));
        });
        bool const is_banner = option == 1 || option == 2;
        std::regex const all("Verifying heaps... : duration [0-9]+ms\n");
        EXPECT_TRUE(is_banner ? text == "Verifying heaps..." : std::regex_match(text, all)) << text;
    }
}

TEST(ReportMessageTxt, formats_any_length) {
    EXPECT_EQ(printed_by([] { MEMORY_TRACKING::report_message_txt("%s %d", "a", -5); }), "a -5");
    for (unsigned int length : {0u, 15u, 16u, 100u, 200000u}) {
        std::string const text(length, 'y');
        std::string const shown = text.substr(0, sizeof printed - 1);
        EXPECT_EQ(
            printed_by([&] { MEMORY_TRACKING::report_message_txt("%s", text.c_str()); }), shown);
    }
}

TEST(MemoryInfo, agrees_with_the_system) {
    MEMORYSTATUSEX status = {};
    status.dwLength = sizeof status;
    GlobalMemoryStatusEx(&status);
    QX::MEMORY_INFO const& info = QX::memory_info();
    EXPECT_EQ(&info, &QX::memory_info());
    EXPECT_EQ(info.total_physical, status.ullTotalPhys);
    EXPECT_EQ(info.total_virtual, status.ullTotalVirtual);
    EXPECT_TRUE(QX::is_RAM_present(0));
    EXPECT_TRUE(QX::is_RAM_present(info.total_physical));
    EXPECT_FALSE(QX::is_RAM_present(info.total_physical + 1));
    EXPECT_TRUE(QX::is_greater_2gb_addressable());
}

DWORD cache_flags;
BOOL WINAPI cache_size(SIZE_T* minimum, SIZE_T* maximum, DWORD* flags) {
    EXPECT_EQ(*flags, 5u);
    *minimum = 111;
    *maximum = 222;
    *flags = cache_flags;
    return TRUE;
}

TEST(MemoryInfo, gives_only_cache_limits_that_are_enforced) {
    test::StandIn const system("GetSystemFileCacheSize", cache_size);
    ASSERT_TRUE(system.found());
    for (DWORD flags : {0u, 1u, 4u, 5u, 10u}) {
        cache_flags = flags;
        QX::CURRENT_MEMORY_INFO const info = QX::current_memory_info();
        EXPECT_EQ(info.minimum_file_cache, flags & 4 ? 111u : 0u);
        EXPECT_EQ(info.maximum_file_cache, flags & 1 ? 222u : 0u);
        EXPECT_GT(info.available_physical, 0u);
    }
}
