#include "qx/files/pack_file.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "qx/files/pack_index.h"
#include "tests/files/late_completion.h"
#include "tests/harness/guarded.h"
#include "tests/harness/pack_builder.h"
#include "tests/harness/random.h"
#include "tests/harness/temp_folder.h"

namespace {

using QX::MemPackFile;
using QX::PackTable;
using test::PackRecipe;
using Contents = std::map<std::string, std::string>;

// --- The table ----------------------------------------------------------------------------------

// Gone with the case.
using Table = std::unique_ptr<PackTable, decltype(&PackTable::destroy)>;

Table table_of(unsigned int count) {
    return {PackTable::create(count), PackTable::destroy};
}

unsigned int plain_hash(std::string const& name) {
    unsigned short sums[2] = {};
    for (std::size_t i = 0; i < name.size(); ++i) sums[i & 1] += static_cast<signed char>(name[i]);
    return static_cast<unsigned int>(sums[1]) << 16 | sums[0];
}

TEST(PackTable, fills_the_very_slots_that_plain_probing_fills) {
    test::Random random(3);
    for (unsigned int count = 0; count < 4000; count += 1 + count / 20) {
        unsigned int const slots = 2 * count + 1, alignment = 1u << random.below(10);
        std::vector<std::string> names(count);
        std::string block;
        for (std::string& name : names) {
            for (unsigned int left = random.below(2 + count % 40); left; --left)
                name += "ab\xF0z"[random.below(4)];
            block += name + '\0';
        }
        QX::PackHeader const header = {
            '2', static_cast<unsigned int>(block.size()), count, alignment};
        auto end = static_cast<unsigned int>(header.index_size());
        std::vector<unsigned int> ends;
        std::vector<PackTable::Slot> plain(slots);
        for (std::string const& name : names) {
            auto const start = static_cast<unsigned int>(QX::pack_round_up(end, alignment));
            ends.push_back(end = start + random.below(3000));
            unsigned int at = plain_hash(name) % slots;
            while (plain[at].name && plain[at].name != name) at = (at + 1) % slots;
            plain[at] = {name.c_str(), {start, end - start}};
        }
        Table const table = table_of(count);
        ASSERT_TRUE(table->fill(header, block.data(), ends.data(), end));
        ASSERT_EQ(table->slot_count(), slots);
        for (unsigned int i = 0; i < slots; ++i) {
            auto const& [name, entry] = table->begin()[i];
            ASSERT_STREQ(name, plain[i].name);
            if (!name) continue;
            ASSERT_EQ(entry.offset, plain[i].entry.offset);
            ASSERT_EQ(entry.size, plain[i].entry.size);
            ASSERT_EQ(table->find(plain[i].name), &entry);
            ASSERT_EQ(table->find((plain[i].name + std::string("?")).c_str()), nullptr);
        }
    }
}

TEST(PackTable, keeps_to_its_names_at_the_very_end_of_memory) {
    std::string const names("one\0sixteen bytes ab\0seventeen bytes ab", 40);
    unsigned int const ends[] = {100, 100, 100};
    test::Guarded const cut(names.data(), 39), whole(names.c_str(), 40);
    EXPECT_FALSE(table_of(3)->fill({'2', 39, 3, 1}, cut.data(), ends, 100));
    Table const table = table_of(3);
    ASSERT_TRUE(table->fill({'2', 40, 3, 1}, whole.data(), ends, 100));
    for (std::string const name :
         {"one", "sixteen bytes ab", "seventeen bytes ab", "sixteen bytes abc"}) {
        test::Guarded const probe(name.c_str(), name.size() + 1);
        EXPECT_EQ(table->find(probe.data()) != nullptr, name.back() != 'c') << name;
    }
}

TEST(PackTable, refuses_entries_that_do_not_fit_the_file_or_32_bits) {
    // Two one-letter names, whose index ends at 28.
    auto const fits = [](unsigned int alignment, unsigned int first_end, unsigned int second_end,
                         unsigned long long file_size) {
        unsigned int const ends[] = {first_end, second_end};
        return table_of(2)->fill({'2', 4, 2, alignment}, "a\0b", ends, file_size);
    };
    EXPECT_TRUE(fits(1, 28, 30, 30) && !fits(1, 28, 30, 29));
    EXPECT_FALSE(fits(1, 27, 30, 30) || fits(1, 30, 29, 30));  // ends before it starts
    EXPECT_TRUE(fits(512, 600, 1024, 600));  // empty, at the rounded-up end of the file
    EXPECT_FALSE(fits(512, 600, 1023, 2000));
    EXPECT_FALSE(fits(512, 0xFFFFFF00, 0xFFFFFFFF, 1ull << 33));  // would start at 4 GiB
    EXPECT_TRUE(fits(1, 0xFFFFFF00, 0xFFFFFFFF, 1ull << 33));
}

// --- The files ----------------------------------------------------------------------------------

PackRecipe three_files(unsigned short key = 0, char version = '2', unsigned int alignment = 512) {
    return {
        {{"maps\\one.txt", "first"}, {"empty", ""}, {"b", std::string(700, 'B')}},
        version,
        alignment,
        key};
}

alignas(4096) char sectors[4096];

// Name to bytes, as the pack's own enumeration and look-ups tell; by synchronous reads where it
// has no memory.
template <typename Pack>
Contents contents(Pack& pack) {
    Contents found;
    pack.enumerate(
        [](Pack const& in, char const* name, unsigned int offset, unsigned int size, void* user) {
            EXPECT_TRUE(in.info(name)->offset == offset && in.size(name) == size);
            EXPECT_TRUE(static_cast<Contents*>(user)->emplace(name, std::string(size, 0)).second);
        },
        &found);
    for (auto& [name, bytes] : found) {
        auto const whole = static_cast<unsigned int>(QX::pack_round_up(bytes.size(), 512));
        char const* data = sectors;
        if constexpr (std::is_same_v<Pack, MemPackFile>)
            data = pack.data(name.c_str());
        else
            EXPECT_TRUE(!whole || pack.read(sectors, name.c_str(), 0, whole, nullptr, nullptr));
        bytes.assign(data, bytes.size());
    }
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
    TypeParam pack;
    for (unsigned short const key : {0, 1, 0xFFFF}) {
        PackRecipe const recipe = three_files(key);
        ASSERT_TRUE(pack.open(this->write(recipe), key));
        EXPECT_TRUE(pack.count() == 3 && pack.aligned() == 512);
        EXPECT_EQ(contents(pack), Contents(recipe.entries.begin(), recipe.entries.end()));
        EXPECT_EQ(pack.size("B"), 0xFFFFFFFFu);
        EXPECT_FALSE(pack.contains("maps/one.txt"));
        EXPECT_TRUE(pack.close() && pack.info("b") == nullptr && pack.count() == 0);
    }
    PackRecipe empty;
    empty.pad_end = false;
    ASSERT_TRUE(pack.open(this->write(empty), 0) && pack.open(this->path_.c_str(), 0));
    EXPECT_TRUE(pack.count() == 0 && !pack.contains("") && pack.close());
}

TYPED_TEST(BothPacks, of_equal_names_the_last_wins) {
    TypeParam pack;
    ASSERT_TRUE(pack.open(this->write({{{"a", "old"}, {"b", "x"}, {"a", "newer"}}}), 0));
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

TYPED_TEST(BothPacks, bear_every_cut_and_every_change_of_one_byte_in_the_index) {
    std::string const good = test::build_pack(three_files());
    EXPECT_FALSE(TypeParam().open(this->write(good), 7));
    // Everything before the end of the last entry's bytes has to be there.
    for (std::size_t size = 0; size < 1024 + 700; size += size < 64 ? 1 : 61)
        EXPECT_FALSE(opens_well<TypeParam>(this->write(good.substr(0, size)), size)) << size;
    EXPECT_TRUE(opens_well<TypeParam>(this->write(good.substr(0, 1024 + 700)), 1024 + 700));
    unsigned int opened = 0;
    for (std::size_t at = 0; at < 16 + 21 + 12; ++at) {
        for (int const change : {0x01, 0x40, 0x80, 0xFF}) {
            std::string bytes = good;
            bytes[at] = static_cast<char>(bytes[at] ^ change);
            bool const opens = opens_well<TypeParam>(this->write(bytes), bytes.size());
            EXPECT_FALSE(opens && at < 3) << "other letters than PAK";
            opened += opens;
        }
    }
    EXPECT_GT(opened, 21u);   // most changes of names
    EXPECT_LT(opened, 146u);  // few of numbers
}

TEST_F(AsyncPackFile, opens_wide_names_and_the_mapped_pack_refuses_them) {
    for (unsigned short const key : {0, 77}) {
        PackRecipe recipe = three_files(key, '1');
        for (char c = 'a'; c <= 'z'; ++c) recipe.entries.emplace_back(std::string(2999, c), "x");
        QX::AsyncPackFile pack;
        ASSERT_TRUE(pack.open(write(recipe), key));
        EXPECT_EQ(contents(pack), Contents(recipe.entries.begin(), recipe.entries.end()));
        EXPECT_FALSE(MemPackFile().open(path_.c_str(), key));
    }
}

TEST_F(AsyncPackFile, tests_its_alignment_against_the_drives_sectors) {
    auto const opens = [&](char version, unsigned int alignment, unsigned int sector) {
        std::fill_n(QX::AsyncInPlatform::alignments, 27, sector);
        write(three_files(0, version, alignment));
        EXPECT_EQ(MemPackFile().open(path_.c_str(), 0), version == '2');
        return QX::AsyncPackFile().open(path_.c_str(), 0);
    };
    EXPECT_TRUE(opens('2', 4096, 512) && !opens('2', 512, 4096) && !opens('0', 1, 8));
    std::fill_n(QX::AsyncInPlatform::alignments, 27, 0);
}

unsigned int calls;

// Reads the rest of "b" behind its first sector.
void note(QX::AsyncPackFile& pack, void* user) {
    EXPECT_TRUE(pack.pending_callback() == nullptr && pack.contains("b"));
    EXPECT_TRUE(++calls == 2 || pack.read(sectors + 512, "b", 512, 512, note, user));
}

TEST_F(AsyncPackFile, refuses_a_second_read_and_closes_after_the_first_and_the_one_it_started) {
    for (bool const by_destructor : {false, true}) {
        test::LateCompletion const late(20);
        calls = 0;
        {
            QX::AsyncPackFile pack;
            ASSERT_TRUE(pack.open(write(three_files()), 0));
            EXPECT_FALSE(pack.read(sectors, "absent", 0, 512, note, nullptr));
            ASSERT_TRUE(pack.read(sectors, "b", 0, 512, note, nullptr));
            EXPECT_FALSE(pack.read(sectors, "maps\\one.txt", 0, 512, note, nullptr));
            EXPECT_FALSE(pack.read(sectors, 0, 512, nullptr, nullptr));
            EXPECT_EQ(pack.status(), QX::FILE_PENDING);
            EXPECT_TRUE(by_destructor || pack.close());
        }
        EXPECT_TRUE(calls == 2 && late.delivered == 2);
        EXPECT_EQ(std::string(sectors, 700), std::string(700, 'B'));
    }
}

}  // namespace
