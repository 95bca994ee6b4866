// Formats values for the trace and the log, and writes faults to standard error.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mobile_device {

// Returns 16 hexadecimal digits.
std::string format_ecid(std::uint64_t ecid);

// Returns the text on one line, with control characters as escapes.
std::string on_one_line(std::string_view text);

// Returns the text in quotation marks and on one line; quotation marks inside are not escaped.
std::string in_quotes(std::string_view text);

// Returns "true" or "false".
std::string format_boolean(bool value);

// Returns "set" or "null", which says whether the user gave a context.
std::string format_presence(void const * pointer);

// Writes the text to standard error, as one line and with one call.
void write_error_line(std::string_view text);

} // namespace mobile_device
