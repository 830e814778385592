#include "qx/diagnostics/map_file.h"

#include <gtest/gtest.h>

#include "tests/harness/random.h"
#include "tests/harness/temp_folder.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Offsets = std::array<unsigned int, 32>;
using Names = std::vector<std::string>;

char own_prefix[] = "Own_";
char* own_prefixes[] = {own_prefix, nullptr};

// Without the empty names at the end.
Names names_of(std::string const& file, Offsets const& offsets) {
    Names names;
    for (auto const& name : QX::stack::symbolicate_from_map(offsets, file.c_str(), own_prefixes))
        names.push_back(name.c_str());
    while (!names.empty() && names.back().empty()) names.pop_back();
    return names;
}

std::string const map =
    " game\n\n Start         Length     Name                   Class\n"
    " 0001:00000000 00000100H .text                   CODE\n\n"
    "  Address         Publics by Value              Rva+Base               Lib:Object\n\n"
    " 0000:00000000       __ImageBase                0000000140000000     <linker-defined>\n"
    " 0001:00000000       ?first@@YAXXZ              0000000140001000 f   a.obj\n"
    " 0001:00000010       ?second@@YAXXZ             0000000140001010 f i a.obj\n"
    " 0001:00000014       Label_inner                0000000140001014     a.obj\n"
    " 0001:00000020       third                      0000000140001020 f   lib:b.obj\n"
    " 0001:00000030       fourth                     0000000140001030 f   lib:b.obj\n"
    " entry point at        0001:00000000\n";

TEST(MapFile, resolves_by_a_merge_of_one_symbol_for_one_offset) {
    test::TempFolder const folder;
    std::string const file = folder.write("game.map", map);
    EXPECT_EQ(names_of(file, {0x1016}), Names{"?second@@YAXXZ"});  // behind the label
    EXPECT_EQ(names_of(file, {0x1020, 0x1001}), (Names{"third", "?first@@YAXXZ"}));
    EXPECT_EQ(names_of(file, {0x1001, 0x1002}), (Names{"?first@@YAXXZ", "?second@@YAXXZ"}));
    EXPECT_EQ(names_of(file, {0x1021, 0x1021, 0, 0x1001}), (Names{"third", "third"}));
    EXPECT_EQ(names_of(file, {}), Names());
    EXPECT_EQ(names_of(folder.file("none.map"), {0x1000}), Names());
}

TEST(MapFile, cut_anywhere_gives_what_was_resolved_so_far) {
    test::TempFolder const folder;
    Offsets const offsets = {0x1001, 0x1011, 0x1021, 0x1031, 0x9000};
    Names const full = {"?first@@YAXXZ", "?second@@YAXXZ", "third"};
    std::size_t most = 0;
    for (std::size_t size = 0; size <= map.size(); ++size) {
        Names const names = names_of(folder.write("cut.map", map.substr(0, size)), offsets);
        EXPECT_TRUE(std::equal(names.begin(), names.end(), full.begin())) << size;
        EXPECT_GE(names.size(), most) << size;
        most = names.size();
    }
    EXPECT_EQ(most, full.size());
}

// --- Against the plain way -----------------------------------------------------------------------

char const* const labels[] = {
    "Label_", "MY_$", "ExceptionLabel_", "RandomData_", "cpuidLabel_", "syscallLabel_", "Own_"};

// The rule step by step on a stream, for maps that hold every target.
Names plainly(std::string const& text, Offsets const& offsets) {
    std::istringstream in(text.substr(text.find("__ImageBase")));
    std::string previous, token, name, rest;
    unsigned long long base = 0, address = 0;
    in >> previous >> std::hex >> base >> rest;
    Offsets sorted = offsets;
    std::sort(sorted.begin(), sorted.end());
    std::map<unsigned int, std::string> found;
    auto target = std::upper_bound(sorted.begin(), sorted.end(), 0u);
    while (target != sorted.end() && in >> token >> name >> address && std::getline(in, rest)) {
        auto const begins = [&](char const* label) { return name.rfind(label, 0) == 0; };
        if (std::any_of(std::begin(labels), std::end(labels), begins)) continue;
        if (*target < address - base) found.emplace(*target++, previous);
        previous = name;
    }
    Names names;
    for (std::size_t i = 0; i < 32 && offsets[i]; ++i) names.push_back(found[offsets[i]]);
    return names;
}

TEST(MapFile, is_read_as_the_plain_merge_reads_it) {
    test::Random random;
    test::TempFolder const folder;
    for (int round = 0; round < 200; ++round) {
        std::ostringstream text;
        text << std::string(5000, '-') << "\n  Address\n\n 0:0 __ImageBase 0180000000 <linker>\n";
        unsigned int address = 0x80001000;
        for (int i = 0; i < 200; ++i, address += random.below(40)) {
            std::string const name = random.chance(9) ? std::string(2000, 'n') : "f";
            text << " 1:0\t " << (random.chance(5) ? labels[random.below(7)] : name) << i
                 << " 00000001" << std::hex << address << std::dec << " f x.obj\n";
        }
        Offsets offsets = {};
        for (std::uint32_t i = random.below(33); i-- != 0;) {
            unsigned int const spread = 0x1000 + random.below(random.chance(2) ? 60 : 3000);
            offsets[i] = random.chance(20) ? 0 : spread;
        }
        std::string const file = folder.write("random.map", text.str());
        EXPECT_EQ(names_of(file, offsets), plainly(text.str(), offsets));
    }
}

}  // namespace
