#pragma once

#include "launcher/place.hpp"

#include <windows.h>

namespace launcher {

// A value of HKEY_LOCAL_MACHINE that an installation writes.
struct registry_location {
    wchar_t const * key;
    wchar_t const * value;
};

// Returns the file of a loaded library, or of the program for null. Throws win32_error where
// Windows does not report it.
QN::filesystem::path file_of_module(HMODULE module);

// Returns the folder of this program. Throws win32_error where Windows does not report it.
place program_place();

// Returns the folder of the libraries of Windows.
QN::filesystem::path system_folder();

// Returns the folder that a value names, or that of the file that it names; a place without a
// folder if the value is missing, not a text or not a full path.
place registered_folder(registry_location const & location);
place folder_of_registered_file(registry_location const & location);

// Returns a folder where installations usually are, with environment variables replaced.
place usual_place(wchar_t const * folder);

} // namespace launcher
