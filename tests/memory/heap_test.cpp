#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>
#include <list>

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

Seen seen[16];
unsigned int seen_count;

void note(void const* block, unsigned int size) {
    if (seen_count < 16) seen[seen_count] = {block, size};
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
char const* printed_by(Work work) {
    test::StandIn const debugger("OutputDebugStringA", note_text);
    printed[0] = 0;
    EXPECT_TRUE(debugger.found());
    work();
    return printed;
}

unsigned char byte_of(void* block, unsigned int index) {
    return static_cast<unsigned char*>(block)[index];
}

}  // namespace

TEST(CustomMalloc, gives_zero_bytes_a_block_of_their_own) {
    void* const a = QX::custom_malloc(0, QX::HEAP_GENERAL);
    void* const b = QX::custom_malloc(0, static_cast<QX::HEAPS>(99));
    EXPECT_NE(a, b);
    QX::custom_free(a);
    QX::custom_free(b);
}

TEST(CustomMalloc, shows_the_hook_each_block_and_its_end_but_no_null) {
    Hook const hook;
    void* const block = QX::custom_malloc(33, QX::HEAP_THIRD);
    QX::custom_free(block);
    QX::custom_free(nullptr);
    ASSERT_EQ(seen_count, 2u);
    EXPECT_EQ(seen[0].block, block);
    EXPECT_EQ(seen[0].size, 33u);
    EXPECT_EQ(seen[1].block, block);
    EXPECT_EQ(seen[1].size, 0u);
}

TEST(CustomMalloc, throws_bad_alloc_with_its_own_text) {
    try {
        QX::custom_malloc(~0ull, QX::HEAP_GENERAL);
        FAIL();
    } catch (std::bad_alloc const& failure) {
        EXPECT_STREQ(failure.what(), "bad allocation");
    }
}

TEST(CustomMalloc, fills_its_blocks_and_those_of_no_heap_object) {
    QX::change_alloc_clear_val(0);
    QX::HeapPlatform heap(QX::HEAP_SECOND, nullptr);
    void* block = QX::custom_malloc(200, QX::HEAP_GENERAL);
    std::memset(block, 1, 200);
    QX::custom_free(block);
    EXPECT_EQ(byte_of(block = QX::custom_malloc(200, QX::HEAP_GENERAL), 100), 1);
    QX::enable_alloc_clear();
    void* const zeroed = QX::custom_malloc(200, QX::HEAP_GENERAL);
    for (unsigned int i = 0; i < 200; ++i) ASSERT_EQ(byte_of(zeroed, i), 0);
    QX::change_alloc_clear_val(0x5A);
    QX::custom_free(block);
    block = heap.malloc(200).first;
    EXPECT_EQ(byte_of(block, 100), 1);
    heap.free(block);
    block = QX::custom_malloc(200, QX::HEAP_GENERAL);
    EXPECT_EQ(byte_of(block, 199), 0x5A);
    QX::custom_free(block);
    QX::custom_free(zeroed);
}

TEST(CustomMalloc, fills_with_0xCA_unless_told_otherwise) {
    QX::enable_alloc_clear();
    void* const block = QX::custom_malloc(70, QX::HEAP_GENERAL);
    for (unsigned int i = 0; i < 70; ++i) ASSERT_EQ(byte_of(block, i), 0xCA);
    QX::custom_free(block);
}

