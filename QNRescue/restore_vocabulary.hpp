// Formatters that print the codes of the restore interface as words. All take the format
// specification of a string.
#pragma once

#include "platform/MobileDevice.h"

#include <fmt/format.h>

#include <array>
#include <string>
#include <string_view>

namespace qnrescue {

// The restore step that a status report carries.
enum class operation_type : int {};

// How texts begin that other restore libraries return for a code without a text.
inline constexpr std::array error_fall_backs{"Unrecognized error", "Unrecognized server error"};
inline constexpr std::array operation_fall_backs{"Unrecognized operation"};

} // namespace qnrescue

// Prints "Unknown", "DFU", "Recovery", "RestoreOS", "BootedOS", or "<invalid device state N>".
template <>
struct fmt::formatter<AMRestorableDeviceState> : fmt::formatter<std::string_view> {
    fmt::format_context::iterator format(AMRestorableDeviceState state,
                                         fmt::format_context & context) const;
};

// Prints "connected", "disconnected", or "<invalid notification type N>".
template <>
struct fmt::formatter<AMRestorableDeviceNotificationType> : fmt::formatter<std::string_view> {
    fmt::format_context::iterator format(AMRestorableDeviceNotificationType type,
                                         fmt::format_context & context) const;
};

template <>
struct fmt::formatter<AMRError> : fmt::formatter<std::string_view> {
    // Returns the text of the code, or "Unknown error N".
    static std::string get_error_str(AMRError code);

    fmt::format_context::iterator format(AMRError code, fmt::format_context & context) const;
};

// Prints the text of the step, or "Unknown operation N".
template <>
struct fmt::formatter<qnrescue::operation_type> : fmt::formatter<std::string_view> {
    fmt::format_context::iterator format(qnrescue::operation_type operation,
                                         fmt::format_context & context) const;
};
