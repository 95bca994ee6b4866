// How values are written in the trace and in the log, and faults on standard error.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mobile_device {

// 16 hexadecimal digits.
std::string format_ecid(std::uint64_t ecid);

// The text with control characters written as escapes, so that it stays on one line.
std::string on_one_line(std::string_view text);

// In quotation marks and on one line; what is quoted is not escaped otherwise.
std::string in_quotes(std::string_view text);

// "true" or "false".
std::string format_boolean(bool value);

// Whether the user gave a context: "set" or "null".
std::string format_presence(void const * pointer);

// Writes the text to standard error, as one line and with one call.
void write_error_line(std::string_view text);

} // namespace mobile_device
