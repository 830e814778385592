#include "qx/diagnostics/map_file.h"

#include <gtest/gtest.h>

#include "tests/harness/random.h"
#include "tests/harness/temp_folder.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Offsets = std::array<unsigned int, 32>;
using Names = std::vector<std::string>;

char* no_prefixes[] = {nullptr};

Offsets offsets_of(std::vector<unsigned int> const& few) {
    Offsets offsets = {};
    std::copy(few.begin(), few.end(), offsets.begin());
    return offsets;
}

// All 32 names.
Names all_names(std::string const& file, Offsets const& offsets, char** prefixes = no_prefixes) {
    Names names;
    for (QX::String const& name : QX::stack::symbolicate_from_map(offsets, file.c_str(), prefixes))
        names.push_back(name.c_str());
    return names;
}

// As many names as there are offsets; what lies behind must be empty.
Names names_of(
    std::string const& file, std::vector<unsigned int> const& few, char** prefixes = no_prefixes) {
    Names names = all_names(file, offsets_of(few), prefixes);
    EXPECT_EQ(std::count(names.begin() + few.size(), names.end(), ""), 32 - int(few.size()));
    names.resize(few.size());
    return names;
}

// As two linkers write it: preamble, sections, table, entry point, statics.
char const msvc_map[] =
    " game\n\n Timestamp is 5f3a2b1c (Mon Aug 17 07:01:48 2020)\n\n"
    " Preferred load address is 0000000140000000\n\n"
    " Start         Length     Name                   Class\n"
    " 0001:00000000 00000100H .text                   CODE\n"
    " 0002:00000000 00000040H .rdata                  DATA\n\n"
    "  Address         Publics by Value              Rva+Base               Lib:Object\n\n"
    " 0000:00000000       ___safe_se_handler_table   0000000000000000     <absolute>\n"
    " 0000:00000000       __ImageBase                0000000140000000     <linker-defined>\n"
    " 0001:00000000       ?first@@YAXXZ              0000000140001000 f   a.obj\n"
    " 0001:00000010       ?second@@YAXXZ             0000000140001010 f i a.obj\n"
    " 0001:00000014       Label_inner                0000000140001014     a.obj\n"
    " 0001:00000018       Hand_made                  0000000140001018     a.obj\n"
    " 0001:00000020       third                      0000000140001020 f   lib:b.obj\n"
    " 0001:00000030       fourth                     0000000140001030 f   lib:b.obj\n"
    " 0002:00000000       data                       0000000140002000     b.obj\n\n"
    " entry point at        0001:00000000\n\n"
    " Static symbols\n\n"
    " 0001:00000040       helper                     0000000140001040 f   b.obj\n";

char const gnu_map[] = "Archive member included to satisfy reference by file (symbol)\n\n"
                       "Memory Configuration\n\nName             Origin             Length\n"
                       "*default*        0x0000000000000000 0xffffffffffffffff\n\n"
                       " .text          0x0000000140001000      0x120 game.o\n"
                       "                0x0000000140001000                first\n"
                       "                0x0000000140001010                __ImageBase\n";

char const lld_map[] = "Address  Size     Align Out     In      Symbol\n"
                       "00001000 00000120  4096 .text\n"
                       "00001000 00000020    16         game.o:(.text)\n"
                       "00001000 00000000     0                 first\n";

struct Row {
    std::vector<unsigned int> offsets;
    Names names;
};

TEST(MapFile, resolves_by_a_merge_of_one_symbol_for_one_offset) {
    test::TempFolder const folder;
    std::string const file = folder.write("game.map", msvc_map);
    Row const rows[] = {
        {{0x1000}, {"?first@@YAXXZ"}},
        {{0x100F}, {"?first@@YAXXZ"}},
        {{0x1010}, {"?second@@YAXXZ"}},
        {{0x1016}, {"?second@@YAXXZ"}},  // behind the label
        {{0x800}, {"__ImageBase"}},
        {{0x1FFF}, {"fourth"}},
        {{0x1001, 0x1021}, {"?first@@YAXXZ", "third"}},
        {{0x1021, 0x1001}, {"third", "?first@@YAXXZ"}},
        {{0x1001, 0x1002}, {"?first@@YAXXZ", "?second@@YAXXZ"}},  // two in one function
        {{0x1021, 0x1021}, {"third", "third"}},
        {{0x1021, 0, 0x1001}, {"third", "", ""}},
        {{0x9000}, {""}},
        {{0x1001, 0x9000}, {"?first@@YAXXZ", ""}},
        {{}, {}},
    };
    for (Row const& row : rows) EXPECT_EQ(names_of(file, row.offsets), row.names);
}

TEST(MapFile, passes_over_symbols_with_prefixes_of_the_caller) {
    test::TempFolder const folder;
    std::string const file = folder.write("game.map", msvc_map);
    EXPECT_EQ(names_of(file, {0x1019}), Names{"Hand_made"});
    char prefix[] = "Hand";
    char* prefixes[] = {prefix, nullptr};
    EXPECT_EQ(names_of(file, {0x1019}, prefixes), Names{"?second@@YAXXZ"});
}

