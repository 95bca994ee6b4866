#pragma once

#include <optional>
#include <system_error>

namespace QN::win {

// Returns the portable (errno) condition that corresponds to a Win32 or Winsock error number, or
// nothing where there is none.
std::optional<std::errc> generic_condition(unsigned long code) noexcept;

} // namespace QN::win
