#pragma once

namespace launcher {

// Returns the address of a function of advapi32.dll. The library is not imported: those of the
// platform that lie beside the program are found without the registry, and starting with
// advapi32.dll takes longer. Throws win32_error where it cannot be loaded or lacks the function.
void * registry_function(char const * name);

} // namespace launcher
