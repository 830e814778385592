#include "qx/files/file_class.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <cstring>
#include <cwchar>
#include <string>

#include "qx/files/filesystem.h"
#include "tests/harness/stand_in.h"
#include "tests/harness/temp_folder.h"

namespace {

namespace classes = QX::FileClass;
using QX::UniString;

std::wstring wide(UniString const& text) {
    return std::wstring(text.begin(), text.end());
}

// What the stand-ins answer.
char const* given_command_line;
wchar_t const* given_program;
wchar_t given_profile[MAX_PATH];
bool profile_fails;
int profile_folder_asked;

LPSTR WINAPI give_command_line() {
    return const_cast<char*>(given_command_line);
}

DWORD WINAPI give_program(HMODULE, LPWSTR name, DWORD size) {
    EXPECT_LE(size, 256u);
    std::wcsncpy(name, given_program, size);
    return static_cast<DWORD>(std::wcslen(given_program));
}

HRESULT WINAPI give_profile(HWND, int folder, HANDLE, DWORD, LPWSTR path) {
    profile_folder_asked = folder;
    if (profile_fails) return E_FAIL;
    std::wcscpy(path, given_profile);
    return S_OK;
}

// A profile in a folder of the case's own, and a command line and program that the case sets.
class FileClass : public testing::Test {
protected:
    void SetUp() override {
        given_command_line = "game.exe";
        given_program = L"c:\\dev\\trunk\\game.exe";
        std::string const path = folder_.path().substr(0, folder_.path().size() - 1);
        give(std::wstring(path.begin(), path.end()));
        profile_fails = false;
        std::memset(classes::fc_paths, 0, sizeof classes::fc_paths);
        ASSERT_TRUE(line_.found() && program_.found() && profile_.found());
    }

    void TearDown() override { std::memset(classes::fc_paths, 0, sizeof classes::fc_paths); }

    static void give(std::wstring const& profile) { std::wcscpy(given_profile, profile.c_str()); }

    std::wstring below_profile(wchar_t const* rest) const {
        return given_profile + std::wstring(L"\\The Tarnwick Guild\\") + rest;
    }

