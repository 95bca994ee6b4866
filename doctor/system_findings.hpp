#pragma once

#include "doctor/finding.hpp"

#include <string>
#include <vector>

namespace doctor {

// What was read of the system: facts without a judgement, so that tests can make any.

struct windows_version {
    unsigned long major;
    unsigned long minor;
    unsigned long build;
};

struct code_pages {
    unsigned process; // of the functions of Windows that take bytes
    unsigned console; // of its output; 0 without a console
};

struct temporary_folder {
    std::string path;
    std::string fault; // why no file can be written in it; empty if one can
};

struct service {
    std::string name;
    std::string display_name;
    unsigned long state; // as Windows counts: 1 is stopped, 4 is running
};

// Return the judgement of each fact.
finding version_finding(windows_version const & version);
finding code_page_finding(code_pages const & pages);
finding temporary_folder_finding(temporary_folder const & folder);

// Returns the state of those services that attach devices, of a list of all; a warning if there is
// none.
std::vector<finding> service_findings(std::vector<service> const & services);

} // namespace doctor
