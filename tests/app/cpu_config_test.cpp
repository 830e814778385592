#include "qx/app/cpu_config_impl.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "tests/harness/stand_in.h"

#include <array>
#include <bit>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using QX::CPUConfig;
using QX::detail::CpuidLeaf;

// Which leaves a recorded processor tells its topology by.
enum class Telling { by_newer_levels, by_levels, by_counts };

struct Recorded {
    char const* vendor = "GenuineIntel";
    Telling telling = Telling::by_levels;
    unsigned int max_leaf = 0x20;
    unsigned int thread_bits = 0;
    unsigned int package_shift = 0;
    std::vector<unsigned int> ids =
        {};  // by the processor's bit; those past the end can't be bound
    std::vector<CpuidLeaf> caches = {};
    unsigned int bound = 0;
    bool asked_for_topology = false;

    CpuidLeaf identification() const {
        CpuidLeaf leaf = {max_leaf, 0, 0, 0};
        std::memcpy(&leaf.b, vendor, 4);
        std::memcpy(&leaf.d, vendor + 4, 4);
        std::memcpy(&leaf.c, vendor + 8, 4);
        return leaf;
    }
    CpuidLeaf level(unsigned int index) const {
        unsigned int const id = ids[bound];
        if (index == 0) return {thread_bits, 1u << thread_bits, 0x100, id};
        if (index == 1) return {package_shift, 1u << package_shift, 0x201, id};
        return {0, 0, index, id};
    }
    CpuidLeaf features() const {
        return {0, ids[bound] << 24 | 1u << package_shift << 16, 0, 1u << 28};
    }
    CpuidLeaf cache(unsigned int index) const {
        unsigned int const cores = 1u << (package_shift - thread_bits);
        CpuidLeaf leaf = index < caches.size() ? caches[index] : CpuidLeaf{};
        leaf.a |= (cores - 1) << 26;
        return leaf;
    }
    CpuidLeaf answer(unsigned int number, unsigned int sub_leaf) {
        if (number == 0) return identification();
        asked_for_topology = true;
        if (number == 1) return features();
        if (number == 4) return cache(sub_leaf);
        bool const told = number == 0x1F ? telling == Telling::by_newer_levels
                                         : number == 0xB && telling == Telling::by_levels;
        return told ? level(sub_leaf) : CpuidLeaf{};
    }
};

bool bind(void* of, unsigned int bit) {
    auto& recorded = *static_cast<Recorded*>(of);
    if (bit >= recorded.ids.size()) return false;
    recorded.bound = bit;
    return true;
}

CpuidLeaf ask(void* of, unsigned int number, unsigned int sub_leaf) {
    return static_cast<Recorded*>(of)->answer(number, sub_leaf);
}

CPUConfig walk(Recorded& recorded, unsigned long long mask) {
    CPUConfig config;
    std::memset(&config, 0xAA, sizeof config);
    QX::detail::fill_cpu_config(config, {&recorded, mask, bind, ask});
    return config;
}

// "package.core.thread" of each.
std::string places(CPUConfig const& config) {
    std::string all;
    for (unsigned int i = 0; i < config.logical_processor_count; ++i) {
        auto const& at = config.processors[i];
        all += all.empty() ? "" : " ";
        all += std::to_string(at.package) + '.' + std::to_string(at.core) + '.' +
               std::to_string(at.thread);
    }
    return all;
}

unsigned long long first_bits(unsigned int count) {
    return count == 64 ? ~0ull : (1ull << count) - 1;
}

std::string own_cores(unsigned int count) {
    std::string all;
    for (unsigned int i = 0; i < count; ++i)
        all += (i == 0 ? "0." : " 0.") + std::to_string(i) + ".0";
    return all;
}

struct TopologyRow {
    char const* what;
    unsigned int thread_bits;
    unsigned int package_shift;
    std::vector<unsigned int> ids;
    unsigned long long mask;
    std::string places;
};

// clang-format off
TopologyRow const topologies[] = {
    {"one", 0, 0, {0}, 1, "0.0.0"},
    {"two cores of two threads", 1, 4, {0, 1, 2, 3}, 0xF, "0.0.0 0.0.1 0.1.0 0.1.1"},
    {"threads listed last", 1, 4, {0, 2, 4, 1, 3, 5}, 0x3F,
     "0.0.0 0.1.0 0.2.0 0.0.1 0.1.1 0.2.1"},
    {"two packages", 1, 3, {8, 9, 10, 16, 17, 18}, 0x3F,
     "0.0.0 0.0.1 0.1.0 1.0.0 1.0.1 1.1.0"},
    {"packages by turns", 0, 4, {0x10, 0x21, 0x11, 0x20}, 0xF, "0.0.0 1.0.0 0.1.0 1.1.0"},
    {"small cores beside large ones", 1, 6, {0, 1, 8, 9, 16, 18, 20}, 0x7F,
     "0.0.0 0.0.1 0.1.0 0.1.1 0.2.0 0.3.0 0.4.0"},
    {"a package for each", 0, 0, {3, 4, 5}, 7, "0.0.0 1.0.0 2.0.0"},
    {"some of the bits", 1, 4, {0, 1, 2, 3, 4, 5}, 0x35, "0.0.0 0.1.0 0.2.0 0.2.1"},
    {"one identifier twice", 1, 4, {0, 1, 0}, 7, own_cores(3)},
    {"one that can't be bound", 1, 4, {0, 1}, 7, own_cores(3)},
    {"none that can be bound", 1, 4, {}, 0x1FFFF, own_cores(17)},
};
// clang-format on

