#pragma once

#include "doctor/finding.hpp"
#include "launcher/library_search.hpp"
#include "launcher/load_obstacle.hpp"

#include <optional>
#include <string>
#include <vector>

namespace doctor {

// One of the platform's two libraries: where it is, and what the tool needs of it.
struct searched_library {
    launcher::search_result search;           // in all places; the first with the library is used
    std::vector<std::string> names;           // those that the library must export
    launcher::dependency_search dependencies; // besides the library's own folder
};

// Returns what each place has, the first fault of each library there as the files show it, and
// whether the library was found at all. Faults of the library that is used are problems, except
// that of a missing dependency, which Windows may find elsewhere; others are warnings. Loads
// nothing.
std::vector<finding> library_findings(searched_library const & library);

// Returns which of the several files is used; no value if fewer than two are in reach.
std::optional<finding> versions_finding(launcher::search_result const & library);

// Returns what an installation for 32-bit programs in this folder means; no value without one.
std::optional<finding> finding_of_32_bit(QN::filesystem::path const & folder,
                                         bool is_library_found);

} // namespace doctor
