#pragma once

#include "doctor/finding.hpp"
#include "launcher/find_platform_libraries.hpp"

#include <vector>

namespace doctor {

// Returns what the search for both libraries found, as the files show it. Loads neither.
std::vector<finding> examine_libraries(launcher::platform_search const & libraries,
                                       launcher::place const & program);

// Loads both libraries, which were found, as qnrescue.exe does and returns how that went.
std::vector<finding> load_libraries(launcher::platform_search const & libraries,
                                    launcher::place const & program);

} // namespace doctor
