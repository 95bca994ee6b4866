#pragma once

#include "platform/cf_ownership.hpp"

#include <fmt/format.h>

#include <optional>
#include <string>
#include <utility>

namespace qnrescue {

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

// The text of the code, "Unknown error" for one that is not listed. A constant string: the caller
// does not release it.
CFStringRef ErrorDescription(Error code) noexcept;

// An error in the tool's domain; the reason is UTF-8. Lacks the texts that cannot be created, and
// is null where the error itself cannot.
error_owner CreateDomainError(Error code, std::string const & reason) noexcept;

// Throws CreateDomainError(code, the formatted reason).
template <typename... Arguments>
[[noreturn]] void throw_error(Error code, fmt::format_string<Arguments...> reason,
                              Arguments &&... arguments) {
    throw CreateDomainError(code, fmt::format(reason, std::forward<Arguments>(arguments)...));
}

// Returns the output form of any error: its "Domain", "Code", "Description" and "FailureReason", as
// far as it has them; what should be a text and is no string is left out. Null for a null error or
// where the dictionary cannot be created.
cf_owner<CFDictionaryRef> DictionaryFromError(CFErrorRef error) noexcept;

// The exit status for an error: its code if that is 0 to 8, whatever its domain, else 1. 0 for a
// null error.
int GetCode(CFErrorRef error) noexcept;

// The string in UTF-8, up to its first NUL; empty optional for null or where it cannot be
// converted.
std::optional<std::string> to_utf8(CFStringRef string);

// The same, with the empty string for what cannot be had.
std::string MakeString(CFStringRef string) noexcept;

// CoreFoundation's description of any object, "(null)" where there is none.
std::string MakeDescription(CFTypeRef value) noexcept;

} // namespace qnrescue
