#pragma once

#include <windows.h>

#include <string>
#include <system_error>
#include <vector>

namespace launcher {

// These functions load advapi32.dll when one of them is first called, and throw win32_error where
// it cannot be loaded. The program does not import it: the platform's libraries beside the program
// are found without the registry, and starting with advapi32.dll takes longer. The keys are those
// of the program's own view of the registry, the 64-bit one.

// Returns the text of a value, with environment variables replaced if its type is REG_EXPAND_SZ.
// Sets the error, of the Win32 category, if there is no such value, it is not a text or it is
// longer than any path. Throws win32_error where variables cannot be replaced.
std::wstring registry_text(HKEY root, wchar_t const * key, wchar_t const * value,
                           std::error_code & error);

// Returns the names of the keys in a key; an empty list if it cannot be read.
std::vector<std::wstring> registry_keys(HKEY root, wchar_t const * key);

// Returns the text with each %variable% that is set replaced by its value, as in a REG_EXPAND_SZ
// value. Does not use the registry. Throws win32_error.
std::wstring replace_variables(wchar_t const * text);

} // namespace launcher
