#pragma once

#include <string>

namespace doctor {

// Returns a name for a temporary file, which ends in the time: for random names, Boost would import
// one more library of Windows. The file is to be created only if it is new.
std::string temporary_file_name();

} // namespace doctor
