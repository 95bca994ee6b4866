#pragma once

#include <string>
#include <string_view>
#include <system_error>

namespace QN::win {

// Returns the category of Win32 error numbers; its name is "Win32 Error". Its texts are the
// system's, and it knows the portable condition of an error number.
std::error_category const & win32_category() noexcept;

std::error_code make_error_code(long code) noexcept;

namespace hresult {

// Returns the category of HRESULTs; its name is "HRESULT Error".
std::error_category const & hresult_category() noexcept;

std::error_code make_error_code(long code) noexcept;

namespace detail {

// Returns a text of the system's code page in UTF-8, without the line break at its end.
std::string utf8_from_code_page(std::string_view text);

} // namespace detail

} // namespace hresult

} // namespace QN::win
