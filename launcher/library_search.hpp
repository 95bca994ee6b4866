#pragma once

#include "launcher/place.hpp"

#include <string>
#include <vector>

namespace launcher {

// The search for one library, place by place.
class library_search {
public:
    explicit library_search(std::string file_name);

    // Whether the library is in this place.
    bool look_in(place const & candidate);

    std::string const & file_name() const { return name; }
    bool found() const { return !library_folder.empty(); }
    // Where the library was found; empty where it was not.
    QN::filesystem::path const & folder() const { return library_folder; }
    QN::filesystem::path path() const { return library_folder / name; }

    // What is wrong, for people, and below it each place that was looked in; ends with a line feed.
    std::string report(std::string const & fault) const;

private:
    std::string name;
    QN::filesystem::path library_folder;
    std::vector<std::string> looked_in;
};

} // namespace launcher
