#pragma once

#include "doctor/finding.hpp"

#include <string>

namespace doctor {

// How a run of qnrescue.exe --list-devices went.
struct tool_run {
    std::string fault{}; // why it could not be run to its end; empty if it was
    unsigned long status = 0;
    std::string output{}; // of both streams
    bool has_started = true;
};

// Returns whether the tool, and with it the platform's libraries, ended otherwise than after a
// document: by a crash, at the time limit or because a library ended the process.
bool has_broken_down(tool_run const & run);

// Returns whether the tool lists devices, with what it printed.
finding tool_finding(tool_run const & run);

} // namespace doctor
