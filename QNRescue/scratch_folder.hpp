#pragma once

#include "support/filesystem.hpp"

#include <boost/system/error_code.hpp>

namespace qnrescue {

// Returns a path with a random name in the system's temporary folder, for what one run leaves on
// disk. Creates nothing. Throws QN::filesystem::filesystem_error where the system has no temporary
// folder or no random digits.
QN::filesystem::path new_scratch_location();

// Removes the folder with everything in it and returns the error if that fails. A folder that does
// not exist is no error.
boost::system::error_code remove_scratch_folder(QN::filesystem::path const & folder);

} // namespace qnrescue
