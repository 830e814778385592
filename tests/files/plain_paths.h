// plain_paths.h - the rules of path shaping, restated step by step on std::string.
#pragma once

#include <string>
#include <vector>

#include "tests/harness/random.h"

namespace test {

struct Shaped {
    std::string text;
    bool changed = false;
};

Shaped plain_file_name(std::string const& path);
Shaped plain_relative_path(std::string path);
Shaped plain_path_start(std::string const& path);

// The texts behind public and private names.
std::string plain_long_form(std::string const& path, std::vector<std::string> const& search_paths);
std::string plain_short_form(std::string const& path, bool keep_start);

// A path of separators, dots, letters of both cases and now and then a "data", so that every rule
// has work to do.
std::string random_path(Random& random);

}  // namespace test
