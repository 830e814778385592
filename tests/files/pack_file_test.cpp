#include "qx/files/pack_file.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <algorithm>
#include <map>
#include <string>

#include "tests/files/late_completion.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/pack_builder.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::MemPackFile;
using test::PackRecipe;
using Contents = std::map<std::string, std::string>;

PackRecipe three_files(unsigned short key = 0) {
    PackRecipe recipe;
    recipe.entries = {{"maps\\one.txt", "first"}, {"empty", ""}, {"b", std::string(700, 'B')}};
    recipe.key = key;
    return recipe;
}

alignas(4096) char sectors[4096];

std::string bytes_of(MemPackFile const& pack, char const* name) {
    return std::string(pack.data(name), pack.size(name));
}

// By one synchronous read.
std::string bytes_of(QX::AsyncPackFile const& pack, char const* name) {
    unsigned int const size = pack.size(name), whole = (size + 511) / 512 * 512;
    auto& reader = const_cast<QX::AsyncPackFile&>(pack);
    EXPECT_TRUE(!whole || reader.read(sectors, name, 0, whole, nullptr, nullptr));
    return std::string(sectors, size);
}

// Name to bytes, as the pack's own enumeration and look-ups tell.
template <typename Pack>
Contents contents(Pack const& pack) {
    Contents found;
    pack.enumerate(
        [](Pack const& in, char const* name, unsigned int offset, unsigned int size, void* user) {
            EXPECT_TRUE(in.info(name)->offset == offset && in.size(name) == size);
            EXPECT_TRUE(static_cast<Contents*>(user)->emplace(name, bytes_of(in, name)).second);
        },
        &found);
    return found;
}

class AsyncPackFile : public testing::Test {
protected:
    char const* write(PackRecipe const& recipe) { return write(test::build_pack(recipe)); }
    char const* write(std::string const& bytes) {
        path_ = folder_.write("p", bytes);
        return path_.c_str();
    }

    test::TempFolder folder_;
    std::string path_;
};

template <typename Pack>
class BothPacks : public AsyncPackFile {};
using PackTypes = testing::Types<QX::AsyncPackFile, MemPackFile>;
TYPED_TEST_SUITE(BothPacks, PackTypes);

TYPED_TEST(BothPacks, give_every_entry_by_its_exact_name) {
    for (unsigned short const key : {0, 1, 0xFFFF}) {
        PackRecipe const recipe = three_files(key);
        TypeParam pack;
        ASSERT_TRUE(pack.open(this->write(recipe), key));
        EXPECT_TRUE(pack.count() == 3 && pack.aligned() == 512);
        EXPECT_EQ(contents(pack), Contents(recipe.entries.begin(), recipe.entries.end()));
        EXPECT_EQ(pack.size("B"), 0xFFFFFFFFu);
        EXPECT_FALSE(pack.contains("maps/one.txt"));
        EXPECT_TRUE(pack.close() && pack.info("b") == nullptr && pack.count() == 0);
    }
}

TYPED_TEST(BothPacks, open_an_empty_pack_and_close_it_well) {
    PackRecipe recipe;
    recipe.pad_end = false;
    TypeParam pack;
    ASSERT_TRUE(pack.open(this->write(recipe), 0) && pack.open(this->path_.c_str(), 0));
    EXPECT_TRUE(pack.count() == 0 && !pack.contains("") && pack.close());
}

TYPED_TEST(BothPacks, of_equal_names_the_last_wins) {
    PackRecipe recipe;
    recipe.entries = {{"a", "old"}, {"b", "x"}, {"a", "newer"}};
    TypeParam pack;
    ASSERT_TRUE(pack.open(this->write(recipe), 0));
    EXPECT_TRUE(pack.count() == 2 && pack.info("a")->offset == 1536 && pack.size("a") == 5);
}

// Whatever is opened keeps its promises: entries inside the file, names that are found again; what
// is not keeps no table.
template <typename Pack>
bool opens_well(char const* path, unsigned long long file_size) {
    Pack pack;
    if (!pack.open(path, 0)) return pack.table() || pack.names();
    for (QX::PackTable::Slot const& slot : *pack.table()) {
        if (!slot.name) continue;
        EXPECT_EQ(pack.info(slot.name), &slot.entry);
        unsigned long long const end = slot.entry.offset + 0ull + slot.entry.size;
        EXPECT_TRUE(slot.entry.size == 0 || end <= file_size);
    }
    return true;
}

TYPED_TEST(BothPacks, refuse_what_is_no_whole_pack) {
    std::string const good = test::build_pack(three_files());
    EXPECT_FALSE(TypeParam().open(this->write(good), 7));
    for (char const* start : {"pAK2", "PAC2", "PAK3", "PAK/", "PAK\xB2"})
        EXPECT_FALSE(TypeParam().open(this->write(start + good.substr(4)), 0)) << start;
    // Everything before the end of the last entry's bytes has to be there.
    for (std::size_t size = 0; size < 1024 + 700; size += size < 64 ? 1 : 61)
        EXPECT_FALSE(opens_well<TypeParam>(this->write(good.substr(0, size)), size)) << size;
    EXPECT_TRUE(opens_well<TypeParam>(this->write(good.substr(0, 1024 + 700)), 1024 + 700));
}

