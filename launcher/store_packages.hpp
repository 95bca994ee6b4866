#pragma once

#include "launcher/place.hpp"

#include <vector>

namespace launcher {

// Returns the folders where the apps of the Microsoft Store that are installed bring the platform's
// libraries; where there is no such app, a place that says so. Throws win32_error where
// advapi32.dll cannot be loaded.
std::vector<place> store_places();

} // namespace launcher
