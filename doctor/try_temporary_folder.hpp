#pragma once

#include "doctor/system_findings.hpp"

namespace doctor {

// Creates a file in the folder where the tool has its temporary files, and removes it again;
// returns the folder and whether that worked.
temporary_folder try_temporary_folder();

} // namespace doctor
