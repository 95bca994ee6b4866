#pragma once

#include "support/filesystem.hpp"

#include <functional>
#include <string>
#include <vector>

namespace launcher {

// Where a library finds those that it needs: what is loaded, then these folders, then the system's.
// Libraries that are in none of these folders are taken for whole.
struct dependency_search {
    // Returns the file that is loaded under this name; empty where none is.
    std::function<QN::filesystem::path(std::string const & name)> loaded;
    std::vector<QN::filesystem::path> folders;
    QN::filesystem::path system_folder;
};

// Returns, in a sentence for people without a full stop, what in the files keeps a 64-bit program
// from loading this library: it or one that it needs, however indirectly, is missing, cannot
// be read, is no library or one for another kind of processor, or lacks a function that is needed.
// Empty where nothing of that is so. Nothing is loaded.
std::string load_obstacle(QN::filesystem::path const & library, dependency_search const & search);

} // namespace launcher
