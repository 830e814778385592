// pack_bench.cpp - opening packs and looking names up in them, beside hash maps of the same names,
// a reader of zip files and a plain read of the same index.
#include "benchmarks/bench.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#if defined(QX_RIVAL_ROBIN_MAP)
#include <tsl/robin_map.h>
#endif

#if defined(QX_RIVAL_LIBZIP)
#include <zip.h>
#endif

#include "qx/files/file_streams.h"
#include "qx/files/pack_file.h"

namespace {

constexpr unsigned int alignment = 512;
constexpr unsigned int probe_count = 100000;

using Names = std::vector<std::string>;
using Map = std::unordered_map<std::string_view, QX::PackFileEntry>;

#if defined(QX_RIVAL_ROBIN_MAP)
using FastMap = tsl::robin_map<std::string_view, QX::PackFileEntry>;
#endif

// Paths of about 40 characters, such as data folders hold.
Names make_names(unsigned int count) {
    static char const* const folders[] = {"maps", "textures", "models", "sounds", "scripts", "ui"};
    static char const* const kinds[] = {"tga", "dds", "wav", "xml", "lua", "mesh"};
    std::mt19937 random(11);
    Names names;
    for (unsigned int i = 0; i < count; ++i) {
        char name[80];
        std::snprintf(
            name, sizeof name, "data\\%s\\%s_%02u\\part_%05u_%06x.%s", folders[random() % 6],
            folders[random() % 6], static_cast<unsigned>(random() % 40), i,
            static_cast<unsigned>(random() & 0xFFFFFF), kinds[random() % 6]);
        names.emplace_back(name);
    }
    return names;
}

// A pack of empty entries: only the index matters here.
void write_pack(std::string const& path, Names const& names) {
    std::string block;
    for (std::string const& name : names) block += name + '\0';
    auto const count = static_cast<unsigned int>(names.size());
    unsigned int const sizes[] = {static_cast<unsigned int>(block.size()), count, alignment};
    auto const index_size = static_cast<unsigned int>(16 + block.size() + 4 * names.size());
    std::vector<unsigned int> const ends(
        count, static_cast<unsigned int>(QX::pack_round_up(index_size, alignment)));
    QX::FileOut file(path.c_str());
    file.write("PAK2", 4);
    file.write(sizes, sizeof sizes);
    file.write(block.data(), sizes[0]);
    file.write(ends.data(), 4 * count);
}

// Beside the pack.
std::string zip_path(std::string const& path) {
    return path + ".zip";
}

#if defined(QX_RIVAL_LIBZIP)
// The same empty entries, each 42 bytes larger in the directory that is read.
void write_zip(std::string const& path, Names const& names) {
    std::filesystem::remove(path);
    zip_t* const zip = zip_open(path.c_str(), ZIP_CREATE, nullptr);
    for (std::string const& name : names) {
        zip_source_t* const empty = zip_source_buffer(zip, nullptr, 0, 0);
        auto const index = zip_file_add(zip, name.c_str(), empty, 0);
        zip_set_file_compression(zip, static_cast<zip_uint64_t>(index), ZIP_CM_STORE, 0);
    }
    if (zip_close(zip) != 0) std::abort();
}

class Zip {
public:
    explicit Zip(std::string const& path)
        : zip_(zip_open(zip_path(path).c_str(), ZIP_RDONLY, nullptr)) {}
    // From memory, where it makes no system call for each entry.
    explicit Zip(std::string_view bytes)
        : zip_(zip_open_from_source(
              zip_source_buffer_create(bytes.data(), bytes.size(), 0, nullptr), ZIP_RDONLY,
              nullptr)) {}
    ~Zip() { zip_discard(zip_); }

    Zip(Zip const&) = delete;
    Zip& operator=(Zip const&) = delete;

