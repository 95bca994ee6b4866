#pragma once

#include <string>

namespace launcher {

// The text with each %variable% that is set replaced by its value. Throws win32_error.
std::wstring replace_variables(wchar_t const * text);

} // namespace launcher
