#include "qx/files/file_class_impl.h"

#include "qx/base/windows.h"

#include <shlobj.h>
#include <shlwapi.h>

#include <cstring>
#include <cwchar>

#include "qx/app/process.h"
#include "qx/files/file_class.h"

namespace QX::FileClass {

namespace {

constexpr unsigned int executable_name_units = 256;
constexpr unsigned int home_path_bytes = 512;
constexpr int roaming_profile = 0x801A;  // CSIDL_APPDATA, created if missing

static_assert(roaming_profile == (CSIDL_APPDATA | CSIDL_FLAG_CREATE));
static_assert(longest_home_folder + 1 == MAX_PATH);

bool on_command_line(char const* text) {
    return std::strstr(command_line(), text) != nullptr;
}

void cut_last(UniString& text) {
    text.resize(text.length() - 1);
}

void end_at(UniString& text, unsigned int place) {
    if (place != UniString::npos) text.resize(place);
}

// The folder that names the branch which the program belongs to; empty if there is none.
UniString branch_name() {
    wchar_t name[executable_name_units] = {};
    GetModuleFileNameW(nullptr, name, executable_name_units);
    name[executable_name_units - 1] = 0;
    UniString path(name);
    unsigned int const tree = path.find(UniString(L"\\src\\.."));
    end_at(path, tree != UniString::npos ? tree : path.find(UniString(L"\\binaries")));
    end_at(path, path.rfind(L'\\'));
    unsigned int const last = path.rfind(L'\\');
    return last != UniString::npos ? path.substr(last + 1) : UniString();
}

UniString application_folder() {
    UniString folder(s_app_name_w);
    if (on_command_line("branch_profile")) {
        UniString const branch = branch_name();
        if (!branch.empty()) {
            cut_last(folder);
            folder += L'_' + branch;
        }
    }
    if (on_command_line("-sptest")) {
        cut_last(folder);  // of a branch's folder this is a letter
        folder += L"_autotest\\";
    }
    return folder;
}

// Reads the base from the registry into `base`. False leaves it unsettled.
bool read_home_path(UniString const& application, wchar_t* base) {
    UniString const path = L"Software\\The Tarnwick Guild\\" + application;
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, KEY_ALL_ACCESS, &key) != ERROR_SUCCESS)
        return false;
    static_assert(KEY_ALL_ACCESS == 0xF003F);
    DWORD bytes = home_path_bytes;
    auto const target = reinterpret_cast<BYTE*>(base);
    LSTATUS const read = RegQueryValueExW(key, L"HomePath", nullptr, nullptr, target, &bytes);
    RegCloseKey(key);
    if (read != ERROR_SUCCESS) return false;
    base[bytes / sizeof(wchar_t)] = 0;
    return true;
}

bool find_profile(wchar_t* base) {
    base[0] = 0;
    if (FAILED(SHGetFolderPathW(nullptr, roaming_profile, nullptr, 0, base))) return false;
    PathAppendW(base, L"The Tarnwick Guild\\");
    return true;
}

}  // namespace

UniString make_home_folder(UniString const& sub) {
    wchar_t path[MAX_PATH] = {};
    static_assert(home_path_bytes / sizeof(wchar_t) < MAX_PATH);
    UniString const application = application_folder();
    if (!read_home_path(application, path) && !find_profile(path)) return UniString();
    PathAppendW(path, application.c_str());
    PathAppendW(path, sub.c_str());
    SHCreateDirectoryExW(nullptr, path, nullptr);
    return UniString(path);
}

}  // namespace QX::FileClass
