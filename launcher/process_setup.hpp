#pragma once

namespace launcher {

// Prepares the process for loading libraries: no dialog stops it, processes that are started later
// do not inherit the standard handles, and libraries are not taken from the current folder or from
// PATH. Throws win32_error.
void prepare_process();

} // namespace launcher
