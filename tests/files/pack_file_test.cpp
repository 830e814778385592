#include "qx/files/pack_file.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <algorithm>
#include <map>
#include <string>

#include "tests/files/late_completion.h"
#include "tests/harness/pack_builder.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/random.h"
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
        std::map<std::string, std::string> const expected(
            recipe.entries.begin(), recipe.entries.end());
        EXPECT_EQ(contents(pack), expected);
        EXPECT_EQ(pack.size("b"), 700u);
        EXPECT_EQ(pack.size("B"), 0xFFFFFFFFu);
        EXPECT_FALSE(pack.contains("maps/one.txt"));
        EXPECT_EQ(pack.info("maps\\one.txt")->offset, 512u);
        EXPECT_EQ(pack.info(""), nullptr);
        EXPECT_TRUE(pack.close());
        EXPECT_EQ(pack.info("b"), nullptr);
        EXPECT_EQ(pack.count(), 0u);
    }
}

TYPED_TEST(BothPacks, open_an_empty_pack_and_close_it_well) {
    test::TempFolder folder;
    PackRecipe recipe;
    recipe.pad_end = false;
    std::string const path = folder.write("p", build_pack(recipe));
    TypeParam pack;
    ASSERT_TRUE(pack.open(path.c_str(), 0));
    EXPECT_EQ(pack.size64(), 16u);
    EXPECT_EQ(pack.count(), 0u);
    EXPECT_FALSE(pack.contains(""));
    EXPECT_FALSE(pack.contains("any"));
    EXPECT_TRUE(pack.close());
    ASSERT_TRUE(pack.open(path.c_str(), 0));
    ASSERT_TRUE(pack.open(path.c_str(), 0));
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
        EXPECT_EQ(pack.table() != nullptr, opened);
        EXPECT_EQ(pack.names() != nullptr, opened);
        return opened;
    };
    EXPECT_TRUE(opens(good));
    EXPECT_FALSE(opens(good, 7));
    for (char const* start : {"pAK2", "PAC2", "PAK3", "PAK/", "PAK\xB2"})
        EXPECT_FALSE(opens(start + good.substr(4))) << start;
    // Everything before the end of the last entry's bytes has to be there.
    for (std::size_t size = 0; size < 1024 + 700; size += size < 64 ? 1 : 61)
        EXPECT_FALSE(opens(good.substr(0, size))) << size;
    EXPECT_TRUE(opens(good.substr(0, 1024 + 700)));
    TypeParam missing;
    EXPECT_FALSE(missing.open(folder.file("missing").c_str(), 0));
}

TYPED_TEST(BothPacks, refuse_sizes_that_lie) {
    test::TempFolder folder;
    struct Row {
        std::size_t at;
        unsigned int number;
    };
    std::size_t const ends = 16 + 21;
    Row const rows[] = {
        {4, 0xFFFFFFFF}, {4, 20},       {4, 2},           {4, 0},           {8, 0xFFFFFFFF},
        {8, 0x3FFFFFFF}, {8, 4},        {8, 0x80000000},  {ends, 511},      {ends, 0xFFFFFFFF},
        {ends + 4, 0},   {ends + 8, 1}, {ends + 8, 3000}, {12, 0x40000000},
    };
    for (Row const& row : rows) {
        std::string bytes = build_pack(three_files());
        test::put_number(bytes, row.at, row.number);
        TypeParam pack;
        EXPECT_FALSE(pack.open(folder.write("p", bytes).c_str(), 0)) << row.at << " " << row.number;
    }
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
        for (int const change : {0x01, 0x80, 0xFF}) {
            std::string bytes = good;
            bytes[at] = static_cast<char>(bytes[at] ^ change);
            opened += keeps_its_promises<TypeParam>(folder.write("p", bytes), bytes.size());
        }
    }
    EXPECT_GT(opened, 21u);   // most changes of names
    EXPECT_LT(opened, 110u);  // few of numbers
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
        std::string const path = folder.write("p", build_pack(recipe));
        AsyncPackFile pack;
        ASSERT_TRUE(pack.open(path.c_str(), key));
        EXPECT_EQ(
            contents(pack),
            (std::map<std::string, std::string>(recipe.entries.begin(), recipe.entries.end())));
        EXPECT_FALSE(MemPackFile().open(path.c_str(), key));
    }
}

