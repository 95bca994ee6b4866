#pragma once

#include "doctor/tool_finding.hpp"
#include "support/filesystem.hpp"

#include <chrono>

namespace doctor {

// Runs qnrescue.exe in this folder with --list-devices and returns how that went. Ends it after
// this time.
tool_run run_tool(QN::filesystem::path const & folder,
                  std::chrono::milliseconds limit = std::chrono::minutes(1));

} // namespace doctor
