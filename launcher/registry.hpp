#pragma once

#include <windows.h>

#include <string>
#include <system_error>

namespace launcher {

// Returns the text of a value, with environment variables replaced where its type asks for that;
// the key is one of the view that is the program's own, the 64-bit one. Sets the error, of the
// Win32 category, where there is no such value, it is no text or longer than any path; throws
// win32_error where variables cannot be replaced or advapi32.dll cannot be loaded.
std::wstring registry_text(HKEY root, wchar_t const * key, wchar_t const * value,
                           std::error_code & error);

} // namespace launcher
