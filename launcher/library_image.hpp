#pragma once

#include "support/filesystem.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace launcher {

// A library that another one needs, and the names that it needs of it (numbers are left out).
struct imported_library {
    std::string name;
    std::vector<std::string> functions;
};

// What Windows reads in a program or library when it loads it.
struct library_image {
    std::uint16_t machine = 0; // one of those below, or another
    std::vector<imported_library> imports;
    std::vector<std::string> exports;
};

constexpr std::uint16_t machine_x86 = 0x014C;
constexpr std::uint16_t machine_x64 = 0x8664;

// Returns the image in the bytes of a file, 32-bit or 64-bit; none where they are no program or
// library, or damaged. Nothing of the file is trusted.
std::optional<library_image> parse_library_image(std::string_view bytes);

// Returns the same for a file; none also where it cannot be read. The file is not loaded.
std::optional<library_image> read_library_image(QN::filesystem::path const & file);

} // namespace launcher
