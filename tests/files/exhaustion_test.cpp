// What the files make of memory and of system calls that fail.
#include <gtest/gtest.h>

#include <string>

#include "qx/files/compression.h"
#include "qx/files/filesystem.h"
#include "qx/files/memory_streams.h"
#include "qx/files/pack_file.h"
#include "tests/harness/failing_call.h"
#include "tests/harness/pack_builder.h"
#include "tests/harness/temp_folder.h"

namespace {

namespace fs = QX::Filesystem;

constexpr test::SystemCall open = {"CreateFileA", -1}, close = {"CloseHandle", 0, true},
                           read = {"ReadFile"}, size = {"GetFileSizeEx"},
                           seek = {"SetFilePointerEx"}, begin_read = {"ReadFileEx"},
                           map = {"CreateFileMappingW"}, c_open = {"fopen"}, c_write = {"fwrite"},
                           c_close = {"fclose", -1, true}, c_find = {"_findfirst64", -1},
                           find = {"FindFirstFileA", -1}, remove_file = {"remove", -1},
                           remove_folder = {"_rmdir", -1};

class Exhaustion : public testing::Test {
protected:
    ~Exhaustion() override { hook(nullptr); }

    void hook(QX::FileOpenHook fn) {
        QX::FileIn::hook_open(fn, nullptr, nullptr);
        QX::AsyncIn::hook_open(fn, nullptr, nullptr);
    }

    test::TempFolder folder_;
    std::string const source_ = folder_.write("source", std::string(1024, 's')),
                      made_ = folder_.file("made"), other_ = folder_.file("other");
    char const* const name_ = source_.c_str();
    alignas(4096) char memory_[8192] = {};
};

TEST_F(Exhaustion, of_streams_is_told_and_leaves_them_usable) {
    hook([](auto...) {});
    QX::FileIn in;
    auto const read_file = [&]() noexcept {
        return in.open(name_, false) && in.size64() == 1024 && in.seek(-1) &&
               in.read(memory_, 1) == 1 && in.tell() == 1024 && in.close();
    };
    test::walk_failures("FileIn", read_file, {open, size, seek, read, close});
    QX::FileOut out;
    auto const write_file = [&]() noexcept {
        return out.open(made_.c_str(), false, true) && out.write("text", 4) == 4 && out.close();
    };
    test::walk_failures("FileOut", write_file, {c_open, c_write, c_close});
    QX::AsyncIn late;
    auto const read_late = [&]() noexcept {
        return late.open(name_) && late.size() == 1024 &&
               late.read(memory_, 512, 512, nullptr, nullptr) && late.close();
    };
    test::walk_failures("AsyncIn", read_late, {open, size, begin_read, close});
    QX::MemFileIn mapped;
    auto const map_file = [&] { return mapped.open(name_) && mapped.close(); };
    test::walk_failures("MemFileIn", map_file, {open, map});
    hook([](auto...) { throw 1; });
    EXPECT_THROW(QX::FileIn(name_, false), int);
    EXPECT_THROW(QX::AsyncIn file(name_), int);
}

TEST_F(Exhaustion, of_packs_and_compressed_files_is_told_and_leaves_nothing_open) {
    std::string const path = folder_.write("pack", test::build_pack({{{"a", "b"}}, '2', 512, 9}));
    QX::AsyncPackFile pack;
    QX::MemPackFile mapped;
    auto const opens = [&](auto& packed) {
        bool const opened = packed.open(path.c_str(), 9);
        EXPECT_EQ(opened, packed.table() != nullptr);
        return opened && packed.close();
    };
    test::walk_failures("AsyncPackFile", [&] { return opens(pack); }, {open, size, read});
    test::walk_failures("MemPackFile", [&] { return opens(mapped); }, {open, map});
    for (unsigned int const bytes : {1024u, 2'100'000u}) {  // in one block, and in three
        folder_.write("source", std::string(bytes, 's'));
        auto const compress = [&] { return QX::compress(made_.c_str(), name_, 1) != 0; };
        test::walk_failures("compress", compress, {open, read, c_open, c_write, c_close});
        auto const expand = [&] { return QX::decompress(other_.c_str(), made_.c_str()) == bytes; };
        test::walk_failures("decompress", expand, {open, read, c_open, c_write, c_close});
    }
    std::string room(2'100'000, 0);
    auto const load = [&] {
        return QX::decompress(
                   room.data(), 2'100'000, made_.c_str(), memory_, 4096, nullptr, nullptr) ==
               2'100'000;
    };
    test::walk_failures("overlapped", load, {open, begin_read});
}

TEST_F(Exhaustion, of_folders_is_told_and_closes_every_search) {
    std::string const tree = folder_.file("tree"), inner = tree + "\\in\\in", file = inner + "\\in";
    auto const make = [&] {
        return fs::create(inner.c_str()) && QX::FileOut().open(file.c_str(), false, true);
    };
    auto const remove = [&] {
        bool const made = make();
        return made && fs::delall(tree.c_str(), true);
    };
    test::walk_failures("delall", remove, {c_find, remove_file, remove_folder});
    ASSERT_TRUE(make());
    auto const list = [](auto path, auto pattern) {
        int found = 0;
        auto const count = [](auto, auto, auto, QX::FileInf const&, void* user) {
            ++*static_cast<int*>(user);
        };
        fs::enumerate(count, path, pattern, &found, true);
        return found == 3;
    };
    std::wstring const wide(tree.begin(), tree.end());
    test::walk_failures("enumerate", [&] { return list(tree.c_str(), "in"); }, {});
    test::walk_failures("wide enumerate", [&] { return list(wide.c_str(), L"in"); }, {});
}

}  // namespace