    test::TempFolder folder_;
    test::StandIn line_{"GetCommandLineA", give_command_line};
    test::StandIn program_{"GetModuleFileNameW", give_program};
    test::StandIn profile_{"SHGetFolderPathW", give_profile};
};

// The hash pins every text and category.
TEST_F(FileClass, knows_its_63_kinds) {
    EXPECT_TRUE(QX::OWC_PROFILE == 28 && QX::OWC_MAPS == 33 && QX::OWC_AUDIO_DEBUG_SETTINGS == 62);
    EXPECT_STREQ(classes::write_class_extension(QX::OWC_CRASH_DUMP), L".mdmp");
    EXPECT_STREQ(classes::write_class_directory(QX::OWC_TEMP), L"temp\\");
    EXPECT_EQ(classes::write_class_category(QX::OWC_SCREENSHOT), QX::OFC_SCREENSHOT);
    unsigned int hash = 0;
    for (int number = 0; number < 63; ++number) {
        auto const kind = static_cast<QX::OS_WRITE_CLASS>(number);
        for (wchar_t const* text :
             {classes::write_class_extension(kind), classes::write_class_directory(kind)}) {
            for (; *text; ++text) hash = hash * 31 + *text;
            hash = hash * 31 + '|';
        }
        hash = hash * 31 + static_cast<unsigned int>(classes::write_class_category(kind));
    }
    EXPECT_EQ(hash, 1745022533u);
    EXPECT_STREQ(classes::s_app_name_w, L"Brassmoor\\");
    EXPECT_STREQ(classes::s_app_name_a, "Brassmoor\\");
}

TEST_F(FileClass, folders_are_below_the_roaming_profile_and_made) {
    EXPECT_EQ(
        wide(classes::get_path(QX::OWC_SAVE_GAME)), below_profile(L"Brassmoor\\save_games\\"));
    EXPECT_EQ(profile_folder_asked, 0x801A);
    std::wstring const deep = below_profile(L"Brassmoor\\logs\\audio\\x\\y");
    EXPECT_EQ(wide(classes::get_directory(QX::OWC_AUDIO_XML, L"x\\y")), deep);
    EXPECT_TRUE(QX::Filesystem::exist(deep.c_str()));
    EXPECT_EQ(wide(classes::get_directory(QX::OWC_AUDIO_XML, UniString(L"x\\y"))), deep);
}

TEST_F(FileClass, the_command_line_and_the_program_choose_the_application_folder) {
    struct Row {
        char const* line;
        wchar_t const *program, *folder;
    };
    // clang-format off
    constexpr Row rows[] = {
        {"x", L"c:\\dev\\trunk\\g.exe", L"Brassmoor\\maps\\"},
        {"x -sptest", L"c:\\dev\\trunk\\g.exe", L"Brassmoor_autotest\\maps\\"},
        {"x-sptestify", L"c:\\dev\\trunk\\g.exe", L"Brassmoor_autotest\\maps\\"},
        {"x -SPTEST", L"c:\\dev\\trunk\\g.exe", L"Brassmoor\\maps\\"},
        {"branch_profile", L"c:\\dev\\trunk\\g.exe", L"Brassmoor_trunk\\maps\\"},
        {"branch_profile", L"c:\\dev\\trunk\\binaries\\x64\\g.exe", L"Brassmoor_dev\\maps\\"},
        {"branch_profile", L"c:\\dev\\t\\src\\..\\binaries\\g.exe", L"Brassmoor_dev\\maps\\"},
        {"branch_profile", L"c:\\a\\binaries\\c\\src\\..\\g.exe", L"Brassmoor_binaries\\maps\\"},
        {"branch_profile", L"c:\\dev\\Src\\..\\g.exe", L"Brassmoor_..\\maps\\"},
        {"branch_profile", L"c:\\g.exe", L"Brassmoor\\maps\\"},
        {"branch_profile", L"g.exe", L"Brassmoor\\maps\\"},
        {"branch_profile -sptest", L"c:\\dev\\trunk\\g.exe", L"Brassmoor_trun_autotest\\maps\\"},
    };
    // clang-format on
    for (Row const& row : rows) {
        given_command_line = row.line;
        given_program = row.program;
        EXPECT_EQ(wide(classes::get_path(QX::OWC_MAPS)), below_profile(row.folder))
            << row.line << ", " << row.program;
    }
}

// The key of the application folder, removed with the case.
class HomePath {
public:
    explicit HomePath(wchar_t const* application)
        : path_(std::wstring(L"Software\\The Tarnwick Guild\\") + application) {
        RegCreateKeyExW(
            HKEY_CURRENT_USER, path_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key_,
            nullptr);
    }
    ~HomePath() {
        RegCloseKey(key_);
        RegDeleteKeyW(HKEY_CURRENT_USER, path_.c_str());
        RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\The Tarnwick Guild");
    }

    void set(std::wstring const& value) const {
        auto const bytes = static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t));
        auto const data = reinterpret_cast<BYTE const*>(value.c_str());
        RegSetValueExW(key_, L"HomePath", 0, REG_SZ, data, bytes);
    }

private:
    std::wstring path_;
    HKEY key_ = nullptr;
};

// The key is one that no other case asks for.
TEST_F(FileClass, the_registry_value_names_the_base) {
    given_command_line = "branch_profile -sptest";
    given_program = L"c:\\keys\\g.exe";
    std::wstring const folder = L"Brassmoor_key_autotest\\";
    auto const maps = [] { return wide(classes::get_path(QX::OWC_MAPS)); };
    std::wstring const plain = below_profile((folder + L"maps\\").c_str());

    HomePath const home(L"Brassmoor_key_autotest");
    EXPECT_EQ(maps(), plain);
    home.set(given_profile + std::wstring(L"\\home"));
    EXPECT_EQ(maps(), given_profile + (L"\\home\\" + folder) + L"maps\\");
    given_command_line = "branch_profile";  // another application folder, so another key
    EXPECT_EQ(maps(), below_profile(L"Brassmoor_keys\\maps\\"));
    given_command_line = "branch_profile -sptest";
    home.set(std::wstring(256, L'x'));  // 514 bytes with its end: the query fails
    EXPECT_EQ(maps(), plain);
}

TEST_F(FileClass, without_a_profile_every_folder_is_empty_and_names_are_relative) {
    profile_fails = true;
    EXPECT_EQ(wide(classes::get_path(QX::OWC_SAVE_GAME)), L"");
    EXPECT_STREQ(classes::app_directory(QX::OWC_SAVE_GAME), L"");
    EXPECT_EQ(wide(classes::create_file_name(QX::OWC_SAVE_GAME, L"a")), L"a.save");
    classes::nuke_directory(QX::OWC_SAVE_GAME);
}

