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

std::wstring text_of(UniString const& text) {
    return std::wstring(text.begin(), text.end());
}

// What the stand-ins answer.
char const* given_command_line;
wchar_t const* given_program;
std::wstring given_profile;

// A profile in a folder of the case's own, and a command line and program that the case sets.
class FileClass : public testing::Test {
protected:
    FileClass() {
        given_command_line = "game.exe";
        given_profile.assign(folder_.path().begin(), folder_.path().end() - 1);
        forget();
    }
    ~FileClass() override {
        std::wstring().swap(given_profile);
        forget();
    }

    static void forget() { std::memset(classes::fc_paths, 0, sizeof classes::fc_paths); }
    static std::wstring maps() { return text_of(classes::get_path(QX::OWC_MAPS)); }
    static std::wstring below_profile(std::wstring const& rest) {
        return given_profile + L"\\The Tarnwick Guild\\Brassmoor" + rest;
    }

    test::TempFolder folder_;
    test::StandIn line_{"GetCommandLineA", +[] { return given_command_line; }};
    test::StandIn program_{"GetModuleFileNameW", +[](HMODULE, LPWSTR name, DWORD size) {
                               std::wcsncpy(name, given_program, size);
                               return static_cast<DWORD>(std::wcslen(given_program));
                           }};
    // None where the text is empty.
    test::StandIn profile_{"SHGetFolderPathW", +[](HWND, int folder, HANDLE, DWORD, LPWSTR path) {
                               EXPECT_EQ(folder, 0x801A);
                               std::wcscpy(path, given_profile.c_str());
                               return given_profile.empty() ? E_FAIL : S_OK;
                           }};
};

// The hash pins every text and category.
TEST_F(FileClass, knows_its_63_kinds) {
    std::wstring all;
    for (int number = 0; number < 63; ++number) {
        auto const kind = static_cast<QX::OS_WRITE_CLASS>(number);
        all += std::wstring(classes::write_class_extension(kind)) + L'|';
        all += std::wstring(classes::write_class_directory(kind)) + L'|';
        all += static_cast<wchar_t>(classes::write_class_category(kind));
    }
    unsigned int hash = 0;
    for (wchar_t const c : all) hash = hash * 31 + c;
    EXPECT_EQ(hash, 1745022533u);
    EXPECT_STREQ(classes::s_app_name_w, L"Brassmoor\\");
    EXPECT_STREQ(classes::s_app_name_a, "Brassmoor\\");
}

TEST_F(FileClass, the_command_line_and_the_program_choose_the_application_folder) {
    struct Row {
        char const* line;
        wchar_t const *program, *folder;
    };
    constexpr Row rows[] = {
        {"x-sptestify", L"c:\\dev\\trunk\\g.exe", L"_autotest"},
        {"branch_profile", L"c:\\dev\\trunk\\binaries\\x64\\g.exe", L"_dev"},
        {"branch_profile", L"c:\\dev\\t\\src\\..\\binaries\\g.exe", L"_dev"},
        {"branch_profile", L"c:\\a\\binaries\\c\\src\\..\\g.exe", L"_binaries"},
        {"branch_profile", L"c:\\g.exe", L""},
        {"branch_profile -sptest", L"c:\\dev\\trunk\\g.exe", L"_trun_autotest"},
    };
    for (Row const& row : rows) {
        given_command_line = row.line;
        given_program = row.program;
        EXPECT_EQ(maps(), below_profile(row.folder + std::wstring(L"\\maps\\"))) << row.program;
    }
}

// The key is one that no other case asks for.
TEST_F(FileClass, the_registry_value_names_the_base) {
    wchar_t const path[] = L"Software\\The Tarnwick Guild\\Brassmoor_key_autotest";
    given_command_line = "branch_profile -sptest";
    given_program = L"c:\\keys\\g.exe";
    std::wstring const plain = below_profile(L"_key_autotest\\maps\\"),
                       home = given_profile + L"\\home";
    EXPECT_EQ(maps(), plain);
    for (bool const is_too_long : {true, false}) {  // 514 bytes with its end
        std::wstring const value = is_too_long ? std::wstring(256, L'x') : home;
        RegSetKeyValueW(
            HKEY_CURRENT_USER, path, L"HomePath", REG_SZ, value.c_str(),
            static_cast<DWORD>(2 * value.size() + 2));
        EXPECT_EQ(maps(), is_too_long ? plain : home + L"\\Brassmoor_key_autotest\\maps\\");
    }
    RegDeleteKeyW(HKEY_CURRENT_USER, path);
    RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\The Tarnwick Guild");
}

