#include "tests/files/plain_paths.h"

namespace test {

Shaped plain_file_name(std::string const& path) {
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
        shaped.text += c;
        previous = c;
    }
    return shaped;
}

Shaped plain_relative_path(std::string path) {
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
    while (path.find(".\\") == 0) {
        changed = true;
        path.erase(0, 2);
    }
    return {path, changed};
}

Shaped plain_path_start(std::string const& path) {
    auto const at = path.find("data\\");
    if (at > 3) return {path, false};
    return {path.substr(at + 5), true};
}

std::string plain_long_form(std::string const& path, std::vector<std::string> const& search_paths) {
    std::string text = plain_path_start(plain_relative_path(plain_file_name(path).text).text).text;
    for (std::string const& start : search_paths) {
        if (text.compare(0, start.size(), start) == 0) text.erase(0, start.size());
    }
    return text;
}

std::string plain_short_form(std::string const& path, bool keep_start) {
    std::string const text = plain_relative_path(plain_file_name(path).text).text;
    return keep_start ? text : plain_path_start(text).text;
}

std::string random_path(Random& random) {
    static char const* const pieces[] = {"\\",  "/",  ".",      "..",    "a",    "B",   "\\..\\",
                                         "/./", "\\", "data\\", "DaTa/", "\xC3", "dat", "z"};
    std::string path;
    // Most are short; some reach over a block of 16, and a few over a page.
    unsigned int const count = random.chance(50) ? 3000 : random.below(random.chance(3) ? 40 : 9);
    for (unsigned int i = 0; i < count; ++i) path += pieces[random.below(std::size(pieces))];
    return path;
}

}  // namespace test
