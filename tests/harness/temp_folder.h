// temp_folder.h - a folder for one case, removed with everything in it.
#pragma once

#include <string>

namespace test {

class TempFolder {
public:
    TempFolder();
    ~TempFolder();

    TempFolder(TempFolder&&) = delete;

    // Ends with a backslash.
    std::string const& path() const { return path_; }
    std::string file(char const* name) const { return path_ + name; }

    // Writes a whole file and gives its path.
    std::string write(char const* name, std::string const& bytes) const;

private:
    std::string path_;
};

// The whole of a file; empty if it can't be read.
std::string read_file(std::string const& path);

}  // namespace test
