#include "launcher/environment_variables.hpp"

#include "support/win/win32_error.hpp"

#include <windows.h>

#include <cwchar>

namespace launcher {

std::wstring replace_variables(wchar_t const * text) {
    std::wstring replaced(ExpandEnvironmentStringsW(text, nullptr, 0), L'\0');
    auto const size = static_cast<DWORD>(replaced.size());
    if (ExpandEnvironmentStringsW(text, replaced.data(), size) == 0) {
        auto const error = GetLastError();
        throw QN::win::win32_error("ExpandEnvironmentStrings", error);
    }
    replaced.resize(std::wcslen(replaced.c_str())); // without the null character
    return replaced;
}

} // namespace launcher
