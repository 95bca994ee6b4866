#include "QNRescue/restore_vocabulary.hpp"

#include "QNRescue/qnrescue.h"
#include "platform/cf_ownership.hpp"
#include "platform/cf_strings.hpp"

#include <algorithm>
#include <array>
#include <span>

namespace {

// The text, or "Unknown KIND N" where it says of the code that there is none.
std::string text_or_number(qnrescue::cf_owner<CFStringRef> const & string,
                           std::span<char const * const> fall_backs, std::string_view kind,
                           int code) {
    auto const text = qnrescue::to_utf8(string.get());
    if (text && *text != "Unknown" && std::ranges::find(fall_backs, *text) == fall_backs.end()) {
        return *text;
    }
    return fmt::format("Unknown {} {}", kind, code);
}

// The word at the number's place, or "<invalid KIND N>".
std::string word_or_invalid(std::span<std::string_view const> words, std::string_view kind,
                            int number) {
    auto const index = static_cast<unsigned int>(number);
    return index < words.size() ? std::string(words[index])
                                : fmt::format("<invalid {} {}>", kind, number);
}

} // namespace

using string_formatter = fmt::formatter<std::string_view>;

fmt::format_context::iterator
fmt::formatter<AMRestorableDeviceState>::format(AMRestorableDeviceState state,
                                                fmt::format_context & context) const {
    constexpr std::array<std::string_view, 5> words{"Unknown", "DFU", "Recovery", "RestoreOS",
                                                    "BootedOS"};
    return string_formatter::format(word_or_invalid(words, "device state", state), context);
}

fmt::format_context::iterator
fmt::formatter<AMRestorableDeviceNotificationType>::format(AMRestorableDeviceNotificationType type,
                                                           fmt::format_context & context) const {
    constexpr std::array<std::string_view, 2> words{"connected", "disconnected"};
    return string_formatter::format(word_or_invalid(words, "notification type", type), context);
}

std::string fmt::formatter<AMRError>::get_error_str(AMRError code) {
    return text_or_number(qnrescue::adopt(AMRLocalizedCopyStringForAMRError(code)),
                          qnrescue::error_fall_backs, "error", code);
}

fmt::format_context::iterator
fmt::formatter<AMRError>::format(AMRError code, fmt::format_context & context) const {
    return string_formatter::format(get_error_str(code), context);
}

fmt::format_context::iterator
fmt::formatter<qnrescue::operation_type>::format(qnrescue::operation_type operation,
                                                 fmt::format_context & context) const {
    auto const code = static_cast<int>(operation);
    return string_formatter::format(
        text_or_number(qnrescue::adopt(AMRLocalizedCopyStringForAMROperation(code)),
                       qnrescue::operation_fall_backs, "operation", code),
        context);
}
