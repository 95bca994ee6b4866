#pragma once

#include "support/filesystem.hpp"

#include <string>

namespace launcher {

// A folder that may hold a library of the platform.
struct place {
    std::string origin;          // what names the folder, for people
    QN::filesystem::path folder; // a full path; empty where the origin names none
    std::string fault;           // why it names none, for people
};

// The place that a text names: a text that is no full path names none.
place place_of_folder(std::string origin, QN::filesystem::path const & folder);
// The same for the full path of a file, for the folder that holds it.
place place_of_file(std::string origin, QN::filesystem::path const & file);

} // namespace launcher
