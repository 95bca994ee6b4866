#pragma once

#include <optional>
#include <system_error>

namespace QN::win {

// The portable (errno) condition that a Win32 or Winsock error number stands for; none where there
// is no counterpart.
std::optional<std::errc> generic_condition(unsigned long code) noexcept;

} // namespace QN::win
