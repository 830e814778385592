#include "qx/files/mapped_file.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <cstring>
#include <string>

#include "qx/files/file_streams.h"
#include "tests/harness/guarded.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

// Opens the base's protected members, as a deriving client would.
struct Mapped : QX::UnbufferedFileInPlatform {
    using UnbufferedFileInPlatform::file_and_mapping;
    using UnbufferedFileInPlatform::map;
    using UnbufferedFileInPlatform::open;
    using UnbufferedFileInPlatform::owned;
    using UnbufferedFileInPlatform::status;
    Mapped(char const* name, QX::FileAndMapping handles)
        : UnbufferedFileInPlatform(name, handles) {}
    Mapped() = default;
};

std::string pattern(std::size_t size) {
    std::string bytes(size, 0);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + (i >> 9));
    return bytes;
}

TEST(MappedFile, a_view_begins_at_any_offset_high_or_anywhere_when_no_high_place_is_free) {
    test::TempFolder const folder;
    std::string const bytes = pattern(200000);
    Mapped file;
    ASSERT_EQ(file.open(folder.write("a", bytes).c_str()), bytes.size());
    for (unsigned long long const offset : {0ull, 1ull, 65535ull, 65536ull, 65537ull, 199999ull}) {
        auto const view = file.map(offset, bytes.size() - offset);
        EXPECT_GT(reinterpret_cast<unsigned long long>(view->data()), 1ull << 40);
        EXPECT_EQ(view->data() - view->view(), static_cast<long long>(offset % 65536));
        EXPECT_EQ(std::memcmp(view->data(), bytes.data() + offset, view->size()), 0);
        EXPECT_EQ(std::memcmp(view->to_RAM().get(), view->data(), view->size()), 0);
    }
    auto const beyond = file.map(0, 300000);
    EXPECT_TRUE(beyond->data() == nullptr && beyond->to_RAM() == nullptr);
    test::StandIn const place(
        "VirtualAlloc", +[](LPVOID, SIZE_T, DWORD, DWORD) -> LPVOID { return nullptr; });
    EXPECT_EQ(std::memcmp(file.map(1, 4)->data(), bytes.data() + 1, 4), 0);
}

TEST(MappedFile, handles_that_are_handed_in_stay_the_callers) {
    test::TempFolder const folder;
    std::string const path = folder.write("a", "hello");
    void* const handle = QX::open_file(path.c_str(), false);
    EXPECT_EQ(Mapped(nullptr, {handle, INVALID_HANDLE_VALUE}).owned(), 2u);
    EXPECT_EQ(QX::set_file_pointer({handle, nullptr}, 3), QX::FILE_OK);
    {
        Mapped opened(path.c_str(), {});
        Mapped borrowed(nullptr, opened.file_and_mapping());
        EXPECT_TRUE(opened.owned() == 3 && borrowed.owned() == 0);
        EXPECT_EQ(std::memcmp(borrowed.map(0, 5)->data(), "hello", 5), 0);
    }
    EXPECT_TRUE(QX::close_file({handle, nullptr}));
    EXPECT_FALSE(QX::close_file({handle, nullptr}));
    EXPECT_EQ(QX::set_file_pointer({handle, nullptr}, 3), QX::FILE_NOT_FOUND);
    test::StandIn const mapping(
        "CreateFileMappingW", +[]() -> HANDLE { return SetLastError(1816), nullptr; });
    Mapped failing;
    EXPECT_EQ(failing.open(path.c_str()), 0u);
    EXPECT_EQ(failing.status(), QX::FILE_OUT_OF_MEMORY);  // by the open fold
}

TEST(UnbufferedFileIn, copies_and_touches_the_whole_and_no_more_or_stops_where_it_stands) {
    std::string const bytes = pattern(3 * 4096 + 5);
    for (std::size_t const size : {0u, 1u, 4096u, 4097u, 3 * 4096u + 5}) {
        test::Guarded const source(bytes.data(), size), plain(size), stoppable(size);
        bool volatile stop = false;
        QX::UnbufferedFileIn::touch(source.data(), size);
        QX::UnbufferedFileIn::touch(source.data(), size, stop);
        QX::UnbufferedFileIn::copy(plain.data(), source.data(), size);
        QX::UnbufferedFileIn::copy(stoppable.data(), source.data(), size, stop);
        EXPECT_EQ(std::memcmp(plain.data(), bytes.data(), size), 0);
        EXPECT_EQ(std::memcmp(stoppable.data(), bytes.data(), size), 0);
        stop = true;
        char* const nowhere = nullptr;
        QX::UnbufferedFileIn::copy(nowhere, source.data(), size, stop);
        QX::UnbufferedFileIn::touch(nowhere, size, stop);
    }
}

}  // namespace
