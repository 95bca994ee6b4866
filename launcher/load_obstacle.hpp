#pragma once

#include "support/filesystem.hpp"

#include <functional>
#include <string>
#include <vector>

namespace launcher {

// Where a library finds those that it needs: what is loaded, then these folders, then the system's,
// whose libraries are taken for whole.
struct dependency_search {
    std::function<bool(std::string const & name)> is_loaded;
    std::vector<QN::filesystem::path> folders;
    QN::filesystem::path system_folder;
};

// Returns, in a sentence for people without a full stop, what in the files keeps a 64-bit program
// from loading this library: it or one that it needs, however indirectly, is missing, no library,
// for another kind of processor, or without a function that is needed. Empty where nothing of that
// is so. Nothing is loaded.
std::string load_obstacle(QN::filesystem::path const & library, dependency_search const & search);

} // namespace launcher