TEST(CpuTopology, numbers_packages_cores_and_threads_as_they_appear) {
    for (auto const& row : topologies) {
        for (auto const telling :
             {Telling::by_newer_levels, Telling::by_levels, Telling::by_counts}) {
            Recorded recorded = {.telling = telling};
            recorded.thread_bits = row.thread_bits;
            recorded.package_shift = row.package_shift;
            recorded.ids = row.ids;
            CPUConfig const config = walk(recorded, row.mask);
            EXPECT_EQ(places(config), row.places) << row.what << static_cast<int>(telling);
            EXPECT_EQ(config.vendor, 0u);
        }
    }
}

TEST(CpuTopology, of_sixty_four_processors_is_whole) {
    Recorded recorded = {.thread_bits = 1, .package_shift = 5};
    for (unsigned int i = 0; i < 64; ++i) recorded.ids.push_back(i);
    CPUConfig const config = walk(recorded, ~0ull);
    EXPECT_EQ(config.logical_processor_count, 64u);
    for (unsigned int i = 0; i < 64; ++i) {
        EXPECT_EQ(config.processors[i].package, i / 32);
        EXPECT_EQ(config.processors[i].core, i % 32 / 2);
        EXPECT_EQ(config.processors[i].thread, i % 2);
    }
}

// Nothing but what is told is written, so whole records are compared.
TEST(CpuTopology, other_makers_processors_are_cores_of_their_own) {
    std::pair<char const*, unsigned int> const vendors[] = {
        {"AuthenticAMD", 1}, {"GenuineIntem", 5}, {"HygonGenuine", 5}};
    for (auto const& [vendor, number] : vendors) {
        for (unsigned int const count : {0u, 1u, 3u, 5u, 8u, 17u, 64u}) {
            Recorded recorded = {.vendor = vendor};
            recorded.caches = {{0x21, 0x01C0003F, 63, 0}};
            CPUConfig expected = {};
            expected.vendor = number;
            expected.logical_processor_count = count != 0 ? count : 1;
            for (unsigned int i = 0; i < count; ++i) expected.processors[i].core = i;
            CPUConfig const config = walk(recorded, first_bits(count) << (count < 50 ? 9 : 0));
            EXPECT_EQ(std::memcmp(&config, &expected, sizeof config), 0) << vendor << count;
            EXPECT_FALSE(recorded.asked_for_topology);
        }
    }
}

CpuidLeaf cache_leaf(
    unsigned int type, unsigned int level, unsigned int ways, unsigned int partitions,
    unsigned int line, unsigned int sets) {
    return {type | level << 5, (ways - 1) << 22 | (partitions - 1) << 12 | (line - 1), sets - 1, 0};
}

TEST(CpuTopology, lists_caches_up_to_the_end_mark) {
    Recorded recorded = {.ids = {0}};
    recorded.caches = {
        cache_leaf(1, 1, 12, 1, 64, 64),   cache_leaf(2, 1, 8, 1, 64, 64),
        cache_leaf(3, 2, 16, 1, 64, 2048), cache_leaf(3, 3, 15, 2, 64, 180224),
        cache_leaf(9, 4, 1, 1, 64, 24),    {},
        cache_leaf(1, 1, 12, 1, 64, 64),
    };
    CPUConfig expected = {};
    expected.logical_processor_count = 1;
    expected.cache_count = 5;
    constexpr unsigned int rows[][3] = {
        {0, 48 << 10, 2}, {0, 32 << 10, 1}, {1, 2048 << 10, 0}, {2, 330 << 20, 0}, {3, 1024, 4}};
    for (unsigned int i = 0; i < 5; ++i) {
        expected.caches[i].level = rows[i][0];
        expected.caches[i].size = rows[i][1];
        expected.caches[i].kind = rows[i][2];
    }
    CPUConfig const config = walk(recorded, 1);
    EXPECT_EQ(std::memcmp(&config, &expected, sizeof config), 0);
}

