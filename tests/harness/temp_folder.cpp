#include "tests/harness/temp_folder.h"

#include "qx/base/windows.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace test {

TempFolder::TempFolder() {
    static std::atomic<unsigned int> number{0};
    char temp[MAX_PATH];
    GetTempPathA(MAX_PATH, temp);
    path_ = std::string(temp) + "qx_test_" + std::to_string(GetCurrentProcessId()) + "_" +
            std::to_string(++number) + "\\";
    CreateDirectoryA(path_.c_str(), nullptr);
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TempFolder::write(char const* name, std::string const& bytes) const {
    std::string const whole = file(name);
    std::ofstream(whole, std::ios::binary) << bytes;
    return whole;
}

std::string read_file(std::string const& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

}  // namespace test
