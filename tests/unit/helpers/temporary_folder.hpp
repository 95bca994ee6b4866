// A folder of a test, removed with the object.
#pragma once

#include "support/filesystem.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace tests {

class temporary_folder {
public:
    temporary_folder();
    // Shares the folder with the processes of the death tests of its fixture, to which this
    // environment variable names it.
    explicit temporary_folder(std::string shared_by);
    ~temporary_folder();
    temporary_folder(temporary_folder const &) = delete;
    temporary_folder & operator=(temporary_folder const &) = delete;

    QN::filesystem::path const & path() const { return location; }

    // Returns the path of an entry, whose name is in UTF-8; of the folder itself without a name.
    QN::filesystem::path operator/(std::string_view name) const;
    // Returns the same in UTF-8.
    std::string utf8(std::string_view name) const;
    // Creates a file; returns its path in UTF-8.
    std::string write(std::string_view name, std::string_view bytes) const;

private:
    QN::filesystem::path location;
    std::string variable; // empty where the folder is not shared
    bool owned = true;
};

// Makes such a folder the current one as long as it lives.
class temporary_working_folder {
public:
    temporary_working_folder();
    ~temporary_working_folder();
    temporary_working_folder(temporary_working_folder const &) = delete;
    temporary_working_folder & operator=(temporary_working_folder const &) = delete;

private:
    temporary_folder folder;
    QN::filesystem::path earlier;
};

void write_file(QN::filesystem::path const & path, std::string_view bytes);
// Returns the bytes of a file; none where it is not there.
std::string read_file(QN::filesystem::path const & path);
// Returns the lines of a file without their ends.
std::vector<std::string> read_lines(QN::filesystem::path const & path);

} // namespace tests
