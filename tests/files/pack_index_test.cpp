#include "qx/files/pack_index.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/harness/guarded.h"
#include "tests/harness/random.h"

namespace {

using QX::PackTable;

struct Destroy {
    void operator()(PackTable* table) const { PackTable::destroy(table); }
};

using Table = std::unique_ptr<PackTable, Destroy>;

// The table by the letter: one slot after the other, one byte after the other.
struct PlainSlot {
    char const* name = nullptr;
    unsigned int offset = 0, size = 0;
};

unsigned int plain_hash(char const* name) {
    unsigned short sums[2] = {};
    for (unsigned int i = 0; name[i]; ++i)
        sums[i & 1] = static_cast<unsigned short>(sums[i & 1] + static_cast<signed char>(name[i]));
    return static_cast<unsigned int>(sums[1]) << 16 | sums[0];
}

std::vector<PlainSlot> plain_table(
    std::string const& names, std::vector<unsigned int> const& ends, unsigned int alignment,
    unsigned int data_start) {
    std::vector<PlainSlot> slots(2 * ends.size() + 1);
    char const* name = names.c_str();
    unsigned int position = data_start;
    for (unsigned int const end : ends) {
        unsigned int const start = (position + alignment - 1) & ~(alignment - 1);
        std::size_t at = plain_hash(name) % slots.size();
        while (slots[at].name && std::strcmp(slots[at].name, name) != 0)
            at = (at + 1) % slots.size();
        slots[at] = {name, start, end - start};
        name += std::strlen(name) + 1;
        position = end;
    }
    return slots;
}

// Checks a random index of `count` names against the plain table.
void expect_same_slots(test::Random& random, unsigned int count, unsigned int length_max) {
    QX::PackHeader header;
    header.count = count;
    header.alignment = 1u << random.below(10);
    std::string names;
    unsigned int const letters = 2 + random.below(3);
    for (unsigned int i = 0; i < count; ++i, names += '\0') {
        for (unsigned int n = random.below(length_max + 1); n; --n)
            names += "ab\xF0z"[random.below(letters)];
    }
    header.name_size = static_cast<unsigned int>(names.size());
    auto const start = static_cast<unsigned int>(header.index_size());
    std::vector<unsigned int> ends(1, start);
    for (unsigned int i = 0; i < count; ++i)
        ends.push_back(
            static_cast<unsigned int>(QX::pack_round_up(ends.back(), header.alignment)) +
            random.below(3000));
    ends.erase(ends.begin());
    Table const table(PackTable::create(count));
    ASSERT_TRUE(table->fill(header, names.data(), ends.data(), ends.empty() ? start : ends.back()));
    auto const plain = plain_table(names, ends, header.alignment, start);
    ASSERT_EQ(table->slot_count(), plain.size());
    unsigned int used = 0;
    for (std::size_t i = 0; i < plain.size(); ++i) {
        PackTable::Slot const& slot = table->begin()[i];
        ASSERT_STREQ(slot.name, plain[i].name) << i;
        if (!slot.name) continue;
        ++used;
        ASSERT_EQ(slot.entry.offset, plain[i].offset);
        ASSERT_EQ(slot.entry.size, plain[i].size);
        ASSERT_EQ(table->find(std::string(slot.name).c_str()), &slot.entry);
        ASSERT_EQ(table->find((slot.name + std::string("?")).c_str()), nullptr);
    }
    EXPECT_EQ(table->used_count(), used);
}

TEST(PackTable, fills_the_very_slots_that_plain_probing_fills) {
    test::Random random(3);
    for (unsigned int count = 0; count < 40; ++count) {
        for (unsigned int length_max : {1u, 3u, 40u}) expect_same_slots(random, count, length_max);
    }
    expect_same_slots(random, 3000, 9);
    expect_same_slots(random, 3000, 30);
}

TEST(PackTable, keeps_to_its_names_at_the_very_end_of_memory) {
    std::string const names("one\0sixteen bytes ab\0seventeen bytes ab", 40);
    unsigned int const ends[] = {100, 100, 100};
    test::Guarded const cut(names.data(), 39), whole(names.c_str(), 40);
    EXPECT_FALSE(Table(PackTable::create(3))->fill({'2', 39, 3, 1}, cut.data(), ends, 100));
    Table const table(PackTable::create(3));
    ASSERT_TRUE(table->fill({'2', 40, 3, 1}, whole.data(), ends, 100));
    for (std::string const name :
         {"one", "sixteen bytes ab", "seventeen bytes ab", "sixteen bytes abc"}) {
        test::Guarded const probe(name.c_str(), name.size() + 1);
        EXPECT_EQ(table->find(probe.data()) != nullptr, name.back() != 'c') << name;
    }
}

TEST(PackTable, refuses_entries_that_do_not_fit_the_file_or_32_bits) {
    // The index of two one-letter names ends at 28.
    auto const fits = [](unsigned int alignment, unsigned int first_end, unsigned int second_end,
                         unsigned long long file_size) {
        unsigned int const ends[] = {first_end, second_end};
        Table const table(PackTable::create(2));
        return table->fill({'2', 4, 2, alignment}, "a\0b", ends, file_size);
    };
    EXPECT_TRUE(fits(1, 28, 30, 30) && !fits(1, 28, 30, 29));
    EXPECT_FALSE(fits(1, 27, 30, 30) || fits(1, 30, 29, 30));  // ends before it starts
    EXPECT_TRUE(fits(512, 600, 1024, 600));  // empty, at the rounded-up end of the file
    EXPECT_FALSE(fits(512, 600, 1023, 2000));
    EXPECT_FALSE(fits(512, 0xFFFFFF00, 0xFFFFFFFF, 1ull << 33));  // would start at 4 GiB
    EXPECT_TRUE(fits(1, 0xFFFFFF00, 0xFFFFFFFF, 1ull << 33));
}

}  // namespace