TYPED_TEST(BothPacks, bear_every_change_of_one_byte_in_the_index) {
    unsigned int opened = 0;
    for (std::size_t at = 0; at < 16 + 21 + 12; ++at) {
        for (int const change : {0x01, 0x40, 0x80, 0xFF}) {
            std::string bytes = test::build_pack(three_files());
            bytes[at] = static_cast<char>(bytes[at] ^ change);
            opened += opens_well<TypeParam>(this->write(bytes), bytes.size());
        }
    }
    EXPECT_GT(opened, 21u);   // most changes of names
    EXPECT_LT(opened, 146u);  // few of numbers
}

TYPED_TEST(BothPacks, come_out_closed_when_memory_runs_out) {
    for (unsigned short const key : {0, 9}) {
        char const* const path = this->write(three_files(key));
        bool fired = true;
        for (unsigned int nth = 1; fired; ++nth) {
            TypeParam pack;
            test::FailingAllocation const failing(nth);
            bool const opened = pack.open(path, key);
            fired = failing.fired();
            EXPECT_TRUE(opened == !fired && opened == (pack.table() != nullptr));
        }
    }
}

TEST_F(AsyncPackFile, opens_wide_names_and_the_mapped_pack_refuses_them) {
    for (unsigned short const key : {0, 77}) {
        PackRecipe recipe = three_files(key);
        recipe.version = '1';
        for (char c = 'a'; c <= 'z'; ++c) recipe.entries.emplace_back(std::string(2999, c), "x");
        QX::AsyncPackFile pack;
        ASSERT_TRUE(pack.open(write(recipe), key));
        EXPECT_EQ(contents(pack), Contents(recipe.entries.begin(), recipe.entries.end()));
        EXPECT_FALSE(MemPackFile().open(path_.c_str(), key));
    }
}

TEST_F(AsyncPackFile, tests_its_alignment_against_the_drives_sectors) {
    struct Row {
        char version;
        unsigned int alignment;
        DWORD sector;
        bool opens;
    };
    constexpr Row rows[] = {
        {'2', 4096, 512, true}, {'2', 512, 4096, false}, {'0', 1, 1, false}, {'2', 512, 0, false}};
    static DWORD sector_size;
    test::StandIn const disk(
        "GetDiskFreeSpaceA", +[](LPCSTR, LPDWORD, LPDWORD size, LPDWORD, LPDWORD) {
            *size = sector_size;
            return BOOL(sector_size != 0);
        });
    for (Row const& row : rows) {
        sector_size = row.sector;
        std::fill_n(QX::AsyncInPlatform::alignments, 27, 0);
        PackRecipe recipe = three_files();
        recipe.version = row.version;
        recipe.alignment = row.alignment;
        EXPECT_EQ(QX::AsyncPackFile().open(write(recipe), 0), row.opens)
            << row.version << row.alignment << " " << row.sector;
        EXPECT_EQ(MemPackFile().open(path_.c_str(), 0), row.version == '2');
    }
}

struct Seen {
    unsigned int calls = 0;
    char* next = nullptr;
};

void note(QX::AsyncPackFile& pack, void* user) {
    auto& seen = *static_cast<Seen*>(user);
    ++seen.calls;
    EXPECT_TRUE(pack.pending_callback() == nullptr && pack.contains("b"));
    char* const next = std::exchange(seen.next, nullptr);
    EXPECT_TRUE(!next || pack.read(next, "b", 512, 512, note, user));
}

TEST_F(AsyncPackFile, refuses_a_second_read_and_does_not_disturb_the_first) {
    QX::AsyncPackFile pack;
    ASSERT_TRUE(pack.open(write(three_files()), 0));
    Seen seen, other;
    {
        test::LateCompletion const late(30);
        ASSERT_TRUE(pack.read(sectors, "b", 0, 512, note, &seen));
        EXPECT_FALSE(pack.read(sectors + 512, "b", 0, 512, note, &other));
        EXPECT_FALSE(pack.read(sectors + 512, 0, 512, nullptr, nullptr));
        EXPECT_EQ(pack.status(), QX::FILE_PENDING);
        while (seen.calls == 0) SleepEx(100, TRUE);
        EXPECT_EQ(late.begun, 1u);
    }
    EXPECT_EQ(std::string(sectors, 512), std::string(512, 'B'));
    EXPECT_FALSE(pack.read(sectors, "absent", 0, 512, note, &other));
    test::StandIn const read(
        "ReadFileEx", +[] { return SetLastError(87), FALSE; });
    EXPECT_FALSE(pack.read(sectors, "b", 1, 2, note, &other));
    EXPECT_EQ(pack.status(), QX::FILE_INVALID_PARAMETER);
    EXPECT_TRUE(pack.close() && other.calls == 0);
}

TEST_F(AsyncPackFile, close_returns_after_the_callback_and_the_read_that_it_started) {
    for (bool const by_destructor : {false, true}) {
        test::LateCompletion const late(20);
        Seen seen = {0, sectors + 512};
        {
            QX::AsyncPackFile pack;
            ASSERT_TRUE(pack.open(write(three_files()), 0));
            ASSERT_TRUE(pack.read(sectors, "b", 0, 512, note, &seen));
            EXPECT_TRUE(by_destructor || pack.close());
        }
        EXPECT_TRUE(seen.calls == 2 && late.delivered == 2);
        EXPECT_EQ(std::string(sectors, 700), std::string(700, 'B'));
    }
}

}  // namespace
