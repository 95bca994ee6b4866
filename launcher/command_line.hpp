#pragma once

#include <string>
#include <vector>

namespace launcher {

// The words of the command line, the program's name first, in UTF-8. Throws win32_error.
std::vector<std::string> utf8_arguments();

} // namespace launcher
