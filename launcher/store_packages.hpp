#pragma once

#include "launcher/place.hpp"

#include <vector>

namespace launcher {

// Returns the folders in which the installed apps of the Microsoft Store have the platform's
// libraries; if there is no such app, a place that says so. Throws win32_error where advapi32.dll
// cannot be loaded.
std::vector<place> store_places();

} // namespace launcher
