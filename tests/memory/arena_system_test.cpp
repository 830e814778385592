#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "qx/base/windows.h"
#include "qx/memory/arena.h"
#include "qx/memory/heap.h"
#include "tests/harness/stand_in.h"
#include "tests/memory/arena_model.h"

namespace {

constexpr std::size_t granule = 65536;
constexpr DWORD segment_flags = 0x3000;
constexpr DWORD direct_flags = 0x103000;

// The program's own import: stand-ins replace the library's.
auto* const system_alloc = &VirtualAlloc;

// --- A system that hands out its room in no order ------------------------------------------------

struct Room {
    // It stays reserved: pieces of it are no mappings of their own, so none is given back.
    char* base = static_cast<char*>(VirtualAlloc(nullptr, 2000 * granule, MEM_RESERVE, 4));
    std::string const none = std::string(2000, '0');
    std::string taken = none;  // '1' for each granule that is
    unsigned int segments = 0;
    bool flags_are_right = true;
    test::Random random{77};
};

Room* room;

// Looks upwards or downwards from a random granule, so that segments meet on either side or not.
void* alloc_in_room(void* place, SIZE_T size, DWORD kind, DWORD access) {
    if (kind == direct_flags) return system_alloc(place, size, kind, access);
    if (kind != segment_flags || size % granule != 0) room->flags_are_right = false;
    std::string_view const wanted = std::string_view(room->none).substr(0, size / granule);
    std::size_t const from = room->random.below(static_cast<unsigned int>(room->taken.size()));
    bool const upwards = room->random.chance(2);
    std::size_t at = upwards ? room->taken.find(wanted, from) : room->taken.rfind(wanted, from);
    if (at == std::string::npos) at = room->taken.find(wanted);
    if (at == std::string::npos) return nullptr;
    room->taken.replace(at, wanted.size(), wanted.size(), '1');
    ++room->segments;
    return system_alloc(room->base + at * granule, size, MEM_COMMIT, PAGE_READWRITE);
}

}  // namespace

TEST(ArenaSystem, joins_and_separates_segments_wherever_they_fall) {
    Room own;
    room = &own;
    test::StandIn const stand_in("VirtualAlloc", alloc_in_room);
    {
        test::ArenaModel model(5);
        for (int round = 0; round < 40; ++round) {
            for (int i = 0; i < 3000; ++i) ASSERT_TRUE(model.step());
            ASSERT_TRUE(QX::arena::validate());
        }
    }
    EXPECT_TRUE(QX::arena::validate());
    EXPECT_TRUE(own.flags_are_right);
    EXPECT_GT(own.segments, 20u);
}

TEST(ArenaSystem, stays_whole_where_the_system_refuses) {
    QX::HeapPlatform heap(QX::HEAP_SECOND, nullptr);
    std::vector<void*> blocks = {QX::custom_malloc(20000, QX::HEAP_GENERAL)};
    blocks.reserve(1000);
    test::StandIn const system(
        "VirtualAlloc", +[](void*, SIZE_T, DWORD, DWORD) -> void* { return nullptr; });
    EXPECT_THROW(
        while (true) blocks.push_back(QX::custom_malloc(20000, QX::HEAP_GENERAL)), std::bad_alloc);
    EXPECT_TRUE(QX::arena::validate());
    std::memset(blocks.back(), 5, 20000);
    EXPECT_EQ(heap.realloc(blocks.back(), 250000).first, nullptr);
    EXPECT_EQ(static_cast<char*>(blocks.back())[19999], 5);
    for (void* block : blocks) QX::custom_free(block);
    EXPECT_TRUE(QX::arena::validate());
}
