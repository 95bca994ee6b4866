#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace launcher {

// Returns the names of the keys in a key; none where it cannot be read. Throws win32_error where
// advapi32.dll cannot be loaded.
std::vector<std::wstring> registry_keys(HKEY root, wchar_t const * key);

} // namespace launcher
