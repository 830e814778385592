#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "qx/files/pack_file.h"
#include "tests/harness/pack_builder.h"
#include "tests/harness/random.h"
#include "tests/harness/run_tool.h"
#include "tests/harness/temp_folder.h"

namespace {

namespace fs = std::filesystem;

using Result = test::ToolResult;

Result qxpack(std::string const& arguments) {
    return test::run_tool("qxpack", arguments);
}

bool has(std::string const& text, std::string const& part) {
    return text.find(part) != text.npos;
}

std::map<std::string, std::string> tree_of(fs::path const& folder) {
    std::map<std::string, std::string> files;
    for (auto const& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file())
            files[entry.path().lexically_relative(folder).string()] =
                test::read_file(entry.path().string());
    }
    return files;
}

void make_tree(test::TempFolder const& folder) {
    fs::create_directories(folder.path() + "in\\Maps\\deep");
    test::Random random(5);
    std::string noise(300000, 0);
    for (char& c : noise) c = static_cast<char>(random.next());
    folder.write("in\\Maps\\One.txt", "first");
    folder.write("in\\Maps\\deep\\noise.bin", noise);
    folder.write("in\\empty", "");
    folder.write("in\\z", "last");
}

TEST(Qxpack, what_goes_in_comes_out) {
    test::TempFolder folder;
    make_tree(folder);
    std::string const in = folder.file("in"), out = folder.file("out");
    for (std::string const options : {"", "--key 77 --align 16", "--key 0xFFFF --align 1"}) {
        std::string const key = options.substr(0, options.find("--align"));
        std::string const pack = folder.file("p.pack");
        Result const created = qxpack("create " + options + " " + pack + " " + in);
        EXPECT_TRUE(has(created.output, "4 entries, 300009 bytes")) << created.errors;
        Result const verified = qxpack("verify " + key + " " + pack);
        EXPECT_TRUE(has(verified.output, "good, 4 entries")) << verified.errors;
        EXPECT_EQ(has(verified.output, "not laid out for asynchronous"), options != "");
        fs::remove_all(out);
        ASSERT_EQ(qxpack("extract " + key + " " + pack + " " + out).code, 0u);
        EXPECT_EQ(tree_of(out), tree_of(in));
    }
}

TEST(Qxpack, writes_what_the_asynchronous_reader_opens) {
    test::TempFolder folder;
    make_tree(folder);
    std::string const pack = folder.file("in\\p.pack");
    folder.write("in\\p.pack.partial", "left by a run that was cut off");
    for (int round = 0; round < 2; ++round) {  // the second finds the first in the folder
        ASSERT_EQ(qxpack("create --key 5 " + pack + " " + folder.file("in")).code, 0u);
        QX::AsyncPackFile reader;
        ASSERT_TRUE(reader.open(pack.c_str(), 5));
        EXPECT_EQ(reader.count(), 4u);
        EXPECT_EQ(reader.aligned(), 4096u);
        EXPECT_EQ(reader.size("Maps\\One.txt"), 5u);
        EXPECT_FALSE(reader.contains("maps\\one.txt"));
    }
    Result const listed = qxpack("list --key 5 " + pack);
    EXPECT_TRUE(has(listed.output, "      4096          5  Maps\\One.txt")) << listed.output;
    EXPECT_LT(listed.output.find("One.txt"), listed.output.find("  z"));
}

TEST(Qxpack, names_the_file_that_it_cannot_use) {
    test::TempFolder folder;
    make_tree(folder);
    test::PackRecipe recipe;
    recipe.entries = {{"a", "x"}, {"b", "y"}};
    std::string const good = folder.write("good.pack", test::build_pack(recipe));
    recipe.version = '1';
    folder.write("wide.pack", test::build_pack(recipe));
    recipe.version = '2';
    recipe.entries.push_back({"a", "z"});
    folder.write("twice.pack", test::build_pack(recipe));
    recipe.entries = {{"..\\a", "z"}};
    folder.write("escape.pack", test::build_pack(recipe));
    recipe.entries = {{"a", "x"}, {"A", "y"}};
    folder.write("case.pack", test::build_pack(recipe));

    struct Row {
        std::string arguments;
        unsigned long code;
        std::string said;
    };
    std::string const path = folder.path();
    Row const rows[] = {
        {"list " + path + "missing.pack", 1, "missing.pack: can't be opened"},
        {"list " + path + "wide.pack", 1, "wide.pack: a pack with wide names"},
        {"list --key 9 " + good, 1, "good.pack: damaged, or another key"},
        {"verify " + path + "twice.pack", 1, "1 names stand twice"},
        {"extract " + path + "escape.pack " + path + "o", 1, "no name for a file"},
        {"extract " + path + "case.pack " + path + "o", 1, "differ by case alone"},
        {"create " + path + "n.pack " + path + "missing", 1, "missing: no such folder"},
        {"create " + path + "no\\n.pack " + path + "in", 1, "n.pack.partial: can't be written"},
        {"create --key 65536 " + path + "n.pack " + path + "in", 2, "up to 65535"},
        {"list --align 4 " + good, 2, "--align: no such option"},
    };
    for (Row const& row : rows) {
        Result const result = qxpack(row.arguments);
        EXPECT_EQ(result.code, row.code) << row.arguments;
        EXPECT_TRUE(has(result.errors, row.said)) << row.arguments << ": " << result.errors;
        EXPECT_EQ(result.output, "");
    }
    EXPECT_FALSE(fs::exists(folder.file("o")) || fs::exists(folder.file("n.pack")));
}

TEST(Qxpack, refuses_4_gib_before_it_writes_anything) {
    test::TempFolder folder;
    fs::create_directories(folder.file("in"));
    for (char const* name : {"in\\a", "in\\b"}) {
        HANDLE const file = CreateFileA(
            folder.file(name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        LARGE_INTEGER size;
        size.QuadPart = 0x7FFFFFF0;
        SetFilePointerEx(file, size, nullptr, FILE_BEGIN);
        SetEndOfFile(file);  // sparse
        CloseHandle(file);
    }
    Result const result = qxpack("create " + folder.file("p.pack") + " " + folder.file("in"));
    EXPECT_EQ(result.code, 1u);
    EXPECT_TRUE(has(result.errors, "p.pack: would be 4 GiB or more")) << result.errors;
    EXPECT_FALSE(fs::exists(folder.file("p.pack")));
}

// The example of docs/formats/pack.md, byte by byte.
TEST(MemPackFile, opens_the_example_of_the_formats_page) {
    std::string const bytes(
        "PAK2\x04\0\0\0\x02\0\0\0\x10\0\0\0"
        "a\0b\0\x25\0\0\0\x33\0\0\0\0\0\0\0"
        "hello\0\0\0\0\0\0\0\0\0\0\0xyz",
        51);
    test::TempFolder folder;
    QX::MemPackFile pack;
    ASSERT_TRUE(pack.open(folder.write("p", bytes).c_str(), 0));
    EXPECT_EQ(std::string(pack.data("a"), pack.size("a")), "hello");
    EXPECT_EQ(std::string(pack.data("b"), pack.size("b")), "xyz");
}

}  // namespace
