#include "qx/files/pack_file.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <algorithm>
#include <map>
#include <string>

#include "tests/files/late_completion.h"
#include "tests/harness/pack_builder.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::AsyncPackFile;
using QX::MemPackFile;
using test::build_pack;
using test::PackRecipe;

PackRecipe three_files() {
    PackRecipe recipe;
    recipe.entries = {{"maps\\one.txt", "first"}, {"empty", ""}, {"b", std::string(700, 'B')}};
    return recipe;
}

std::map<std::string, std::string> map_of(PackRecipe const& recipe) {
    return {recipe.entries.begin(), recipe.entries.end()};
}

struct alignas(4096) Memory {
    char bytes[4096] = {};
};

// Name to bytes, as the pack's own enumeration and data tell.
std::map<std::string, std::string> contents(MemPackFile const& pack) {
    std::map<std::string, std::string> found;
    pack.enumerate(
        [](MemPackFile const& in, char const* name, unsigned int offset, unsigned int size,
           void* user) {
            EXPECT_EQ(in.info(name)->offset, offset);
            EXPECT_EQ(in.size(name), size);
            auto& map = *static_cast<std::map<std::string, std::string>*>(user);
            EXPECT_TRUE(map.emplace(name, std::string(in.data(name), size)).second);
        },
        &found);
    return found;
}

// The same by one synchronous read an entry.
std::map<std::string, std::string> contents(AsyncPackFile& pack) {
    std::map<std::string, std::string> found;
    pack.enumerate(
        [](AsyncPackFile const& in, char const* name, unsigned int, unsigned int size, void* user) {
            static Memory memory;
            auto& reader = const_cast<AsyncPackFile&>(in);
            unsigned int const whole = (size + 511) / 512 * 512;
            if (whole) {
                EXPECT_TRUE(reader.read(memory.bytes, name, 0, whole, nullptr, nullptr));
                EXPECT_EQ(in.status(), QX::FILE_OK);
            }
            auto& map = *static_cast<std::map<std::string, std::string>*>(user);
            EXPECT_TRUE(map.emplace(name, std::string(memory.bytes, size)).second);
        },
        &found);
    return found;
}

template <typename Pack>
class BothPacks : public testing::Test {};
using PackTypes = testing::Types<AsyncPackFile, MemPackFile>;
TYPED_TEST_SUITE(BothPacks, PackTypes);

TYPED_TEST(BothPacks, give_every_entry_by_its_exact_name) {
    test::TempFolder folder;
    for (unsigned short const key : {0, 1, 0xFFFF}) {
        PackRecipe recipe = three_files();
        recipe.key = key;
        TypeParam pack;
        ASSERT_TRUE(pack.open(folder.write("p", build_pack(recipe)).c_str(), key));
        EXPECT_EQ(pack.count(), 3u);
        EXPECT_EQ(pack.aligned(), 512u);
        EXPECT_EQ(contents(pack), map_of(recipe));
        EXPECT_EQ(pack.size("b"), 700u);
        EXPECT_EQ(pack.size("B"), 0xFFFFFFFFu);
        EXPECT_FALSE(pack.contains("maps/one.txt"));
        EXPECT_TRUE(pack.close());
        EXPECT_EQ(pack.info("b"), nullptr);
        EXPECT_EQ(pack.count(), 0u);
    }
}

TYPED_TEST(BothPacks, open_an_empty_pack_and_close_it_well) {
    test::TempFolder folder;
    std::string const path = folder.write("p", build_pack({.entries = {}, .pad_end = false}));
    TypeParam pack;
    ASSERT_TRUE(pack.open(path.c_str(), 0));
    EXPECT_EQ(pack.count(), 0u);
    EXPECT_FALSE(pack.contains(""));
    ASSERT_TRUE(pack.open(path.c_str(), 0));
    EXPECT_TRUE(pack.close());
}

TYPED_TEST(BothPacks, of_equal_names_the_last_wins) {
    test::TempFolder folder;
    PackRecipe recipe;
    recipe.entries = {{"a", "old"}, {"b", "x"}, {"a", "newer"}};
    TypeParam pack;
    ASSERT_TRUE(pack.open(folder.write("p", build_pack(recipe)).c_str(), 0));
    EXPECT_EQ(pack.count(), 2u);
    EXPECT_EQ(pack.info("a")->offset, 1536u);
    EXPECT_EQ(pack.size("a"), 5u);
}

