#pragma once

#include "doctor/finding.hpp"

#include <string>

namespace doctor {

// How a run of qnrescue.exe --list-devices went.
struct tool_run {
    std::string fault{}; // why it could not be run to its end; empty if it was
    unsigned long status = 0;
    std::string output{}; // of both streams
};

// Returns whether the tool lists devices, with what it printed.
finding tool_finding(tool_run const & run);

} // namespace doctor
