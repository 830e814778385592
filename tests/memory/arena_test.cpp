#include "qx/memory/arena.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "qx/memory/arena_bins_impl.h"
#include "qx/memory/heap.h"
#include "tests/harness/stand_in.h"
#include "tests/memory/block_model.h"

namespace {

using QX::arena::statistics;
using QX::arena::validate;

QX::HeapPlatform heap(QX::HEAP_SECOND, nullptr);

void* take(unsigned long long size) {
    return QX::custom_malloc(size, QX::HEAP_GENERAL);
}

unsigned long long head_of(void* block) {
    return static_cast<unsigned long long*>(block)[-1];
}

// The chunk's size: what the arena padded the request to.
unsigned long long chunk_size(void* block) {
    return head_of(block) & ~7ull;
}

// `count` blocks that lie one behind the other, the caller's to release.
std::vector<void*> run_of(unsigned long long size, unsigned int count) {
    std::vector<void*> run(count);
    for (void*& block : run) block = take(size);
    auto const is_gap = [](void* a, void* b) { return static_cast<char*>(a) + chunk_size(a) != b; };
    if (std::adjacent_find(run.begin(), run.end(), is_gap) == run.end()) return run;
    std::vector<void*> const later = run_of(size, count);
    for (void* block : run) QX::custom_free(block);
    return later;
}

TEST(Arena, knows_when_a_released_block_was_written_to) {
    std::vector<void*> const run = run_of(200, 3);
    char* const released = static_cast<char*>(run[1]);
    QX::custom_free(released);
    EXPECT_TRUE(validate());
    for (int const at : {-8, 192}) {  // its flags, and its size behind it
        released[at] ^= 1;
        EXPECT_FALSE(validate());
        released[at] ^= 1;
    }
#if defined(QX_CHECKS)
    EXPECT_EQ(std::count(released + 16, released + 192, '\xDD'), 192 - 16);  // behind its links
#endif
    for (void* block : {run[0], run[2]}) QX::custom_free(block);
}

TEST(Arena, maps_a_request_of_256_KiB_by_itself_and_unmaps_it) {
    auto const before = statistics();
    void* const below = take(262144 - 64);
    char* direct = static_cast<char*>(take(262144));
    EXPECT_TRUE(head_of(below) & 2 && reinterpret_cast<std::uintptr_t>(direct) % 65536 == 16);
    EXPECT_EQ(statistics().blocks_in_use, before.blocks_in_use + 2);
    std::memset(direct, 'd', 200);
    EXPECT_EQ(heap.realloc(direct, 250000).first, direct);
    char* const grown = static_cast<char*>(heap.realloc(direct, 900000).first);
    char* const shrunk = static_cast<char*>(heap.realloc(grown, 200).first);
    EXPECT_EQ(VirtualAlloc(grown - 16, 65536, MEM_COMMIT, PAGE_READWRITE), nullptr) << "gone";
    EXPECT_EQ(std::count(shrunk, shrunk + 200, 'd'), 200);
    heap.free(shrunk);
    QX::custom_free(below);
    EXPECT_EQ(statistics().blocks_in_use, before.blocks_in_use);
    EXPECT_TRUE(validate());
}

TEST(Arena, gives_back_what_the_top_holds_above_two_megabytes) {
    std::vector<void*> blocks(600);
    for (void*& block : blocks) block = take(16000);
    unsigned long long const most = statistics().footprint;
    for (; !blocks.empty(); blocks.pop_back()) {
        unsigned long long const held = statistics().footprint;
        QX::custom_free(blocks.back());
        EXPECT_LE(held - statistics().footprint, 1u << 20);  // the rest stays for the next batch
    }
    EXPECT_LT(statistics().footprint, most);  // how much goes lies with where mappings begin
    EXPECT_GE(statistics().peak_footprint, most);
}

TEST(Arena, resizes_in_place_where_the_neighbour_is_free) {
    std::vector<void*> const run = run_of(40000, 4);
    QX::custom_free(run[1]);
    char* const block = static_cast<char*>(run[0]);
    std::memset(block, 7, 40000);
    for (unsigned long long size : {60000, 79000, 80000, 100, 40000, 40016, 50, 0}) {
        EXPECT_EQ(heap.realloc(block, size).first, block);
        EXPECT_GE(chunk_size(block), size + 8);
        EXPECT_TRUE(validate());
    }
    char* const moved = static_cast<char*>(heap.realloc(block, 81000).first);
    EXPECT_NE(moved, block);
    EXPECT_EQ(moved[7], 7);
    for (void* rest : {run[2], run[3], static_cast<void*>(moved)}) heap.free(rest);
}

TEST(Arena, refuses_what_no_heap_can_serve_and_keeps_the_old_block) {
    void* const block = heap.malloc(50).first;
    std::pair<void*, QX::HeapPlatform*> const nothing;
    for (unsigned long long size : {1ull << 62, ~0ull - 128, ~0ull - 127, ~0ull}) {
        EXPECT_EQ(heap.malloc(size), nothing);
        EXPECT_EQ(heap.realloc(block, size), nothing);
    }
    heap.free(block);
    EXPECT_TRUE(validate());
}

TEST(Arena, ignores_pointers_that_are_not_its_blocks) {
    alignas(16) unsigned char on_stack[256] = {};
    char* const block = static_cast<char*>(take(4096));
    void* const direct = take(300000);
    QX::custom_free(direct);
    auto const before = statistics();
    for (void* stranger : {direct, static_cast<void*>(on_stack + 64), reinterpret_cast<void*>(32)})
        QX::custom_free(stranger);
    for (int const fill : {0x00, 0xCA, 0xFF}) {
        std::memset(block, fill, 4096);
        for (unsigned int at : {1u, 16u, 1001u, 2048u}) QX::custom_free(block + at);
        EXPECT_EQ(heap.realloc(block + 64, 100).first, nullptr);
    }
    EXPECT_EQ(statistics().blocks_in_use, before.blocks_in_use);
    EXPECT_TRUE(validate());
    QX::custom_free(block);
}

// The head of a chunk that joined the free one in front stays as it was.
TEST(Arena, ignores_a_second_release_also_of_a_chunk_that_was_joined_to_another) {
    for (unsigned long long const size : {64ull, 1000ull}) {
        std::vector<void*> const run = run_of(size, 4);
        for (unsigned int i : {0, 0, 1, 1}) QX::custom_free(run[i]);
        EXPECT_TRUE(validate()) << size;
        EXPECT_EQ(heap.realloc(run[1], 2 * size).first, nullptr);
        void* const a = take(size);
        void* const b = take(size);
        EXPECT_NE(a, b);
        EXPECT_TRUE(validate()) << size;
        for (void* block : {a, b, run[2], run[3]}) QX::custom_free(block);
    }
}

TEST(Arena, leaves_corrupt_links_as_they_are) {
    using namespace QX::arena;
    alignas(16) Chunk chunks[3] = {};
    State s;
    s.least_address = reinterpret_cast<std::uintptr_t>(chunks);
    s.small_map = 0;
    s.small_bins[4] = {&s.small_bins[4], &s.small_bins[4]};
    for (Chunk& chunk : chunks) insert_small_chunk(s, &chunk, 32);
    chunks[1].link.previous = reinterpret_cast<Link*>(8);
    unlink_small_chunk(s, &chunks[1], 32);
    EXPECT_EQ(s.small_bins[4].next, &chunks[2].link);
    EXPECT_EQ(chunks[0].link.previous, &chunks[1].link);
    EXPECT_EQ(take_first_small(s, 4), &chunks[2]);
    EXPECT_EQ(s.small_bins[4].next, &chunks[2].link);
}

TEST(Arena, keeps_every_block_whole_through_random_steps_of_many_threads) {
    std::vector<std::thread> threads;
    for (unsigned int n = 0; n < 3; ++n) {
        threads.emplace_back([n] {
            test::BlockModel<> model(100 + n);
            for (int i = 0; i < 40000; ++i) ASSERT_TRUE(model.step());
        });
    }
    test::BlockModel<> model(1);
    for (int i = 0; i < 100000; ++i) ASSERT_TRUE(model.step() && (i % 2500 || validate()));
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(validate());
}

// --- A system that hands out its room in no order ------------------------------------------------

constexpr std::size_t granule = 65536;

// The program's own import: stand-ins replace the library's.
auto* const system_alloc = &VirtualAlloc;

char* room;
std::string const none(2000, '0');
std::string taken = none;  // '1' for each granule that is
unsigned int segments;

// Looks upwards or downwards from a random granule, so that segments meet on either side or not.
void* alloc_in_room(void* place, SIZE_T size, DWORD kind, DWORD access) {
    if (kind & MEM_TOP_DOWN) return system_alloc(place, size, kind, access);  // of one block
    static test::Random random(77);
    std::string_view const wanted = std::string_view(none).substr(0, size / granule);
    std::size_t const from = random.below(static_cast<unsigned int>(taken.size()));
    bool const upwards = random.chance(2);
    std::size_t at = upwards ? taken.find(wanted, from) : taken.rfind(wanted, from);
    if (at == std::string::npos) at = taken.find(wanted);
    if (at == std::string::npos) return nullptr;
    taken.replace(at, wanted.size(), wanted.size(), '1');
    ++segments;
    return system_alloc(room + at * granule, size, MEM_COMMIT, PAGE_READWRITE);
}

TEST(ArenaSystem, joins_and_separates_segments_wherever_they_fall) {
    // It stays reserved: pieces of it are no mappings of their own, so none is given back.
    room = static_cast<char*>(VirtualAlloc(nullptr, 2000 * granule, MEM_RESERVE, 4));
    test::StandIn const stand_in("VirtualAlloc", alloc_in_room);
    {
        test::BlockModel<> model(5);
        for (int i = 0; i < 120000; ++i) ASSERT_TRUE(model.step() && (i % 3000 || validate()));
    }
    EXPECT_TRUE(validate());
    EXPECT_GT(segments, 20u);
}

TEST(ArenaSystem, stays_whole_where_the_system_refuses) {
    std::vector<void*> blocks = {take(20000)};
    blocks.reserve(1000);
    test::StandIn const system(
        "VirtualAlloc", +[](void*, SIZE_T, DWORD, DWORD) -> void* { return nullptr; });
    EXPECT_THROW(while (true) blocks.push_back(take(20000)), std::bad_alloc);
    EXPECT_TRUE(validate());
    std::memset(blocks.back(), 5, 20000);
    EXPECT_EQ(heap.realloc(blocks.back(), 250000).first, nullptr);
    EXPECT_EQ(static_cast<char*>(blocks.back())[19999], 5);
    for (void* block : blocks) QX::custom_free(block);
    EXPECT_TRUE(validate());
}

}  // namespace
