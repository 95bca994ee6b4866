#pragma once

#include "support/filesystem.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace launcher {

// A library that another one needs, and the functions that it needs from it by name.
struct imported_library {
    std::string name;
    std::vector<std::string> functions;
};

// The version of a file, as Windows shows it.
using file_version = std::array<std::uint16_t, 4>;

// What Windows reads in a program or library when it loads it.
struct library_image {
    std::uint16_t machine = 0; // one of those below, or another
    std::vector<imported_library> imports;
    std::vector<std::string> exports;      // sorted
    std::optional<file_version> version{}; // no value without a version resource that can be read
};

constexpr std::uint16_t machine_x86 = 0x014C;
constexpr std::uint16_t machine_x64 = 0x8664;

// Returns the image in the bytes of a file, 32-bit or 64-bit; no value if they are not a program or
// library, or are damaged. Trusts nothing in the file.
std::optional<library_image> parse_library_image(std::string_view bytes);

// Returns the image of a file; no value also if it cannot be read. Does not load the file.
std::optional<library_image> read_library_image(QN::filesystem::path const & file);

} // namespace launcher
