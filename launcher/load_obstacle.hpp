#pragma once

#include "support/filesystem.hpp"

#include <functional>
#include <string>
#include <vector>

namespace launcher {

// Where a library finds those that it needs: what is loaded, then these folders, then the system's.
// Libraries outside these folders are assumed to be intact.
struct dependency_search {
    // Returns the file that is loaded under this name; empty if there is none.
    std::function<QN::filesystem::path(std::string const & name)> loaded;
    std::vector<QN::filesystem::path> folders;
    QN::filesystem::path system_folder;
};

// Returns a sentence for people, without its full stop, on why a 64-bit program cannot load this
// library: it or one that it needs, directly or not, is missing, cannot be read, is not a library,
// is for another kind of processor, or lacks a function that is needed. Empty if the files show no
// reason. Loads nothing.
std::string load_obstacle(QN::filesystem::path const & library, dependency_search const & search);

} // namespace launcher
