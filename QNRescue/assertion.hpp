#pragma once

#include <fmt/format.h>

#include <source_location>
#include <stdexcept>
#include <string_view>

namespace qnrescue {

// Throws std::invalid_argument with "UNIT:LINE:FUNCTION Assertion TEXT failed." for a broken
// promise of the caller's.
[[noreturn]] inline void
fail_assertion(std::string_view unit, std::string_view function, std::string_view text,
               std::source_location const & location = std::source_location::current()) {
    throw std::invalid_argument(
        fmt::format("{}:{}:{} Assertion {} failed.", unit, location.line(), function, text));
}

} // namespace qnrescue