TEST_F(FileClass, names_get_the_extension_that_they_lack) {
    std::wstring const saves = below_profile(L"Brassmoor\\save_games\\");
    struct Row {
        QX::OS_WRITE_CLASS kind;
        wchar_t const *name, *full;
    };
    constexpr Row rows[] = {
        {QX::OWC_SAVE_GAME, L"a", L"save_games\\a.save"},
        {QX::OWC_SAVE_GAME, L"a.save", L"save_games\\a.save"},
        {QX::OWC_SAVE_GAME, L".save", L"save_games\\.save"},
        {QX::OWC_SAVE_GAME, L"save", L"save_games\\save.save"},
        {QX::OWC_SAVE_GAME, L"a.SAVE", L"save_games\\a.SAVE.save"},
        {QX::OWC_SAVE_GAME, L"", L"save_games\\.save"},
        {QX::OWC_MAPS, L"a%s", L"maps\\a%s"},
    };
    for (Row const& row : rows) {
        std::wstring const full = below_profile(L"Brassmoor\\") + row.full;
        EXPECT_EQ(wide(classes::create_file_name(row.kind, row.name)), full) << row.name;
        EXPECT_EQ(wide(classes::create_file_name(row.kind, UniString(row.name))), full);
    }
    auto const details = classes::owc_details(QX::OWC_SAVE_GAME);
    EXPECT_EQ(details.first, saves);
    EXPECT_STREQ(details.second, L".save");
}

TEST_F(FileClass, the_full_folder_is_kept_once_asked_for) {
    EXPECT_EQ(classes::fc_paths[QX::OWC_CHAT][0], 0);
    std::wstring const first = classes::app_directory(QX::OWC_CHAT);
    EXPECT_EQ(classes::fc_paths[QX::OWC_CHAT], first);
    EXPECT_EQ(classes::app_directory(QX::OWC_CHAT), classes::fc_paths[QX::OWC_CHAT]);
    give(given_profile + std::wstring(L"\\elsewhere"));
    EXPECT_EQ(classes::app_directory(QX::OWC_CHAT), first);
    EXPECT_NE(wide(classes::get_path(QX::OWC_CHAT)), first);
}

TEST_F(FileClass, a_folder_of_256_characters_is_used_but_not_kept) {
    std::size_t const rest = wcslen(L"\\The Tarnwick Guild\\Brassmoor\\chat\\");
    for (std::size_t length : {255, 256, 259}) {
        give(std::wstring(given_profile, 3) + std::wstring(length - rest - 3, L'p'));
        std::memset(classes::fc_paths, 0, sizeof classes::fc_paths);
        std::wstring const folder = classes::app_directory(QX::OWC_CHAT);
        EXPECT_EQ(folder, below_profile(L"Brassmoor\\chat\\"));
        EXPECT_EQ(folder.size(), length);
        EXPECT_EQ(classes::fc_paths[QX::OWC_CHAT][0] != 0, length == 255) << length;
        EXPECT_EQ(classes::fc_paths[QX::OWC_CHAT + 1][0], 0);
        EXPECT_EQ(wide(classes::create_file_name(QX::OWC_CHAT, L"a")), folder + L"a");
    }
}

TEST_F(FileClass, deletes_one_file_or_all_with_the_extension) {
    std::wstring const saves = classes::app_directory(QX::OWC_SAVE_GAME);
    std::string const path(saves.begin(), saves.end());
    for (char const* name : {"a.save", "b.save", "c.other"})
        CloseHandle(
            CreateFileA((path + name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    ASSERT_TRUE(QX::Filesystem::create((path + "d\\e.save").c_str()));
    auto const there = [&](char const* name) {
        return QX::Filesystem::exist((path + name).c_str());
    };

    classes::delete_file(QX::OWC_SAVE_GAME, L"a");
    EXPECT_FALSE(there("a.save"));
    EXPECT_TRUE(there("b.save"));
    classes::nuke_directory(QX::OWC_SAVE_GAME);
    EXPECT_FALSE(there("b.save"));
    EXPECT_TRUE(there("c.other"));
    EXPECT_TRUE(there("d\\e.save"));
}

}  // namespace
