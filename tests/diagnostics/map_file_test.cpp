#include "qx/diagnostics/map_file.h"

#include <gtest/gtest.h>

#include "tests/harness/random.h"
#include "tests/harness/temp_folder.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <vector>

namespace {

using Offsets = std::array<unsigned int, 32>;
using Names = std::vector<std::string>;

char own_prefix[] = "Own_";
char* own_prefixes[] = {own_prefix, nullptr};

Names names_of(std::string const& file, Offsets const& offsets) {
    Names names;
    for (auto const& name : QX::stack::symbolicate_from_map(offsets, file.c_str(), own_prefixes))
        names.push_back(name.c_str());
    return names;
}

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
    Names names(32);
    for (std::size_t i = 0; i < 32 && offsets[i]; ++i) names[i] = found[offsets[i]];
    return names;
}

TEST(MapFile, is_read_as_the_plain_merge_reads_it) {
    test::Random random;
    test::TempFolder const folder;
    for (int round = 0; round < 400; ++round) {
        std::ostringstream map;
        map << std::string(1100, '-') << "\n  Address\n\n 0:0 __ImageBase 0180000000 <linker>\n";
        unsigned int address = 0x80001000;
        for (int i = 0; i < 200; ++i, address += random.below(40)) {
            std::string const name = random.chance(9) ? std::string(2000, 'n') : "f";
            map << " 1:0\t " << (random.chance(5) ? labels[random.below(7)] : name) << i
                << " 00000001" << std::hex << address << std::dec << " f x.obj\n";
        }
        Offsets offsets = {};
        for (std::uint32_t i = random.below(33); i-- != 0;) {
            unsigned int const spread = 0x1000 + random.below(random.chance(2) ? 60 : 3000);
            offsets[i] = random.chance(20) ? 0 : spread;
        }
        std::string const text = map.str();
        Names const names = plainly(text, offsets);
        EXPECT_EQ(names_of(folder.write("random.map", text), offsets), names);
        EXPECT_EQ(names_of(folder.file("none.map"), offsets), Names(32));
        auto const size = random.below(static_cast<std::uint32_t>(text.size()));
        Names const cut = names_of(folder.write("cut.map", text.substr(0, size)), offsets);
        for (int i = 0; i < 32; ++i) EXPECT_TRUE(cut[i].empty() || cut[i] == names[i]);
    }
}

}  // namespace
