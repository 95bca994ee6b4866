#pragma once

#include "doctor/system_findings.hpp"

#include <vector>

namespace doctor {

// Returns all services of Windows that are not drivers. Throws win32_error.
std::vector<service> read_services();

} // namespace doctor