TYPED_TEST(BothPacks, refuse_what_is_no_whole_pack) {
    test::TempFolder folder;
    std::string const good = build_pack(three_files());
    auto const opens = [&](std::string const& bytes, unsigned short key = 0) {
        TypeParam pack;
        bool const opened = pack.open(folder.write("p", bytes).c_str(), key);
        EXPECT_TRUE(opened || (!pack.table() && !pack.names()));
        return opened;
    };
    EXPECT_FALSE(opens(good, 7));
    for (char const* start : {"pAK2", "PAC2", "PAK3", "PAK/", "PAK\xB2"})
        EXPECT_FALSE(opens(start + good.substr(4))) << start;
    // Everything before the end of the last entry's bytes has to be there.
    for (std::size_t size = 0; size < 1024 + 700; size += size < 64 ? 1 : 61)
        EXPECT_FALSE(opens(good.substr(0, size))) << size;
    EXPECT_TRUE(opens(good.substr(0, 1024 + 700)));
}

// Whatever is opened keeps its promises: entries inside the file, names that are found again.
template <typename Pack>
bool keeps_its_promises(std::string const& path, unsigned long long file_size) {
    Pack pack;
    if (!pack.open(path.c_str(), 0)) return false;
    for (QX::PackTable::Slot const& slot : *pack.table()) {
        if (!slot.name) continue;
        EXPECT_EQ(pack.info(slot.name), &slot.entry);
        unsigned long long const end = slot.entry.offset + 0ull + slot.entry.size;
        EXPECT_TRUE(slot.entry.size == 0 || end <= file_size);
    }
    return true;
}

TYPED_TEST(BothPacks, bear_every_change_of_one_byte_in_the_index) {
    test::TempFolder folder;
    std::string const good = build_pack(three_files());
    unsigned int opened = 0;
    for (std::size_t at = 0; at < 16 + 21 + 12; ++at) {
        for (int const change : {0x01, 0x40, 0x80, 0xFF}) {
            std::string bytes = good;
            bytes[at] = static_cast<char>(bytes[at] ^ change);
            opened += keeps_its_promises<TypeParam>(folder.write("p", bytes), bytes.size());
        }
    }
    EXPECT_GT(opened, 21u);   // most changes of names
    EXPECT_LT(opened, 146u);  // few of numbers
}

TYPED_TEST(BothPacks, come_out_closed_when_memory_runs_out) {
    test::TempFolder folder;
    for (unsigned short const key : {0, 9}) {
        PackRecipe recipe = three_files();
        recipe.key = key;
        std::string const path = folder.write("p", build_pack(recipe));
        bool fired = true;
        for (unsigned int nth = 1; fired; ++nth) {
            TypeParam pack;
            test::FailingAllocation const failing(nth);
            bool const opened = pack.open(path.c_str(), key);
            fired = failing.fired();
            EXPECT_EQ(opened, !fired);
            EXPECT_EQ(pack.table() != nullptr, opened);
        }
    }
}

TEST(AsyncPackFile, opens_wide_names_and_the_mapped_pack_refuses_them) {
    test::TempFolder folder;
    for (unsigned short const key : {0, 77}) {
        PackRecipe recipe = three_files();
        recipe.version = '1';
        recipe.key = key;
        for (char c = 'a'; c <= 'z'; ++c) recipe.entries.emplace_back(std::string(2999, c), "x");
        std::string const path = folder.write("p", build_pack(recipe));
        AsyncPackFile pack;
        ASSERT_TRUE(pack.open(path.c_str(), key));
        EXPECT_EQ(contents(pack), map_of(recipe));
        EXPECT_FALSE(MemPackFile().open(path.c_str(), key));
    }
}

DWORD sector_size;

BOOL WINAPI tell_sector_size(LPCSTR, LPDWORD a, LPDWORD size, LPDWORD b, LPDWORD c) {
    *a = *b = *c = 1;
    *size = sector_size;
    return sector_size != 0;
}

TEST(AsyncPackFile, tests_its_alignment_against_the_drives_sectors) {
    struct Row {
        char version;
        unsigned int alignment;
        DWORD sector;
        bool opens;
    };
    test::StandIn const disk("GetDiskFreeSpaceA", tell_sector_size);
    test::TempFolder folder;
    for (Row const& row :
         {Row{'2', 4096, 512, true},
          {'2', 512, 4096, false},
          {'2', 1, 512, false},
          {'0', 1, 512, false},
          {'0', 1, 1, false},
          {'2', 8, 1, true},
          {'2', 512, 0, false}}) {
        sector_size = row.sector;
        std::fill_n(QX::AsyncInPlatform::alignments, 27, 0);
        PackRecipe recipe = three_files();
        recipe.version = row.version;
        recipe.alignment = row.alignment;
        std::string const path = folder.write("p", build_pack(recipe));
        EXPECT_EQ(AsyncPackFile().open(path.c_str(), 0), row.opens)
            << row.version << row.alignment << " " << row.sector;
        EXPECT_EQ(MemPackFile().open(path.c_str(), 0), row.version == '2');
    }
}

