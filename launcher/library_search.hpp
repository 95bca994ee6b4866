#pragma once

#include "launcher/place.hpp"

#include <span>
#include <string>
#include <vector>

namespace launcher {

// What a place turned out to have.
enum class finding { nothing, library, refusal };

struct looked_in_place {
    place where;
    finding found;
};

// The search for one library, place by place.
class library_search {
public:
    explicit library_search(std::string file_name);

    // Returns whether the library is in this place, or in one of these, of which no more are looked
    // in then.
    bool look_in(place const & candidate);
    bool look_in_each(std::span<place const> candidates);

    std::string const & file_name() const { return name; }
    bool found() const { return !library_folder.empty(); }
    // Whether Windows refused to tell what a place has.
    bool refused() const;
    // Where the library was found; empty where it was not.
    QN::filesystem::path const & folder() const { return library_folder; }
    QN::filesystem::path path() const { return library_folder / name; }
    std::vector<looked_in_place> const & places() const { return looked_in; }

    // Returns what is wrong, for people, and below it each place that was looked in with what it
    // has; ends with a line feed.
    std::string report(std::string const & fault) const;

private:
    std::string name;
    QN::filesystem::path library_folder;
    std::vector<looked_in_place> looked_in;
};

} // namespace launcher
