#pragma once

#include "launcher/find_platform_libraries.hpp"
#include "launcher/forwarded_names.hpp"
#include "support/win/win32_module.hpp"

#include <vector>

namespace launcher {

// Finds and loads CoreFoundation.dll and MobileDevice.dll, so that the forwarders of
// libdevforwardmin.dll lead to them, and checks that they have every name it forwards. Throws
// std::runtime_error whose text says, for people, what is missing, where it was looked for and what
// to install; win32_error where Windows refuses a folder.
void load_platform_libraries(place const & program);

// Returns the folders in which the libraries find what they need, besides each library's own: the
// program's, that of MobileDevice, and Application Support only if CoreFoundation is from there.
std::vector<QN::filesystem::path> dependency_folders(platform_search const & libraries,
                                                     place const & program);

// Lets the process look in these folders, of which there are few, since Windows looks in several in
// no certain order. Returns them. Throws win32_error.
std::vector<QN::filesystem::path> add_dependency_folders(platform_search const & libraries,
                                                         place const & program);

// Returns the names that libdevforwardmin.dll forwards to this library and that it lacks.
std::vector<char const *> missing_names(QN::win::win32_module const & module, library owner);

} // namespace launcher
