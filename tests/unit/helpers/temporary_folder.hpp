// A folder of the test's own, removed with the object.
#pragma once

#include "support/filesystem.hpp"

#include <string>
#include <string_view>

namespace tests {

class temporary_folder {
public:
    temporary_folder();
    ~temporary_folder();
    temporary_folder(temporary_folder const &) = delete;
    temporary_folder & operator=(temporary_folder const &) = delete;

    QN::filesystem::path const & path() const { return location; }

private:
    QN::filesystem::path location;
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
// The bytes of a file; empty where there is none.
std::string read_file(QN::filesystem::path const & path);

} // namespace tests