    bool has(std::string const& name) const { return zip_name_locate(zip_, name.c_str(), 0) >= 0; }
    auto size() const { return zip_get_num_entries(zip_, 0); }

private:
    zip_t* zip_;
};

unsigned int hits(Zip const& zip, Names const& probes) {
    unsigned int found = 0;
    for (std::string const& probe : probes) found += zip.has(probe);
    return found;
}
#endif

// Other copies of the names in random order, so that no contender meets its own memory.
Names make_probes(Names const& names, bool present) {
    std::mt19937 random(12);
    Names probes;
    for (unsigned int i = 0; i < probe_count; ++i) {
        probes.push_back(names[random() % names.size()]);
        if (!present) probes.back().back() = '!';
    }
    return probes;
}

void read_index(std::string const& path, std::string& bytes) {
    QX::FileIn file(path.c_str(), false);
    bytes.resize(file.size());
    file.read(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

template <typename AnyMap>
void build_map(std::string const& bytes, std::size_t count, AnyMap& map) {
    map.reserve(count);
    char const* name = bytes.data() + 16;
    for (std::size_t i = 0; i < count; ++i) {
        std::string_view const view(name);
        map[view] = {alignment, 0};
        name += view.size() + 1;
    }
}

unsigned int hits(QX::AsyncPackFile const& pack, Names const& probes) {
    unsigned int found = 0;
    for (std::string const& probe : probes) found += pack.info(probe.c_str()) != nullptr;
    return found;
}

template <typename AnyMap>
unsigned int hits(AnyMap const& map, Names const& probes) {
    unsigned int found = 0;
    for (std::string const& probe : probes) found += map.find(probe.c_str()) != map.end();
    return found;
}

template <typename AnyMap>
void read_into_map(std::string const& path, unsigned int count) {
    std::string bytes;
    AnyMap map;
    read_index(path, bytes);
    build_map(bytes, count, map);
    bench::keep(map.size());
}

template <typename Pack>
bench::Contender opener(char const* name, std::string const& path) {
    return {name, [&path] {
                Pack pack;
                bench::keep(pack.open(path.c_str(), 0));
            }};
}

void measure_opening(bench::Table const& table, std::string const& path, unsigned int count) {
    std::vector<bench::Contender> contenders = {
        opener<QX::AsyncPackFile>("QXLibs", path),
        opener<QX::MemPackFile>("QXLibs, mapped", path),
        {"std::unordered_map", [&] { read_into_map<Map>(path, count); }},
    };
#if defined(QX_RIVAL_ROBIN_MAP)
    contenders.push_back({"tsl::robin_map", [&] { read_into_map<FastMap>(path, count); }});
#endif
#if defined(QX_RIVAL_LIBZIP)
    std::string zip;
    read_index(zip_path(path), zip);
    if (Zip(std::string_view(zip)).size() != count || Zip(path).size() != count) std::abort();
    contenders.push_back({"libzip, a zip of the names", [&] { bench::keep(Zip(path).size()); }});
    contenders.push_back(
        {"libzip, the zip in memory", [&] { bench::keep(Zip(std::string_view(zip)).size()); }});
#endif
    contenders.push_back({"the index read alone", [&] {
                              std::string bytes;
                              read_index(path, bytes);
                          }});
    table.row((std::to_string(count) + " names, open").c_str(), 1, contenders);
}

void measure_look_ups(bench::Table const& table, std::string const& path, Names const& names) {
    QX::AsyncPackFile pack;
    if (!pack.open(path.c_str(), 0)) std::abort();
    std::string bytes;
    Map map;
    read_index(path, bytes);
    build_map(bytes, names.size(), map);
#if defined(QX_RIVAL_ROBIN_MAP)
    FastMap fast_map;
    build_map(bytes, names.size(), fast_map);
#endif
#if defined(QX_RIVAL_LIBZIP)
    Zip const zip(path);
#endif
    for (bool const present : {true, false}) {
        Names const probes = make_probes(names, present);
        unsigned int const expected = present ? probe_count : 0;
        if (hits(pack, probes) != expected || hits(map, probes) != expected) std::abort();
        std::vector<bench::Contender> contenders = {
            {"QXLibs", [&] { bench::keep(hits(pack, probes)); }},
            {"std::unordered_map", [&] { bench::keep(hits(map, probes)); }},
        };
#if defined(QX_RIVAL_ROBIN_MAP)
        contenders.push_back({"tsl::robin_map", [&] { bench::keep(hits(fast_map, probes)); }});
#endif
#if defined(QX_RIVAL_LIBZIP)
        if (hits(zip, probes) != expected) std::abort();
        contenders.push_back(
            {"libzip, a zip of the names", [&] { bench::keep(hits(zip, probes)); }});
#endif
        std::string const label = std::to_string(names.size()) + " names, ";
        table.row((label + (present ? "hit" : "miss")).c_str(), probe_count, contenders);
    }
}

}  // namespace

int main() {
    std::string const path = (std::filesystem::temp_directory_path() / "qx_bench.pack").string();
    bench::Table const table("packs");
    for (unsigned int const count : {100u, 1000u, 10000u, 100000u}) {
        Names const names = make_names(count);
        write_pack(path, names);
#if defined(QX_RIVAL_LIBZIP)
        write_zip(zip_path(path), names);
#endif
        measure_opening(table, path, count);
        measure_look_ups(table, path, names);
    }
    std::filesystem::remove(path);
    std::filesystem::remove(zip_path(path));
}