TEST(CpuTopology, of_a_processor_without_the_leaf_has_no_caches) {
    Recorded recorded = {.max_leaf = 3, .package_shift = 1, .ids = {0, 1}};
    recorded.caches = {cache_leaf(1, 1, 8, 1, 64, 64)};
    EXPECT_EQ(walk(recorded, 3).cache_count, 0u);
}

TEST(CpuTopologyDeathTest, ends_the_process_at_a_seventh_cache) {
    Recorded recorded = {.ids = {0}};
    recorded.caches.assign(6, cache_leaf(1, 1, 8, 1, 64, 64));
    EXPECT_EQ(walk(recorded, 1).cache_count, 6u);
    recorded.caches.push_back(recorded.caches.front());
    EXPECT_EXIT(
        walk(recorded, 1), testing::ExitedWithCode(1),
        "Need bigger MAX_CACHE_SUBLEAFS\\(6\\) at src.win.intel.cpu_topo.c ");
}

// --- The machine itself --------------------------------------------------------------------------

unsigned long long stated_mask = 0;

BOOL WINAPI state_mask(HANDLE, DWORD_PTR* process, DWORD_PTR* system) {
    if (stated_mask == 0) return FALSE;
    *process = *system = stated_mask;
    return TRUE;
}

CPUConfig current() {
    CPUConfig config;
    std::memset(&config, 0xAA, sizeof config);
    QX::get_current_cpu_config(config);
    return config;
}

TEST(CpuConfig, counts_the_processors_of_the_mask) {
    CPUConfig const real = current();
    test::StandIn const query("GetProcessAffinityMask", state_mask);
    ASSERT_TRUE(query.found());
    for (unsigned int const count : {0u, 1u, 3u, 5u, 8u, 17u, 64u}) {
        stated_mask = first_bits(count);
        CPUConfig const config = current();
        EXPECT_EQ(config.logical_processor_count, count != 0 ? count : 1);
        EXPECT_EQ(config.vendor, real.vendor);
        EXPECT_EQ(config.cache_count, real.cache_count);
        // Those that the machine doesn't have can't be asked.
        if (count <= real.logical_processor_count) continue;
        EXPECT_EQ(places(config), own_cores(count));
    }
}

TEST(CpuConfig, leaves_the_thread_bound_as_it_was) {
    DWORD_PTR const before = SetThreadAffinityMask(GetCurrentThread(), 1);
    current();
    EXPECT_EQ(SetThreadAffinityMask(GetCurrentThread(), before), 1u);
    current();
    EXPECT_EQ(SetThreadAffinityMask(GetCurrentThread(), before), before);
}

std::string vendor_by_the_registry() {
    char text[64] = {};
    DWORD size = sizeof text;
    RegGetValueA(
        HKEY_LOCAL_MACHINE, "HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0",
        "VendorIdentifier", RRF_RT_REG_SZ, nullptr, text, &size);
    return text;
}

TEST(CpuConfig, agrees_with_the_system_on_the_vendor) {
    std::string const vendor = vendor_by_the_registry();
    if (vendor.empty()) GTEST_SKIP() << "the system does not tell";
    EXPECT_EQ(current().vendor, vendor == "GenuineIntel" ? 0u : vendor == "AuthenticAMD" ? 1u : 5u);
}

using Relations = std::vector<SYSTEM_LOGICAL_PROCESSOR_INFORMATION>;

Relations ask_the_system() {
    DWORD size = 0;
    GetLogicalProcessorInformation(nullptr, &size);
    Relations all(size / sizeof(Relations::value_type));
    if (!GetLogicalProcessorInformation(all.data(), &size)) all.clear();
    return all;
}

using Caches = std::multiset<std::array<unsigned int, 3>>;

Caches first_processors_caches() {
    unsigned int const kinds[] = {0, 1, 2, 4};
    Caches caches;
    for (auto const& relation : ask_the_system()) {
        if (relation.Relationship != RelationCache || (relation.ProcessorMask & 1) == 0) continue;
        auto const& cache = relation.Cache;
        caches.insert({cache.Level - 1u, static_cast<unsigned int>(cache.Size), kinds[cache.Type]});
    }
    return caches;
}

TEST(CpuConfig, agrees_with_the_system_on_the_first_processors_caches) {
    CPUConfig const config = current();
    if (config.vendor != 0) GTEST_SKIP() << "caches are listed of Intel processors only";
    if (first_processors_caches().empty()) GTEST_SKIP() << "the system tells of no caches";
    Caches caches;
    for (unsigned int i = 0; i < config.cache_count; ++i)
        caches.insert({config.caches[i].level, config.caches[i].size, config.caches[i].kind});
    EXPECT_EQ(caches, first_processors_caches());
}

}  // namespace
