#pragma once

#include "support/filesystem.hpp"

#include <string>

namespace launcher {

// A folder that may hold a library of the platform.
struct place {
    std::string origin;          // where the folder's name is from, for people
    QN::filesystem::path folder; // a full path; empty if the origin names no folder
    std::string fault;           // why it names no folder, for people
};

// Returns the place with this folder; without a folder if it is not a full path.
place place_of_folder(std::string origin, QN::filesystem::path const & folder);
// Returns the place with the folder of this file; without a folder if it is not a full path.
place place_of_file(std::string origin, QN::filesystem::path const & file);

} // namespace launcher
