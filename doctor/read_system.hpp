#pragma once

#include "doctor/system_findings.hpp"

namespace doctor {

// Returns the version of Windows itself, whatever the program's manifest says. Throws win32_error.
windows_version read_windows_version();

// Returns the code pages of this process and of its console.
code_pages read_code_pages();

} // namespace doctor
