#pragma once

#include "launcher/library_image.hpp"

#include <optional>
#include <string>
#include <vector>

namespace tests {

// The parts of a library file that are made.
struct library_parts {
    std::vector<launcher::imported_library> imports{};
    std::vector<std::string> exports{};
    std::uint16_t machine = launcher::machine_x64;
    bool is_64_bit = true;
    std::optional<launcher::file_version> version{};
    bool has_look_up_tables = true; // beside those that Windows overwrites with addresses
};

// Returns the bytes of a library file: headers and one section with its tables.
std::string made_library(library_parts const & parts);

} // namespace tests