TEST(MapFile, knows_the_labels_inside_functions) {
    test::TempFolder const folder;
    for (std::string label :
         {"Label_", "MY_$", "ExceptionLabel_", "RandomData_", "cpuidLabel_", "syscallLabel_"}) {
        std::string text = msvc_map;
        text.replace(text.find("Label_inner"), 6, label);
        std::string const file = folder.write("game.map", text);
        EXPECT_EQ(names_of(file, {0x1015}), Names{"?second@@YAXXZ"}) << label;
    }
}

TEST(MapFile, without_a_table_or_a_file_gives_empty_names) {
    test::TempFolder const folder;
    for (char const* text :
         {gnu_map, lld_map, "", "\n\n", "  Address", "  Address\n\n", " Address"})
        EXPECT_EQ(names_of(folder.write("other.map", text), {0x1000}), Names{""});
    EXPECT_EQ(names_of(folder.file("none.map"), {0x1000}), Names{""});
}

TEST(MapFile, bears_long_lines_and_lines_that_are_no_entries) {
    test::TempFolder const folder;
    std::string text = std::string(5000, '-') + "\n" + msvc_map;
    std::string const long_name(9000, 'n');
    text.replace(text.find("third"), 5, long_name);
    EXPECT_EQ(names_of(folder.write("long.map", text), {0x1021}), Names{long_name});
    text.insert(text.find(" 0001:00000030"), "this is none\n");
    EXPECT_EQ(
        names_of(folder.write("odd.map", text), {0x1001, 0x1021}), (Names{"?first@@YAXXZ", ""}));
}

TEST(MapFile, cut_anywhere_gives_what_was_resolved_so_far) {
    test::TempFolder const folder;
    std::string const whole = msvc_map;
    std::vector<unsigned int> const offsets = {0x1001, 0x1011, 0x1021, 0x1FFF, 0x9000};
    Names const full = names_of(folder.write("whole.map", whole), offsets);
    std::size_t most = 0;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        Names const names = names_of(folder.write("cut.map", whole.substr(0, size)), offsets);
        std::size_t resolved = 0;
        for (; resolved < names.size() && !names[resolved].empty(); ++resolved)
            EXPECT_EQ(names[resolved], full[resolved]) << size;
        EXPECT_EQ(std::count(names.begin() + resolved, names.end(), ""), 5 - int(resolved));
        EXPECT_GE(resolved, most) << size;
        most = resolved;
    }
    EXPECT_EQ(most, 4u);
}

// --- Against the plain way -----------------------------------------------------------------------

// The rule step by step on a stream, for maps that hold every target.
Names plainly(std::string const& text, Offsets const& offsets) {
    std::istringstream in(text);
    std::string line, token, name;
    while (std::getline(in, line) && line.compare(2, 7, "Address") != 0) {}
    std::getline(in, line);
    in >> std::hex;
    unsigned long long address = 0;
    while (in >> token >> name >> address && std::getline(in, line) && name != "__ImageBase") {}
    unsigned long long const base = address;
    std::string previous = name;
    Offsets sorted = offsets;
    std::sort(sorted.begin(), sorted.end());
    std::map<unsigned int, std::string> found;
    auto target = std::find_if(sorted.begin(), sorted.end(), [](unsigned int o) { return o; });
    while (target != sorted.end() && in >> token >> name >> address && std::getline(in, line)) {
        if (name.rfind("Label_", 0) == 0) continue;
        if (*target < address - base) found.emplace(*target++, previous);
        previous = name;
    }
    Names names(32);
    for (std::size_t i = 0; i < 32 && offsets[i]; ++i) names[i] = found[offsets[i]];
    return names;
}

std::string random_map(test::Random& random) {
    std::string text = "  Address         Publics by Value\n\n";
    text += " 0000:00000000 __ImageBase 0000000180000000 <linker>\n";
    unsigned long long address = 0x180001000;
    for (int i = 0; i < 200; ++i) {
        char line[100];
        char const* const kind = random.chance(5) ? "Label_" : "f";
        std::sprintf(line, " 0001:00000000\t %s%d  %016llx f x.obj\n", kind, i, address);
        text += line;
        address += random.below(40);
    }
    return text;
}

TEST(MapFile, is_read_as_the_plain_merge_reads_it) {
    test::Random random;
    test::TempFolder const folder;
    for (int round = 0; round < 200; ++round) {
        std::string const text = random_map(random);
        Offsets offsets = {};
        std::uint32_t const count = random.below(33);
        for (std::uint32_t i = 0; i < count; ++i) {
            unsigned int const spread = 0x1000 + random.below(random.chance(2) ? 60 : 5000);
            offsets[i] = random.chance(20) ? 0 : spread;
        }
        EXPECT_EQ(all_names(folder.write("random.map", text), offsets), plainly(text, offsets));
    }
}

}  // namespace
