#pragma once

#include <span>
#include <string>

namespace doctor {

struct options {
    bool json = false;
    bool help = false;
};

// Returns the options of these arguments, which do not include the program's name. Throws
// std::invalid_argument, whose text names the first wrong one.
options parse_options(std::span<std::string const> arguments);

// Returns what --help shows.
std::string help_text();

} // namespace doctor