TEST_F(FileClass, names_get_the_extension_that_they_lack) {
    wchar_t const* const rows[][2] = {{L"a", L"a.save"},     {L"a.save", L"a.save"},
                                      {L".save", L".save"},  {L"save", L"save.save"},
                                      {L"a%s", L"a%s.save"}, {L"a.SAVE", L"a.SAVE.save"}};
    for (auto const& [name, full] : rows) {
        std::wstring const expected = below_profile(L"\\save_games\\") + full;
        EXPECT_EQ(text_of(classes::create_file_name(QX::OWC_SAVE_GAME, name)), expected);
        EXPECT_EQ(text_of(classes::create_file_name(QX::OWC_SAVE_GAME, UniString(name))), expected);
    }
    EXPECT_EQ(text_of(classes::create_file_name(QX::OWC_MAPS, L"a")), maps() + L"a");
}

// Without a profile every folder is empty.
TEST_F(FileClass, the_full_folder_is_kept_once_asked_for) {
    std::wstring const first = below_profile(L"\\chat\\");
    EXPECT_EQ(classes::app_directory(QX::OWC_CHAT), first);
    EXPECT_EQ(text_of(classes::get_directory(QX::OWC_CHAT, UniString(L"x\\y"))), first + L"x\\y");
    EXPECT_TRUE(QX::Filesystem::exist((first + L"x\\y").c_str()));
    given_profile.clear();
    EXPECT_EQ(classes::owc_details(QX::OWC_CHAT).first, classes::fc_paths[QX::OWC_CHAT]);
    EXPECT_EQ(classes::fc_paths[QX::OWC_CHAT], first);
    EXPECT_EQ(maps(), L"");
    EXPECT_EQ(text_of(classes::create_file_name(QX::OWC_SAVE_GAME, L"a")), L"a.save");
    classes::nuke_directory(QX::OWC_SAVE_GAME);
}

TEST_F(FileClass, a_folder_of_256_characters_is_used_but_not_kept) {
    std::size_t const rest = wcslen(L"\\The Tarnwick Guild\\Brassmoor\\chat\\");
    std::wstring const drive = given_profile.substr(0, 3);
    for (std::size_t length : {255, 256, 259}) {
        given_profile = drive + std::wstring(length - rest - 3, L'p');
        forget();
        std::wstring const folder = classes::app_directory(QX::OWC_CHAT);
        EXPECT_EQ(folder, below_profile(L"\\chat\\"));
        EXPECT_EQ(classes::fc_paths[QX::OWC_CHAT][0] != 0, length == 255) << length;
        EXPECT_EQ(text_of(classes::create_file_name(QX::OWC_CHAT, L"a")), folder + L"a");
    }
}

TEST_F(FileClass, deletes_one_file_or_all_with_the_extension) {
    std::wstring const saves = classes::app_directory(QX::OWC_SAVE_GAME);
    std::string const below = std::string(saves.begin(), saves.end()).substr(folder_.path().size());
    for (char const* name : {"a.save", "b.save", "c.other"})
        folder_.write((below + name).c_str(), "x");
    auto const there = [&](wchar_t const* name) {
        return QX::Filesystem::exist((saves + name).c_str());
    };
    classes::delete_file(QX::OWC_SAVE_GAME, L"a");
    EXPECT_TRUE(!there(L"a.save") && there(L"b.save"));
    classes::nuke_directory(QX::OWC_SAVE_GAME);
    EXPECT_TRUE(!there(L"b.save") && there(L"c.other"));
}

}  // namespace
