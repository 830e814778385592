// paths.h - what the cases of paths have in common.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "qx/files/filesystem.h"
#include "tests/harness/temp_folder.h"

namespace test {

namespace fs = QX::Filesystem;
using QX::String;
using QX::UniString;
using Texts = std::vector<std::string>;

inline std::string text_of(String const& text) {
    return std::string(text.data(), text.length());
}

inline std::wstring text_of(UniString const& text) {
    return std::wstring(text.begin(), text.end());
}

using Shaped = std::pair<std::string, bool>;  // the text, and whether it tells of a change

inline Shaped plain_file_name(std::string text) {
    std::size_t const size = text.size();
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c == '/') c = '\\';
    }
    for (auto at = text.find("\\\\", 1); at != text.npos; at = text.find("\\\\", 1))
        text.erase(at, 1);
    bool const changed = text.size() != size;
    if (text.size() > 1 && text[0] == '\\' && text[1] != '\\') text.erase(0, 1);
    return {text, changed};
}

// By number: name, relative path, start.
inline String shape(int step, String const& path, bool* changed) {
    if (step == 0) return fs::sanitise_file_name(path, changed);
    return step == 1 ? fs::sanitise_relative_path(path, changed)
                     : fs::sanitise_path_start(path, changed);
}

}  // namespace test
