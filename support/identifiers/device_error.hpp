#pragma once

#include <system_error>

namespace QN::SharedSupport::ios_device {

// Errors of the device support library. Nothing in this project raises one.
enum class errc { success = 0 };

// Returns the category of these errors, whose name is "libportbay".
std::error_category const & device_category() noexcept;

std::error_code make_error_code(errc code) noexcept;

} // namespace QN::SharedSupport::ios_device

template <>
struct std::is_error_code_enum<QN::SharedSupport::ios_device::errc> : std::true_type {};