struct Seen {
    unsigned int calls = 0;
    char* next = nullptr;
};

void note(AsyncPackFile& pack, void* user) {
    auto& seen = *static_cast<Seen*>(user);
    ++seen.calls;
    EXPECT_EQ(pack.pending_callback(), nullptr);
    EXPECT_TRUE(pack.contains("b"));
    char* const next = std::exchange(seen.next, nullptr);
    EXPECT_TRUE(!next || pack.read(next, "b", 512, 512, note, user));
}

TEST(AsyncPackFile, refuses_a_second_read_and_does_not_disturb_the_first) {
    test::TempFolder folder;
    AsyncPackFile pack;
    ASSERT_TRUE(pack.open(folder.write("p", build_pack(three_files())).c_str(), 0));
    test::LateCompletion const late(30);
    Memory first, second;
    Seen seen, other;
    ASSERT_TRUE(pack.read(first.bytes, "b", 0, 512, note, &seen));
    EXPECT_FALSE(pack.read(second.bytes, "b", 0, 512, note, &other));
    EXPECT_FALSE(pack.read(second.bytes, 0, 512, nullptr, nullptr));
    EXPECT_EQ(pack.status(), QX::FILE_PENDING);
    while (seen.calls == 0) SleepEx(100, TRUE);
    EXPECT_EQ(other.calls, 0u);
    EXPECT_EQ(late.begun, 1u);
    EXPECT_EQ(std::string(first.bytes, 512), std::string(512, 'B'));
    EXPECT_EQ(second.bytes[0], 0);
    EXPECT_FALSE(pack.read(second.bytes, "absent", 0, 512, note, &other));
}

TEST(AsyncPackFile, close_returns_after_the_callback_and_the_read_that_it_started) {
    test::TempFolder folder;
    std::string const path = folder.write("p", build_pack(three_files()));
    for (bool const by_destructor : {false, true}) {
        test::LateCompletion const late(20);
        Memory memory;
        Seen seen;
        seen.next = memory.bytes + 512;
        {
            AsyncPackFile pack;
            ASSERT_TRUE(pack.open(path.c_str(), 0));
            ASSERT_TRUE(pack.read(memory.bytes, "b", 0, 512, note, &seen));
            EXPECT_TRUE(by_destructor || pack.close());
        }
        EXPECT_EQ(seen.calls, 2u);
        EXPECT_EQ(late.delivered, 2u);
        EXPECT_EQ(std::string(memory.bytes, 700), std::string(700, 'B'));
    }
}

BOOL WINAPI refuse(HANDLE, LPVOID, DWORD, LPOVERLAPPED, LPOVERLAPPED_COMPLETION_ROUTINE) {
    SetLastError(87);
    return FALSE;
}

TEST(AsyncPackFile, closes_after_a_read_that_the_system_refused) {
    test::TempFolder folder;
    AsyncPackFile pack;
    ASSERT_TRUE(pack.open(folder.write("p", build_pack(three_files())).c_str(), 0));
    Memory memory;
    Seen seen;
    test::StandIn const read("ReadFileEx", refuse);
    EXPECT_FALSE(pack.read(memory.bytes, "b", 1, 2, note, &seen));
    EXPECT_EQ(pack.status(), QX::FILE_INVALID_PARAMETER);
    EXPECT_TRUE(pack.close());
    EXPECT_EQ(seen.calls, 0u);
}

TEST(MemPackFile, points_into_its_mapping_and_stands_behind_its_index) {
    test::TempFolder folder;
    PackRecipe recipe = three_files();
    recipe.alignment = 1;
    MemPackFile pack;
    ASSERT_TRUE(pack.open(folder.write("p", build_pack(recipe)).c_str(), 0));
    EXPECT_EQ(pack.names(), pack.first() + 16);
    EXPECT_EQ(pack.tell(), 16u + 21 + 12);
    EXPECT_EQ(pack.data("maps\\one.txt"), pack.pos());
    EXPECT_EQ(pack.data("absent"), nullptr);
}

}  // namespace
