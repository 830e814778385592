// names_bench.cpp - making file names that are known already, beside a locked set of strings that
// does not normalise, and shaping paths.
#include "qx/base/windows.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include "benchmarks/bench.h"
#include "qx/files/file_name.h"
#include "qx/files/filesystem.h"

namespace {

unsigned int step(unsigned int& state) {
    state = state * 1664525 + 1013904223;
    return state >> 8;
}

// 40 characters on average, as a game's data folder has them.
std::vector<std::string> make_names(unsigned int count) {
    char const* const folders[] = {
        "variantmeshes\\", "models\\weapons\\", "terrain\\tiles\\", "ui\\skins\\default\\"};
    char const* const ends[] = {".rigid_model", ".dds", ".texture", ".xml"};
    std::vector<std::string> names;
    unsigned int state = 11;
    for (unsigned int i = 0; i < count; ++i) {
        std::string name = folders[step(state) % 4];
        for (unsigned int letters = 6 + step(state) % 10; letters; --letters)
            name += static_cast<char>('a' + step(state) % 26);
        name += "_" + std::to_string(i) + ends[step(state) % 4];
        names.push_back(name);
    }
    return names;
}

// The same names by their other copies, in random order.
std::vector<std::string> shuffled(std::vector<std::string> names, unsigned int seed) {
    for (std::size_t i = names.size(); i > 1; --i) std::swap(names[i - 1], names[step(seed) % i]);
    return names;
}

std::string shouted(std::string name) {
    for (char& c : name) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        if (c == '\\') c = '/';
    }
    return name;
}

struct CriticalSection {
    CriticalSection() { InitializeCriticalSectionAndSpinCount(&section, 10000); }
    void lock() { EnterCriticalSection(&section); }
    void unlock() { LeaveCriticalSection(&section); }
    CRITICAL_SECTION section;
};

struct SlimLock {
    void lock() { AcquireSRWLockExclusive(&slim); }
    void unlock() { ReleaseSRWLockExclusive(&slim); }
    SRWLOCK slim = SRWLOCK_INIT;
};

template <typename Lock>
struct LockedSet {
    std::string const* intern(char const* text) {
        std::lock_guard<Lock> const hold(lock);
        return &*set.emplace(text).first;
    }

    Lock lock;
    std::unordered_set<std::string> set;
};

using Names = std::vector<std::string>;

template <typename Intern>
std::function<void()> one_thread(Names const& names, Intern intern) {
    return [&names, intern] {
        for (std::string const& name : names) bench::keep(intern(name.c_str()));
    };
}

// Two threads walk the names from both ends.
template <typename Intern>
std::function<void()> two_threads(Names const& names, Names const& others, Intern intern) {
    return [=, &names, &others] {
        std::thread other(one_thread(others, intern));
        one_thread(names, intern)();
        other.join();
    };
}

void shape_rows() {
    bench::Table const table("shaping paths");
    QX::String const path = "Data/VariantMeshes/Models//Unit_00042.Rigid_Model";
    std::string const plain = path.c_str();
    table.row(
        "50 characters to canonical form", 100000,
        {{"sanitise_file_name",
          [&] {
              for (int i = 0; i < 100000; ++i)
                  bench::keep(QX::Filesystem::sanitise_file_name(path, nullptr));
          }},
         {"byte by byte into a std::string", [&] {
              for (int i = 0; i < 100000; ++i) {
                  std::string out;
                  out.reserve(plain.size());
                  for (char c : plain) {
                      if (c == '/') c = '\\';
                      if (c == '\\' && !out.empty() && out.back() == '\\') continue;
                      out += c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
                  }
                  bench::keep(out.data());
              }
          }}});
}

}  // namespace

int main() {
    constexpr unsigned int count = 100000;
    Names const names = make_names(count);
    Names const probes = shuffled(names, 12);
    Names const others = shuffled(names, 13);
    Names loud;
    for (std::string const& name : probes) loud.push_back(shouted(name));

    LockedSet<CriticalSection> sections;
    LockedSet<SlimLock> slim;
    LockedSet<std::mutex> mutexes;
    auto const by_name = [](char const* text) { return &QX::FileName(text).name(); };
    auto const by_section = [&](char const* text) { return sections.intern(text); };
    auto const by_slim = [&](char const* text) { return slim.intern(text); };
    auto const by_mutex = [&](char const* text) { return mutexes.intern(text); };
    for (std::string const& name : names) {
        by_name(name.c_str());
        by_section(name.c_str());
        by_slim(name.c_str());
        by_mutex(name.c_str());
    }

    bench::Table const table("file names, 100k known ones made again");
    table.row(
        "one thread", count,
        {{"FileName", one_thread(probes, by_name)},
         {"unordered_set<string> + CRITICAL_SECTION", one_thread(probes, by_section)},
         {"unordered_set<string> + SRWLOCK", one_thread(probes, by_slim)},
         {"unordered_set<string> + std::mutex", one_thread(probes, by_mutex)}});
    table.row(
        "two threads", 2.0 * count,
        {{"FileName", two_threads(probes, others, by_name)},
         {"unordered_set<string> + CRITICAL_SECTION", two_threads(probes, others, by_section)},
         {"unordered_set<string> + SRWLOCK", two_threads(probes, others, by_slim)},
         {"unordered_set<string> + std::mutex", two_threads(probes, others, by_mutex)}});
    table.row(
        "capitals and slashes, one thread", count,
        {{"FileName", one_thread(loud, by_name)},
         {"unordered_set<string> of the folded names + CRITICAL_SECTION",
          one_thread(probes, by_section)}});
    shape_rows();
    return 0;
}
