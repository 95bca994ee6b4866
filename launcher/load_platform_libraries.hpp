#pragma once

#include "launcher/place.hpp"

namespace launcher {

// Finds and loads CoreFoundation.dll and MobileDevice.dll, so that the forwarders of
// libdevforwardmin.dll lead to them, and checks that they have every name it forwards. Throws
// std::runtime_error whose text tells people what is missing, where it was looked for and what to
// install; win32_error where Windows refuses a folder.
void load_platform_libraries(place const & program);

} // namespace launcher
