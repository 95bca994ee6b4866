// Devices, commands and libraries at random.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tests {

// What the tool is asked to do, and what happens to it.
struct made_up_session {
    std::string scenario; // the XML of the root dictionary
    std::vector<std::string> arguments;
};

// Returns the session of a seed. Its files are in the folder, whose path is in UTF-8.
made_up_session make_up_session(std::uint64_t seed, std::string const & folder);

} // namespace tests
