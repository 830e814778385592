#include "qx/files/file_class.h"

#include "qx/base/windows.h"

#include <cwchar>
#include <tuple>

#include "tests/files/paths.h"
#include "tests/harness/stand_in.h"

namespace {

using namespace test;
namespace classes = QX::FileClass;

// What the stand-ins answer.
char const* given_command_line;
wchar_t const* given_program;
std::wstring given_profile;  // none where it is empty

DWORD WINAPI tell_program(HMODULE, LPWSTR name, DWORD size) {
    std::wcsncpy(name, given_program, size);
    return static_cast<DWORD>(std::wcslen(given_program));
}

HRESULT WINAPI tell_profile(HWND, int folder, HANDLE, DWORD, LPWSTR path) {
    EXPECT_EQ(folder, 0x801A);
    std::wcscpy(path, given_profile.c_str());
    return given_profile.empty() ? E_FAIL : S_OK;
}

// A profile in a folder of the case's own, and a command line and program that the case sets.
class FileClass : public testing::Test {
protected:
    FileClass() {
        given_command_line = "game.exe";
        given_profile.assign(folder_.path().begin(), folder_.path().end() - 1);
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
    test::StandIn program_{"GetModuleFileNameW", tell_program};
    test::StandIn profile_{"SHGetFolderPathW", tell_profile};
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
}

TEST_F(FileClass, the_command_line_and_the_program_choose_the_application_folder) {
    constexpr std::tuple<char const*, wchar_t const*, wchar_t const*> rows[] = {
        {"x-sptestify", L"c:\\dev\\trunk\\g.exe", L"_autotest"},
        {"branch_profile", L"c:\\dev\\trunk\\binaries\\x64\\g.exe", L"_dev"},
        {"branch_profile", L"c:\\dev\\t\\src\\..\\binaries\\g.exe", L"_dev"},
        {"branch_profile", L"c:\\a\\binaries\\c\\src\\..\\g.exe", L"_binaries"},
        {"branch_profile", L"c:\\g.exe", L""},
        {"branch_profile -sptest", L"c:\\dev\\trunk\\g.exe", L"_trun_autotest"},
    };
    for (auto const& [line, program, application] : rows) {
        given_command_line = line;
        given_program = program;
        EXPECT_EQ(maps(), below_profile(application + std::wstring(L"\\maps\\"))) << program;
    }
}

// The key is one that no other case asks for.
TEST_F(FileClass, the_registry_value_names_the_base) {
    wchar_t const path[] = L"Software\\The Tarnwick Guild\\Brassmoor_key_autotest";
    given_command_line = "branch_profile -sptest";
    given_program = L"c:\\keys\\g.exe";
    EXPECT_EQ(maps(), below_profile(L"_key_autotest\\maps\\"));
    RegSetKeyValueW(HKEY_CURRENT_USER, path, L"HomePath", REG_SZ, L"c:\\home", 16);
    EXPECT_EQ(maps(), L"c:\\home\\Brassmoor_key_autotest\\maps\\");
    RegDeleteKeyW(HKEY_CURRENT_USER, path);
    RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\The Tarnwick Guild");
}

TEST_F(FileClass, names_get_the_extension_that_they_lack) {
    std::wstring const saves = below_profile(L"\\save_games\\");
    wchar_t const* const rows[][2] = {
        {L".save", L".save"}, {L"save", L"save.save"}, {L"a%s.SAVE", L"a%s.SAVE.save"},
        {L"a", L"a.save"},    {L"a.save", L"a.save"},  {L"a.SAVE", L"a.SAVE.save"}};
    for (auto const& [name, full] : rows) {
        EXPECT_EQ(text_of(classes::create_file_name(QX::OWC_SAVE_GAME, name)), saves + full);
        UniString const same = name;
        EXPECT_EQ(text_of(classes::create_file_name(QX::OWC_SAVE_GAME, same)), saves + full);
    }
    EXPECT_EQ(text_of(classes::create_file_name(QX::OWC_MAPS, L"a")), maps() + L"a");
}

// Without a profile every folder is empty.
TEST_F(FileClass, the_full_folder_is_kept_once_asked_for) {
    std::wstring const first = below_profile(L"\\chat\\");
    EXPECT_EQ(classes::app_directory(QX::OWC_CHAT), first);
    EXPECT_EQ(text_of(classes::get_directory(QX::OWC_CHAT, UniString(L"x\\y"))), first + L"x\\y");
    EXPECT_TRUE(fs::exist((first + L"x\\y").c_str()));
    given_profile.clear();
    EXPECT_EQ(classes::owc_details(QX::OWC_CHAT).first, first);
    EXPECT_EQ(maps(), L"");
    EXPECT_EQ(text_of(classes::create_file_name(QX::OWC_SAVE_GAME, L"a")), L"a.save");

    static int searches;
    searches = 0;
    test::StandIn const search(
        "FindFirstFileW", +[](wchar_t const*, WIN32_FIND_DATAW*) {
            ++searches;
            return INVALID_HANDLE_VALUE;
        });
    classes::nuke_directory(QX::OWC_SAVE_GAME);
    EXPECT_TRUE(search.found() && searches == 0);
}

TEST_F(FileClass, a_folder_of_256_characters_is_used_but_not_kept) {
    std::size_t const rest = wcslen(L"\\The Tarnwick Guild\\Brassmoor\\chat\\");
    std::wstring const drive = given_profile.substr(0, 3);
    for (std::size_t length : {255, 256, 259}) {
        given_profile = drive + std::wstring(length - rest - 3, L'p');
        forget();
        EXPECT_EQ(classes::app_directory(QX::OWC_CHAT), below_profile(L"\\chat\\"));
        EXPECT_EQ(classes::fc_paths[QX::OWC_CHAT][0] != 0, length == 255) << length;
    }
}

TEST_F(FileClass, deletes_one_file_or_all_with_the_extension) {
    std::wstring const saves = classes::app_directory(QX::OWC_SAVE_GAME);
    std::wstring const files[] = {saves + L"a.save", saves + L"b.save", saves + L"c.other"};
    for (std::wstring const& file : files)
        ASSERT_TRUE(QX::FileOut().open(file.c_str(), false, true));
    auto const there = [&](int i) { return fs::exist(files[i].c_str()); };
    classes::delete_file(QX::OWC_SAVE_GAME, L"a");
    EXPECT_TRUE(!there(0) && there(1));
    classes::nuke_directory(QX::OWC_SAVE_GAME);
    EXPECT_TRUE(!there(1) && there(2));
}

}  // namespace
