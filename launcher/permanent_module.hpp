#pragma once

#include "support/filesystem.hpp"
#include "support/win/win32_module.hpp"

namespace launcher {

// Loads the library of this full path, with what it needs from its own folder and the folders that
// the process searches, never from the current one. It stays loaded to the end of the process: the
// tool's threads may still run in it when main returns. Throws win32_error.
QN::win::win32_module const & load_permanently(QN::filesystem::path const & path);

} // namespace launcher
