#pragma once

#include "platform/cf_ownership.hpp"

#include <fmt/format.h>

#include <string>
#include <utility>

namespace qnrescue {

// How the tool throws and passes on its errors.
using error_owner = cf_owner<CFErrorRef>;

// The tool's error codes; the exit status of the process uses the same numbers.
enum class Error : CFIndex {
    none = 0,
    unknown = 1,
    invalid_argument = 2,
    bad_command = 3,
    bad_ecid = 4,
    bad_state = 5,
    recovery_command_failed = 6,
    restore_timeout = 7,
    read_error = 8,
};

// Returns the text of the code, "Unknown error" for one that is not listed. It is a constant
// string: the caller does not release it.
CFStringRef ErrorDescription(Error code) noexcept;

// Returns an error in the tool's domain, or null where it cannot be created. The reason is UTF-8.
// The error lacks the texts that cannot be created.
error_owner CreateDomainError(Error code, std::string const & reason) noexcept;

// Throws CreateDomainError(code, the formatted reason).
template <typename... Arguments>
[[noreturn]] void throw_error(Error code, fmt::format_string<Arguments...> reason,
                              Arguments &&... arguments) {
    throw CreateDomainError(code, fmt::format(reason, std::forward<Arguments>(arguments)...));
}

// Returns the output form of any error: its "Domain", "Code", "Description" and "FailureReason", as
// far as it has them. A text that is not a string is left out. Returns null for a null error and
// where the dictionary cannot be created.
cf_owner<CFDictionaryRef> DictionaryFromError(CFErrorRef error) noexcept;

// Returns the exit status for an error of any domain: its code if that is 0 to 8, else 1. Returns 0
// for a null error.
int GetCode(CFErrorRef error) noexcept;

} // namespace qnrescue
