#pragma once

#include "launcher/place.hpp"

#include <functional>
#include <string>
#include <vector>

namespace launcher {

// What was found in a place that may have a library.
enum class finding { nothing, library, refusal };

struct searched_place {
    place where;
    finding found;
};

// What a search found, place by place, in the order of the search.
struct search_result {
    std::string file_name;
    std::vector<searched_place> places;

    // Returns whether a place has the library.
    bool found() const { return !folder().empty(); }
    // Returns whether Windows denies access to a place.
    bool refused() const;
    // Returns the folder of the first place that has the library; empty if none has.
    QN::filesystem::path folder() const;
    QN::filesystem::path path() const { return folder() / file_name; }
    // Returns the fault, for people, and below it each place with what it has; ends with a line
    // feed.
    std::string report(std::string const & fault) const;
};

// Returns places to search. Called only when the search gets there, since the registry is slow.
using place_source = std::function<std::vector<place>()>;

enum class search_extent { until_found, everywhere };

// Looks for a file in the places of each source, in this order.
search_result search_library(std::string file_name, std::vector<place_source> const & sources,
                             search_extent extent = search_extent::until_found);

} // namespace launcher
