#pragma once

#include "launcher/place.hpp"

#include <windows.h>

namespace launcher {

// A value of HKEY_LOCAL_MACHINE that an installation leaves.
struct registry_location {
    wchar_t const * key;
    wchar_t const * value;
};

// Returns the file of a library that is loaded, or of the program for null. Throws win32_error
// where Windows does not tell it.
QN::filesystem::path file_of_module(HMODULE module);

// The folder of this program. Throws win32_error where Windows does not tell it.
place program_place();

// The folder that a value names, or that of the file that it names. A value that is missing, no
// text or no full path names none.
place registered_folder(registry_location const & location);
place folder_of_registered_file(registry_location const & location);

// A folder where installations usually are; environment variables in it are replaced.
place usual_place(wchar_t const * folder);

} // namespace launcher
