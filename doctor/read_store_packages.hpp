#pragma once

#include "doctor/store_findings.hpp"

#include <windows.h>

#include <cstdint>
#include <vector>

namespace doctor {

// The packaging functions of kernel32.dll. Both are null where Windows lacks one.
struct packaging_functions {
    LONG(WINAPI * packages_of_family)
    (wchar_t const * family, std::uint32_t * count, wchar_t ** full_names,
     std::uint32_t * buffer_length, wchar_t * buffer) = nullptr;
    LONG(WINAPI * path_of_package)
    (wchar_t const * full_name, std::uint32_t * length, wchar_t * path) = nullptr;
};

packaging_functions find_packaging_functions();

// Returns the installed packages of the two apps that have the platform's libraries.
std::vector<store_package> read_store_packages(packaging_functions const & windows);

} // namespace doctor
