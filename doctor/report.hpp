#pragma once

#include "doctor/finding.hpp"

#include <span>
#include <string>

namespace doctor {

// Returns whether there is no problem among the findings.
bool restore_could_start(std::span<finding const> findings);

// Returns the exit status: 0 if a restore could start, else 1.
int exit_status(std::span<finding const> findings);

// Returns the lines for one finding: its word and text, what to do, its section of the pages.
std::string text_of(finding const & each);

// Returns the last line of the text: whether a restore could start, and how many problems and
// warnings there are.
std::string summary_of(std::span<finding const> findings);

// Returns the document of all findings, which docs/doctor.schema.json describes, and a line feed.
std::string json_of(std::span<finding const> findings);

} // namespace doctor
