#include "qx/app/cpu_config_impl.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace QX::detail {

namespace {

constexpr unsigned int vendor_intel = 0;
constexpr unsigned int vendor_amd = 1;
constexpr unsigned int vendor_other = 5;

constexpr unsigned int leaf_features = 1;
constexpr unsigned int leaf_caches = 4;
constexpr unsigned int leaves_of_levels[] = {0x1F, 0xB};  // the first that is there serves
constexpr unsigned int max_levels = 8;
constexpr unsigned int level_of_threads = 1;
constexpr unsigned int hyper_threading_bit = 1u << 28;

constexpr unsigned int kinds_of_caches[] = {4, 2, 1, 0};  // by the leaf's type

// One logical processor's identifier, and those of what it is part of.
struct Identity {
    unsigned int thread;
    unsigned int core;
    unsigned int package;
};

Identity split(unsigned int id, unsigned int thread_bits, unsigned int package_shift) {
    return {id, id >> thread_bits, id >> package_shift};
}

unsigned int vendor_of(CpuidLeaf const& leaf) {
    unsigned int const words[] = {leaf.b, leaf.d, leaf.c};
    if (std::memcmp(words, "GenuineIntel", sizeof words) == 0) return vendor_intel;
    if (std::memcmp(words, "AuthenticAMD", sizeof words) == 0) return vendor_amd;
    return vendor_other;
}

// From the leaf that lists a processor's levels with the bits of the identifier below each.
bool identify_by_levels(ProcessorSource const& source, unsigned int number, Identity& out) {
    unsigned int thread_bits = 0;
    unsigned int package_shift = 0;
    unsigned int level = 0;
    for (; level < max_levels; ++level) {
        CpuidLeaf const leaf = source.leaf(source.context, number, level);
        unsigned int const type = leaf.c >> 8 & 0xFF;
        if (leaf.b == 0 || type == 0) break;
        package_shift = leaf.a & 31;
        if (type == level_of_threads) thread_bits = package_shift;
        out = split(leaf.d, thread_bits, package_shift);
    }
    return level != 0;
}

// Before there was such a leaf: from the most threads and cores that a package can have.
Identity identify_by_counts(ProcessorSource const& source, unsigned int max_leaf) {
    CpuidLeaf const features = source.leaf(source.context, leaf_features, 0);
    unsigned int threads = 1;
    if ((features.d & hyper_threading_bit) != 0) threads = std::max(1u, features.b >> 16 & 0xFF);
    unsigned int cores = 1;
    if (max_leaf >= leaf_caches) cores = (source.leaf(source.context, leaf_caches, 0).a >> 26) + 1;
    auto const package_shift = static_cast<unsigned int>(std::bit_width(threads - 1));
    auto const core_bits = static_cast<unsigned int>(std::bit_width(cores - 1));
    unsigned int const thread_bits = package_shift - std::min(package_shift, core_bits);
    return split(features.b >> 24, thread_bits, package_shift);
}

Identity identify(ProcessorSource const& source, unsigned int max_leaf) {
    Identity identity = {};
    for (unsigned int const number : leaves_of_levels)
        if (max_leaf >= number && identify_by_levels(source, number, identity)) return identity;
    return identify_by_counts(source, max_leaf);
}

// Numbers the last of `count` identities by what it shares with those before it. False if its own
// identifier is among them.
bool place_last(CPUConfig& config, Identity const* identities, unsigned int count) {
    unsigned int const last = count - 1;
    Identity const& own = identities[last];
    CPUConfig::Processor placed = {};
    bool known_package = false;
    bool known_core = false;
    for (unsigned int i = 0; i < last; ++i) {
        CPUConfig::Processor const& other = config.processors[i];
        if (identities[i].thread == own.thread) return false;
        if (identities[i].package != own.package) {
            if (!known_package) placed.package = std::max(placed.package, other.package + 1);
            continue;
        }
        known_package = true;
        placed.package = other.package;
        if (identities[i].core == own.core) {
            known_core = true;
            placed.core = other.core;
            ++placed.thread;
        } else if (!known_core) {
            placed.core = std::max(placed.core, other.core + 1);
        }
    }
    config.processors[last] = placed;
    return true;
}

bool place_by_identifiers(CPUConfig& config, ProcessorSource const& source, unsigned int max_leaf) {
    Identity identities[CPUConfig::max_processors];
    unsigned int count = 0;
    for (auto rest = source.mask; rest != 0; rest &= rest - 1) {
        if (!source.bind(source.context, static_cast<unsigned int>(std::countr_zero(rest))))
            return false;
        identities[count++] = identify(source, max_leaf);
        if (!place_last(config, identities, count)) return false;
    }
    return true;
}

void place_as_cores(CPUConfig& config) {
    for (unsigned int i = 0; i < config.logical_processor_count; ++i)
        config.processors[i] = {0, i, 0, 0};
}

[[noreturn]] void refuse_caches(int line) {
    std::fprintf(
        stderr, "Need bigger MAX_CACHE_SUBLEAFS(%d) at %s %d\n",
        static_cast<int>(CPUConfig::max_caches), "src\\win\\intel\\cpu_topo.c", line);
    std::_Exit(EXIT_FAILURE);
}

CPUConfig::Cache describe(CpuidLeaf const& leaf) {
    unsigned long long const ways = (leaf.b >> 22) + 1;
    unsigned long long const partitions = (leaf.b >> 12 & 0x3FF) + 1;
    unsigned long long const line = (leaf.b & 0xFFF) + 1;
    unsigned long long const bytes = ways * partitions * line * (leaf.c + 1ull);
    unsigned int const type = leaf.a & 31;
    CPUConfig::Cache cache = {};
    cache.level = (leaf.a >> 5 & 7) - 1;
    cache.size = static_cast<unsigned int>(bytes >> 10) << 10;
    cache.kind = type < std::size(kinds_of_caches) ? kinds_of_caches[type] : 4;
    return cache;
}

void list_caches(CPUConfig& config, ProcessorSource const& source) {
    for (unsigned int i = 0;; ++i) {
        CpuidLeaf const leaf = source.leaf(source.context, leaf_caches, i);
        if ((leaf.a & 31) == 0) return;
        if (i == CPUConfig::max_caches) refuse_caches(__LINE__);
        config.caches[i] = describe(leaf);
        config.cache_count = i + 1;
    }
}

}  // namespace

void fill_cpu_config(CPUConfig& config, ProcessorSource const& source) {
    std::memset(&config, 0, sizeof config);
    CpuidLeaf const leaf = source.leaf(source.context, 0, 0);
    unsigned int const max_leaf = leaf.a;
    config.vendor = vendor_of(leaf);
    config.logical_processor_count =
        std::max(1u, static_cast<unsigned int>(std::popcount(source.mask)));
    bool const intel = config.vendor == vendor_intel;
    if (!intel || !place_by_identifiers(config, source, max_leaf)) place_as_cores(config);
    if (!intel || max_leaf < leaf_caches) return;
    if (source.mask != 0)
        source.bind(source.context, static_cast<unsigned int>(std::countr_zero(source.mask)));
    list_caches(config, source);
}

}  // namespace QX::detail