TEST(AsyncPackFile, opens_wide_names_of_many_blocks) {
    test::TempFolder folder;
    PackRecipe recipe;
    recipe.version = '1';
    for (int i = 0; i < 50; ++i)
        recipe.entries.emplace_back(std::string(1999, static_cast<char>('0' + i)), "x");
    AsyncPackFile pack;
    ASSERT_TRUE(pack.open(folder.write("p", build_pack(recipe)).c_str(), 0));
    for (auto const& [name, bytes] : recipe.entries) EXPECT_EQ(pack.size(name.c_str()), 1u);
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
    Row const rows[] = {
        {'2', 512, 512, true}, {'2', 4096, 512, true}, {'2', 512, 4096, false},
        {'2', 1, 512, false},  {'0', 1, 512, false},   {'0', 1, 1, false},
        {'2', 8, 1, true},     {'2', 4, 1, false},     {'2', 512, 0, false},
    };
    for (Row const& row : rows) {
        test::TempFolder folder;
        test::StandIn const disk("GetDiskFreeSpaceA", tell_sector_size);
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
    std::fill_n(QX::AsyncInPlatform::alignments, 27, 0);
}

TEST(AsyncPackFile, needs_the_file_to_itself_or_other_readers) {
    test::TempFolder folder;
    std::string const path = folder.write("p", build_pack(three_files()));
    HANDLE const writer = CreateFileA(
        path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
        nullptr);
    AsyncPackFile pack;
    EXPECT_FALSE(pack.open(path.c_str(), 0));  // only the second opening minds
    EXPECT_EQ(pack.table(), nullptr);
    CloseHandle(writer);
    EXPECT_TRUE(pack.open(path.c_str(), 0));
}

struct Seen {
    AsyncPackFile* pack = nullptr;
    unsigned int calls = 0;
    char* next = nullptr;
};

void note(AsyncPackFile& pack, void* user) {
    auto& seen = *static_cast<Seen*>(user);
    seen.pack = &pack;
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
    EXPECT_EQ(pack.pending_callback(), note);
    EXPECT_FALSE(pack.read(second.bytes, "b", 0, 512, note, &other));
    EXPECT_FALSE(pack.read(second.bytes, 0, 512, nullptr, nullptr));
    EXPECT_FALSE(pack.read(second.bytes, "absent", 0, 512, note, &other));
    EXPECT_EQ(pack.status(), QX::FILE_PENDING);
    while (seen.calls == 0) SleepEx(100, TRUE);
    EXPECT_EQ(seen.pack, &pack);
    EXPECT_EQ(other.calls, 0u);
    EXPECT_EQ(late.begun, 1u);
    EXPECT_EQ(std::string(first.bytes, 512), std::string(512, 'B'));
    EXPECT_EQ(second.bytes[0], 0);
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
    std::string const path = folder.write("p", build_pack(three_files()));
    AsyncPackFile pack;
    ASSERT_TRUE(pack.open(path.c_str(), 0));
    Memory memory;
    Seen seen;
    {
        test::StandIn const read("ReadFileEx", refuse);
        EXPECT_FALSE(pack.read(memory.bytes, "b", 1, 2, note, &seen));
    }
    EXPECT_EQ(pack.status(), QX::FILE_INVALID_PARAMETER);
    EXPECT_FALSE(pack.read(memory.bytes, "b", 0, 512, note, &seen));
    EXPECT_TRUE(pack.close());
    EXPECT_EQ(seen.calls, 0u);
    ASSERT_TRUE(pack.open(path.c_str(), 0));
    EXPECT_TRUE(pack.read(memory.bytes, "b", 0, 512, nullptr, nullptr));
    EXPECT_EQ(memory.bytes[511], 'B');
}

BOOL WINAPI whole_size_of_a_cut_file(HANDLE, PLARGE_INTEGER size) {
    size->QuadPart = 1 << 20;
    return TRUE;
}

TEST(AsyncPackFile, a_file_that_shrinks_while_it_is_opened_fails) {
    test::TempFolder folder;
    test::StandIn const size("GetFileSizeEx", whole_size_of_a_cut_file);
    ASSERT_TRUE(size.found());
    std::string const good = build_pack(three_files());
    for (std::size_t const cut : {11u, 14u, 20u, 36u, 40u, 48u}) {
        AsyncPackFile pack;
        EXPECT_FALSE(pack.open(folder.write("p", good.substr(0, cut)).c_str(), 0)) << cut;
    }
}

TEST(MemPackFile, points_into_its_mapping_and_stands_behind_its_index) {
    test::TempFolder folder;
    PackRecipe recipe = three_files();
    recipe.alignment = 1;
    MemPackFile pack;
    ASSERT_TRUE(pack.open(folder.write("p", build_pack(recipe)).c_str(), 0));
    EXPECT_EQ(pack.names(), pack.first() + 16);
    EXPECT_EQ(pack.tell(), 16u + 21 + 12);
    EXPECT_EQ(pack.status(), QX::FILE_OK);
    EXPECT_EQ(pack.data("maps\\one.txt"), pack.pos());
    EXPECT_EQ(pack.data("absent"), nullptr);
    EXPECT_EQ(pack.size("absent"), 0xFFFFFFFFu);
}

}  // namespace
