#include "launcher/library_search.hpp"

#include <boost/filesystem/operations.hpp>

#include <fmt/format.h>

#include <utility>

namespace launcher {

library_search::library_search(std::string file_name)
    : name(std::move(file_name)) {}

bool library_search::look_in(place const & candidate) {
    auto const named =
        candidate.fault.empty() ? QN::path_to_utf8(candidate.folder) : candidate.fault;
    looked_in.push_back(fmt::format("  {}: {}\n", candidate.origin, named));
    boost::system::error_code ignored;
    if (candidate.folder.empty() || !is_regular_file(candidate.folder / name, ignored)) {
        return false;
    }
    library_folder = candidate.folder;
    return true;
}

std::string library_search::report(std::string const & fault) const {
    return fmt::format("{}\nLooked for {} in:\n{}", fault, name, fmt::join(looked_in, ""));
}

} // namespace launcher
