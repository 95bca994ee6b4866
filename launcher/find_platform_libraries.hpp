#pragma once

#include "launcher/library_search.hpp"

#include <vector>

namespace launcher {

// Where the two libraries of the platform are, for every program that has to find them.
// MobileDevice is looked for in the program's folder, where the registry says, in its usual folder,
// and last in the apps of the Microsoft Store; CoreFoundation in the program's folder, beside
// MobileDevice, and then in Application Support, where older installations have it and may have
// left a stale one.
struct platform_search {
    library_search core_foundation;
    library_search mobile_device;
};
platform_search find_platform_libraries(place const & program);

// Returns the folders, besides each library's own and the program's, in which the libraries that
// were found look for what they need: that of MobileDevice, and Application Support only if
// CoreFoundation is from there, since Windows looks in several in no certain order.
std::vector<QN::filesystem::path> dependency_folders(platform_search const & libraries,
                                                     place const & program);

// Returns the folder of a MobileDevice.dll for 32-bit programs; empty where there is none.
QN::filesystem::path installation_of_32_bit();

} // namespace launcher
