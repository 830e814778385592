// plain_paths.h - the rules of path shaping, restated step by step on std::string.
#pragma once

#include <string>

#include "qx/text/string.h"
#include "tests/harness/random.h"

namespace test {

inline std::string text_of(QX::String const& text) {
    return std::string(text.data(), text.length());
}

struct Shaped {
    std::string text;
    bool changed = false;
};

inline Shaped plain_file_name(std::string const& path) {
    Shaped shaped;
    char previous = 0;
    for (std::size_t i = 0; i < path.size(); ++i) {
        char c = path[i] == '/' ? '\\' : path[i];
        if (i == 1 && previous == '\\' && c != '\\') shaped.text.pop_back();
        if (c == '\\' && previous == '\\' && i >= 2) {
            shaped.changed = true;
            continue;
        }
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        shaped.text += previous = c;
    }
    return shaped;
}

inline Shaped plain_relative_path(std::string path) {
    bool changed = false;
    for (auto at = path.find("\\..\\"); at != path.npos; at = path.find("\\..\\")) {
        changed = true;
        if (at == 0) return {"", changed};
        std::string const head = path.substr(0, at);
        path = head.substr(0, head.rfind('\\') + 1) + path.substr(at + 4);
    }
    if (path.find("..\\") == 0) return {"", changed};
    for (auto at = path.find("\\.\\"); at != path.npos; at = path.find("\\.\\")) {
        changed = true;
        path.erase(at + 1, 2);
    }
    for (; path.find(".\\") == 0; path.erase(0, 2)) changed = true;
    return {path, changed};
}

inline Shaped plain_path_start(std::string const& path) {
    auto const at = path.find("data\\");
    if (at > 3) return {path, false};
    return {path.substr(at + 5), true};
}

// The text behind a private name.
inline std::string plain_name(std::string const& path, bool keep_start) {
    std::string const text = plain_relative_path(plain_file_name(path).text).text;
    return keep_start ? text : plain_path_start(text).text;
}

// A path of separators, dots, letters of both cases and now and then a "data", so that every rule
// has work to do. Most are short; some reach over a block of 16, a few over the scratch or a page.
inline std::string random_path(Random& random) {
    static char const* const pieces[] = {"\\",  "/",  ".",      "..",    "a",    "B",   "\\..\\",
                                         "/./", "\\", "data\\", "DaTa/", "\xC3", "dat", "z"};
    std::string path;
    unsigned int const count = random.chance(50) ? 3000 : random.below(random.chance(3) ? 40 : 9);
    for (unsigned int i = 0; i < count; ++i) path += pieces[random.below(std::size(pieces))];
    if (random.chance(50)) path.resize(2030 + random.below(40), 'q');
    return path;
}

}  // namespace test
