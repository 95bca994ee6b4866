#pragma once

#include "launcher/library_search.hpp"

namespace launcher {

// Where the two libraries of the platform are: in the program's folder, else where the registry
// says, else in the usual folders. Each is looked for on its own.
struct platform_search {
    library_search core_foundation;
    library_search mobile_device;
};
platform_search find_platform_libraries(place const & program);

// Lets installed libraries find what they need in their turn. Throws win32_error where Windows
// refuses a folder.
void add_installed_folders(platform_search const & libraries);

} // namespace launcher