TEST(MallocAligned, rounds_to_any_alignment_from_four) {
    struct Row {
        unsigned int alignment, step;
    };
    Row const rows[] = {{0, 4}, {2, 4}, {4, 4}, {8, 8}, {24, 24}, {7, 7}, {100, 100}, {4096, 4096}};
    for (Row const& row : rows) {
        Hook const hook;
        void* const block = QX::malloc_aligned(100, row.alignment, QX::HEAP_GENERAL);
        std::uintptr_t const place = reinterpret_cast<std::uintptr_t>(block);
        EXPECT_EQ(place % row.step, 0u) << row.alignment;
        EXPECT_EQ(seen[0].size, 100 + 8 + row.step);
        void* base;
        std::memcpy(&base, static_cast<char*>(block) - 8, sizeof base);
        EXPECT_EQ(base, seen[0].block);
        std::uintptr_t const end = reinterpret_cast<std::uintptr_t>(base) + 8 + row.step;
        EXPECT_EQ(place, end / row.step * row.step);
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
    EXPECT_NE(heap.OS_heap(), nullptr);
    auto const [block, owner] = heap.malloc(50);
    EXPECT_EQ(owner, &heap);
    EXPECT_FALSE(HeapValidate(heap.OS_heap(), 0, block));
    heap.free(heap.realloc(block, 5000).first);
    heap.free(nullptr);
    EXPECT_EQ(seen_count, 0u);
}

TEST(HeapPlatform, sums_the_busy_blocks_of_the_system_heap) {
    QX::HeapPlatform heap(QX::HEAP_SECOND, 0, 0);
    unsigned int const before = heap.calculate_current_size();
    void* const block = HeapAlloc(heap.OS_heap(), 0, 5000);
    EXPECT_GE(heap.calculate_current_size(), before + 5000);
    HeapFree(heap.OS_heap(), 0, block);
    EXPECT_EQ(QX::HeapPlatform(QX::HEAP_SECOND, nullptr).calculate_current_size(), 0u);
}

HANDLE WINAPI no_heap(DWORD, SIZE_T, SIZE_T) {
    return nullptr;
}

TEST(HeapPlatform, stays_usable_where_no_system_heap_is_to_be_had) {
    test::StandIn const system("HeapCreate", no_heap);
    QX::HeapPlatform heap(QX::HEAP_SECOND, 4096, 0);
    EXPECT_EQ(heap.OS_heap(), nullptr);
    void* const block = heap.malloc(10).first;
    EXPECT_NE(block, nullptr);
    heap.free(block);
}

TEST(HeapPlatform, leaves_the_process_heap_alive_and_builds_in_place) {
    alignas(QX::HeapPlatform) unsigned char room[sizeof(QX::HeapPlatform)];
    auto* const place = reinterpret_cast<QX::HeapPlatform*>(room);
    QX::HeapPlatform* const heap = new (place) QX::HeapPlatform(QX::HEAP_SECOND, GetProcessHeap());
    EXPECT_EQ(heap, place);
    heap->~HeapPlatform();
    void* const block = HeapAlloc(GetProcessHeap(), 0, 10);
    EXPECT_TRUE(HeapFree(GetProcessHeap(), 0, block));
}

// With more heaps than the check has room for, the system hands out none of them.
TEST(HeapPlatform, may_be_more_than_the_check_looks_at) {
    std::list<QX::HeapPlatform> heaps;
    for (int i = 0; i < 70; ++i) heaps.emplace_back(QX::HEAP_SECOND, 0, 0);
    EXPECT_TRUE(QX::verify_heaps(QX::VERIFY_HEAP_FULL));
}

TEST(Heaps, come_up_once_with_the_process_heap) {
    EXPECT_TRUE(QX::init_heaps());
    EXPECT_TRUE(QX::init_heaps());
    EXPECT_TRUE(QX::init_large_allocations_heap());
    QX::HeapPlatform heap(QX::HEAP_THIRD, nullptr);
    QX::platform_init_heaps(&heap);
    EXPECT_EQ(heap.id(), QX::HEAP_GENERAL);
    EXPECT_EQ(heap.OS_heap(), GetProcessHeap());
    QX::platform_init_heaps(nullptr);
}

TEST(VerifyHeaps, prints_the_banner_and_for_all_but_banners_the_duration) {
    std::string const banner = "Verifying heaps...";
    for (int option : {1, 2}) {
        auto const verify = [option] {
            EXPECT_TRUE(QX::verify_heaps(static_cast<QX::VERIFY_HEAP_OPTIONS>(option)));
        };
        EXPECT_EQ(printed_by(verify), banner);
    }
    for (int option : {0, 3, -1}) {
        std::string const text = printed_by([option] {
            EXPECT_TRUE(QX::verify_heaps(static_cast<QX::VERIFY_HEAP_OPTIONS>(option)));
        });
        unsigned int ms = 0;
        int used = 0;
        std::sscanf(text.c_str(), "Verifying heaps... : duration %ums\n%n", &ms, &used);
        EXPECT_EQ(used, static_cast<int>(text.size())) << text;
    }
}

TEST(ReportMessageTxt, formats_any_length) {
    EXPECT_STREQ(printed_by([] { MEMORY_TRACKING::report_message_txt("%s %d", "a", -5); }), "a -5");
    EXPECT_STREQ(printed_by([] { MEMORY_TRACKING::report_message_txt("%s", ""); }), "");
    std::string const text(100, 'x');
    EXPECT_EQ(printed_by([&] { MEMORY_TRACKING::report_message_txt("%s", text.c_str()); }), text);
    std::string const longer(200000, 'y');
    EXPECT_EQ(
        std::strlen(printed_by([&] { MEMORY_TRACKING::report_message_txt("%s", longer.c_str()); })),
        sizeof printed - 1);
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
