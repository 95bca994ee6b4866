#pragma once

#include "launcher/library_search.hpp"

namespace launcher {

// Where the two libraries of the platform are.
struct platform_search {
    search_result core_foundation;
    search_result mobile_device;
};

// Searches for both libraries. MobileDevice is looked for in the program's folder, where the
// registry says, in its usual folder, and last in the apps of the Microsoft Store; CoreFoundation
// in the program's folder, beside MobileDevice, and then in Application Support, where older
// installations have it and may have left an outdated one. Throws win32_error where advapi32.dll
// cannot be loaded.
platform_search find_platform_libraries(place const & program,
                                        search_extent extent = search_extent::until_found);

// Returns the folder of a MobileDevice.dll for 32-bit programs; empty if there is none.
QN::filesystem::path installation_of_32_bit();

} // namespace launcher
